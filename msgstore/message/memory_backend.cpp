#include "msgstore/message/memory_backend.h"

#include "msgstore/util/guarded.h"

namespace quorvane {

HRESULT MemoryBackend::ReadProperties(PropertyBag& properties) noexcept
{
    ++reads_;
    return Guarded([&] {
        properties = image_ ? image_->properties : PropertyBag();
        return S_OK;
    });
}

HRESULT MemoryBackend::ReadRecipients(std::vector<PropertyBag>& recipients) noexcept
{
    return Guarded([&] {
        recipients = image_ ? image_->recipients : std::vector<PropertyBag>();
        return S_OK;
    });
}

HRESULT MemoryBackend::ReadAttachments(std::vector<AttachmentSlot>& attachments) noexcept
{
    return Guarded([&] {
        attachments = image_ ? image_->attachments : std::vector<AttachmentSlot>();
        return S_OK;
    });
}

HRESULT MemoryBackend::Identity(PropertyBag& identity) noexcept
{
    return Guarded([&] {
        identity.Clear();
        if (image_)
            identity.Put(PropertyValue::Binary(PR_ENTRYID, "\0\0\0\0memory", 10));
        identity.Put(PropertyValue::Long(PR_STORE_SUPPORT_MASK, STORE_MODIFY_OK));
        return S_OK;
    });
}

HRESULT MemoryBackend::Save(const MessageImage& image, ULONG) noexcept
{
    if (FAILED(failure_))
        return failure_;
    return Guarded([&] {
        image_ = std::make_shared<const MessageImage>(image);
        ++saves_;
        return S_OK;
    });
}

}  // namespace quorvane
