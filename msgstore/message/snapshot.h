// msgstore/message/snapshot.h: messages and attachments as they were when they were saved into their owner.
#ifndef QUORVANE_MSGSTORE_MESSAGE_SNAPSHOT_H_
#define QUORVANE_MSGSTORE_MESSAGE_SNAPSHOT_H_

#include "msgstore/message/message_backend.h"
#include "msgstore/util/guarded.h"

namespace quorvane {

// A message that stands in an attachment but isn't permanent yet. Immutable.
class SnapshotMessage final : public MessageSource {
public:
    explicit SnapshotMessage(const MessageImage& image)
        : properties_(image.properties), recipients_(image.recipients), attachments_(image.attachments)
    {}

    [[nodiscard]] HRESULT ReadProperties(PropertyBag& properties) noexcept override
    {
        return Copy(properties_, properties);
    }
    [[nodiscard]] HRESULT ReadRecipients(std::vector<PropertyBag>& recipients) noexcept override
    {
        return Copy(recipients_, recipients);
    }
    [[nodiscard]] HRESULT ReadAttachments(std::vector<AttachmentSlot>& attachments) noexcept override
    {
        return Copy(attachments_, attachments);
    }

private:
    template <class T>
    static HRESULT Copy(const T& from, T& to) noexcept
    {
        return Guarded([&] {
            to = from;
            return S_OK;
        });
    }

    const PropertyBag properties_;
    const std::vector<PropertyBag> recipients_;
    const std::vector<AttachmentSlot> attachments_;
};

// An attachment that stands in a message but isn't permanent yet. Immutable.
class SnapshotAttachment final : public AttachmentSource {
public:
    SnapshotAttachment(PropertyBag properties, std::shared_ptr<MessageSource> embedded)
        : properties_(std::move(properties)), embedded_(std::move(embedded))
    {}

    [[nodiscard]] HRESULT ReadProperties(PropertyBag& properties) noexcept override
    {
        return Guarded([&] {
            properties = properties_;
            return S_OK;
        });
    }
    [[nodiscard]] HRESULT OpenMessage(std::shared_ptr<MessageSource>& message) noexcept override
    {
        message = embedded_;
        return embedded_ ? S_OK : MAPI_E_NOT_FOUND;
    }

private:
    const PropertyBag properties_;
    const std::shared_ptr<MessageSource> embedded_;
};

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_MESSAGE_SNAPSHOT_H_
