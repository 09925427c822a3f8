// session/registration/class_keys.h: what the classes of the library leave in the registry of classes.
//
// Plain data; who writes it is in registration.h. Keys are named from HKEY_CLASSES_ROOT on. Any thread may
// call.
#ifndef QUORVANE_ENGINE_SESSION_REGISTRATION_CLASS_KEYS_H_
#define QUORVANE_ENGINE_SESSION_REGISTRATION_CLASS_KEYS_H_

#include <optional>
#include <span>
#include <vector>

#include "engine/session/class_catalogue.h"

namespace quorvane {

// One value of a key; an empty name is the default value. Without a text the key is made, and that is all.
struct ClassesText {
    OleString key;
    OleString name;
    std::optional<OleString> text;
};

// The application of whose processes the classes are part. It goes by the identifier of the type library.
const GUID& ApplicationId() noexcept;

// Every value of the classes and of their application, a key before the keys below it.
//
// modulePath  [in]  full path of the module that the classes are in.
//
// Throws std::bad_alloc.
std::vector<ClassesText> ClassTexts(std::span<const CatalogueEntry> classes, OleStringView modulePath);

// The keys that belong to the classes and their application alone: those of ClassTexts lie in or below them.
// Throws std::bad_alloc.
std::vector<OleString> ClassKeys(std::span<const CatalogueEntry> classes);

// Keys and a value that the system writes for the type library and its interfaces as well: so that whoever
// registers it can see to it beforehand that they may be written, and take them back. Throws std::bad_alloc.
std::vector<ClassesText> TypeLibraryTexts();

}  // namespace quorvane

#endif  // QUORVANE_ENGINE_SESSION_REGISTRATION_CLASS_KEYS_H_
