// monitor/test_doubles.h: a session, a table and a folder that note what a batch does with them.
#ifndef QUORVANE_ENGINE_MONITOR_TEST_DOUBLES_H_
#define QUORVANE_ENGINE_MONITOR_TEST_DOUBLES_H_

#include <atomic>
#include <functional>

#include "engine/monitor/notification_gate.h"
#include "engine/persist/database.h"
#include "engine/persist/hash_db.h"
#include "engine/session/context/operations.h"
#include "engine/session/context/session_context.h"
#include "engine/storeaccess/mapi_functions.h"
#include "quorvane3/callbacks.h"

namespace quorvane::test {

// A host without wishes.
class SilentHost : public ExtHandler {
public:
    HRESULT DatabasePath(Bstr&) override { return E_NOTIMPL; }
    HRESULT ProductCode(Bstr&) override { return E_NOTIMPL; }
};

// What a batch needs of a session.
class BatchSession : public SessionContext {
public:
    BatchSession() { static_cast<void>(submitEvent_.Create(true)); }

    IMAPISession* MapiSession() noexcept override { return nullptr; }
    DataSource& Database() noexcept override { return database_; }
    CHashDBMap& HashStores() noexcept override { return hashStores_; }
    CCustomThreadPool* ReceivePool() noexcept override { return nullptr; }
    CCustomThreadPool* ResendPool() noexcept override { return nullptr; }
    HRESULT GetAddin(ComPtr<IQuorvaneExt>& addin) noexcept override
    {
        ++addinsAsked;
        addin = ComPtr<IQuorvaneExt>(callback_.Get());
        return S_OK;
    }
    HRESULT GetSession(ComPtr<ISession2>&) noexcept override { return E_NOTIMPL; }
    Event& ItemSubmitEvent() noexcept override { return submitEvent_; }
    Mutex& SubmitLock() noexcept override { return submitLock_; }
    std::shared_ptr<NotificationGate> Notifications() noexcept override { return gate; }
    HRESULT RememberMovedItem(BSTR, BSTR) noexcept override { return E_FAIL; }
    HRESULT FindMovedItem(BSTR, BSTR*) noexcept override { return E_FAIL; }
    HRESULT ForgetMovedItem(BSTR) noexcept override { return E_FAIL; }

    const std::shared_ptr<NotificationGate> gate = NotificationGate::Create();
    std::atomic<int> addinsAsked{0};

private:
    SilentHost host_;
    const ComPtr<ExtCallback> callback_ = MakeComObject<ExtCallback>(host_);
    DataSource database_;
    CHashDBMap hashStores_;
    Event submitEvent_;
    Mutex submitLock_;
};

// An empty contents table that counts the scans over it: each begins with a bookmark.
class EmptyTable final : public ComObject<EmptyTable, IMAPITable> {
public:
    std::atomic<int> scans{0};
    std::atomic<int> rowReads{0};
    std::function<void()> atScan = [] {};

