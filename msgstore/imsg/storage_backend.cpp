#include "msgstore/imsg/storage_backend.h"

#include <algorithm>

#include "msgstore/imsg/element_names.h"
#include "msgstore/imsg/message_writer.h"
#include "msgstore/message/message_object.h"
#include "msgstore/util/guarded.h"

namespace quorvane {
namespace {

// The class that storages of messages carry.
constexpr CLSID kMessageClass{0x00020D0B, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};

// Which of its three access modes a storage was opened in.
constexpr DWORD kAccessBits = 3;

}  // namespace

HRESULT StorageBackend::Open(IStorage& storage, bool commit, std::shared_ptr<StorageBackend>& backend)
{
    STATSTG stat{};
    QV_RETURN_IF_FAILED(storage.Stat(&stat, STATFLAG_NONAME));
    const bool writable = (stat.grfMode & kAccessBits) != STGM_READ;
    auto folder = std::make_shared<StorageFolder>(ComPtr<IStorage>(&storage), writable);
    std::vector<StorageFolder::Element> elements;
    QV_RETURN_IF_FAILED(folder->List(elements));
    const bool isMessage =
        std::any_of(elements.begin(), elements.end(), [](const StorageFolder::Element& element) {
            return !element.isStorage && element.name == kPropertiesName;
        });
    if (!isMessage && !elements.empty())
        return MAPI_E_CORRUPT_DATA;
    backend = std::make_shared<StorageBackend>(std::move(folder), commit, isMessage);
    return S_OK;
}

StorageBackend::StorageBackend(std::shared_ptr<StorageFolder> folder, bool commit, bool exists)
    : folder_(std::move(folder)), message_(folder_), names_(folder_), commit_(commit), exists_(exists)
{}

HRESULT StorageBackend::ReadProperties(PropertyBag& properties) noexcept
{
    properties.Clear();
    return exists_ ? message_.ReadProperties(properties) : S_OK;
}

HRESULT StorageBackend::ReadRecipients(std::vector<PropertyBag>& recipients) noexcept
{
    recipients.clear();
    return exists_ ? message_.ReadRecipients(recipients) : S_OK;
}

HRESULT StorageBackend::ReadAttachments(std::vector<AttachmentSlot>& attachments) noexcept
{
    attachments.clear();
    return exists_ ? message_.ReadAttachments(attachments) : S_OK;
}

HRESULT StorageBackend::Identity(PropertyBag& identity) noexcept
{
    identity.Clear();
    return S_OK;
}

ULONG StorageBackend::Access() noexcept
{
    return IsWritable() ? MAPI_ACCESS_READ | MAPI_ACCESS_MODIFY : MAPI_ACCESS_READ;
}

HRESULT StorageBackend::Save(const MessageImage& image, ULONG) noexcept
{
    return Guarded([&]() -> HRESULT {
        if (!IsWritable())
            return E_ACCESSDENIED;
        const std::lock_guard lock(folder_->Lock());
        MessageImage stamped = image;
        stamped.properties.Put(PropertyValue::Time(PR_LAST_MODIFICATION_TIME, TimeNow()));
        QV_RETURN_IF_FAILED(names_.Save());
        QV_RETURN_IF_FAILED(WriteMessage(folder_, stamped));
        // The class is a help for programs that list files; a storage without one is as good a message.
        if (!exists_)
            (void)folder_->Storage()->SetClass(kMessageClass);
        exists_ = true;
        return commit_ ? folder_->Storage()->Commit(STGC_DEFAULT) : S_OK;
    });
}

}  // namespace quorvane
