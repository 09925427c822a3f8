// msgstore/store/store_message.h: a message of a store, for the objects that callers see.
#ifndef QUORVANE_MSGSTORE_STORE_STORE_MESSAGE_H_
#define QUORVANE_MSGSTORE_STORE_STORE_MESSAGE_H_

#include <optional>

#include "msgstore/store/message_rows.h"
#include "msgstore/store/message_source.h"

namespace quorvane {

// One opened message. Reads all that it gives out at one moment, its first use, and again after a save.
class StoreMessage final : public MessageBackend {
public:
    // A message that is in the store.
    StoreMessage(std::shared_ptr<StoreCore> core, const MessageRow& row) : core_(std::move(core)), row_(row)
    {}
    // A message that its first save is going to put into a folder.
    StoreMessage(std::shared_ptr<StoreCore> core, std::int64_t folderId, const ObjectGuid& folderGuid,
                 bool isAssociated);

    [[nodiscard]] HRESULT ReadProperties(PropertyBag& properties) noexcept override;
    [[nodiscard]] HRESULT ReadRecipients(std::vector<PropertyBag>& recipients) noexcept override;
    [[nodiscard]] HRESULT ReadAttachments(std::vector<AttachmentSlot>& attachments) noexcept override;
    PropertyNames& Names() noexcept override { return core_->Names(); }
    [[nodiscard]] HRESULT Identity(PropertyBag& identity) noexcept override;
    bool SavedFlags(LONG& flags) noexcept override
    {
        flags = static_cast<LONG>(row_.flags);
        return row_.id != 0;
    }
    ULONG Access() noexcept override { return MAPI_ACCESS_MODIFY | MAPI_ACCESS_READ | MAPI_ACCESS_DELETE; }
    bool Exists() noexcept override { return row_.id != 0; }
    [[nodiscard]] HRESULT Save(const MessageImage& image, ULONG flags) noexcept override;
    bool CanSubmit() const noexcept override { return true; }
    // To the Outbox; a new message is made there.
    [[nodiscard]] HRESULT Submit(const MessageImage& image, ULONG flags) noexcept override;
    // A message that isn't in the store yet has 0.
    [[nodiscard]] HRESULT Status(LONG& status) noexcept override;
    [[nodiscard]] HRESULT SetReadState(bool read) noexcept;

private:
    [[nodiscard]] HRESULT Load();
    [[nodiscard]] HRESULT CheckUnchanged(SqliteConnection& connection, ULONG flags, MessageRow& row) const;
    [[nodiscard]] HRESULT SaveIn(SqliteConnection& connection, const MessageImage& image, ULONG flags,
                                 MessageRow& row) const;

    const std::shared_ptr<StoreCore> core_;
    MessageRow row_;
    std::optional<PartImage> part_;
};

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_STORE_STORE_MESSAGE_H_
