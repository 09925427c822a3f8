#include "engine/items/arguments.h"
#include "engine/items/exclusions.h"
#include "engine/items/item.h"
#include "engine/session/trace/trace.h"
#include "engine/storeaccess/hex.h"

namespace quorvane {

namespace {

HRESULT TakeTag(const VARIANT& argument, ULONG& tag) noexcept
{
    Variant number;
    if (FAILED(number.Assign(argument)) || FAILED(number.ChangeType(VT_I4)))
        return E_INVALIDARG;
    tag = static_cast<ULONG>(number.Raw().lVal);
    return S_OK;
}

Variant TimeValue(const FILETIME& time) noexcept
{
    SYSTEMTIME parts{};
    double date = 0;
    if (FileTimeToSystemTime(&time, &parts))
        SystemTimeToVariantTime(&parts, &date);
    return Variant::Double(date);
}

Variant HexValue(const SBinary& binary)
{
    Bstr text;
    if (FAILED(HexFromBinary(binary, text)))
        throw std::bad_alloc();
    return Variant::Text(text.View());
}

OleStringView UnicodeText(const SPropValue& value) noexcept
{
    return value.Value.lpszW ? OleStringView(value.Value.lpszW) : OleStringView();
}

// Texts, times and binaries; everything else reads as empty. Throws std::bad_alloc.
Variant MapValue(const SPropValue& value)
{
    switch (PROP_TYPE(value.ulPropTag)) {
        case PT_STRING8:
            return Variant::Text(Widen(value.Value.lpszA ? value.Value.lpszA : ""));
        case PT_UNICODE:
            return Variant::Text(UnicodeText(value));
        case PT_SYSTIME:
            return TimeValue(value.Value.ft);
        case PT_BINARY:
            return HexValue(value.Value.bin);
        default:
            return Variant();
    }
}

}  // namespace

HRESULT CItem::GetProperty(VARIANT PropTag, VARIANT* Value)
try {
    const Traced traced{"CItem::GetProperty"};
    if (!Value)
        return E_POINTER;
    VariantInit(Value);
    const SessionUse use(m_pSession);
    HR_TRY(traced, use.Result());
    ULONG tag = 0;
    HR_TRY_QUIET(TakeTag(PropTag, tag));
    ComPtr<IUnknown> raw;
    HR_TRY(traced, get_Raw(raw.Put()));
    ComPtr<IMessage> message;
    HR_TRY(traced, raw.As(message));
    PropValue value;
    HR_TRY(traced, mapi::HrGetOneProp(message.Get(), tag, value.Put()));
    if (value->ulPropTag != tag)
        return traced(E_FAIL);
    return MapValue(*value).CopyTo(Value);
} catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
}

HRESULT CItem::DeleteProperty(VARIANT PropertyTag)
{
    const SessionUse use(m_pSession);
    HR_TRY_QUIET(use.Result());
    if (!m_pMessage)
        return S_OK;
    ULONG tag = 0;
    const bool isFileAs = PropertyTag.vt == VT_BSTR && ViewOf(PropertyTag.bstrVal) == kFileAs;
    if (isFileAs && SUCCEEDED(FindFileAsTag(*m_pMessage, tag))) {
        PropValue value;
        HR_IGNORE(mapi::HrGetOneProp(m_pMessage.Get(), tag, value.Put()), "it may be gone already");
    } else {
        HR_TRY_QUIET(TakeTag(PropertyTag, tag));
    }
    SPropTagArray tags{1, {tag}};
    return m_pMessage->DeleteProps(&tags, nullptr);
}

HRESULT CItem::get_UnRead(VARIANT_BOOL* pVal)
{
    if (!pVal)
        return E_POINTER;
    *pVal = m_bUnRead ? VARIANT_TRUE : VARIANT_FALSE;
    return S_OK;
}

HRESULT CItem::put_UnRead(VARIANT_BOOL newVal)
{
    m_bUnRead = newVal == VARIANT_TRUE;
    return S_OK;
}

}  // namespace quorvane
