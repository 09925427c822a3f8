#include "msgstore/table/rows_table.h"

#include <algorithm>
#include <numeric>
#include <set>

#include "msgstore/util/guarded.h"

namespace quorvane {
namespace {

constexpr BOOKMARK kFirstBookmark = 16;
constexpr std::size_t kMostRowsAtOnce = 100000;

ULONG ColumnType(ULONG asked, const PropertyValue& value, bool unicode) noexcept
{
    if (PROP_TYPE(asked) != PT_UNSPECIFIED)
        return PROP_TYPE(asked) & ~static_cast<ULONG>(MV_INSTANCE);
    if (!IsTextType(value.type()))
        return value.type();
    return (value.type() & MV_FLAG) | (unicode ? PT_UNICODE : PT_STRING8);
}

// IMAPITable over rows in memory. The view is the list of rows that the restriction lets through, in the
// order of the sort; the cursor and the bookmarks are places in it.
class CRowsTable final : public ComObject<CRowsTable, IMAPITable, FreeThreaded> {
public:
    CRowsTable(std::vector<PropertyBag> rows, RowsTableOptions options)
        : m_options(std::move(options)), m_rows(std::move(rows)), m_columns(m_options.columns)
    {
        if (m_columns.empty())
            m_columns = AllColumns();
        Rebuild();
    }

