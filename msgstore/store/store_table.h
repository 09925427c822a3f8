// msgstore/store/store_table.h: IMAPITable over a view.
#ifndef QUORVANE_MSGSTORE_STORE_STORE_TABLE_H_
#define QUORVANE_MSGSTORE_STORE_STORE_TABLE_H_

#include <set>

#include "msgstore/store/session_state.h"
#include "msgstore/store/table_view.h"
#include "platform/com/com_object.h"

namespace quorvane {

// A dynamic table: its rows follow the store, and its subscriptions are served by the session. Those that are
// left end with the table. Any thread may call.
class CStoreTable final : public ComObject<CStoreTable, IMAPITable, FreeThreaded> {
public:
    CStoreTable(std::shared_ptr<SessionState> session, std::shared_ptr<TableView> view) noexcept
        : m_session(std::move(session)), m_view(std::move(view))
    {}
    ~CStoreTable();

    HRESULT STDMETHODCALLTYPE GetLastError(HRESULT result, ULONG flags, LPMAPIERROR* error) override;
    HRESULT STDMETHODCALLTYPE Advise(ULONG eventMask, LPMAPIADVISESINK sink, ULONG* connection) override;
    HRESULT STDMETHODCALLTYPE Unadvise(ULONG connection) override;
    HRESULT STDMETHODCALLTYPE GetStatus(ULONG* status, ULONG* type) override;
    HRESULT STDMETHODCALLTYPE SetColumns(LPSPropTagArray tags, ULONG flags) override;
    HRESULT STDMETHODCALLTYPE QueryColumns(ULONG flags, LPSPropTagArray* tags) override;
    HRESULT STDMETHODCALLTYPE GetRowCount(ULONG flags, ULONG* count) override;
    HRESULT STDMETHODCALLTYPE SeekRow(BOOKMARK origin, LONG count, LONG* sought) override;
    HRESULT STDMETHODCALLTYPE SeekRowApprox(ULONG numerator, ULONG denominator) override;
    HRESULT STDMETHODCALLTYPE QueryPosition(ULONG* row, ULONG* numerator, ULONG* denominator) override;
    HRESULT STDMETHODCALLTYPE FindRow(LPSRestriction restriction, BOOKMARK origin, ULONG flags) override;
    HRESULT STDMETHODCALLTYPE Restrict(LPSRestriction restriction, ULONG flags) override;
    HRESULT STDMETHODCALLTYPE CreateBookmark(BOOKMARK* bookmark) override;
    HRESULT STDMETHODCALLTYPE FreeBookmark(BOOKMARK bookmark) override;
    HRESULT STDMETHODCALLTYPE SortTable(LPSSortOrderSet order, ULONG flags) override;
    HRESULT STDMETHODCALLTYPE QuerySortOrder(LPSSortOrderSet* order) override;
    HRESULT STDMETHODCALLTYPE QueryRows(LONG count, ULONG flags, LPSRowSet* rows) override;
    HRESULT STDMETHODCALLTYPE Abort() override;
    HRESULT STDMETHODCALLTYPE ExpandRow(ULONG keySize, LPBYTE key, ULONG rowCount, ULONG flags,
                                        LPSRowSet* rows, ULONG* moreRows) override;
    HRESULT STDMETHODCALLTYPE CollapseRow(ULONG keySize, LPBYTE key, ULONG flags, ULONG* rowCount) override;
    HRESULT STDMETHODCALLTYPE WaitForCompletion(ULONG flags, ULONG timeout, ULONG* status) override;
    HRESULT STDMETHODCALLTYPE GetCollapseState(ULONG flags, ULONG keySize, LPBYTE key, ULONG* stateSize,
                                               LPBYTE* state) override;
    HRESULT STDMETHODCALLTYPE SetCollapseState(ULONG flags, ULONG stateSize, LPBYTE state,
                                               BOOKMARK* location) override;

private:
    const std::shared_ptr<SessionState> m_session;
    const std::shared_ptr<TableView> m_view;
    Mutex m_lock;
    std::set<ULONG> m_connections QV_GUARDED_BY(m_lock);
};

// Gives a caller a table of a source. S_OK; E_OUTOFMEMORY.
[[nodiscard]] HRESULT GiveTable(const std::shared_ptr<SessionState>& session,
                                const std::shared_ptr<StoreCore>& core, std::unique_ptr<TableSource> source,
                                ULONG flags, LPMAPITABLE* table);

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_STORE_STORE_TABLE_H_
