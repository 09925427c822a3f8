#include "host/mime/mapi_read.h"

#include <array>

#include "host/mail/unicode.h"
#include "host/mime/charset.h"

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

bool IsTooBig(const MapiMemory& memory)
{
    const SPropValue* const value = memory.As<SPropValue>();
    return value && PROP_TYPE(value->ulPropTag) == PT_ERROR &&
           (value->Value.err == MAPI_E_NOT_ENOUGH_MEMORY || value->Value.err == MAPI_E_TOO_BIG);
}

HRESULT ReadStream(IMAPIProp& object, ULONG tag, std::string& bytes)
{
    ComPtr<IStream> stream;
    HRESULT hr = object.OpenProperty(tag, &IID_IStream, STGM_READ, 0, stream.PutUnknown());
    std::array<char, 65536> piece;
    for (ULONG got = 1; SUCCEEDED(hr) && got > 0;) {
        got = 0;
        hr = stream->Read(piece.data(), static_cast<ULONG>(piece.size()), &got);
        if (SUCCEEDED(hr))
            bytes.append(piece.data(), got);
    }
    return FAILED(hr) ? hr : S_OK;
}

OleString WideFromBytes(const std::string& bytes)
{
    OleString text;
    for (std::size_t at = 0; at + 1 < bytes.size(); at += 2)
        text.push_back(static_cast<OLECHAR>(static_cast<unsigned char>(bytes[at]) |
                                            (static_cast<unsigned char>(bytes[at + 1]) << 8)));
    return text;
}

std::string Narrow(const std::string& bytes, ULONG codePage)
{
    const char* const charset = CharsetOfCodePage(codePage);
    return DecodeText(bytes, charset ? charset : "windows-1252");
}

// One form of a text: the wide or the 8-bit one.
HRESULT ReadTextForm(IMAPIProp& object, ULONG tag, ULONG codePage, std::optional<std::string>& text)
{
    MapiMemory memory;
    HRESULT hr = GetOne(object, tag, memory);
    if (FAILED(hr))
        return hr;
    const bool wide = PROP_TYPE(tag) == PT_UNICODE;
    if (const SPropValue* const value = Found(memory, tag)) {
        if (wide && value->Value.lpszW)
            text = Utf8FromWide(value->Value.lpszW);
        else if (!wide && value->Value.lpszA)
            text = Narrow(value->Value.lpszA, codePage);
        return S_OK;
    }
    if (!IsTooBig(memory))
        return S_OK;
    std::string bytes;
    hr = ReadStream(object, tag, bytes);
    if (SUCCEEDED(hr))
        text = wide ? Utf8FromWide(WideFromBytes(bytes)) : Narrow(bytes, codePage);
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
    const HRESULT hr = ReadTextForm(object, tag, codePage, text);
    if (FAILED(hr) || text)
        return hr;
    return ReadTextForm(object, CHANGE_PROP_TYPE(tag, PT_STRING8), codePage, text);
}

HRESULT ReadBinary(IMAPIProp& object, ULONG tag, std::optional<std::string>& bytes)
{
    bytes.reset();
    MapiMemory memory;
    const HRESULT hr = GetOne(object, tag, memory);
    if (FAILED(hr))
        return hr;
    if (const SPropValue* const value = Found(memory, tag)) {
        bytes.emplace(reinterpret_cast<const char*>(value->Value.bin.lpb), value->Value.bin.cb);
        return S_OK;
    }
    return IsTooBig(memory) ? ReadStream(object, tag, bytes.emplace()) : S_OK;
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
        return Utf8FromWide(wide->Value.lpszW);
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
