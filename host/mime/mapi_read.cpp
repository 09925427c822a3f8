#include "host/mime/mapi_read.h"

#include "host/mime/charset.h"
#include "host/mime/value_reader.h"
#include "quorvane3/com.h"

namespace quorvane {
namespace {

constexpr ULONG kWesternEurope = 1252;

// Code pages of two and four bytes a character are no form of an 8-bit text.
bool IsNarrow(ULONG codePage) noexcept
{
    return codePage != 1200 && codePage != 1201 && codePage != 12000;
}

// The value of one property; its tag is of type PT_ERROR when it can't be had so.
HRESULT GetOne(IMAPIProp& object, ULONG tag, MapiMemory& memory)
{
    SPropTagArray tags = {1, {tag}};
    ULONG count = 0;
    const HRESULT hr = object.GetProps(&tags, 0, &count, memory.Put<SPropValue>());
    if (FAILED(hr))
        return hr;
    return count == 1 && memory.As<SPropValue>() ? S_OK : MAPI_E_NOT_FOUND;
}

const SPropValue* Found(const MapiMemory& memory, ULONG tag)
{
    const SPropValue* const value = memory.As<SPropValue>();
    return value && value->ulPropTag == tag ? value : nullptr;
}

std::string Narrow(const std::string& bytes, ULONG codePage)
{
    const char* const charset = CharsetOfCodePage(codePage);
    return DecodeText(bytes, charset ? charset : "windows-1252");
}

HRESULT AllOf(const ValueReader& reader, std::optional<std::string>& value)
{
    value.reset();
    if (!reader.Exists())
        return S_OK;
    const HRESULT hr = reader.ReadAll(value.emplace());
    if (FAILED(hr))
        value.reset();
    return hr;
}

}  // namespace

std::optional<LONG> ReadLong(IMAPIProp& object, ULONG tag)
{
    MapiMemory memory;
    if (FAILED(GetOne(object, tag, memory)))
        return std::nullopt;
    const SPropValue* const value = Found(memory, tag);
    return value ? std::optional<LONG>(value->Value.l) : std::nullopt;
}

std::optional<bool> ReadBoolean(IMAPIProp& object, ULONG tag)
{
    MapiMemory memory;
    if (FAILED(GetOne(object, tag, memory)))
        return std::nullopt;
    const SPropValue* const value = Found(memory, tag);
    return value ? std::optional<bool>(value->Value.b != 0) : std::nullopt;
}

std::optional<FILETIME> ReadTime(IMAPIProp& object, ULONG tag)
{
    MapiMemory memory;
    if (FAILED(GetOne(object, tag, memory)))
        return std::nullopt;
    const SPropValue* const value = Found(memory, tag);
    return value ? std::optional<FILETIME>(value->Value.ft) : std::nullopt;
}

HRESULT ReadText(IMAPIProp& object, ULONG tag, ULONG codePage, std::optional<std::string>& text)
{
    text.reset();
    ValueReader reader;
    const HRESULT hr = reader.OpenText(object, tag, codePage);
    return FAILED(hr) ? hr : AllOf(reader, text);
}

HRESULT ReadBinary(IMAPIProp& object, ULONG tag, std::optional<std::string>& bytes)
{
    bytes.reset();
    ValueReader reader;
    const HRESULT hr = reader.OpenBinary(object, tag);
    return FAILED(hr) ? hr : AllOf(reader, bytes);
}

std::string ShortText(IMAPIProp& object, ULONG tag, ULONG codePage)
{
    std::optional<std::string> text;
    return SUCCEEDED(ReadText(object, tag, codePage, text)) ? text.value_or("") : "";
}

const SPropValue* FindValue(const SRow& row, ULONG tag) noexcept
{
    for (ULONG i = 0; i < row.cValues; ++i) {
        if (row.lpProps[i].ulPropTag == tag)
            return &row.lpProps[i];
    }
    return nullptr;
}

std::string RowText(const SRow& row, ULONG wideTag, ULONG codePage)
{
    if (const SPropValue* const wide = FindValue(row, wideTag); wide && wide->Value.lpszW)
        return ToUtf8(wide->Value.lpszW);
    const SPropValue* const narrow = FindValue(row, CHANGE_PROP_TYPE(wideTag, PT_STRING8));
    return narrow && narrow->Value.lpszA ? Narrow(narrow->Value.lpszA, codePage) : std::string();
}

ULONG NarrowCodePage(IMAPIProp& object)
{
    for (const ULONG tag : {kPrMessageCodepage, kPrInternetCpid}) {
        const auto codePage = ReadLong(object, tag);
        if (codePage && CharsetOfCodePage(static_cast<ULONG>(*codePage)) &&
            IsNarrow(static_cast<ULONG>(*codePage)))
            return static_cast<ULONG>(*codePage);
    }
    return kWesternEurope;
}

}  // namespace quorvane
