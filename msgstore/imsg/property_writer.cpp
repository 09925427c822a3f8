#include "msgstore/imsg/property_writer.h"

#include "msgstore/imsg/element_names.h"
#include "msgstore/imsg/property_stream_format.h"
#include "msgstore/imsg/storage_value.h"
#include "msgstore/message/value_lock_bytes.h"
#include "msgstore/props/little_endian.h"
#include "msgstore/util/guarded.h"

namespace quorvane {
namespace {

std::size_t TerminatorSize(ULONG type) noexcept
{
    const ULONG single = type & ~static_cast<ULONG>(MV_FLAG);
    if (single == PT_UNICODE)
        return sizeof(OLECHAR);
    return single == PT_STRING8 ? 1 : 0;
}

std::uint64_t LoadUpTo8(const Bytes& data) noexcept
{
    BYTE bytes[8] = {};
    std::copy_n(data.begin(), std::min<std::size_t>(data.size(), sizeof(bytes)), bytes);
    return LoadLittle<std::uint64_t>(bytes);
}

constexpr std::uint64_t ObjectEntry(std::uint64_t hint) noexcept
{
    return (hint << 32) | kObjectSize;
}

}  // namespace

HRESULT PropertyWriter::Begin()
{
    std::vector<StorageFolder::Element> elements;
    QV_RETURN_IF_FAILED(folder_->List(elements));
    for (StorageFolder::Element& element : elements)
        held_.insert(std::move(element.name));
    return S_OK;
}

void PropertyWriter::AddEntry(ULONG tag, std::uint64_t value)
{
    AppendLittle(entries_, static_cast<std::uint32_t>(tag));
    AppendLittle(entries_, static_cast<std::uint32_t>(kReadableWritable));
    AppendLittle(entries_, value);
}

HRESULT PropertyWriter::Write(const OleString& name, const Bytes& bytes)
{
    written_.insert(name);
    return folder_->WriteStream(name, bytes, held_.count(name) > 0);
}

HRESULT PropertyWriter::Add(const PropertyValue& value)
{
    const ULONG type = value.type();
    if (type == PT_OBJECT)
        return AddStorage(value);
    if ((type & MV_FLAG) != 0 && FixedSize(type) == 0)
        return AddItems(value);
    if ((type & MV_FLAG) != 0 || FixedSize(type) == 0 || FixedSize(type) > sizeof(std::uint64_t))
        return AddStream(value);
    AddEntry(value.tag, LoadUpTo8(value.data));
    return S_OK;
}

HRESULT PropertyWriter::AddStream(const PropertyValue& value)
{
    const OleString name = ValueName(value.tag);
    const std::size_t terminator = (value.type() & MV_FLAG) != 0 ? 0 : TerminatorSize(value.type());
    const auto* const stands = dynamic_cast<const StorageValue*>(value.large.get());
    if (stands && stands->IsStream(*folder_, name)) {
        written_.insert(name);
    } else if (value.large) {
        written_.insert(name);
        QV_RETURN_IF_FAILED(folder_->WriteStream(name, *value.large, held_.count(name) > 0));
    } else {
        QV_RETURN_IF_FAILED(Write(name, value.data));
    }
    AddEntry(value.tag, value.ByteSize() + terminator);
    return S_OK;
}

HRESULT PropertyWriter::AddItems(const PropertyValue& value)
{
    const std::size_t terminator = TerminatorSize(value.type());
    Bytes sizes;
    for (std::size_t i = 0; i < value.items.size(); ++i) {
        QV_RETURN_IF_FAILED(Write(ItemName(value.tag, static_cast<ULONG>(i)), value.items[i]));
        AppendLittle(sizes, static_cast<std::uint32_t>(value.items[i].size() + terminator));
        if (value.type() == PT_MV_BINARY)
            AppendLittle(sizes, std::uint32_t{0});
    }
    QV_RETURN_IF_FAILED(Write(ValueName(value.tag), sizes));
    AddEntry(value.tag, sizes.size());
    return S_OK;
}

HRESULT PropertyWriter::AddStorage(const PropertyValue& value)
{
    if (!value.large)
        return S_OK;
    const OleString name = ValueName(value.tag);
    if (held_.count(name) > 0)
        QV_RETURN_IF_FAILED(folder_->Destroy(name));
    std::shared_ptr<StorageFolder> storage;
    QV_RETURN_IF_FAILED(folder_->CreateFolder(name, storage));
    QV_RETURN_IF_FAILED(CopyImage(value.large, *storage->Storage()));
    written_.insert(name);
    AddEntry(value.tag, ObjectEntry(kHintStorage));
    return S_OK;
}

HRESULT PropertyWriter::AddMessage(std::shared_ptr<StorageFolder>& message)
{
    const OleString name = ValueName(PR_ATTACH_DATA_OBJ);
    if (held_.count(name) > 0)
        QV_RETURN_IF_FAILED(folder_->Destroy(name));
    QV_RETURN_IF_FAILED(folder_->CreateFolder(name, message));
    written_.insert(name);
    AddEntry(PR_ATTACH_DATA_OBJ, ObjectEntry(kHintMessage));
    return S_OK;
}

HRESULT PropertyWriter::Finish(const Bytes& header)
{
    Bytes stream = header;
    stream.insert(stream.end(), entries_.begin(), entries_.end());
    QV_RETURN_IF_FAILED(Write(OleString(kPropertiesName), stream));
    return DestroyLeftovers();
}

HRESULT PropertyWriter::DestroyLeftovers()
{
    for (const OleString& name : held_) {
        const bool isValue = OleStringView(name).substr(0, kValuePrefix.size()) == kValuePrefix;
        if (isValue && written_.count(name) == 0)
            QV_RETURN_IF_FAILED(folder_->Destroy(name));
    }
    return S_OK;
}

}  // namespace quorvane
