#include "msgstore/imsg/storage_source.h"

#include <algorithm>

#include "msgstore/imsg/element_names.h"
#include "msgstore/imsg/property_reader.h"
#include "msgstore/imsg/property_stream_format.h"
#include "msgstore/message/value_lock_bytes.h"
#include "msgstore/util/guarded.h"

namespace quorvane {
namespace {

// Whether a folder holds a message: it has a properties stream.
HRESULT HoldsMessage(StorageFolder& folder, bool& holds)
{
    std::vector<StorageFolder::Element> elements;
    QV_RETURN_IF_FAILED(folder.List(elements));
    holds = std::any_of(elements.begin(), elements.end(), [](const StorageFolder::Element& element) {
        return !element.isStorage && element.name == kPropertiesName;
    });
    return S_OK;
}

bool IsDamage(HRESULT hr) noexcept
{
    return hr == MAPI_E_CORRUPT_DATA || hr == STG_E_DOCFILECORRUPT || hr == STG_E_FILENOTFOUND;
}

}  // namespace

HRESULT NumbersIn(StorageFolder& folder, OleStringView prefix, std::vector<ULONG>& numbers)
{
    std::vector<StorageFolder::Element> elements;
    QV_RETURN_IF_FAILED(folder.List(elements));
    for (const StorageFolder::Element& element : elements) {
        ULONG number = 0;
        if (element.isStorage && ParseNumber(element.name, prefix, number))
            numbers.push_back(number);
    }
    std::sort(numbers.begin(), numbers.end());
    numbers.erase(std::unique(numbers.begin(), numbers.end()), numbers.end());
    return S_OK;
}

HRESULT StorageMessage::ReadProperties(PropertyBag& properties) noexcept
{
    return Guarded([&] {
        const std::size_t header = folder_->IsOutermost() ? kOutermostHeader : kEmbeddedHeader;
        return ReadStorageProperties(folder_, header, properties);
    });
}

HRESULT StorageMessage::ReadRecipients(std::vector<PropertyBag>& recipients) noexcept
{
    return Guarded([&]() -> HRESULT {
        recipients.clear();
        std::vector<ULONG> numbers;
        QV_RETURN_IF_FAILED(NumbersIn(*folder_, kRecipientPrefix, numbers));
        for (const ULONG number : numbers) {
            std::shared_ptr<StorageFolder> folder;
            PropertyBag recipient;
            HRESULT hr = folder_->OpenFolder(NumberedName(kRecipientPrefix, number), folder);
            if (SUCCEEDED(hr))
                hr = ReadStorageProperties(folder, kPartHeader, recipient);
            // One damaged recipient doesn't take the others along.
            if (IsDamage(hr))
                continue;
            QV_RETURN_IF_FAILED(hr);
            recipients.push_back(std::move(recipient));
        }
        return S_OK;
    });
}

HRESULT StorageMessage::ReadAttachments(std::vector<AttachmentSlot>& attachments) noexcept
{
    return Guarded([&]() -> HRESULT {
        attachments.clear();
        std::vector<ULONG> numbers;
        QV_RETURN_IF_FAILED(NumbersIn(*folder_, kAttachmentPrefix, numbers));
        for (const ULONG number : numbers) {
            // The highest number has no successor for a new attachment.
            if (number < INT32_MAX)
                attachments.push_back({number, std::make_shared<StorageAttachment>(folder_, number)});
        }
        return S_OK;
    });
}

HRESULT StorageAttachment::ReadProperties(PropertyBag& properties) noexcept
{
    return Guarded([&]() -> HRESULT {
        properties.Clear();
        std::shared_ptr<StorageFolder> folder;
        QV_RETURN_IF_FAILED(message_->OpenFolder(NumberedName(kAttachmentPrefix, number_), folder));
        const HRESULT hr = ReadStorageProperties(folder, kPartHeader, properties);
        if (FAILED(hr) && hr != MAPI_E_CORRUPT_DATA)
            return hr;
        properties.Erase(PROP_ID(PR_ATTACH_NUM));
        properties.Erase(PROP_ID(PR_ATTACH_SIZE));
        return ReadObject(folder, properties);
    });
}

// A storage that isn't a message becomes a value of the attachment: its image.
HRESULT StorageAttachment::ReadObject(const std::shared_ptr<StorageFolder>& folder, PropertyBag& properties)
{
    std::shared_ptr<StorageFolder> object;
    const HRESULT hr = folder->OpenFolder(ValueName(PR_ATTACH_DATA_OBJ), object);
    if (IsDamage(hr))
        return S_OK;
    QV_RETURN_IF_FAILED(hr);
    properties.Erase(PROP_ID(PR_ATTACH_DATA_OBJ));
    bool isMessage = false;
    QV_RETURN_IF_FAILED(HoldsMessage(*object, isMessage));
    if (isMessage)
        return S_OK;
    const std::lock_guard lock(object->Lock());
    std::shared_ptr<SpoolValue> image;
    const HRESULT copied = ImageOfStorage(*object->Storage(), image);
    if (SUCCEEDED(copied)) {
        PropertyValue value;
        value.tag = PR_ATTACH_DATA_OBJ;
        value.large = std::move(image);
        properties.Put(std::move(value));
    }
    return IsDamage(copied) ? S_OK : copied;
}

HRESULT StorageAttachment::OpenMessage(std::shared_ptr<MessageSource>& message) noexcept
{
    return Guarded([&]() -> HRESULT {
        std::shared_ptr<StorageFolder> folder;
        std::shared_ptr<StorageFolder> object;
        QV_RETURN_IF_FAILED(message_->OpenFolder(NumberedName(kAttachmentPrefix, number_), folder));
        const HRESULT hr = folder->OpenFolder(ValueName(PR_ATTACH_DATA_OBJ), object);
        if (IsDamage(hr))
            return MAPI_E_NOT_FOUND;
        QV_RETURN_IF_FAILED(hr);
        bool isMessage = false;
        QV_RETURN_IF_FAILED(HoldsMessage(*object, isMessage));
        if (!isMessage)
            return MAPI_E_NOT_FOUND;
        message = std::make_shared<StorageMessage>(std::move(object));
        return S_OK;
    });
}

}  // namespace quorvane
