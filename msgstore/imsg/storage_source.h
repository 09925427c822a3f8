// msgstore/imsg/storage_source.h: messages and attachments read from their storages.
#ifndef QUORVANE_MSGSTORE_IMSG_STORAGE_SOURCE_H_
#define QUORVANE_MSGSTORE_IMSG_STORAGE_SOURCE_H_

#include "msgstore/imsg/storage_folder.h"
#include "msgstore/message/message_backend.h"

namespace quorvane {

// A message in a folder: the outermost one, or one embedded in an attachment.
class StorageMessage final : public MessageSource {
public:
    explicit StorageMessage(std::shared_ptr<StorageFolder> folder) : folder_(std::move(folder)) {}

    [[nodiscard]] HRESULT ReadProperties(PropertyBag& properties) noexcept override;
    [[nodiscard]] HRESULT ReadRecipients(std::vector<PropertyBag>& recipients) noexcept override;
    [[nodiscard]] HRESULT ReadAttachments(std::vector<AttachmentSlot>& attachments) noexcept override;

private:
    const std::shared_ptr<StorageFolder> folder_;
};

// An attachment in a storage of its own, opened when it's read. Its number is that of the storage's name.
class StorageAttachment final : public AttachmentSource {
public:
    StorageAttachment(std::shared_ptr<StorageFolder> message, ULONG number)
        : message_(std::move(message)), number_(number)
    {}

    [[nodiscard]] HRESULT ReadProperties(PropertyBag& properties) noexcept override;
    [[nodiscard]] HRESULT OpenMessage(std::shared_ptr<MessageSource>& message) noexcept override;

    // Whether it stands in that folder under that number, so that it needn't be written there.
    bool IsIn(const StorageFolder& message, ULONG number) const noexcept
    {
        return message_.get() == &message && number_ == number;
    }

private:
    [[nodiscard]] HRESULT ReadObject(const std::shared_ptr<StorageFolder>& folder, PropertyBag& properties);

    const std::shared_ptr<StorageFolder> message_;
    const ULONG number_;
};

// The numbers of all storages of a folder whose names have the prefix, in ascending order.
[[nodiscard]] HRESULT NumbersIn(StorageFolder& folder, OleStringView prefix, std::vector<ULONG>& numbers);

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_IMSG_STORAGE_SOURCE_H_
