// items/testing/test_folders.h: shared folders as an item sees them.
#ifndef QUORVANE_ENGINE_ITEMS_TESTING_TEST_FOLDERS_H_
#define QUORVANE_ENGINE_ITEMS_TESTING_TEST_FOLDERS_H_

#include <vector>

#include "engine/session/context/operations.h"
#include "platform/com/bstr.h"
#include "platform/com/com_object.h"
#include "platform/com/variant.h"
#include "platform/testing/unimplemented_dispatch.h"

namespace quorvane::testing {

// A base for folders: every operation answers E_NOTIMPL.
class UnimplementedFolder : public test::UnimplementedDispatchOf<IFolder> {
public:
    HRESULT STDMETHODCALLTYPE get_EntryID(BSTR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE put_EntryID(BSTR) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE get_Raw(IUnknown**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE get_CustomInfo(BSTR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE put_CustomInfo(BSTR) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Resend(BSTR, VARIANT, VARIANT, VARIANT) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE get_StoreID(BSTR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE put_StoreID(BSTR) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Send(VARIANT) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE get_ID(BSTR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE put_ID(BSTR) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Validate() override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE CreateItem(VARIANT, VARIANT, IItem**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE get_Options(IOptions**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE get_IgnoreEvents(VARIANT_BOOL*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE put_IgnoreEvents(VARIANT_BOOL) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE OpenStore(ULONG, IUnknown**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE ResendEx(BSTR, IQuorvaneRestrict*, VARIANT, VARIANT, VARIANT) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE get_Restriction(IQuorvaneRestrict**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE put_Restriction(IQuorvaneRestrict*) override { return E_NOTIMPL; }
};

}  // namespace quorvane::testing

QUORVANE_IID(quorvane::testing::UnimplementedFolder, IID_IFolder);

namespace quorvane::testing {

// A folder that knows its identifiers and options.
class SharedFolder final : public ComObject<SharedFolder, Answers<UnimplementedFolder, IDispatch>> {
public:
    Bstr id;
    Bstr entryId;
    Bstr storeId;
    HRESULT idResult = S_OK;
    HRESULT storeIdResult = S_OK;
    HRESULT validated = S_OK;
    ComPtr<IUnknown> raw;  // the MAPI folder
    ComPtr<IOptions> options;
    HRESULT optionsResult = S_OK;

    HRESULT STDMETHODCALLTYPE get_EntryID(BSTR* pVal) override { return entryId.CopyTo(pVal); }
    HRESULT STDMETHODCALLTYPE get_Raw(IUnknown** pVal) override { return raw.CopyTo(pVal); }
    HRESULT STDMETHODCALLTYPE get_StoreID(BSTR* pVal) override
    {
        return FAILED(storeIdResult) ? storeIdResult : storeId.CopyTo(pVal);
    }
    HRESULT STDMETHODCALLTYPE get_ID(BSTR* pVal) override
    {
        return FAILED(idResult) ? idResult : id.CopyTo(pVal);
    }
    HRESULT STDMETHODCALLTYPE Validate() override { return validated; }
    HRESULT STDMETHODCALLTYPE get_Options(IOptions** pVal) override
    {
        return FAILED(optionsResult) ? optionsResult : options.CopyTo(pVal);
    }
};

// The session's folders: found by ID or by entry identifier, as texts.
class SharedFolders final : public ComObject<SharedFolders, DispatchImpl<IFolders>> {
public:
    std::vector<ComPtr<SharedFolder>> folders;
    // Found under every text, instead of a folder.
    Variant found;

    SharedFolder& Share(OleStringView id, const Bstr& entryId, const Bstr& storeId)
    {
        auto folder = ComPtr<SharedFolder>::Attach(new SharedFolder);
        folder->id = Bstr(id);
        folder->entryId = entryId;
        folder->storeId = storeId;
        folders.push_back(folder);
        return *folder.Get();
    }

    HRESULT STDMETHODCALLTYPE Find(VARIANT ID, VARIANT EntryID, VARIANT, IFolder** pVal) override
    {
        for (const auto& folder : folders) {
            const bool byId = ID.vt == VT_BSTR && ViewOf(ID.bstrVal) == folder->id.View();
            if (byId || (EntryID.vt == VT_BSTR && ViewOf(EntryID.bstrVal) == folder->entryId.View()))
                return folder.As(pVal);
        }
        return DISP_E_MEMBERNOTFOUND;
    }
    HRESULT STDMETHODCALLTYPE get__NewEnum(IUnknown**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE get_Item(VARIANT Index, VARIANT* pvar) override
    {
        if (!found.Is(VT_EMPTY))
            return found.CopyTo(pvar);
        for (const auto& folder : folders) {
            if (Index.vt == VT_BSTR && ViewOf(Index.bstrVal) == folder->entryId.View())
                return Variant::Dispatch(folder.Get()).CopyTo(pvar);
        }
        return E_FAIL;
    }
    HRESULT STDMETHODCALLTYPE get_Count(LONG*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Add(BSTR, BSTR, VARIANT, VARIANT, IFolder**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Remove(VARIANT) override { return E_NOTIMPL; }
};

}  // namespace quorvane::testing

#endif  // QUORVANE_ENGINE_ITEMS_TESTING_TEST_FOLDERS_H_
