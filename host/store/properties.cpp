#include "host/store/properties.h"

#include "host/base/errors.h"

namespace quorvane::host {

namespace {

constexpr char kDigits[] = "0123456789ABCDEF";

int DigitValue(char c) noexcept
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
}

std::string HexOfBytes(const BYTE* bytes, std::size_t count)
{
    std::string text;
    text.reserve(count * 2);
    for (std::size_t i = 0; i < count; ++i) {
        text += kDigits[bytes[i] >> 4];
        text += kDigits[bytes[i] & 0x0F];
    }
    return text;
}

std::string TextOfValue(const SPropValue& value)
{
    switch (PROP_TYPE(value.ulPropTag)) {
        case PT_UNICODE:
            return value.Value.lpszW ? ToUtf8(OleStringView(value.Value.lpszW)) : std::string();
        case PT_STRING8:
            return value.Value.lpszA ? ToUtf8(Widen(value.Value.lpszA)) : std::string();
        default:
            return {};
    }
}

std::uint64_t TimeOfValue(const SPropValue& value) noexcept
{
    return (static_cast<std::uint64_t>(value.Value.ft.dwHighDateTime) << 32) | value.Value.ft.dwLowDateTime;
}

// The object's value of exactly this tag.
bool ReadOne(IMAPIProp& object, ULONG tag, MapiMemory<SPropValue>& value)
{
    return SUCCEEDED(HrGetOneProp(&object, tag, value.Put())) && value->ulPropTag == tag;
}

}  // namespace

std::string Hex(const SBinary& binary)
{
    return HexOfBytes(binary.lpb, binary.cb);
}

std::string Hex(const Bytes& bytes)
{
    return HexOfBytes(bytes.data(), bytes.size());
}

Bytes FromHex(std::string_view text)
{
    Bytes bytes;
    bytes.reserve(text.size() / 2);
    for (std::size_t i = 0; i < text.size(); i += 2) {
        const int high = DigitValue(text[i]);
        const int low = i + 1 < text.size() ? DigitValue(text[i + 1]) : -1;
        if (high < 0 || low < 0)
            Fail("read the identifier", text, "it is not hexadecimal text");
        bytes.push_back(static_cast<BYTE>(high << 4 | low));
    }
    return bytes;
}

const SPropValue* FindValue(const SRow& row, ULONG tag) noexcept
{
    for (ULONG i = 0; i < row.cValues; ++i)
        if (row.lpProps[i].ulPropTag == tag)
            return &row.lpProps[i];
    return nullptr;
}

std::string TextOf(const SRow& row, ULONG tag)
{
    const SPropValue* value = FindValue(row, CHANGE_PROP_TYPE(tag, PT_UNICODE));
    if (!value)
        value = FindValue(row, CHANGE_PROP_TYPE(tag, PT_STRING8));
    return value ? TextOfValue(*value) : std::string();
}

std::uint64_t TimeOf(const SRow& row, ULONG tag) noexcept
{
    const SPropValue* const value = FindValue(row, tag);
    return value ? TimeOfValue(*value) : 0;
}

LONG LongOf(const SRow& row, ULONG tag) noexcept
{
    const SPropValue* const value = FindValue(row, tag);
    return value ? value->Value.l : 0;
}

std::string HexOf(const SRow& row, ULONG tag)
{
    const SPropValue* const value = FindValue(row, tag);
    return value ? Hex(value->Value.bin) : std::string();
}

std::string TextOf(IMAPIProp& object, ULONG tag)
{
    MapiMemory<SPropValue> value;
    return ReadOne(object, CHANGE_PROP_TYPE(tag, PT_UNICODE), value) ? TextOfValue(*value.Get())
                                                                     : std::string();
}

std::string HexOf(IMAPIProp& object, ULONG tag)
{
    MapiMemory<SPropValue> value;
    return ReadOne(object, tag, value) ? Hex(value->Value.bin) : std::string();
}

std::uint64_t TimeOf(IMAPIProp& object, ULONG tag)
{
    MapiMemory<SPropValue> value;
    return ReadOne(object, tag, value) ? TimeOfValue(*value.Get()) : 0;
}

LONG LongOf(IMAPIProp& object, ULONG tag)
{
    MapiMemory<SPropValue> value;
    return ReadOne(object, tag, value) ? value->Value.l : 0;
}

HRESULT SetText(IMAPIProp& object, ULONG tag, const std::string& utf8)
{
    OleString text = FromUtf8(utf8);
    SPropValue value{};
    value.ulPropTag = CHANGE_PROP_TYPE(tag, PT_UNICODE);
    value.Value.lpszW = text.data();
    return object.SetProps(1, &value, nullptr);
}

HRESULT SetLong(IMAPIProp& object, ULONG tag, LONG number)
{
    SPropValue value{};
    value.ulPropTag = tag;
    value.Value.l = number;
    return object.SetProps(1, &value, nullptr);
}

}  // namespace quorvane::host
