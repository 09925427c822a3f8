#include "msgstore/store/store_table.h"

#include <algorithm>

namespace quorvane {

CStoreTable::~CStoreTable()
{
    for (const ULONG connection : m_connections)
        (void)m_session->Hub().Unadvise(connection);  // one that the session has ended already is no failure
}

HRESULT CStoreTable::GetLastError(HRESULT, ULONG, LPMAPIERROR* error)
{
    if (!error)
        return MAPI_E_INVALID_PARAMETER;
    *error = nullptr;
    return S_OK;
}

HRESULT CStoreTable::Advise(ULONG eventMask, LPMAPIADVISESINK sink, ULONG* connection)
{
    if (!sink || !connection)
        return MAPI_E_INVALID_PARAMETER;
    if ((eventMask & fnevTableModified) == 0)
        return MAPI_E_NO_SUPPORT;
    return Guarded([&] {
        std::shared_ptr<EventSource> events;
        QV_RETURN_IF_FAILED(m_view->MakeEvents(events));
        ULONG made = 0;
        QV_RETURN_IF_FAILED(m_session->Hub().Advise(std::move(events), *sink, made));
        const MutexLock lock(m_lock);
        m_connections.insert(made);
        *connection = made;
        return S_OK;
    });
}

HRESULT CStoreTable::Unadvise(ULONG connection)
{
    {
        const MutexLock lock(m_lock);
        if (m_connections.erase(connection) == 0)
            return MAPI_E_INVALID_PARAMETER;
    }
    (void)m_session->Hub().Unadvise(connection);  // one that the session has ended already is no failure
    return S_OK;
}

HRESULT CStoreTable::GetStatus(ULONG* status, ULONG* type)
{
    if (!status || !type)
        return MAPI_E_INVALID_PARAMETER;
    *status = TBLSTAT_COMPLETE;
    *type = TBLTYPE_DYNAMIC;
    return S_OK;
}

HRESULT CStoreTable::SetColumns(LPSPropTagArray tags, ULONG)
{
    if (!tags || tags->cValues == 0)
        return MAPI_E_INVALID_PARAMETER;
    return Guarded([&] {
        m_view->SetColumns(std::vector<ULONG>(tags->aulPropTag, tags->aulPropTag + tags->cValues));
        return S_OK;
    });
}

HRESULT CStoreTable::QueryColumns(ULONG flags, LPSPropTagArray* tags)
{
    if (!tags)
        return MAPI_E_INVALID_PARAMETER;
    return Guarded([&] {
        const std::vector<ULONG> columns =
            (flags & TBL_ALL_COLUMNS) != 0 ? m_view->AllColumns() : m_view->Columns();
        LPSPropTagArray result = nullptr;
        const auto size = static_cast<ULONG>(CbNewSPropTagArray(columns.size()));
        if (FAILED(MAPIAllocateBuffer(size, reinterpret_cast<void**>(&result))))
            return E_OUTOFMEMORY;
        result->cValues = static_cast<ULONG>(columns.size());
        std::copy(columns.begin(), columns.end(), result->aulPropTag);
        *tags = result;
        return S_OK;
    });
}

HRESULT CStoreTable::GetRowCount(ULONG, ULONG* count)
{
    if (!count)
        return MAPI_E_INVALID_PARAMETER;
    return Guarded([&] { return m_view->CountRows(*count); });
}

HRESULT CStoreTable::SeekRow(BOOKMARK origin, LONG count, LONG* sought)
{
    LONG moved = 0;
    const HRESULT result = Guarded([&] { return m_view->SeekRow(origin, count, moved); });
    if (sought)
        *sought = moved;
    return result;
}

HRESULT CStoreTable::SeekRowApprox(ULONG numerator, ULONG denominator)
{
    if (denominator == 0)
        return MAPI_E_INVALID_PARAMETER;
    return Guarded([&] { return m_view->SeekFraction(numerator, denominator); });
}

HRESULT CStoreTable::QueryPosition(ULONG* row, ULONG* numerator, ULONG* denominator)
{
    if (!row || !numerator || !denominator)
        return MAPI_E_INVALID_PARAMETER;
    ULONG count = 0;
    QV_RETURN_IF_FAILED(Guarded([&] { return m_view->QueryPosition(*row, count); }));
    *numerator = *row;
    *denominator = std::max<ULONG>(count, 1);
    return S_OK;
}

HRESULT CStoreTable::FindRow(LPSRestriction restriction, BOOKMARK origin, ULONG flags)
{
    return Guarded([&] {
        std::shared_ptr<const Restriction> wanted;
        QV_RETURN_IF_FAILED(Restriction::Make(restriction, wanted));
        return m_view->FindRow(*wanted, origin, (flags & DIR_BACKWARD) != 0);
    });
}

HRESULT CStoreTable::Restrict(LPSRestriction restriction, ULONG)
{
    return Guarded([&] {
        std::shared_ptr<const Restriction> wanted;
        if (restriction)
            QV_RETURN_IF_FAILED(Restriction::Make(restriction, wanted));
        return m_view->Restrict(std::move(wanted));
    });
}

HRESULT CStoreTable::CreateBookmark(BOOKMARK* bookmark)
{
    if (!bookmark)
        return MAPI_E_INVALID_PARAMETER;
    return Guarded([&] { return m_view->CreateBookmark(*bookmark); });
}

HRESULT CStoreTable::FreeBookmark(BOOKMARK bookmark)
{
    // The predefined ones may be freed by callers that treat all alike.
    if (bookmark <= BOOKMARK_END)
        return S_OK;
    return Guarded([&] { return m_view->FreeBookmark(bookmark); });
}

HRESULT CStoreTable::SortTable(LPSSortOrderSet order, ULONG)
{
    return Guarded([&] {
        TableOrder wanted;
        QV_RETURN_IF_FAILED(ReadSortOrder(order, wanted.columns));
        if (order) {
            wanted.categories = order->cCategories;
            wanted.expanded = order->cExpanded;
        }
        return m_view->Sort(std::move(wanted));
    });
}

HRESULT CStoreTable::QuerySortOrder(LPSSortOrderSet* order)
{
    if (!order)
        return MAPI_E_INVALID_PARAMETER;
    return Guarded([&] {
        const TableOrder is = m_view->Order();
        LPSSortOrderSet result = nullptr;
        const auto size = static_cast<ULONG>(CbNewSSortOrderSet(std::max<std::size_t>(is.columns.size(), 1)));
        if (FAILED(MAPIAllocateBuffer(size, reinterpret_cast<void**>(&result))))
            return E_OUTOFMEMORY;
        *result = {static_cast<ULONG>(is.columns.size()),
                   static_cast<ULONG>(is.categories),
                   static_cast<ULONG>(is.expanded),
                   {}};
        for (std::size_t i = 0; i < is.columns.size(); ++i) {
            result->aSort[i].ulPropTag = is.columns[i].tag;
            result->aSort[i].ulOrder = is.columns[i].descending ? TABLE_SORT_DESCEND : TABLE_SORT_ASCEND;
        }
        *order = result;
        return S_OK;
    });
}

HRESULT CStoreTable::QueryRows(LONG count, ULONG flags, LPSRowSet* rows)
{
    if (!rows)
        return MAPI_E_INVALID_PARAMETER;
    *rows = nullptr;
    return Guarded([&] { return m_view->QueryRows(count, (flags & TBL_NOADVANCE) == 0, rows); });
}

HRESULT CStoreTable::Abort()
{
    // Every call is complete when it returns: there is never anything to abort.
    return S_OK;
}

HRESULT CStoreTable::ExpandRow(ULONG keySize, LPBYTE key, ULONG rowCount, ULONG, LPSRowSet* rows,
                               ULONG* moreRows)
{
    if (!key || (rowCount > 0 && !rows))
        return MAPI_E_INVALID_PARAMETER;
    if (rows)
        *rows = nullptr;
    ULONG more = 0;
    QV_RETURN_IF_FAILED(Guarded([&] { return m_view->Expand({key, keySize}, rowCount, rows, more); }));
    if (moreRows)
        *moreRows = more;
    return S_OK;
}

HRESULT CStoreTable::CollapseRow(ULONG keySize, LPBYTE key, ULONG, ULONG* rowCount)
{
    if (!key)
        return MAPI_E_INVALID_PARAMETER;
    ULONG gone = 0;
    QV_RETURN_IF_FAILED(Guarded([&] { return m_view->Collapse({key, keySize}, gone); }));
    if (rowCount)
        *rowCount = gone;
    return S_OK;
}

HRESULT CStoreTable::WaitForCompletion(ULONG, ULONG, ULONG* status)
{
    if (status)
        *status = TBLSTAT_COMPLETE;
    return S_OK;
}

HRESULT CStoreTable::GetCollapseState(ULONG, ULONG keySize, LPBYTE key, ULONG* stateSize, LPBYTE* state)
{
    if ((keySize > 0 && !key) || !stateSize || !state)
        return MAPI_E_INVALID_PARAMETER;
    return Guarded([&]() -> HRESULT {
        Bytes saved;
        QV_RETURN_IF_FAILED(m_view->SaveCollapsed({key, keySize}, saved));
        void* block = nullptr;
        if (FAILED(MAPIAllocateBuffer(static_cast<ULONG>(saved.size()), &block)))
            return E_OUTOFMEMORY;
        *state = static_cast<LPBYTE>(block);
        *stateSize = static_cast<ULONG>(saved.size());
        std::copy(saved.begin(), saved.end(), *state);
        return S_OK;
    });
}

HRESULT CStoreTable::SetCollapseState(ULONG, ULONG stateSize, LPBYTE state, BOOKMARK* location)
{
    if (!state || !location)
        return MAPI_E_INVALID_PARAMETER;
    return Guarded([&] { return m_view->LoadCollapsed({state, stateSize}, *location); });
}

HRESULT GiveTable(const std::shared_ptr<SessionState>& session, const std::shared_ptr<StoreCore>& core,
                  std::unique_ptr<TableSource> source, ULONG flags, LPMAPITABLE* table)
{
    auto view = std::make_shared<TableView>(core, std::move(source), (flags & MAPI_UNICODE) != 0);
    *table = MakeComObject<CStoreTable>(session, std::move(view)).Detach();
    return *table ? S_OK : E_OUTOFMEMORY;
}

}  // namespace quorvane