    HRESULT STDMETHODCALLTYPE GetLastError(HRESULT, ULONG, LPMAPIERROR* error) override
    {
        if (!error)
            return MAPI_E_INVALID_PARAMETER;
        *error = nullptr;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Advise(ULONG eventMask, LPMAPIADVISESINK sink, ULONG* connection) override
    {
        if (!sink || !connection)
            return MAPI_E_INVALID_PARAMETER;
        return m_options.advisor ? m_options.advisor->Advise(eventMask, sink, *connection)
                                 : MAPI_E_NO_SUPPORT;
    }
    HRESULT STDMETHODCALLTYPE Unadvise(ULONG connection) override
    {
        return m_options.advisor ? m_options.advisor->Unadvise(connection) : MAPI_E_NO_SUPPORT;
    }
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
    HRESULT STDMETHODCALLTYPE Abort() override { return S_OK; }
    HRESULT STDMETHODCALLTYPE ExpandRow(ULONG, LPBYTE, ULONG, ULONG, LPSRowSet*, ULONG*) override
    {
        return MAPI_E_NO_SUPPORT;
    }
    HRESULT STDMETHODCALLTYPE CollapseRow(ULONG, LPBYTE, ULONG, ULONG*) override { return MAPI_E_NO_SUPPORT; }
    HRESULT STDMETHODCALLTYPE WaitForCompletion(ULONG, ULONG, ULONG* status) override
    {
        if (status)
            *status = TBLSTAT_COMPLETE;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetCollapseState(ULONG, ULONG, LPBYTE, ULONG*, LPBYTE*) override
    {
        return MAPI_E_NO_SUPPORT;
    }
    HRESULT STDMETHODCALLTYPE SetCollapseState(ULONG, ULONG, LPBYTE, BOOKMARK*) override
    {
        return MAPI_E_NO_SUPPORT;
    }

private:
    std::vector<ULONG> AllColumns() const;
    void Rebuild();
    HRESULT Refresh();
    HRESULT PlaceOf(BOOKMARK bookmark, std::size_t& place) const;
    HRESULT MakeRows(std::size_t first, std::size_t count, LPSRowSet* rows) const;
    LPSPropTagArray CopyTags(const std::vector<ULONG>& tags) const noexcept;

    std::mutex m_mutex;  // guards all that follows
    RowsTableOptions m_options;
    std::vector<PropertyBag> m_rows;
    std::vector<ULONG> m_columns;
    std::shared_ptr<const Restriction> m_restriction;
    std::vector<SortColumn> m_sort;
    std::vector<std::size_t> m_view;
    std::size_t m_cursor = 0;
    std::map<BOOKMARK, std::size_t> m_bookmarks;
    BOOKMARK m_nextBookmark = kFirstBookmark;
};

std::vector<ULONG> CRowsTable::AllColumns() const
{
    std::map<ULONG, ULONG> byId;
    for (const PropertyBag& row : m_rows) {
        for (const PropertyValue& value : row)
            byId.emplace(value.id(), CHANGE_PROP_TYPE(value.tag, ColumnType(PR_NULL & 0xFFFF0000u, value,
                                                                            m_options.unicode)));
    }
    std::vector<ULONG> columns;
    for (const auto& [id, tag] : byId)
        columns.push_back(tag);
    return columns;
}

void CRowsTable::Rebuild()
{
    std::vector<std::size_t> view;
    for (std::size_t i = 0; i < m_rows.size(); ++i) {
        if (!m_restriction || m_restriction->Matches(BagLookup(m_rows[i])))
            view.push_back(i);
    }
    if (!m_sort.empty()) {
        std::stable_sort(view.begin(), view.end(), [&](std::size_t a, std::size_t b) {
            return CompareRows(BagLookup(m_rows[a]), BagLookup(m_rows[b]), m_sort) < 0;
        });
    }
    m_view = std::move(view);
    m_cursor = 0;
    for (auto& [bookmark, place] : m_bookmarks)
        place = std::min(place, m_view.size());
}

HRESULT CRowsTable::Refresh()
{
    if (m_options.refresh) {
        std::vector<PropertyBag> rows;
        QV_RETURN_IF_FAILED(m_options.refresh(rows));
        m_rows = std::move(rows);
    }
    Rebuild();
    return S_OK;
}

HRESULT CRowsTable::PlaceOf(BOOKMARK bookmark, std::size_t& place) const
{
    if (bookmark == BOOKMARK_BEGINNING) {
        place = 0;
    } else if (bookmark == BOOKMARK_CURRENT) {
        place = m_cursor;
    } else if (bookmark == BOOKMARK_END) {
        place = m_view.size();
    } else {
        const auto found = m_bookmarks.find(bookmark);
        if (found == m_bookmarks.end())
            return MAPI_E_INVALID_BOOKMARK;
        place = found->second;
    }
    return S_OK;
}

LPSPropTagArray CRowsTable::CopyTags(const std::vector<ULONG>& tags) const noexcept
{
    auto* const array =
        static_cast<LPSPropTagArray>(m_options.allocator.Allocate(CbNewSPropTagArray(tags.size() + 1)));
    if (array) {
        array->cValues = static_cast<ULONG>(tags.size());
        std::copy(tags.begin(), tags.end(), array->aulPropTag);
    }
    return array;
}

HRESULT CRowsTable::GetStatus(ULONG* status, ULONG* type)
{
    if (status)
        *status = TBLSTAT_COMPLETE;
    if (type)
        *type = m_options.refresh ? TBLTYPE_DYNAMIC : TBLTYPE_SNAPSHOT;
    return S_OK;
}

HRESULT CRowsTable::SetColumns(LPSPropTagArray tags, ULONG)
{
    if (!tags || tags->cValues == 0)
        return MAPI_E_INVALID_PARAMETER;
    return Guarded([&] {
        std::vector<ULONG> columns(tags->aulPropTag, tags->aulPropTag + tags->cValues);
        const std::lock_guard lock(m_mutex);
        m_columns = std::move(columns);
        return S_OK;
    });
}

HRESULT CRowsTable::QueryColumns(ULONG flags, LPSPropTagArray* tags)
{
    if (!tags)
        return MAPI_E_INVALID_PARAMETER;
    return Guarded([&] {
        const std::lock_guard lock(m_mutex);
        std::vector<ULONG> columns = m_columns;
        if ((flags & TBL_ALL_COLUMNS) != 0) {
            std::set<ULONG> all(columns.begin(), columns.end());
            for (const ULONG tag : AllColumns())
                all.insert(tag);
            columns.assign(all.begin(), all.end());
        }
        *tags = CopyTags(columns);
        return *tags ? S_OK : MAPI_E_NOT_ENOUGH_MEMORY;
    });
}

HRESULT CRowsTable::GetRowCount(ULONG, ULONG* count)
{
    if (!count)
        return MAPI_E_INVALID_PARAMETER;
    const std::lock_guard lock(m_mutex);
    *count = static_cast<ULONG>(m_view.size());
    return S_OK;
}

HRESULT CRowsTable::SeekRow(BOOKMARK origin, LONG count, LONG* sought)
{
    return Guarded([&]() -> HRESULT {
        const std::lock_guard lock(m_mutex);
        if (origin == BOOKMARK_BEGINNING)
            QV_RETURN_IF_FAILED(Refresh());
        std::size_t place = 0;
        QV_RETURN_IF_FAILED(PlaceOf(origin, place));
        const auto start = static_cast<LONGLONG>(place);
        const auto end = static_cast<LONGLONG>(m_view.size());
        const LONGLONG target = std::clamp<LONGLONG>(start + count, 0, end);
        m_cursor = static_cast<std::size_t>(target);
        if (sought)
            *sought = static_cast<LONG>(target - start);
        return S_OK;
    });
}

HRESULT CRowsTable::SeekRowApprox(ULONG numerator, ULONG denominator)
{
    if (denominator == 0)
        return MAPI_E_INVALID_PARAMETER;
    const std::lock_guard lock(m_mutex);
    const std::uint64_t part = std::min(numerator, denominator);
    m_cursor = static_cast<std::size_t>(part * m_view.size() / denominator);
    return S_OK;
}

HRESULT CRowsTable::QueryPosition(ULONG* row, ULONG* numerator, ULONG* denominator)
{
    if (!row || !numerator || !denominator)
        return MAPI_E_INVALID_PARAMETER;
    const std::lock_guard lock(m_mutex);
    *row = static_cast<ULONG>(m_cursor);
    *numerator = static_cast<ULONG>(m_cursor);
    *denominator = static_cast<ULONG>(std::max<std::size_t>(m_view.size(), 1));
    return S_OK;
}

HRESULT CRowsTable::FindRow(LPSRestriction restriction, BOOKMARK origin, ULONG flags)
{
    return Guarded([&]() -> HRESULT {
        std::shared_ptr<const Restriction> wanted;
        QV_RETURN_IF_FAILED(Restriction::Make(restriction, wanted));
        const std::lock_guard lock(m_mutex);
        std::size_t place = 0;
        QV_RETURN_IF_FAILED(PlaceOf(origin, place));
        const auto matches = [&](std::size_t at) { return wanted->Matches(BagLookup(m_rows[m_view[at]])); };
        if ((flags & DIR_BACKWARD) != 0) {
            while (place > 0) {
                if (matches(--place)) {
                    m_cursor = place;
                    return S_OK;
                }
            }
            return MAPI_E_NOT_FOUND;
        }
        for (; place < m_view.size(); ++place) {
            if (matches(place)) {
                m_cursor = place;
                return S_OK;
            }
        }
        return MAPI_E_NOT_FOUND;
    });
}

HRESULT CRowsTable::Restrict(LPSRestriction restriction, ULONG)
{
    return Guarded([&]() -> HRESULT {
        std::shared_ptr<const Restriction> made;
        QV_RETURN_IF_FAILED(Restriction::Make(restriction, made));
        const std::lock_guard lock(m_mutex);
        m_restriction = std::move(made);
        m_bookmarks.clear();
        return Refresh();
    });
}

HRESULT CRowsTable::CreateBookmark(BOOKMARK* bookmark)
{
    if (!bookmark)
        return MAPI_E_INVALID_PARAMETER;
    return Guarded([&] {
        const std::lock_guard lock(m_mutex);
        m_bookmarks.emplace(m_nextBookmark, m_cursor);
        *bookmark = m_nextBookmark++;
        return S_OK;
    });
}

HRESULT CRowsTable::FreeBookmark(BOOKMARK bookmark)
{
    const std::lock_guard lock(m_mutex);
    // The three fixed places can't be freed, and asking for it does no harm.
    if (bookmark <= BOOKMARK_END)
        return S_OK;
    return m_bookmarks.erase(bookmark) > 0 ? S_OK : MAPI_E_INVALID_BOOKMARK;
}

HRESULT CRowsTable::SortTable(LPSSortOrderSet order, ULONG)
{
    return Guarded([&]() -> HRESULT {
        std::vector<SortColumn> columns;
        if (order && order->cCategories > 0)
            return MAPI_E_TOO_COMPLEX;
        QV_RETURN_IF_FAILED(ReadSortOrder(order, columns));
        const std::lock_guard lock(m_mutex);
        m_sort = std::move(columns);
        m_bookmarks.clear();
        return Refresh();
    });
}

HRESULT CRowsTable::QuerySortOrder(LPSSortOrderSet* order)
{
    if (!order)
        return MAPI_E_INVALID_PARAMETER;
    const std::lock_guard lock(m_mutex);
    auto* const set =
        static_cast<LPSSortOrderSet>(m_options.allocator.Allocate(CbNewSSortOrderSet(m_sort.size() + 1)));
    if (!set)
        return MAPI_E_NOT_ENOUGH_MEMORY;
    *set = SSortOrderSet{};
    set->cSorts = static_cast<ULONG>(m_sort.size());
    for (std::size_t i = 0; i < m_sort.size(); ++i) {
        const ULONG direction = m_sort[i].descending ? TABLE_SORT_DESCEND : TABLE_SORT_ASCEND;
        set->aSort[i] = SSortOrder{m_sort[i].tag, direction};
    }
    *order = set;
    return S_OK;
}

HRESULT CRowsTable::MakeRows(std::size_t first, std::size_t count, LPSRowSet* rows) const
{
    auto* const set = static_cast<LPSRowSet>(m_options.allocator.Allocate(CbNewSRowSet(count + 1)));
    if (!set)
        return MAPI_E_NOT_ENOUGH_MEMORY;
    set->cRows = 0;
    for (std::size_t i = 0; i < count; ++i) {
        const BagLookup row(m_rows[m_view[first + i]]);
        const HRESULT hr = MakeRow(row, m_columns, m_options.unicode, m_options.allocator, set->aRow[i],
                                   m_options.valueLimit);
        if (FAILED(hr)) {
            for (ULONG k = 0; k < set->cRows; ++k)
                m_options.allocator.free(set->aRow[k].lpProps);
            m_options.allocator.free(set);
            return hr;
        }
        ++set->cRows;
    }
    *rows = set;
    return S_OK;
}

HRESULT CRowsTable::QueryRows(LONG count, ULONG flags, LPSRowSet* rows)
{
    if (!rows)
        return MAPI_E_INVALID_PARAMETER;
    *rows = nullptr;
    return Guarded([&]() -> HRESULT {
        const std::lock_guard lock(m_mutex);
        const std::size_t wanted = std::min<std::size_t>(
            static_cast<std::size_t>(count < 0 ? -static_cast<LONGLONG>(count) : count), kMostRowsAtOnce);
        const std::size_t available = count < 0 ? m_cursor : m_view.size() - m_cursor;
        const std::size_t given = std::min(wanted, available);
        const std::size_t first = count < 0 ? m_cursor - given : m_cursor;
        QV_RETURN_IF_FAILED(MakeRows(first, given, rows));
        if ((flags & TBL_NOADVANCE) == 0)
            m_cursor = count < 0 ? first : first + given;
        return S_OK;
    });
}

}  // namespace

HRESULT MakeRowsTable(std::vector<PropertyBag> rows, RowsTableOptions options, IMAPITable** table) noexcept
{
    auto made = MakeComObject<CRowsTable>(std::move(rows), std::move(options));
    *table = made.Detach();
    return *table ? S_OK : E_OUTOFMEMORY;
}

HRESULT MakeRow(const PropertyLookup& values, const std::vector<ULONG>& columns, bool unicode,
                const MapiAllocator& allocator, SRow& row, std::uint64_t limit) noexcept
{
    const std::size_t count = std::max<std::size_t>(columns.size(), 1);
    auto* const props = static_cast<LPSPropValue>(allocator.Allocate(count * sizeof(SPropValue)));
    if (!props)
        return MAPI_E_NOT_ENOUGH_MEMORY;
    const HRESULT hr = Guarded([&] {
        for (std::size_t i = 0; i < columns.size(); ++i) {
            props[i] = SPropValue{};
            props[i].ulPropTag = CHANGE_PROP_TYPE(columns[i], PT_ERROR);
            props[i].Value.err = MAPI_E_NOT_FOUND;
            const ULONG plain = columns[i] & ~static_cast<ULONG>(MV_INSTANCE);
            // A value that can't be given stands in its column as the error that it met.
            if (const PropertyValue* const value = values.Find(plain))
                (void)ToSPropValue(*value, ColumnType(plain, *value, unicode), allocator, props, props[i], 0,
                                   limit);
        }
        return S_OK;
    });
    if (FAILED(hr)) {
        allocator.free(props);
        return hr;
    }
    row = SRow{0, static_cast<ULONG>(columns.size()), props};
    return S_OK;
}

}  // namespace quorvane
