// host/sharing/item_versions.h: which version of a shared item is here, and what becomes of one that comes.
//
// What is known of an item are its heads (exchange/item_heads.h), in host.db. Whoever changes the content of
// a message here makes a version; reading, answering or flagging it makes none. What another device sends is
// joined with what is known here, a change here that isn't sent yet included, and so all devices come to show
// the same. What is replaced without having been seen, or deleted by somebody else, is kept in the trash
// first; and where it was made here, it comes back as an item of its own (conflict_copies.h).
#ifndef QUORVANE_HOST_SHARING_ITEM_VERSIONS_H_
#define QUORVANE_HOST_SHARING_ITEM_VERSIONS_H_

#include <mutex>
#include <optional>
#include <string>

#include "host/exchange/comparison.h"
#include "host/mailbox/item_text.h"
#include "host/mailbox/mailbox.h"
#include "host/mailbox/records.h"
#include "host/mailbox/trash.h"
#include "host/sharing/item_state.h"
#include "host/store/profile.h"

namespace quorvane::host {

// A revision as the trash and its entries name it: as bytes, in hexadecimal.
std::string RevisionText(const exchange::Revision& revision);

// What another device sent of an item.
struct Arrival {
    std::string id;
    std::string folderId;
    std::string sender;  // the member
    std::string text;    // the item's CustomInfo
    bool hasMessage = false;
};

// Any thread. Methods throw a HostError.
class ItemVersions {
public:
    ItemVersions(const Mailbox& mailbox, const MailSession& mail, Records& records, ItemState& state)
        : mailbox_(mailbox), mail_(mail), records_(records), state_(state), trash_(mailbox)
    {}

    using Lock = std::unique_lock<std::recursive_mutex>;
    // Held by whoever reads what is known of an item and writes it anew.
    Lock Hold() { return Lock(mutex_); }

    // What is known of an item, the present state of its message in this folder included: as one more
    // version, if its content isn't what is known, which then is pending. Nothing is noted.
    ItemRecord Present(const std::string& id, const std::string& folderId, IMessage& message);
    // The same of an item that was deleted here. Another member's edit that hadn't been seen may come back
    // with it.
    ItemRecord Deleted(const std::string& id, const std::string& folderId);
    // What is known of an item.
    ItemRecord Known(const std::string& id, const std::string& folderId);

    // What is to be done with an item that came.
    struct Verdict {
        bool isApplied = false;  // by the engine; `record` is to be noted first
        bool isNoted = false;    // `record` differs from what was noted
        ItemRecord record;
    };
    // What is replaced or deleted by it is in the trash when this returns.
    Verdict Judge(const Arrival& arrival);

    // Before the message of an item goes that isn't whole here: what was made of it meanwhile, if anything,
    // is kept, and becomes an item of its own.
    void KeepUnseen(const ItemRecord& record, IMessage& message);

    Trash& Removed() noexcept { return trash_; }

private:
    void Change(ItemRecord& record, std::uint64_t when,
                const std::optional<exchange::ContentDigest>& content);
    void ShowHeads(ItemRecord& record, const std::string& member) const;
    bool IsUnseen(const ItemRecord& record, IMessage& message) const;
    exchange::Revision Unseen(const std::string& id, IMessage& message) const;
    void Keep(const ItemRecord& before, const ItemRecord& after, IMessage& message,
              const std::optional<exchange::Revision>& unseen);
    std::string FolderName(const std::string& folderId);
    ItemRecord KnownWith(const Arrival& arrival, const SharingRow& row, IMessage& message, bool& isUnseen);
    // What there is of an item here.
    struct Held {
        bool hasRow = false;
        IMessage* message = nullptr;
        bool isUnseen = false;  // whoever changed the message didn't see what the item shows
    };
    void Join(const Arrival& arrival, const ItemText& sent, const Held& here, Verdict& verdict);

    const Mailbox& mailbox_;
    const MailSession& mail_;
    Records& records_;
    ItemState& state_;
    Trash trash_;
    std::recursive_mutex mutex_;
};

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_SHARING_ITEM_VERSIONS_H_
