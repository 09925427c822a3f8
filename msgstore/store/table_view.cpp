#include "msgstore/store/table_view.h"

#include <algorithm>
#include <unordered_map>
#include <unordered_set>

#include "msgstore/store/table_events.h"
#include "msgstore/table/rows_table.h"

namespace quorvane {
namespace {

// So many changes at once are not followed one by one: all rows are read anew.
constexpr std::size_t kMostFollowedChanges = 1000;
// FindRow looks at so many rows itself before it asks the store for all of many that match.
constexpr std::size_t kNearRows = 64;
// So many places are looked for by comparing; for more it pays to know where each row stands.
constexpr std::size_t kFewMatches = 32;
// A longer value isn't given in a column.
constexpr std::uint64_t kColumnValueLimit = 32 * 1024;

// Columns whose text is given out as the table was asked for.
std::vector<ULONG> InWidth(std::vector<ULONG> columns, bool unicode)
{
    for (ULONG& column : columns) {
        if (PROP_TYPE(column) == PT_UNICODE && !unicode)
            column = CHANGE_PROP_TYPE(column, PT_STRING8);
    }
    return columns;
}

// Owns rows while they are gathered.
class RowGatherer {
public:
    RowGatherer() = default;
    RowGatherer(const RowGatherer&) = delete;
    RowGatherer& operator=(const RowGatherer&) = delete;
    ~RowGatherer()
    {
        for (const SRow& row : rows_)
            MAPIFreeBuffer(row.lpProps);
    }

    void Reserve(std::size_t count) { rows_.reserve(count); }
    SRow& Add() { return rows_.emplace_back(SRow{}); }

