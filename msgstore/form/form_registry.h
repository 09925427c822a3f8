// msgstore/form/form_registry.h: which form shows messages of which class, kept in the user's registry.
//
//   HKEY_CURRENT_USER\Software\Brindlemoor\Quorvane\Message Store\Forms
//       Viewer, Wait            of messages for whose class there is no key
//     \<message class>
//       Library, ClassID        the form is an object of that class, which the library's DllGetClassObject
//       makes Viewer, Wait            the message is shown as a file of MIME text with a program
//
// A key serves its class and those below it: "IPM.Note" also "IPM.Note.Secure", where that has no key of its
// own. Library is a path; ClassID an identifier in braces; Viewer a program (a path, or a name that is looked
// for where programs are), or "-" for text on the standard output; Wait a number: other than 0, the program
// is waited for. Read anew at every call; any thread.
#ifndef QUORVANE_MSGSTORE_FORM_FORM_REGISTRY_H_
#define QUORVANE_MSGSTORE_FORM_FORM_REGISTRY_H_

#include <string>
#include <string_view>

#include "platform/com/com.h"

namespace quorvane {

// How messages of a class are shown: by an object if `library` isn't empty, else by a program.
struct FormChoice {
    std::string library;
    CLSID classId{};
    std::string viewer;
    bool wait = false;
};

// The program at first. On Windows empty: the one that the system has for .eml files.
std::string_view DefaultViewer() noexcept;
// The viewer that is none: text on the standard output.
inline constexpr std::string_view kTextViewer = "-";

// exact  false: where the class has no form, that of a class above, and at the end the default viewer.
//
// MAPI_E_NOT_FOUND: `exact`, and there is no form for this very class. Throws std::bad_alloc.
[[nodiscard]] HRESULT FindForm(std::string_view messageClass, bool exact, FormChoice& form);

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_FORM_FORM_REGISTRY_H_
