// msgstore/store/message_writer.h: writes a message's parts within a transaction.
#ifndef QUORVANE_MSGSTORE_STORE_MESSAGE_WRITER_H_
#define QUORVANE_MSGSTORE_STORE_MESSAGE_WRITER_H_

#include <set>

#include "msgstore/store/message_source.h"

namespace quorvane {

// Writes one message once. What the message holds already (attachments and large values that came out of the
// same message) stays in its rows; everything else is read through the image's sources and written.
class MessageWriter {
public:
    MessageWriter(SqliteConnection& connection, const StoreCore& core, std::int64_t messageId) noexcept
        : connection_(connection), core_(core), messageId_(messageId)
    {}

    // Failures of the sources come unchanged; MAPI_E_TOO_COMPLEX: messages are embedded in each other more
    // than 64 deep. The transaction is to be undone after any failure.
    [[nodiscard]] HRESULT Write(const PropertyBag& properties, const MessageImage& image);

private:
    [[nodiscard]] HRESULT FindRoot();
    [[nodiscard]] HRESULT WriteRoot(const PropertyBag& properties, const MessageImage& image);
    [[nodiscard]] HRESULT WriteRootAttachments(const MessageImage& image);
    [[nodiscard]] HRESULT ListSpareParts(const MessageImage& image);
    [[nodiscard]] HRESULT ListSpareValues();
    [[nodiscard]] HRESULT DropSpare();

    [[nodiscard]] HRESULT WriteAttachment(std::int64_t parent, const AttachmentSlot& slot, ULONG depth);
    [[nodiscard]] HRESULT WriteEmbedded(std::int64_t parent, MessageSource& message, ULONG depth);
    [[nodiscard]] HRESULT InsertPart(std::int64_t parent, std::int64_t number, const Bytes& properties,
                                     const Bytes* recipients, std::int64_t& id);
    [[nodiscard]] HRESULT WriteLargeValues(std::int64_t part,
                                           const std::vector<const PropertyValue*>& values);
    [[nodiscard]] HRESULT WriteLargeValue(std::int64_t part, const PropertyValue& value);

    // The part of an attachment that came out of this message, 0 of any other.
    std::int64_t OwnPart(const AttachmentSlot& slot) const;

    SqliteConnection& connection_;
    const StoreCore& core_;
    const std::int64_t messageId_;
    std::int64_t root_ = 0;                   // 0 while the message has no parts
    std::set<std::int64_t> attachmentParts_;  // those right below the root, as they were
    std::set<std::int64_t> spareParts_;       // of them, those that the image doesn't keep
    std::set<std::int64_t> spareValues_;      // large values free to be taken over
};

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_STORE_MESSAGE_WRITER_H_
