// session/inner_session.h: the session's public interface as its own children hold it.
//
// Children call the session on threads of the engine's. A counted reference there could become the last one
// while the host drops its own: the session would then end on a thread that it has to wait for, and the host
// would go on as if it had ended. So what children get doesn't count.
#ifndef QUORVANE_ENGINE_SESSION_INNER_SESSION_H_
#define QUORVANE_ENGINE_SESSION_INNER_SESSION_H_

#include "engine/session/context/operations.h"

namespace quorvane {

// Forwards every operation; lives inside the session. AddRef and Release do nothing, and QueryInterface
// answers ISession2, IDispatch and IUnknown alone. Any thread may call.
class InnerSession final : public DispatchImpl<ISession2> {
public:
    explicit InnerSession(ISession2& session) noexcept : session_(session) {}
    InnerSession(const InnerSession&) = delete;
    InnerSession& operator=(const InnerSession&) = delete;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** object) override
    {
        if (!object)
            return E_POINTER;
        const bool known = IsEqualIID(riid, IID_ISession2) || IsEqualIID(riid, IID_IDispatch) ||
                           IsEqualIID(riid, IID_IUnknown);
        *object = known ? static_cast<ISession2*>(this) : nullptr;
        return known ? S_OK : E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return 1; }
    ULONG STDMETHODCALLTYPE Release() override { return 1; }

    HRESULT STDMETHODCALLTYPE get_Folders(IFolders** pVal) override { return session_.get_Folders(pVal); }
    HRESULT STDMETHODCALLTYPE get_StorageFiles(IStorageFiles** pVal) override
    {
        return session_.get_StorageFiles(pVal);
    }
    HRESULT STDMETHODCALLTYPE ProcessStorageFile(BSTR Path, BSTR Tag) override
    {
        return session_.ProcessStorageFile(Path, Tag);
    }
    HRESULT STDMETHODCALLTYPE ResumeJobs(LONG Flags) override { return session_.ResumeJobs(Flags); }
    HRESULT STDMETHODCALLTYPE LockItem(BSTR EntryID, BSTR StoreID, VARIANT_BOOL AutoUnlock) override
    {
        return session_.LockItem(EntryID, StoreID, AutoUnlock);
    }
    HRESULT STDMETHODCALLTYPE UnlockItem(BSTR ItemID, BSTR StoreID) override
    {
        return session_.UnlockItem(ItemID, StoreID);
    }
    HRESULT STDMETHODCALLTYPE IsItemLocked(BSTR EntryID, BSTR StoreID, VARIANT_BOOL* rVal) override
    {
        return session_.IsItemLocked(EntryID, StoreID, rVal);
    }
    HRESULT STDMETHODCALLTYPE DropLock(BSTR EntryID, BSTR StoreID) override
    {
        return session_.DropLock(EntryID, StoreID);
    }
    HRESULT STDMETHODCALLTYPE GetItemFromID(VARIANT ID, VARIANT EntryID, VARIANT StoreID,
                                            IItem** pVal) override
    {
        return session_.GetItemFromID(ID, EntryID, StoreID, pVal);
    }
    HRESULT STDMETHODCALLTYPE ImportItem(BSTR ID, BSTR EntryID, BSTR StoreID) override
    {
        return session_.ImportItem(ID, EntryID, StoreID);
    }
    HRESULT STDMETHODCALLTYPE CancelResend(VARIANT ID) override { return session_.CancelResend(ID); }
    HRESULT STDMETHODCALLTYPE get_Options(IOptions** pVal) override { return session_.get_Options(pVal); }
    HRESULT STDMETHODCALLTYPE get_DBPath(BSTR* pVal) override { return session_.get_DBPath(pVal); }
    HRESULT STDMETHODCALLTYPE DeleteItem(BSTR ID) override { return session_.DeleteItem(ID); }
    HRESULT STDMETHODCALLTYPE get_Raw(IUnknown** pVal) override { return session_.get_Raw(pVal); }

private:
    ISession2& session_;
};

}  // namespace quorvane

#endif  // QUORVANE_ENGINE_SESSION_INNER_SESSION_H_