    HRESULT STDMETHODCALLTYPE CreateBookmark(BOOKMARK* bookmark) override
    {
        ++scans;
        atScan();
        *bookmark = 3;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE FreeBookmark(BOOKMARK) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE SeekRow(BOOKMARK, LONG, LONG*) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE GetRowCount(ULONG, ULONG* count) override
    {
        *count = 0;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE QueryRows(LONG, ULONG, LPSRowSet* rows) override
    {
        ++rowReads;
        void* buffer = nullptr;
        if (FAILED(mapi::MAPIAllocateBuffer(sizeof(SRowSet), &buffer)))
            return E_OUTOFMEMORY;
        *rows = static_cast<SRowSet*>(buffer);
        (*rows)->cRows = 0;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetLastError(HRESULT, ULONG, LPMAPIERROR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Advise(ULONG, LPMAPIADVISESINK, ULONG*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Unadvise(ULONG) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetStatus(ULONG*, ULONG*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SetColumns(LPSPropTagArray, ULONG) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE QueryColumns(ULONG, LPSPropTagArray*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SeekRowApprox(ULONG, ULONG) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE QueryPosition(ULONG*, ULONG*, ULONG*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE FindRow(LPSRestriction, BOOKMARK, ULONG) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Restrict(LPSRestriction, ULONG) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SortTable(LPSSortOrderSet, ULONG) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE QuerySortOrder(LPSSortOrderSet*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Abort() override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE ExpandRow(ULONG, LPBYTE, ULONG, ULONG, LPSRowSet*, ULONG*) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE CollapseRow(ULONG, LPBYTE, ULONG, ULONG*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE WaitForCompletion(ULONG, ULONG, ULONG*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetCollapseState(ULONG, ULONG, LPBYTE, ULONG*, LPBYTE*) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE SetCollapseState(ULONG, ULONG, LPBYTE, BOOKMARK*) override { return E_NOTIMPL; }
};

// A store that nobody opens anything in.
class ClosedStore final : public ComObject<ClosedStore, IMsgStore> {
public:
    HRESULT STDMETHODCALLTYPE GetLastError(HRESULT, ULONG, LPMAPIERROR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SaveChanges(ULONG) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetProps(LPSPropTagArray, ULONG, ULONG*, LPSPropValue*) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE GetPropList(ULONG, LPSPropTagArray*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE OpenProperty(ULONG, LPCIID, ULONG, ULONG, LPUNKNOWN*) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE SetProps(ULONG, LPSPropValue, LPSPropProblemArray*) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE DeleteProps(LPSPropTagArray, LPSPropProblemArray*) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE CopyTo(ULONG, LPCIID, LPSPropTagArray, ULONG, LPMAPIPROGRESS, LPCIID, LPVOID,
                                     ULONG, LPSPropProblemArray*) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE CopyProps(LPSPropTagArray, ULONG, LPMAPIPROGRESS, LPCIID, LPVOID, ULONG,
                                        LPSPropProblemArray*) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE GetNamesFromIDs(LPSPropTagArray*, LPGUID, ULONG, ULONG*,
                                              LPMAPINAMEID**) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE GetIDsFromNames(ULONG, LPMAPINAMEID*, ULONG, LPSPropTagArray*) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE Advise(ULONG, LPENTRYID, ULONG, LPMAPIADVISESINK, ULONG*) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE Unadvise(ULONG) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE CompareEntryIDs(ULONG, LPENTRYID, ULONG, LPENTRYID, ULONG, ULONG*) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE OpenEntry(ULONG, LPENTRYID, LPCIID, ULONG, ULONG*, LPUNKNOWN*) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE SetReceiveFolder(LPTSTR, ULONG, ULONG, LPENTRYID) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetReceiveFolder(LPTSTR, ULONG, ULONG*, LPENTRYID*, LPTSTR*) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE GetReceiveFolderTable(ULONG, LPMAPITABLE*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE StoreLogoff(ULONG*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE AbortSubmit(ULONG, LPENTRYID, ULONG) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetOutgoingQueue(ULONG, LPMAPITABLE*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SetLockState(LPMESSAGE, ULONG) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE FinishedMsg(ULONG, ULONG, LPENTRYID) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE NotifyNewMail(LPNOTIFICATION) override { return E_NOTIMPL; }
};

// A folder that only knows whether events are ignored.
class SwitchFolder final : public ComObject<SwitchFolder, DispatchImpl<IFolder>> {
public:
    std::atomic<VARIANT_BOOL> ignoreEvents{VARIANT_FALSE};
    std::atomic<int> asked{0};

    HRESULT STDMETHODCALLTYPE get_IgnoreEvents(VARIANT_BOOL* pVal) override
    {
        ++asked;
        *pVal = ignoreEvents;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE put_IgnoreEvents(VARIANT_BOOL) override { return E_NOTIMPL; }
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
    HRESULT STDMETHODCALLTYPE OpenStore(ULONG, IUnknown**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE ResendEx(BSTR, IQuorvaneRestrict*, VARIANT, VARIANT, VARIANT) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE get_Restriction(IQuorvaneRestrict**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE put_Restriction(IQuorvaneRestrict*) override { return E_NOTIMPL; }
};

}  // namespace quorvane::test

#endif  // QUORVANE_ENGINE_MONITOR_TEST_DOUBLES_H_
