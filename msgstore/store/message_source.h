// msgstore/store/message_source.h: a stored message and its attachments, read from their parts.
//
// A part is never changed once a message refers to it, but for a message's outermost part; a changed
// attachment gets a new part. So what was opened before someone else's save still reads as it was, or fails
// with MAPI_E_OBJECT_CHANGED.
#ifndef QUORVANE_MSGSTORE_STORE_MESSAGE_SOURCE_H_
#define QUORVANE_MSGSTORE_STORE_MESSAGE_SOURCE_H_

#include "msgstore/message/message_backend.h"
#include "msgstore/store/store_core.h"

namespace quorvane {

// A message's part as it was read: bytes, so that each reader gets bags of its own.
struct PartImage {
    std::int64_t id = 0;
    Bytes properties;
    Bytes recipients;
    PropertyBag largeValues;
    std::vector<std::pair<ULONG, std::int64_t>> attachments;  // numbers and part ids, ascending
};

// Reads the outermost part of a message; MAPI_E_OBJECT_CHANGED: it isn't there.
[[nodiscard]] HRESULT ReadRootPart(SqliteConnection& connection, const std::shared_ptr<StoreCore>& core,
                                   std::int64_t messageId, PartImage& part);

[[nodiscard]] HRESULT PropertiesOf(const PartImage& part, PropertyBag& properties);
// The attachments' sources, each a StoredAttachment.
void AttachmentsOf(const PartImage& part, const std::shared_ptr<StoreCore>& core,
                   std::vector<AttachmentSlot>& attachments);

class StoredAttachment final : public AttachmentSource {
public:
    StoredAttachment(std::shared_ptr<StoreCore> core, std::int64_t partId) noexcept
        : core_(std::move(core)), partId_(partId)
    {}

    [[nodiscard]] HRESULT ReadProperties(PropertyBag& properties) noexcept override;
    [[nodiscard]] HRESULT OpenMessage(std::shared_ptr<MessageSource>& message) noexcept override;

    const StoreCore* Core() const noexcept { return core_.get(); }
    std::int64_t PartId() const noexcept { return partId_; }

private:
    const std::shared_ptr<StoreCore> core_;
    const std::int64_t partId_;
};

// A message embedded in an attachment.
class StoredEmbedded final : public MessageSource {
public:
    StoredEmbedded(std::shared_ptr<StoreCore> core, PartImage part) noexcept
        : core_(std::move(core)), part_(std::move(part))
    {}

    [[nodiscard]] HRESULT ReadProperties(PropertyBag& properties) noexcept override;
    [[nodiscard]] HRESULT ReadRecipients(std::vector<PropertyBag>& recipients) noexcept override;
    [[nodiscard]] HRESULT ReadAttachments(std::vector<AttachmentSlot>& attachments) noexcept override;

private:
    const std::shared_ptr<StoreCore> core_;
    const PartImage part_;
};

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_STORE_MESSAGE_SOURCE_H_
