#include "engine/session/context/addin.h"

#include <array>
#include <span>

#include "engine/session/context/session_context.h"
#include "platform/com/dispatch.h"
#include "platform/com/variant.h"

namespace quorvane {

namespace {

// Arguments that are lent to a call: nothing is copied, nothing is freed.
VARIANT BorrowText(BSTR text) noexcept
{
    VARIANT result;
    VariantInit(&result);
    result.vt = VT_BSTR;
    result.bstrVal = text;
    return result;
}

VARIANT BorrowObject(IDispatch* object) noexcept
{
    VARIANT result;
    VariantInit(&result);
    result.vt = VT_DISPATCH;
    result.pdispVal = object;
    return result;
}

VARIANT ReferTo(VARIANT_BOOL& value) noexcept
{
    VARIANT result;
    VariantInit(&result);
    result.vt = VT_BYREF | VT_BOOL;
    result.pboolVal = &value;
    return result;
}

}  // namespace

HRESULT Addin::Connect(SessionContext& session) noexcept
{
    host_.Reset();
    return session.GetAddin(host_);
}

HRESULT Addin::OnItemResend(IItem* item, BSTR jobId, bool& ignore) const noexcept
{
    const VARIANT text = BorrowText(jobId);
    return CallItemEvent(kOnItemResend, item, &text, ignore);
}

HRESULT Addin::OnItemAdded(IItem* item, bool& ignore) const noexcept
{
    return CallItemEvent(kOnItemAdded, item, nullptr, ignore);
}

HRESULT Addin::OnItemChanged(IItem* item, bool& ignore) const noexcept
{
    return CallItemEvent(kOnItemChanged, item, nullptr, ignore);
}

HRESULT Addin::OnItemDeleted(IItem* item, bool& ignore) const noexcept
{
    return CallItemEvent(kOnItemDeleted, item, nullptr, ignore);
}

HRESULT Addin::OnItemReceived(IItem* item, BSTR tag, bool& ignore) const noexcept
{
    const VARIANT text = BorrowText(tag);
    return CallItemEvent(kOnItemReceived, item, &text, ignore);
}

HRESULT Addin::OnFolderReceived(IFolder* folder, BSTR tag) const noexcept
{
    if (!folder)
        return E_POINTER;
    const std::array arguments{BorrowObject(folder), BorrowText(tag)};
    return InvokeById(host_.Get(), kOnFolderReceived, DISPATCH_METHOD, arguments);
}

HRESULT Addin::OnPostprocess(BSTR entryId, BSTR storeId) const noexcept
{
    const std::array arguments{BorrowText(entryId), BorrowText(storeId)};
    return InvokeById(host_.Get(), kOnPostprocess, DISPATCH_METHOD, arguments);
}

HRESULT Addin::DatabasePath(Bstr& path) const noexcept
{
    return ReadText(kDatabasePath, path);
}

HRESULT Addin::ProductCode(Bstr& code) const noexcept
{
    return ReadText(kProductCode, code);
}

HRESULT Addin::CallItemEvent(DISPID id, IItem* item, const VARIANT* text, bool& ignore) const noexcept
{
    if (!item)
        return E_POINTER;
    VARIANT_BOOL flag = ignore ? VARIANT_TRUE : VARIANT_FALSE;
    std::array<VARIANT, 3> arguments{BorrowObject(item)};
    size_t count = 1;
    if (text)
        arguments[count++] = *text;
    arguments[count++] = ReferTo(flag);
    const HRESULT hr = InvokeById(host_.Get(), id, DISPATCH_METHOD, std::span(arguments.data(), count));
    if (SUCCEEDED(hr))
        ignore = flag != 0;
    return hr;
}

HRESULT Addin::ReadText(DISPID id, Bstr& text) const noexcept
{
    Variant result;
    const HRESULT hr = InvokeById(host_.Get(), id, DISPATCH_PROPERTYGET, {}, &result);
    if (FAILED(hr))
        return hr;
    if (!result.Is(VT_BSTR))
        return DISP_E_TYPEMISMATCH;
    text = Bstr::Attach(result.Detach().bstrVal);
    return hr;
}

}  // namespace quorvane
