// monitor/test_doubles.h: a session, a table and a folder that note what a batch does with them.
#ifndef QUORVANE_ENGINE_MONITOR_TEST_DOUBLES_H_
#define QUORVANE_ENGINE_MONITOR_TEST_DOUBLES_H_

#include <atomic>
#include <functional>

#include "engine/items/testing/test_folders.h"
#include "engine/items/testing/test_session.h"
#include "engine/monitor/item_locks.h"
#include "engine/session/context/notification_gate.h"
#include "engine/storeaccess/mapi_functions.h"
#include "engine/storeaccess/testing/unimplemented.h"

namespace quorvane::testing {

// A session with a gate, locks and moved items.
class MonitorSession : public TestSession {
public:
    ~MonitorSession() override { gate->CloseAndWait(); }

    HRESULT GetAddin(ComPtr<IQuorvaneExt>& addin) noexcept override
    {
        ++addinsAsked;
        return TestSession::GetAddin(addin);
    }
    std::shared_ptr<NotificationGate> Notifications() noexcept override { return gate; }
    bool TakeItemLock(BSTR entryId, BSTR storeId) noexcept override
    {
        const bool locked = locks.IsLocked(entryId, storeId);
        if (locked)
            locks.Drop(entryId, storeId);
        return locked;
    }
    HRESULT RememberMovedItem(BSTR entryId, BSTR id) noexcept override { return moved.Remember(entryId, id); }
    HRESULT FindMovedItem(BSTR entryId, BSTR* id) noexcept override { return moved.Find(entryId, id); }
    HRESULT ForgetMovedItem(BSTR entryId) noexcept override { return moved.Forget(entryId); }

    const std::shared_ptr<NotificationGate> gate = NotificationGate::Create();
    std::atomic<int> addinsAsked{0};
    ItemLocks locks;
    MovedItems moved;
};

// An empty contents table that counts the scans over it: each begins with a bookmark.
class EmptyTable final : public ComObject<EmptyTable, UnimplementedMAPITable> {
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
};

// A store that nobody opens anything in.
class ClosedStore final : public ComObject<ClosedStore, UnimplementedMsgStore> {};

// A folder that only knows whether events are ignored.
class SwitchFolder final : public ComObject<SwitchFolder, Answers<UnimplementedFolder, IDispatch>> {
public:
    std::atomic<VARIANT_BOOL> ignoreEvents{VARIANT_FALSE};
    std::atomic<int> asked{0};

    HRESULT STDMETHODCALLTYPE get_IgnoreEvents(VARIANT_BOOL* pVal) override
    {
        ++asked;
        *pVal = ignoreEvents;
        return S_OK;
    }
};

}  // namespace quorvane::testing

#endif  // QUORVANE_ENGINE_MONITOR_TEST_DOUBLES_H_
