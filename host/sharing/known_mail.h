// host/sharing/known_mail.h: which mails a folder holds already, for an import that makes no doubles.
#ifndef QUORVANE_HOST_SHARING_KNOWN_MAIL_H_
#define QUORVANE_HOST_SHARING_KNOWN_MAIL_H_

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "host/exchange/revision.h"
#include "host/store/profile.h"
#include "quorvane3/mapi.h"

namespace quorvane::host {

// The items that a folder held when this was made. Each counts for one mail: a mail that lies in a mailbox
// file twice comes in twice, and the same file once more brings nothing new.
class KnownMail {
public:
    // Reads a folder's table. Throws a HostError.
    //
    // wants  the items that count, by their entry identifiers; empty: all do.
    KnownMail(const MailSession& session, IMAPIFolder& folder,
              const std::function<bool(const std::string&)>& wants = {});

    // The entry identifier of an item that wasn't taken yet and is the same mail as `message`, which isn't
    // saved; it is taken then. Empty where there is none. The same is one that came from the same bytes, and
    // whose text and attachments are still those; or one of the same content in everything but what a reader
    // makes of it. Items are looked at where the Message-ID is the same, or there is none and the time is.
    // Throws a HostError where `message` can't be read; an item that can't be is another mail.
    std::string Take(IMessage& message);

private:
    // What tells whether two mails are the same; see Take.
    struct Identity {
        // Of the bytes that it came from, with its text and attachments; nothing without these bytes.
        std::optional<exchange::ContentDigest> original;
        exchange::ContentDigest content;
    };
    struct DigestHash {
        std::size_t operator()(const exchange::ContentDigest& digest) const noexcept;
    };
    using ItemsByDigest = std::unordered_map<exchange::ContentDigest, std::vector<std::size_t>, DigestHash>;
    // The items of one key. Each is read once, when nothing that was read before it was the mail.
    struct Alike {
        std::vector<std::string> items;  // entry identifiers
        std::vector<bool> taken;         // of the first ones, which were read
        ItemsByDigest byOriginal;
        ItemsByDigest byContent;
    };

    static Identity IdentityOf(IMessage& message, const std::string& shown);
    // Reads the next item of `alike` that can be read; false: there is none.
    bool ReadNext(Alike& alike) const;
    static std::string TakeOneOf(Alike& alike, const Identity& mail);

    const MailSession& session_;
    std::unordered_map<std::string, Alike> items_;
};

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_SHARING_KNOWN_MAIL_H_