    HRESULT GiveTo(LPSRowSet* result)
    {
        LPSRowSet set = nullptr;
        const std::size_t size = CbNewSRowSet(std::max<std::size_t>(rows_.size(), 1));
        if (size > UINT32_MAX)
            return MAPI_E_TABLE_TOO_BIG;
        if (FAILED(MAPIAllocateBuffer(static_cast<ULONG>(size), reinterpret_cast<void**>(&set))))
            return E_OUTOFMEMORY;
        set->cRows = static_cast<ULONG>(rows_.size());
        std::copy(rows_.begin(), rows_.end(), set->aRow);
        rows_.clear();
        *result = set;
        return S_OK;
    }

private:
    std::vector<SRow> rows_;
};

}  // namespace

TableView::TableView(std::shared_ptr<StoreCore> core, std::unique_ptr<TableSource> source, bool unicode)
    : core_(std::move(core)),
      source_(std::move(source)),
      unicode_(unicode),
      columns_(InWidth(source_->DefaultColumns(), unicode))
{
    core_->Switches().TakeDropped(columns_);
}

TableView::~TableView() = default;

HRESULT TableView::WithRows(const Work& work)
{
    const MutexLock lock(lock_);
    return core_->Read([&](SqliteConnection& connection) QV_REQUIRES(lock_) {
        QV_RETURN_IF_FAILED(CatchUp(connection));
        return work(connection);
    });
}

HRESULT TableView::CatchUp(SqliteConnection& connection)
{
    std::int64_t last = 0;
    QV_RETURN_IF_FAILED(ReadLastChange(connection, last));
    if (!loaded_) {
        std::vector<std::int64_t> rows;
        QV_RETURN_IF_FAILED(List(connection, query_, categories_.get(), rows));
        rows_.Restart(rows);
        loaded_ = true;
        lastChange_ = last;
        return S_OK;
    }
    if (last == lastChange_)
        return S_OK;
    std::vector<Change> changes;
    const HRESULT read = ReadChanges(connection, lastChange_, kMostFollowedChanges, changes);
    QV_RETURN_IF_FAILED(read);
    const bool all = (categories_ && Affects(changes)) ||
                     std::any_of(changes.begin(), changes.end(),
                                 [this](const Change& change) { return source_->ChangesAll(change); });
    if (read == S_FALSE || changes.size() == kMostFollowedChanges || torn_ || all) {
        QV_RETURN_IF_FAILED(Reload(connection));
        torn_ = false;
    } else if (!categories_) {
        const std::unique_ptr<RowReader> reader = source_->MakeReader(connection);
        torn_ = true;
        QV_RETURN_IF_FAILED(ApplyChanges(*reader, changes));
        torn_ = false;
    }
    lastChange_ = last;
    return S_OK;
}

HRESULT TableView::Reload(SqliteConnection& connection)
{
    QV_RETURN_IF_FAILED(Rearrange(connection));
    for (TableEvents* events : events_)
        events->pending_.AddChanged();
    return S_OK;
}

HRESULT TableView::Rearrange(SqliteConnection& connection)
{
    std::vector<std::int64_t> rows;
    QV_RETURN_IF_FAILED(List(connection, query_, categories_.get(), rows));
    rows_.Replace(rows);
    return S_OK;
}

HRESULT TableView::List(SqliteConnection& connection, const TableQuery& query, Categories* categories,
                        std::vector<std::int64_t>& rows) const
{
    QV_RETURN_IF_FAILED(source_->ListRows(connection, query, rows));
    return categories ? categories->Arrange(*source_->MakeReader(connection), rows) : S_OK;
}

std::unique_ptr<RowReader> TableView::MakeReader(SqliteConnection& connection)
{
    std::unique_ptr<RowReader> reader = source_->MakeReader(connection);
    return categories_ ? MakeCategorizedReader(std::move(reader), *categories_) : std::move(reader);
}

bool TableView::Affects(const std::vector<Change>& changes) const
{
    std::vector<std::int64_t> affected;
    for (const Change& change : changes)
        source_->AppendAffected(change, affected);
    return !affected.empty();
}

HRESULT TableView::Ask(SqliteConnection& connection, TableQuery query, std::unique_ptr<Categories> categories)
{
    std::vector<std::int64_t> rows;
    QV_RETURN_IF_FAILED(List(connection, query, categories.get(), rows));
    rows_.Restart(rows);
    query_ = std::move(query);
    categories_ = std::move(categories);
    return S_OK;
}

HRESULT TableView::Judge(RowReader& reader, ChangedRow& row)
{
    const HRESULT moved = reader.MoveTo(row.id);
    QV_RETURN_IF_FAILED(moved);
    row.belongs = moved == S_OK && (!query_.restriction || query_.restriction->Matches(reader));
    if (row.belongs)
        row.values = SortValues(reader, query_.sort);
    return reader.TakeFailure();
}

HRESULT TableView::CompareWith(RowReader& reader, const ChangedRow& row, std::size_t index, int& order)
{
    const std::int64_t other = rows_.IdAt(index);
    order = 0;
    if (!query_.sort.empty() && other != row.id) {
        QV_RETURN_IF_FAILED(reader.MoveTo(other));
        order = CompareRows(BagLookup(row.values), reader, query_.sort);
        QV_RETURN_IF_FAILED(reader.TakeFailure());
    }
    if (order == 0)
        order = row.id < other ? -1 : (row.id > other ? 1 : 0);
    return S_OK;
}

std::optional<std::size_t> TableView::IndexOf(std::int64_t id)
{
    if (!query_.sort.empty())
        return rows_.IndexOf(id);
    std::size_t at = 0;
    std::size_t end = rows_.size();
    while (at < end) {
        const std::size_t middle = at + (end - at) / 2;
        if (rows_.IdAt(middle) < id)
            at = middle + 1;
        else
            end = middle;
    }
    return at < rows_.size() && rows_.IdAt(at) == id ? std::optional(at) : std::nullopt;
}

HRESULT TableView::FindPlace(RowReader& reader, const ChangedRow& row, std::size_t& index)
{
    std::size_t at = 0;
    std::size_t end = rows_.size();
    while (at < end) {
        const std::size_t middle = at + (end - at) / 2;
        int order = 0;
        QV_RETURN_IF_FAILED(CompareWith(reader, row, middle, order));
        if (order > 0)
            at = middle + 1;
        else
            end = middle;
    }
    index = at;
    return S_OK;
}

// The rows that changed may stand where they stood by values that they no longer have, so that no place can
// be looked for among them. Those that don't fit between their neighbours go, and then, if they changed as
// well, perhaps those.
HRESULT TableView::TakeOut(RowReader& reader, std::vector<ChangedRow>& rows)
{
    std::unordered_map<std::int64_t, ChangedRow*> standing;
    std::vector<std::int64_t> toCheck;
    for (ChangedRow& row : rows) {
        row.wasThere = row.stands = IndexOf(row.id).has_value();
        if (row.wasThere) {
            standing.emplace(row.id, &row);
            toCheck.push_back(row.id);
        }
    }
    while (!toCheck.empty()) {
        const auto found = standing.find(toCheck.back());
        toCheck.pop_back();
        if (found == standing.end())
            continue;
        ChangedRow& row = *found->second;
        const std::size_t index = *IndexOf(row.id);
        int before = -1;
        int behind = 1;
        if (row.belongs && index > 0)
            QV_RETURN_IF_FAILED(CompareWith(reader, row, index - 1, behind));
        if (row.belongs && index + 1 < rows_.size())
            QV_RETURN_IF_FAILED(CompareWith(reader, row, index + 1, before));
        if (row.belongs && before < 0 && behind > 0)
            continue;
        if (index > 0)
            toCheck.push_back(rows_.IdAt(index - 1));
        if (index + 1 < rows_.size())
            toCheck.push_back(rows_.IdAt(index + 1));
        rows_.Erase(index);
        row.stands = false;
        standing.erase(found);
    }
    return S_OK;
}

HRESULT TableView::PutIn(RowReader& reader, ChangedRow& row)
{
    std::size_t index = 0;
    QV_RETURN_IF_FAILED(FindPlace(reader, row, index));
    rows_.Insert(index, row.id);
    row.stands = true;
    return S_OK;
}

HRESULT TableView::ApplyChanges(RowReader& reader, const std::vector<Change>& changes)
{
    std::vector<std::int64_t> affected;
    for (const Change& change : changes)
        source_->AppendAffected(change, affected);
    std::unordered_set<std::int64_t> known;
    std::vector<ChangedRow> rows;
    for (const std::int64_t id : affected) {
        if (known.insert(id).second)
            QV_RETURN_IF_FAILED(Judge(reader, rows.emplace_back(ChangedRow{id, false, false, false, {}})));
    }
    QV_RETURN_IF_FAILED(TakeOut(reader, rows));
    for (ChangedRow& row : rows) {
        if (row.belongs && !row.stands)
            QV_RETURN_IF_FAILED(PutIn(reader, row));
        if (row.belongs)
            Tell(row.wasThere ? TABLE_ROW_MODIFIED : TABLE_ROW_ADDED, row.id);
        else if (row.wasThere)
            Tell(TABLE_ROW_DELETED, row.id);
    }
    return S_OK;
}

void TableView::Tell(ULONG event, std::int64_t id)
{
    for (TableEvents* events : events_)
        events->pending_.Add(event, id);
}

void TableView::SetColumns(std::vector<ULONG> columns)
{
    const MutexLock lock(lock_);
    columns_ = std::move(columns);
}

std::vector<ULONG> TableView::Columns()
{
    const MutexLock lock(lock_);
    return columns_;
}

std::vector<ULONG> TableView::AllColumns() const
{
    return InWidth(source_->DefaultColumns(), unicode_);
}

HRESULT TableView::CountRows(ULONG& count)
{
    return WithRows([&](SqliteConnection&) QV_REQUIRES(lock_) {
        count = static_cast<ULONG>(rows_.size());
        return S_OK;
    });
}

HRESULT TableView::SeekRow(BOOKMARK origin, LONG count, LONG& sought)
{
    return WithRows([&](SqliteConnection&) QV_REQUIRES(lock_) {
        std::size_t from = 0;
        bool lost = false;
        if (!rows_.Find(origin, from, lost))
            return MAPI_E_INVALID_BOOKMARK;
        const std::int64_t wanted = static_cast<std::int64_t>(from) + count;
        const std::int64_t to = std::clamp<std::int64_t>(wanted, 0, static_cast<std::int64_t>(rows_.size()));
        rows_.SetCursor(static_cast<std::size_t>(to));
        sought = static_cast<LONG>(to - static_cast<std::int64_t>(from));
        return lost && origin != BOOKMARK_CURRENT ? MAPI_W_POSITION_CHANGED : S_OK;
    });
}

HRESULT TableView::SeekFraction(ULONG numerator, ULONG denominator)
{
    return WithRows([&](SqliteConnection&) QV_REQUIRES(lock_) {
        const std::uint64_t at = std::uint64_t{rows_.size()} * std::min(numerator, denominator) / denominator;
        rows_.SetCursor(static_cast<std::size_t>(at));
        return S_OK;
    });
}

HRESULT TableView::QueryPosition(ULONG& row, ULONG& count)
{
    return WithRows([&](SqliteConnection&) QV_REQUIRES(lock_) {
        row = static_cast<ULONG>(rows_.Cursor());
        count = static_cast<ULONG>(rows_.size());
        return S_OK;
    });
}

HRESULT TableView::FindRow(const Restriction& restriction, BOOKMARK origin, bool backward)
{
    return WithRows([&](SqliteConnection& connection) QV_REQUIRES(lock_) -> HRESULT {
        std::size_t from = 0;
        bool lost = false;
        if (!rows_.Find(origin, from, lost))
            return MAPI_E_INVALID_BOOKMARK;
        std::optional<std::size_t> found;
        QV_RETURN_IF_FAILED(FindFrom(connection, restriction, from, backward, found));
        if (!found)
            return MAPI_E_NOT_FOUND;
        rows_.SetCursor(*found);
        return lost ? MAPI_W_POSITION_CHANGED : S_OK;
    });
}

HRESULT TableView::FindFrom(SqliteConnection& connection, const Restriction& restriction, std::size_t from,
                            bool backward, std::optional<std::size_t>& found)
{
    const std::unique_ptr<RowReader> reader = MakeReader(connection);
    std::vector<std::int64_t> matches;
    // Nobody but the reader knows of headings.
    HRESULT listed =
        categories_ ? S_FALSE : source_->ListMatches(connection, restriction, kFewMatches + 1, matches);
    QV_RETURN_IF_FAILED(listed);
    if (listed != S_FALSE && matches.size() <= kFewMatches)
        return FindFar(*reader, matches, from, backward, found);
    // Where many rows match, or nobody knows how many, one is likely to be near.
    const std::size_t steps = backward ? from : rows_.size() - from;
    const std::size_t atHand = listed == S_FALSE ? steps : std::min(steps, kNearRows);
    QV_RETURN_IF_FAILED(FindNear(*reader, restriction, from, backward, atHand, found));
    if (found || atHand == steps)
        return S_OK;
    matches.clear();
    listed = source_->ListMatches(connection, restriction, SIZE_MAX, matches);
    QV_RETURN_IF_FAILED(listed);
    return FindFar(*reader, matches, from, backward, found);
}

HRESULT TableView::FindNear(RowReader& reader, const Restriction& restriction, std::size_t from,
                            bool backward, std::size_t steps, std::optional<std::size_t>& found)
{
    for (std::size_t step = 0; step < steps && !found; ++step) {
        const std::size_t index = backward ? from - 1 - step : from + step;
        const HRESULT moved = reader.MoveTo(rows_.IdAt(index));
        QV_RETURN_IF_FAILED(moved);
        if (moved == S_OK && restriction.Matches(reader))
            found = index;
        QV_RETURN_IF_FAILED(reader.TakeFailure());
    }
    return S_OK;
}

// Of rows that match, of which the table may lack some, the first from a place on.
HRESULT TableView::FindFar(RowReader& reader, const std::vector<std::int64_t>& matches, std::size_t from,
                           bool backward, std::optional<std::size_t>& found)
{
    for (const std::int64_t id : matches) {
        std::optional<std::size_t> index;
        if (matches.size() > kFewMatches) {
            index = IndexOf(id);
        } else {
            ChangedRow row{id, false, false, false, {}};
            QV_RETURN_IF_FAILED(Judge(reader, row));
            std::size_t place = 0;
            if (row.belongs)
                QV_RETURN_IF_FAILED(FindPlace(reader, row, place));
            if (row.belongs)
                index = place;
        }
        if (!index || (backward ? *index >= from : *index < from))
            continue;
        if (!found || (backward ? *index > *found : *index < *found))
            found = index;
    }
    return S_OK;
}

HRESULT TableView::Restrict(std::shared_ptr<const Restriction> restriction)
{
    return WithRows([&](SqliteConnection& connection) QV_REQUIRES(lock_) {
        auto categories = categories_ ? std::make_unique<Categories>(*categories_) : nullptr;
        return Ask(connection, {std::move(restriction), query_.sort}, std::move(categories));
    });
}

HRESULT TableView::Sort(TableOrder order)
{
    if (order.categories > 0 && !source_->HasCategories())
        return MAPI_E_TOO_COMPLEX;
    return WithRows([&](SqliteConnection& connection) QV_REQUIRES(lock_) {
        std::unique_ptr<Categories> categories;
        const auto end = order.columns.begin() + static_cast<std::ptrdiff_t>(order.categories);
        if (order.categories > 0)
            categories = std::make_unique<Categories>(std::vector<SortColumn>(order.columns.begin(), end),
                                                      order.expanded);
        return Ask(connection, {query_.restriction, std::move(order.columns)}, std::move(categories));
    });
}

TableOrder TableView::Order()
{
    const MutexLock lock(lock_);
    return {query_.sort, categories_ ? categories_->Depth() : 0, categories_ ? categories_->Expanded() : 0};
}

HRESULT TableView::FindHeading(ByteView key, std::int64_t& id)
{
    if (key.size() != sizeof(id) || !categories_)
        return MAPI_E_NOT_FOUND;
    id = RowOfInstanceKey(key);
    return categories_->Row(id) && IndexOf(id) ? S_OK : MAPI_E_NOT_FOUND;
}

HRESULT TableView::Expand(ByteView key, std::size_t most, LPSRowSet* rows, ULONG& more)
{
    return WithRows([&](SqliteConnection& connection) QV_REQUIRES(lock_) -> HRESULT {
        std::int64_t id = 0;
        QV_RETURN_IF_FAILED(FindHeading(key, id));
        const std::size_t before = rows_.size();
        categories_->SetExpanded(id, true);
        QV_RETURN_IF_FAILED(Rearrange(connection));
        const std::size_t from = *IndexOf(id) + 1;
        const std::size_t come = rows_.size() - before;
        const std::size_t given = std::min(come, most);
        if (rows)
            QV_RETURN_IF_FAILED(GiveRows(connection, from, from + given, rows));
        if (rows && most > 0)
            rows_.SetCursor(from + given);
        more = static_cast<ULONG>(come - given);
        return S_OK;
    });
}

HRESULT TableView::Collapse(ByteView key, ULONG& gone)
{
    return WithRows([&](SqliteConnection& connection) QV_REQUIRES(lock_) -> HRESULT {
        std::int64_t id = 0;
        QV_RETURN_IF_FAILED(FindHeading(key, id));
        const std::size_t before = rows_.size();
        categories_->SetExpanded(id, false);
        QV_RETURN_IF_FAILED(Rearrange(connection));
        gone = static_cast<ULONG>(before - rows_.size());
        return S_OK;
    });
}

HRESULT TableView::SaveCollapsed(ByteView key, Bytes& state)
{
    return WithRows([&](SqliteConnection&) QV_REQUIRES(lock_) -> HRESULT {
        if (!categories_)
            return MAPI_E_NO_SUPPORT;
        std::int64_t id = 0;
        if (!key.empty()) {
            id = key.size() == sizeof(id) ? RowOfInstanceKey(key) : 0;
            if (!IndexOf(id))
                return MAPI_E_NOT_FOUND;
        }
        state = categories_->SaveState(id);
        return S_OK;
    });
}

HRESULT TableView::LoadCollapsed(ByteView state, BOOKMARK& bookmark)
{
    return WithRows([&](SqliteConnection& connection) QV_REQUIRES(lock_) -> HRESULT {
        if (!categories_)
            return MAPI_E_NO_SUPPORT;
        std::int64_t id = 0;
        QV_RETURN_IF_FAILED(categories_->LoadState(state, id));
        QV_RETURN_IF_FAILED(Rearrange(connection));
        const std::size_t cursor = rows_.Cursor();
        rows_.SetCursor(IndexOf(id).value_or(0));
        bookmark = rows_.CreateBookmark();
        rows_.SetCursor(cursor);
        return S_OK;
    });
}

HRESULT TableView::CreateBookmark(BOOKMARK& bookmark)
{
    return WithRows([&](SqliteConnection&) QV_REQUIRES(lock_) {
        bookmark = rows_.CreateBookmark();
        return S_OK;
    });
}

HRESULT TableView::FreeBookmark(BOOKMARK bookmark)
{
    const MutexLock lock(lock_);
    return rows_.FreeBookmark(bookmark) ? S_OK : MAPI_E_INVALID_BOOKMARK;
}

HRESULT TableView::QueryRows(LONG count, bool advance, LPSRowSet* rows)
{
    if (core_->Switches().TakeFailingRowRead())
        return MAPI_E_NETWORK_ERROR;
    return WithRows([&](SqliteConnection& connection) QV_REQUIRES(lock_) -> HRESULT {
        const std::size_t cursor = rows_.Cursor();
        const auto most = static_cast<std::size_t>(std::abs(std::int64_t{count}));
        const std::size_t from = count < 0 ? cursor - std::min(cursor, most) : cursor;
        const std::size_t to = count < 0 ? cursor : cursor + std::min(rows_.size() - cursor, most);
        QV_RETURN_IF_FAILED(GiveRows(connection, from, to, rows));
        if (advance)
            rows_.SetCursor(count < 0 ? from : to);
        return S_OK;
    });
}

HRESULT TableView::GiveRows(SqliteConnection& connection, std::size_t from, std::size_t to, LPSRowSet* rows)
{
    const std::unique_ptr<RowReader> reader = MakeReader(connection);
    const MapiAllocator allocator;
    RowGatherer gathered;
    gathered.Reserve(to - from);
    for (std::size_t index = from; index < to; ++index) {
        const HRESULT moved = reader->MoveTo(rows_.IdAt(index));
        QV_RETURN_IF_FAILED(moved);
        if (moved == S_FALSE)
            return MAPI_E_CORRUPT_STORE;
        QV_RETURN_IF_FAILED(
            MakeRow(*reader, columns_, unicode_, allocator, gathered.Add(), kColumnValueLimit));
        QV_RETURN_IF_FAILED(reader->TakeFailure());
    }
    return gathered.GiveTo(rows);
}

HRESULT TableView::MakeEvents(std::shared_ptr<EventSource>& events)
{
    auto made = std::make_shared<TableEvents>(shared_from_this());
    QV_RETURN_IF_FAILED(WithRows([&](SqliteConnection&) QV_REQUIRES(lock_) {
        events_.push_back(made.get());
        return S_OK;
    }));
    events = std::move(made);
    return S_OK;
}

void TableView::Forget(const TableEvents& events) noexcept
{
    const MutexLock lock(lock_);
    std::erase(events_, &events);
}

HRESULT TableView::Collect(TableEvents& events, NotificationBatch& batch)
{
    return WithRows([&](SqliteConnection& connection) QV_REQUIRES(lock_) {
        PendingEvents pending = std::exchange(events.pending_, PendingEvents());
        if (pending.empty())
            return S_OK;
        const bool byRow = !pending.IsChanged() && !core_->Switches().tellsOfTablesOnly;
        if (byRow && SUCCEEDED(AddRowEvents(connection, pending, batch)))
            return S_OK;
        // What can't be told row by row is not lost.
        batch.Clear();
        batch.AddTableEvent(TABLE_CHANGED, {}, {}, SRow{});
        return S_OK;
    });
}

HRESULT TableView::AddRowEvents(SqliteConnection& connection, const PendingEvents& pending,
                                NotificationBatch& batch)
{
    const std::unique_ptr<RowReader> reader = source_->MakeReader(connection);
    for (const PendingEvents::RowEvent& event : pending.Rows()) {
        if (event.event == TABLE_ROW_DELETED) {
            batch.AddTableEvent(event.event, InstanceKey(event.id), {}, SRow{});
            continue;
        }
        const std::optional<std::size_t> index = IndexOf(event.id);
        if (event.event == 0 || !index)
            continue;
        QV_RETURN_IF_FAILED(reader->MoveTo(event.id));
        SRow row{};
        QV_RETURN_IF_FAILED(MakeRow(*reader, columns_, unicode_, MapiAllocator(), row, kColumnValueLimit));
        const Bytes prior = *index == 0 ? Bytes() : InstanceKey(rows_.IdAt(*index - 1));
        batch.AddTableEvent(event.event, InstanceKey(event.id), prior, row);
    }
    return S_OK;
}

}  // namespace quorvane
