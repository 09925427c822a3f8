// msgstore/message/memory_backend.h: a message in memory, for tests.
#ifndef QUORVANE_MSGSTORE_MESSAGE_MEMORY_BACKEND_H_
#define QUORVANE_MSGSTORE_MESSAGE_MEMORY_BACKEND_H_

#include <memory>

#include "msgstore/message/message_backend.h"

namespace quorvane {

// Keeps what's saved, whole; and fails when it's told to.
class MemoryBackend final : public MessageBackend {
public:
    explicit MemoryBackend(std::shared_ptr<PropertyNames> names = MakeMemoryNames())
        : names_(std::move(names))
    {}

    [[nodiscard]] HRESULT ReadProperties(PropertyBag& properties) noexcept override;
    [[nodiscard]] HRESULT ReadRecipients(std::vector<PropertyBag>& recipients) noexcept override;
    [[nodiscard]] HRESULT ReadAttachments(std::vector<AttachmentSlot>& attachments) noexcept override;
    PropertyNames& Names() noexcept override { return *names_; }
    [[nodiscard]] HRESULT Identity(PropertyBag& identity) noexcept override;
    ULONG Access() noexcept override { return MAPI_ACCESS_READ | MAPI_ACCESS_MODIFY; }
    bool Exists() noexcept override { return image_ != nullptr; }
    [[nodiscard]] HRESULT Save(const MessageImage& image, ULONG flags) noexcept override;

    // The next saves fail with this; S_OK ends it.
    void FailSaves(HRESULT failure) noexcept { failure_ = failure; }
    ULONG saves() const noexcept { return saves_; }
    // How often the properties were read.
    ULONG reads() const noexcept { return reads_; }
    // What was saved last; null before.
    const MessageImage* image() const noexcept { return image_.get(); }

private:
    const std::shared_ptr<PropertyNames> names_;
    std::shared_ptr<const MessageImage> image_;
    HRESULT failure_ = S_OK;
    ULONG saves_ = 0;
    ULONG reads_ = 0;
};

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_MESSAGE_MEMORY_BACKEND_H_
