#include "platform/com/error_text.h"

#include <new>

#include "platform/com/com_ptr.h"

namespace quorvane {

namespace {

HRESULT SetTexts(REFIID interfaceId, OleStringView source, OleStringView description)
{
    ComPtr<ICreateErrorInfo> create;
    HRESULT hr = CreateErrorInfo(create.Put());
    if (FAILED(hr))
        return hr;
    OleString text(source);
    create->SetGUID(interfaceId);
    create->SetSource(text.data());
    text = description;
    create->SetDescription(text.data());
    ComPtr<IErrorInfo> info;
    hr = create.As(info);
    return FAILED(hr) ? hr : SetErrorInfo(0, info.Get());
}

}  // namespace

HRESULT RaiseError(REFIID interfaceId, OleStringView source, OleStringView description, HRESULT code) noexcept
{
    try {
        if (FAILED(SetTexts(interfaceId, source, description)))
            ClearErrorInfo();
    } catch (const std::bad_alloc&) {
        ClearErrorInfo();
    }
    return code;
}

void ClearErrorInfo() noexcept
{
    SetErrorInfo(0, nullptr);
}

Bstr TakeErrorDescription() noexcept
{
    ComPtr<IErrorInfo> info;
    Bstr text;
    if (GetErrorInfo(0, info.Put()) == S_OK)
        info->GetDescription(text.Put());
    return text;
}

}  // namespace quorvane
