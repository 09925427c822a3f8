// host/mime/mail_editor.h: a mail's bytes with some parts exchanged, added or taken out.
#ifndef QUORVANE_HOST_MIME_MAIL_EDITOR_H_
#define QUORVANE_HOST_MIME_MAIL_EDITOR_H_

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "host/mail/mail_bytes.h"
#include "host/mime/eml_writer.h"
#include "host/mime/mail_layout.h"

namespace quorvane {

// Notes changes of parts and writes the mail with them. All that no change is of stays to the byte. A
// multipart/signed or multipart/encrypted in which something is changed becomes a multipart/mixed of the same
// parts: what seals it doesn't fit it any more.
//
// Parts are those of the tree that the layout was made of, never null. One thread at a time. Throws
// std::bad_alloc alone.
class MailEditor {
public:
    // Writes a whole part: its header fields, a blank line, its content without a last line end. What goes to
    // `out` gets the mail's line ends; what goes to `bytes`, which is the same place, stays as it is.
    using WritePart = std::function<HRESULT(EmlWriter& out, std::ostream& stream, MailBytes& bytes)>;
    // Writes a content.
    using WriteContent = std::function<HRESULT(EmlWriter& out)>;

    // root  the outermost part of the tree.
    // `bytes` and `layout` are to outlive it.
    MailEditor(const MailBytes& bytes, const MailLayout& layout, GMimeObject* root);

    // A part of a multipart.
    void TakeOut(GMimeObject* part);
    // Keeps the other fields of the part's header.
    void ReplaceContent(GMimeObject* part, std::string type, std::string encoding, WriteContent content);
    // Of the mail itself the fields stay that don't tell of its content.
    void ReplacePart(GMimeObject* part, WritePart by);
    // Before a part of a multipart, behind what was put there already.
    void InsertBefore(GMimeObject* part, WritePart another);
    // Behind the last part of a multipart, which is closed where it wasn't.
    void Append(GMimeObject* multipart, WritePart another);
    // Makes of a part a multipart of it and others, of a type like `multipart/mixed`. A part that is wrapped
    // already lies in the inner one.
    void Wrap(GMimeObject* part, std::string type, std::vector<WritePart> before,
              std::vector<WritePart> behind);

    // False once one of the changes can't be made.
    [[nodiscard]] bool CanBeDone() const noexcept { return canBeDone_; }
    void GiveUp() noexcept { canBeDone_ = false; }

    // Calls what writes contents and parts, in the order of the mail. Only while CanBeDone.
    //
    // edited  empty; after a failure of no use.
    //
    // S_OK
    // MAPI_E_CORRUPT_DATA  two changes are of the same bytes.
    // E_OUTOFMEMORY; STG_E_* where bytes can't be read or set aside; the codes of what writes parts.
    [[nodiscard]] HRESULT Write(MailBytes& edited) const;

private:
    struct Wrapping {
        std::string type;
        std::vector<WritePart> before;
        std::vector<WritePart> behind;
    };
    struct Change {
        bool isGone = false;
        bool isUnsealed = false;
        std::string type;      // of another content
        std::string encoding;  // of another content
        WriteContent content;
        WritePart whole;
        std::vector<Wrapping> wrappings;  // from the inside out
        std::vector<WritePart> before;
        std::vector<WritePart> appended;
    };
    // What comes in the place of bytes.
    struct Splice;
    class Writer;

    Change& ChangeOf(GMimeObject* part);
    [[nodiscard]] int DepthOf(GMimeObject* part) const;
    [[nodiscard]] bool IsNewHeader(GMimeObject* part, const Change& change) const;
    void AddSplices(GMimeObject* part, const Change& change, Writer& writer,
                    std::vector<Splice>& splices) const;
    [[nodiscard]] std::string HeaderOf(GMimeObject* part) const;
    [[nodiscard]] std::string NewHeader(GMimeObject* part, const Change& change) const;

    const MailBytes& bytes_;
    const MailLayout& layout_;
    GMimeObject* const root_;
    bool hasCrlf_ = false;
    bool tellsItsSize_ = false;
    bool canBeDone_ = true;
    std::map<GMimeObject*, Change> changes_;
};

}  // namespace quorvane

#endif  // QUORVANE_HOST_MIME_MAIL_EDITOR_H_
