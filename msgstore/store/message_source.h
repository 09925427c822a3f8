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

// Where parts are read: in transactions of their own, or all in the one that a connection stands in, which
// then must outlive whatever reads there.
class PartReader {
public:
    PartReader(std::shared_ptr<StoreCore> core) noexcept : core_(std::move(core)) {}
    PartReader(SqliteConnection& connection) noexcept : connection_(&connection) {}

    [[nodiscard]] HRESULT Read(const StoreCore::Work& work) const noexcept;
    // Adds the large values of a part to its bag.
    [[nodiscard]] HRESULT ReadLargeValues(SqliteConnection& connection, std::int64_t partId,
                                          PropertyBag& bag) const;
    const StoreCore* Core() const noexcept { return core_.get(); }  // null with a connection

private:
    std::shared_ptr<StoreCore> core_;
    SqliteConnection* connection_ = nullptr;
};

// A message's part as it was read: bytes, so that each reader gets bags of its own.
struct PartImage {
    std::int64_t id = 0;
    Bytes properties;
    Bytes recipients;
    PropertyBag largeValues;
    std::vector<std::pair<ULONG, std::int64_t>> attachments;  // numbers and part ids, ascending
};

// Reads the outermost part of a message; MAPI_E_OBJECT_CHANGED: it isn't there.
[[nodiscard]] HRESULT ReadRootPart(SqliteConnection& connection, const PartReader& reader,
                                   std::int64_t messageId, PartImage& part);

[[nodiscard]] HRESULT PropertiesOf(const PartImage& part, PropertyBag& properties);
// The attachments' sources, each a StoredAttachment.
void AttachmentsOf(const PartImage& part, const PartReader& reader, std::vector<AttachmentSlot>& attachments);

class StoredAttachment final : public AttachmentSource {
public:
    StoredAttachment(PartReader reader, std::int64_t partId) noexcept
        : reader_(std::move(reader)), partId_(partId)
    {}

    [[nodiscard]] HRESULT ReadProperties(PropertyBag& properties) noexcept override;
    [[nodiscard]] HRESULT OpenMessage(std::shared_ptr<MessageSource>& message) noexcept override;

    const StoreCore* Core() const noexcept { return reader_.Core(); }
    std::int64_t PartId() const noexcept { return partId_; }

private:
    const PartReader reader_;
    const std::int64_t partId_;
};

// A message embedded in an attachment.
class StoredEmbedded final : public MessageSource {
public:
    StoredEmbedded(PartReader reader, PartImage part) noexcept
        : reader_(std::move(reader)), part_(std::move(part))
    {}

    [[nodiscard]] HRESULT ReadProperties(PropertyBag& properties) noexcept override;
    [[nodiscard]] HRESULT ReadRecipients(std::vector<PropertyBag>& recipients) noexcept override;
    [[nodiscard]] HRESULT ReadAttachments(std::vector<AttachmentSlot>& attachments) noexcept override;

private:
    const PartReader reader_;
    const PartImage part_;
};

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_STORE_MESSAGE_SOURCE_H_
