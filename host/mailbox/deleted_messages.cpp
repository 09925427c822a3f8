#include "host/mailbox/deleted_messages.h"

namespace quorvane::host {

namespace {

// Where the GUID of a message stands in the text of its entry identifier (docs/message-store.md).
constexpr std::size_t kGuidAt = 48;
constexpr std::size_t kGuidSize = 32;

}  // namespace

std::string GuidIn(const std::string& entryId)
{
    return entryId.size() == kGuidAt + kGuidSize ? entryId.substr(kGuidAt) : std::string();
}

DeletedMessages::DeletedMessages(const Mailbox& mailbox)
{
    Database store(mailbox.StorePath().string(), Database::Mode::kReadOnly);
    Statement first(store, "SELECT ifnull(min(number), 1) FROM change");
    remembersAll_ = first.Step() && first.Number(0) == 1;
    Statement select(store, "SELECT hex(object_guid) FROM change WHERE kind = 5 AND event = 8");
    while (select.Step())
        guids_.insert(select.Text(0));
}

bool DeletedMessages::Has(const std::string& entryId) const
{
    return guids_.contains(GuidIn(entryId));
}

}  // namespace quorvane::host
