// msgstore/message/embedded_backend.h: the place of a message that's embedded in an attachment.
#ifndef QUORVANE_MSGSTORE_MESSAGE_EMBEDDED_BACKEND_H_
#define QUORVANE_MSGSTORE_MESSAGE_EMBEDDED_BACKEND_H_

#include "msgstore/message/message_object.h"
#include "msgstore/message/snapshot.h"

namespace quorvane {

// Reads from what the attachment holds and saves into the attachment's working copy, which it keeps alive.
// Used under the message's lock alone.
class EmbeddedBackend final : public MessageBackend {
public:
    // source  null for a message that's new.
    EmbeddedBackend(ComPtr<CAttach> owner, std::shared_ptr<MessageSource> source)
        : owner_(std::move(owner)), source_(std::move(source))
    {}

    [[nodiscard]] HRESULT ReadProperties(PropertyBag& properties) noexcept override
    {
        properties.Clear();
        return source_ ? source_->ReadProperties(properties) : S_OK;
    }
    [[nodiscard]] HRESULT ReadRecipients(std::vector<PropertyBag>& recipients) noexcept override
    {
        recipients.clear();
        return source_ ? source_->ReadRecipients(recipients) : S_OK;
    }
    [[nodiscard]] HRESULT ReadAttachments(std::vector<AttachmentSlot>& attachments) noexcept override
    {
        attachments.clear();
        return source_ ? source_->ReadAttachments(attachments) : S_OK;
    }
    PropertyNames& Names() noexcept override { return owner_->Names(); }
    const MapiAllocator& Allocator() noexcept override { return owner_->Allocator(); }
    [[nodiscard]] HRESULT Identity(PropertyBag& identity) noexcept override
    {
        identity.Clear();
        return S_OK;
    }
    ULONG Access() noexcept override { return owner_->Message().Backend().Access(); }
    bool Exists() noexcept override { return source_ != nullptr; }
    bool GivesKeys() noexcept override { return false; }
    [[nodiscard]] HRESULT Save(const MessageImage& image, ULONG) noexcept override
    {
        return Guarded([&]() -> HRESULT {
            auto snapshot = std::make_shared<SnapshotMessage>(image);
            QV_RETURN_IF_FAILED(owner_->PublishEmbedded(snapshot));
            source_ = std::move(snapshot);
            return S_OK;
        });
    }

private:
    const ComPtr<CAttach> owner_;
    std::shared_ptr<MessageSource> source_;
};

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_MESSAGE_EMBEDDED_BACKEND_H_
