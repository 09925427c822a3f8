// quorvane3/collection.h: the object model's collections and texts in C++ terms.
#ifndef QUORVANE3_COLLECTION_H_
#define QUORVANE3_COLLECTION_H_

#include <new>
#include <string>

#include "quorvane3/com.h"
#include "quorvane3/object_model.h"

namespace quorvane {

// Calls `visit(Element&)` for each element that a collection has at the moment of the call, in its order.
// What is added or removed meanwhile changes nothing of that.
//
//     ForEach<IStorageFile>(*packages.Get(), [&](IStorageFile& package) { ...; return S_OK; });
//
// collection  [in]  IFolders, IStorageFiles or IOptions.
// visit       [in]  gives an HRESULT; a failure ends the walk. It may throw: the exception passes through.
//
// S_OK; visit's failure; the collection's. E_NOINTERFACE: an element is something else.
template <class Element, class Collection, class Visit>
[[nodiscard]] HRESULT ForEach(Collection& collection, Visit&& visit)
{
    ComPtr<IUnknown> unknown;
    ComPtr<IEnumVARIANT> elements;
    HRESULT hr = collection.get__NewEnum(unknown.Put());
    if (SUCCEEDED(hr))
        hr = unknown.As(elements);
    while (SUCCEEDED(hr)) {
        Variant value;
        hr = elements->Next(1, value.Put(), nullptr);
        if (hr != S_OK)
            break;
        ComPtr<Element> element;
        hr = value.Is(VT_DISPATCH) ? QueryFor(value.Raw().pdispVal, element) : E_NOINTERFACE;
        if (SUCCEEDED(hr))
            hr = visit(*element.Get());
    }
    return FAILED(hr) ? hr : S_OK;
}

// The text of a property in UTF-8: ReadText(item, &IItem::get_ID, id).
//
// text  [out]  untouched after a failure.
//
// The getter's failure; E_OUTOFMEMORY.
template <class Interface>
[[nodiscard]] HRESULT ReadText(Interface& object, HRESULT (STDMETHODCALLTYPE Interface::*getter)(BSTR*),
                               std::string& text) noexcept
{
    Bstr value;
    const HRESULT hr = (object.*getter)(value.Put());
    if (FAILED(hr))
        return hr;
    try {
        text = ToUtf8(value.View());
        return S_OK;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

}  // namespace quorvane

#endif  // QUORVANE3_COLLECTION_H_
