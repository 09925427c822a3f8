#include "host/mime/value_reader.h"

#include <array>

#include "host/mime/charset.h"
#include "host/mime/mapi_read.h"
#include "quorvane3/com.h"

namespace quorvane {
namespace {

constexpr std::size_t kReadPiece = std::size_t{64} << 10;

const char* CharsetOf(ULONG codePage)
{
    const char* const charset = CharsetOfCodePage(codePage);
    return charset ? charset : "windows-1252";
}

bool IsHighSurrogate(OLECHAR unit) noexcept
{
    return unit >= 0xD800 && unit < 0xDC00;
}

// The whole units of `bytes`, little-endian, but for the first half of a pair at the end; takes them off.
OleString TakeUnits(std::string& bytes)
{
    OleString units;
    units.reserve(bytes.size() / 2);
    for (std::size_t at = 0; at + 1 < bytes.size(); at += 2)
        units.push_back(static_cast<OLECHAR>(static_cast<unsigned char>(bytes[at]) |
                                             (static_cast<unsigned char>(bytes[at + 1]) << 8)));
    if (!units.empty() && IsHighSurrogate(units.back()))
        units.pop_back();
    bytes.erase(0, 2 * units.size());
    return units;
}

}  // namespace

// A value that can't be had, but for its size, counts as absent.
HRESULT ValueReader::Look(IMAPIProp& object, ULONG tag)
{
    object_ = nullptr;
    small_.reset();
    SPropTagArray tags = {1, {tag}};
    ULONG count = 0;
    MapiMemory memory;
    const HRESULT hr = object.GetProps(&tags, 0, &count, memory.Put<SPropValue>());
    if (FAILED(hr))
        return hr;
    const SPropValue* const value = memory.As<SPropValue>();
    if (count != 1 || !value)
        return MAPI_E_NOT_FOUND;
    const bool declined =
        PROP_TYPE(value->ulPropTag) == PT_ERROR &&
        (value->Value.err == MAPI_E_NOT_ENOUGH_MEMORY || value->Value.err == MAPI_E_TOO_BIG);
    tag_ = tag;
    if (declined)
        object_ = &object;
    if (value->ulPropTag != tag)
        return S_OK;
    if (PROP_TYPE(tag) == PT_BINARY)
        small_.emplace(reinterpret_cast<const char*>(value->Value.bin.lpb), value->Value.bin.cb);
    else if (PROP_TYPE(tag) == PT_UNICODE && value->Value.lpszW)
        small_ = ToUtf8(value->Value.lpszW);
    else if (PROP_TYPE(tag) == PT_STRING8 && value->Value.lpszA)
        small_ = DecodeText(value->Value.lpszA, CharsetOf(codePage_));
    object_ = small_ ? &object : nullptr;
    return S_OK;
}

HRESULT ValueReader::OpenText(IMAPIProp& object, ULONG tag, ULONG codePage)
{
    codePage_ = codePage;
    const HRESULT hr = Look(object, tag);
    return FAILED(hr) || Exists() ? hr : Look(object, CHANGE_PROP_TYPE(tag, PT_STRING8));
}

HRESULT ValueReader::OpenBinary(IMAPIProp& object, ULONG tag)
{
    return Look(object, tag);
}

HRESULT ValueReader::Read(const Visit& visit) const
{
    if (!Exists())
        return S_OK;
    if (small_) {
        static_cast<void>(visit(*small_));
        return S_OK;
    }
    if (PROP_TYPE(tag_) == PT_UNICODE)
        return ReadWide(visit);
    return PROP_TYPE(tag_) == PT_STRING8 ? ReadNarrow(visit) : ReadStream(visit);
}

HRESULT ValueReader::ReadAll(std::string& value) const
{
    value.clear();
    return Read([&](std::string_view piece) {
        value.append(piece);
        return true;
    });
}

HRESULT ValueReader::ReadStream(const Visit& visit) const
{
    ComPtr<IStream> stream;
    HRESULT hr = object_->OpenProperty(tag_, &IID_IStream, STGM_READ, 0, stream.PutUnknown());
    std::array<char, kReadPiece> piece;
    while (SUCCEEDED(hr)) {
        ULONG got = 0;
        hr = stream->Read(piece.data(), static_cast<ULONG>(piece.size()), &got);
        if (SUCCEEDED(hr) && (got == 0 || !visit({piece.data(), got})))
            break;
    }
    return FAILED(hr) ? hr : S_OK;
}

HRESULT ValueReader::ReadWide(const Visit& visit) const
{
    std::string held;
    const HRESULT hr = ReadStream([&](std::string_view piece) {
        held.append(piece);
        return visit(ToUtf8(TakeUnits(held)));
    });
    if (SUCCEEDED(hr) && held.size() >= 2) {
        std::string lone;
        AppendUtf8(lone, kReplacement);
        static_cast<void>(visit(lone));
    }
    return hr;
}

HRESULT ValueReader::ReadNarrow(const Visit& visit) const
{
    TextDecoder decoder(CharsetOf(codePage_), [this] {
        Utf8Check check;
        const HRESULT hr = ReadStream([&](std::string_view piece) {
            check.Put(piece);
            return true;
        });
        return SUCCEEDED(hr) && check.End();
    });
    std::string text;
    bool more = true;
    const HRESULT hr = ReadStream([&](std::string_view piece) {
        text.clear();
        decoder.Put(piece, text);
        return more = visit(text);
    });
    if (FAILED(hr) || !more)
        return hr;
    text.clear();
    decoder.End(text);
    static_cast<void>(visit(text));
    return S_OK;
}

}  // namespace quorvane
