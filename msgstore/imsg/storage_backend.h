// msgstore/imsg/storage_backend.h: the place of a message on a caller's storage.
#ifndef QUORVANE_MSGSTORE_IMSG_STORAGE_BACKEND_H_
#define QUORVANE_MSGSTORE_IMSG_STORAGE_BACKEND_H_

#include "msgstore/imsg/storage_names.h"
#include "msgstore/imsg/storage_source.h"

namespace quorvane {

// A message on a storage. A storage without elements is a message that's new.
class StorageBackend final : public MessageBackend {
public:
    // Looks at the storage.
    //
    // commit  whether a save ends with the storage's Commit.
    //
    // S_OK; MAPI_E_CORRUPT_DATA: it has elements and none of them lists a message's properties; failures of
    // the storage.
    [[nodiscard]] static HRESULT Open(IStorage& storage, bool commit,
                                      std::shared_ptr<StorageBackend>& backend);

    StorageBackend(std::shared_ptr<StorageFolder> folder, bool commit, bool exists);

    bool IsWritable() const noexcept { return folder_->IsWritable(); }

    [[nodiscard]] HRESULT ReadProperties(PropertyBag& properties) noexcept override;
    [[nodiscard]] HRESULT ReadRecipients(std::vector<PropertyBag>& recipients) noexcept override;
    [[nodiscard]] HRESULT ReadAttachments(std::vector<AttachmentSlot>& attachments) noexcept override;
    PropertyNames& Names() noexcept override { return names_; }
    [[nodiscard]] HRESULT Identity(PropertyBag& identity) noexcept override;
    ULONG Access() noexcept override;
    bool Exists() noexcept override { return exists_; }
    bool GivesKeys() noexcept override { return false; }
    [[nodiscard]] HRESULT Save(const MessageImage& image, ULONG flags) noexcept override;

private:
    const std::shared_ptr<StorageFolder> folder_;
    StorageMessage message_;
    StorageNames names_;
    const bool commit_;
    bool exists_;
};

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_IMSG_STORAGE_BACKEND_H_
