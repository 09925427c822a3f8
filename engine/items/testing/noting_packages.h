// items/testing/noting_packages.h: packages that note what is put into them.
#ifndef QUORVANE_ENGINE_ITEMS_TESTING_NOTING_PACKAGES_H_
#define QUORVANE_ENGINE_ITEMS_TESTING_NOTING_PACKAGES_H_

#include <string>
#include <vector>

#include "engine/items/message_storage.h"
#include "engine/session/context/operations.h"
#include "platform/com/com_object.h"
#include "platform/com/variant.h"

namespace quorvane::testing {

// The session's list and each of its packages in one: whatever the recipients, there is one already.
class NotingPackages final
    : public ComObject<NotingPackages, DispatchImpl<IStorageFiles>, DispatchImpl<IStorageFile>> {
public:
    // Of the next sends.
    HRESULT result = S_OK;

    // "<recipients> <ID>", with " mail" behind it when there is a message; in the order of the sends.
    std::vector<std::string> Sent() const
    {
        std::vector<std::string> sent;
        for (const Element& element : elements_) {
            ComPtr<IStorage> message;
            const bool hasMessage = SUCCEEDED(element.memory.storage->OpenStorage(
                kMessageDataName, nullptr, kOpenMode, nullptr, 0, message.Put()));
            sent.push_back(element.what + (hasMessage ? " mail" : ""));
        }
        return sent;
    }

    HRESULT STDMETHODCALLTYPE get_Item(VARIANT Index, VARIANT* pvar) override
    {
        recipients_ = Narrow(ViewOf(Index.bstrVal));
        return Variant::Dispatch(static_cast<IStorageFile*>(this)).CopyTo(pvar);
    }
    HRESULT STDMETHODCALLTYPE OpenItem(BSTR ID, VARIANT* pVal) override
    {
        if (FAILED(result))
            return result;
        Element element{recipients_ + " " + Narrow(ViewOf(ID)), {}};
        if (FAILED(element.memory.Create()))
            return E_OUTOFMEMORY;
        elements_.push_back(std::move(element));
        pVal->vt = VT_UNKNOWN;
        pVal->punkVal = ComPtr<IUnknown>(elements_.back().memory.storage.Get()).Detach();
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Lock() override { return S_OK; }
    HRESULT STDMETHODCALLTYPE Unlock() override { return S_OK; }
    HRESULT STDMETHODCALLTYPE get_Path(BSTR* pVal) override { return Bstr(OLESTR("noted")).CopyTo(pVal); }
    HRESULT STDMETHODCALLTYPE get__NewEnum(IUnknown**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE get_Count(LONG*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Add(BSTR, IStorageFile**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Remove(VARIANT) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE get_Recipients(BSTR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE put_Recipients(BSTR) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE put_Path(BSTR) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE get_isLocked(VARIANT_BOOL*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE put_isLocked(VARIANT_BOOL) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE OpenFolder(BSTR, VARIANT*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Delete() override { return E_NOTIMPL; }

private:
    struct Element {
        std::string what;
        MemoryStorage memory;
    };

    std::string recipients_;
    std::vector<Element> elements_;
};

}  // namespace quorvane::testing

#endif  // QUORVANE_ENGINE_ITEMS_TESTING_NOTING_PACKAGES_H_
