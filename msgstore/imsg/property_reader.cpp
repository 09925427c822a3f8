#include "msgstore/imsg/property_reader.h"

#include <unordered_map>

#include "msgstore/imsg/element_names.h"
#include "msgstore/imsg/property_stream_format.h"
#include "msgstore/imsg/storage_value.h"
#include "msgstore/props/little_endian.h"
#include "msgstore/util/guarded.h"

namespace quorvane {
namespace {

// More entries than there are identifiers say nothing new.
constexpr std::uint64_t kLongestPropertiesStream = kOutermostHeader + 65536 * std::uint64_t{kEntrySize};
constexpr std::uint64_t kReadAtOnce = 8 * 1024;
// Several values are held in memory whole.
constexpr std::uint64_t kMostBytesOfValues = 64 * 1024 * 1024;

// One run over a properties stream.
class Reader {
public:
    Reader(const std::shared_ptr<StorageFolder>& folder, PropertyBag& bag) : folder_(folder), bag_(bag) {}

    HRESULT Run(std::size_t headerSize)
    {
        Bytes list;
        const HRESULT hr = folder_->ReadStream(OleString(kPropertiesName), kLongestPropertiesStream, list);
        if (hr == STG_E_FILENOTFOUND || hr == MAPI_E_TOO_BIG || (SUCCEEDED(hr) && list.size() < headerSize))
            return MAPI_E_CORRUPT_DATA;
        QV_RETURN_IF_FAILED(hr);
        QV_RETURN_IF_FAILED(ListStreams());
        for (std::size_t at = headerSize; list.size() - at >= kEntrySize; at += kEntrySize)
            QV_RETURN_IF_FAILED(ReadEntry(list.data() + at));
        return S_OK;
    }

private:
    HRESULT ListStreams()
    {
        std::vector<StorageFolder::Element> elements;
        QV_RETURN_IF_FAILED(folder_->List(elements));
        for (StorageFolder::Element& element : elements) {
            if (!element.isStorage)
                sizes_.emplace(std::move(element.name), element.size);
        }
        return S_OK;
    }

    HRESULT ReadEntry(const BYTE* entry)
    {
        PropertyValue value;
        value.tag = LoadLittle<std::uint32_t>(entry);
        const ULONG type = value.type();
        if (value.id() == PROP_ID_NULL || value.id() == PROP_ID_INVALID || !IsStorableType(type) ||
            type == PT_OBJECT || IsHidden(value))
            return S_OK;
        HRESULT hr = S_OK;
        if ((type & MV_FLAG) != 0)
            hr = FixedSize(type) > 0 ? ReadFixedArray(value) : ReadItems(value);
        else if (FixedSize(type) > 0 && FixedSize(type) <= 8)
            value.data.assign(entry + kEntryValueAt, entry + kEntryValueAt + FixedSize(type));
        else
            hr = ReadStreamValue(value);
        if (hr == S_OK)
            bag_.Put(std::move(value));
        // A broken value is left out; a storage that can't be read any more ends the whole.
        return hr == E_OUTOFMEMORY || hr == MAPI_E_OBJECT_CHANGED ? hr : S_OK;
    }

    // Text in 8 bits beside the same in Unicode.
    bool IsHidden(const PropertyValue& value) const noexcept
    {
        const PropertyValue* const held = bag_.FindId(value.id());
        return held && held->type() == PT_UNICODE && value.type() == PT_STRING8;
    }

    // The size of a stream; false if there's none.
    bool SizeOf(const OleString& name, std::uint64_t& size) const
    {
        const auto found = sizes_.find(name);
        if (found == sizes_.end())
            return false;
        size = found->second;
        return true;
    }

    HRESULT ReadStreamValue(PropertyValue& value)
    {
        const OleString name = ValueName(value.tag);
        std::uint64_t size = 0;
        if (!SizeOf(name, size) || (value.type() == PT_CLSID && size != sizeof(GUID)))
            return MAPI_E_NOT_FOUND;
        if (value.type() == PT_UNICODE)
            size -= size % sizeof(OLECHAR);
        if (size > kReadAtOnce) {
            value.large = std::make_shared<StorageValue>(folder_, name, size);
            return S_OK;
        }
        QV_RETURN_IF_FAILED(folder_->ReadStream(name, kReadAtOnce + 1, value.data));
        TrimText(value.type(), value.data);
        return S_OK;
    }

    // Some writers put the terminator of a text into its stream.
    static void TrimText(ULONG type, Bytes& text)
    {
        if (type == PT_UNICODE) {
            text.resize(text.size() - text.size() % sizeof(OLECHAR));
            while (text.size() >= 2 && text[text.size() - 1] == 0 && text[text.size() - 2] == 0)
                text.resize(text.size() - 2);
        } else if (type == PT_STRING8) {
            while (!text.empty() && text.back() == 0)
                text.pop_back();
        }
    }

    HRESULT ReadFixedArray(PropertyValue& value)
    {
        const OleString name = ValueName(value.tag);
        std::uint64_t size = 0;
        if (!SizeOf(name, size) || size > kMostBytesOfValues)
            return MAPI_E_NOT_FOUND;
        QV_RETURN_IF_FAILED(folder_->ReadStream(name, kMostBytesOfValues, value.data));
        value.data.resize(value.data.size() - value.data.size() % FixedSize(value.type()));
        return S_OK;
    }

    // The stream of a property with several texts or binaries holds their sizes, 4 or 8 bytes each; each
    // value has a stream of its own, whose real size counts.
    HRESULT ReadItems(PropertyValue& value)
    {
        std::uint64_t size = 0;
        if (!SizeOf(ValueName(value.tag), size))
            return MAPI_E_NOT_FOUND;
        const std::uint64_t count = size / (value.type() == PT_MV_BINARY ? 8 : 4);
        std::uint64_t total = 0;
        for (std::uint64_t i = 0; i < count && i < sizes_.size(); ++i) {
            const OleString name = ItemName(value.tag, static_cast<ULONG>(i));
            std::uint64_t itemSize = 0;
            if (!SizeOf(name, itemSize))
                return MAPI_E_NOT_FOUND;
            total += itemSize;
            if (total > kMostBytesOfValues)
                return MAPI_E_TOO_BIG;
            Bytes item;
            QV_RETURN_IF_FAILED(folder_->ReadStream(name, kMostBytesOfValues, item));
            TrimText(value.type() & ~static_cast<ULONG>(MV_FLAG), item);
            value.items.push_back(std::move(item));
        }
        return S_OK;
    }

    const std::shared_ptr<StorageFolder>& folder_;
    PropertyBag& bag_;
    std::unordered_map<OleString, std::uint64_t> sizes_;
};

}  // namespace

HRESULT ReadStorageProperties(const std::shared_ptr<StorageFolder>& folder, std::size_t headerSize,
                              PropertyBag& properties)
{
    properties.Clear();
    return Reader(folder, properties).Run(headerSize);
}

}  // namespace quorvane
