// host/mime/mail_layout.h: where the parts of a mail lie in its bytes.
#ifndef QUORVANE_HOST_MIME_MAIL_LAYOUT_H_
#define QUORVANE_HOST_MIME_MAIL_LAYOUT_H_

#include <cstdint>
#include <optional>
#include <unordered_map>

#include "host/mail/mail_bytes.h"
#include "host/mime/gmime_ptr.h"

namespace quorvane {

// Offsets in the mail's bytes.
struct PartPlace {
    std::uint64_t delimiter = 0;       // the line before it
    std::uint64_t begin = 0;           // its header
    std::uint64_t body = 0;            // behind the blank line
    std::uint64_t end = 0;             // the line end before the next delimiter line, or the end of the mail
    std::uint64_t next = 0;            // the next delimiter line, or the end of the mail
    GMimeObject* multipart = nullptr;  // that it is a part of; null: it is the mail itself
    bool isSealing = false;            // a multipart/signed or multipart/encrypted
    std::uint64_t close = 0;           // of a multipart: its closing delimiter line; where none is, the end
    bool isClosed = false;
};

// Of a mail and its multiparts; what lies in a nested mail is a part of that one's bytes. Refers to the tree,
// which is to outlive it, and not to the bytes. Any thread, once it is made.
class MailLayout {
public:
    // Finds the parts of `mail`, which was parsed from `bytes` as they are. Nothing where the lines of the
    // bytes and the tree don't agree, and where multiparts are nested deeper than 16 levels. What can't be
    // read is told by the bytes' Result.
    static std::optional<MailLayout> Of(const MailBytes& bytes, GMimeMessage* mail);

    // part  of the tree, not in a nested mail; of others std::out_of_range is thrown.
    [[nodiscard]] const PartPlace& PlaceOf(GMimeObject* part) const { return places_.at(part); }
    // The outermost multipart/signed or multipart/encrypted that a part lies in; null: it lies in none.
    [[nodiscard]] GMimeObject* SealOf(GMimeObject* part) const;

private:
    std::unordered_map<GMimeObject*, PartPlace> places_;
};

}  // namespace quorvane

#endif  // QUORVANE_HOST_MIME_MAIL_LAYOUT_H_
