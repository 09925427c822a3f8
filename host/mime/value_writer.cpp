#include "host/mime/value_writer.h"

#include "host/mime/mapi_text.h"
#include "host/mime/property_list.h"

namespace quorvane {
namespace {

constexpr std::size_t kSmallValue = std::size_t{64} << 10;

// UTF-16 in little-endian order, as it stands in a text's stream.
std::string WideBytes(std::string_view text)
{
    const OleString wide = MapiText(text);
    std::string bytes;
    bytes.reserve(2 * wide.size());
    for (const OLECHAR unit : wide) {
        bytes.push_back(static_cast<char>(unit & 0xFF));
        bytes.push_back(static_cast<char>(unit >> 8));
    }
    return bytes;
}

HRESULT WriteAll(IStream& stream, std::string_view bytes)
{
    while (!bytes.empty()) {
        ULONG written = 0;
        const HRESULT hr = stream.Write(bytes.data(), static_cast<ULONG>(bytes.size()), &written);
        if (FAILED(hr))
            return hr;
        if (written == 0 || written > bytes.size())
            return STG_E_MEDIUMFULL;
        bytes.remove_prefix(written);
    }
    return S_OK;
}

}  // namespace

HRESULT ValueWriter::Write(std::string_view piece)
{
    return PROP_TYPE(tag_) == PT_UNICODE ? WriteAll(*stream_, WideBytes(piece)) : WriteAll(*stream_, piece);
}

HRESULT ValueWriter::Put(std::string_view piece)
{
    if (stream_)
        return Write(piece);
    first_.append(piece);
    if (first_.size() < kSmallValue)
        return S_OK;
    const HRESULT hr = object_.OpenProperty(tag_, &IID_IStream, STGM_READWRITE, MAPI_CREATE | MAPI_MODIFY,
                                            stream_.PutUnknown());
    return FAILED(hr) ? hr : Write(std::exchange(first_, {}));
}

HRESULT ValueWriter::End()
{
    if (stream_)
        return stream_->Commit(STGC_DEFAULT);
    PropertyList value;
    if (PROP_TYPE(tag_) == PT_UNICODE)
        value.AddText(tag_, first_);
    else
        value.AddBinary(tag_, first_);
    return value.SetOn(object_);
}

}  // namespace quorvane
