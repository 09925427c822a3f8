#include "msgstore/store/table_view.h"

#include <algorithm>
#include <unordered_set>

#include "msgstore/store/table_events.h"
#include "msgstore/table/rows_table.h"

namespace quorvane {
namespace {

// So many changes at once are not followed one by one: all rows are read anew.
constexpr std::size_t kMostFollowedChanges = 1000;

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
        std::vector<OrderedRow> rows;
        QV_RETURN_IF_FAILED(LoadRows(connection, rows));
        rows_.Restart(std::move(rows));
        loaded_ = true;
        lastChange_ = last;
        return S_OK;
    }
    if (last == lastChange_)
        return S_OK;
    std::vector<Change> changes;
    const HRESULT read = ReadChanges(connection, lastChange_, kMostFollowedChanges, changes);
    QV_RETURN_IF_FAILED(read);
    if (read == S_FALSE || changes.size() == kMostFollowedChanges) {
        QV_RETURN_IF_FAILED(Reload(connection));
    } else {
        const std::unique_ptr<RowReader> reader = source_->MakeReader(connection);
        QV_RETURN_IF_FAILED(ApplyChanges(*reader, changes));
    }
    lastChange_ = last;
    return S_OK;
}

HRESULT TableView::LoadRows(SqliteConnection& connection, std::vector<OrderedRow>& rows)
{
    std::vector<std::int64_t> ids;
    QV_RETURN_IF_FAILED(source_->ListRows(connection, ids));
    rows.reserve(ids.size());
    const bool readsRows = restriction_ || !rows_.Sort().empty();
    const std::unique_ptr<RowReader> reader = readsRows ? source_->MakeReader(connection) : nullptr;
    for (const std::int64_t id : ids) {
        PropertyBag keys;
        bool belongs = true;
        if (reader)
            QV_RETURN_IF_FAILED(Judge(*reader, id, belongs, keys));
        if (belongs)
            rows.push_back({id, std::move(keys)});
    }
    return S_OK;
}

HRESULT TableView::Reload(SqliteConnection& connection)
{
    std::vector<OrderedRow> rows;
    QV_RETURN_IF_FAILED(LoadRows(connection, rows));
    rows_.Replace(std::move(rows));
    for (TableEvents* events : events_)
        events->pending_.AddChanged();
    return S_OK;
}

HRESULT TableView::Judge(RowReader& reader, std::int64_t id, bool& belongs, PropertyBag& keys)
{
    const HRESULT moved = reader.MoveTo(id);
    QV_RETURN_IF_FAILED(moved);
    belongs = moved == S_OK && (!restriction_ || restriction_->Matches(reader));
    if (belongs) {
        for (const SortColumn& column : rows_.Sort()) {
            if (const PropertyValue* const value = reader.Find(column.tag))
                keys.Put(*value);
        }
    }
    return reader.TakeFailure();
}

HRESULT TableView::ApplyChanges(RowReader& reader, const std::vector<Change>& changes)
{
    std::vector<std::int64_t> affected;
    for (const Change& change : changes)
        source_->AppendAffected(change, affected);
    std::unordered_set<std::int64_t> done;
    for (const std::int64_t id : affected) {
        if (done.insert(id).second)
            QV_RETURN_IF_FAILED(Refresh(reader, id));
    }
    return S_OK;
}

HRESULT TableView::Refresh(RowReader& reader, std::int64_t id)
{
    bool belongs = false;
    PropertyBag keys;
    QV_RETURN_IF_FAILED(Judge(reader, id, belongs, keys));
    const std::optional<std::size_t> index = rows_.IndexOf(id);
    if (index && !belongs) {
        rows_.Erase(*index);
        Tell(TABLE_ROW_DELETED, id);
    } else if (index) {
        rows_.Update(*index, std::move(keys));
        Tell(TABLE_ROW_MODIFIED, id);
    } else if (belongs) {
        rows_.Insert({id, std::move(keys)});
        Tell(TABLE_ROW_ADDED, id);
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
    return WithRows([&](SqliteConnection& connection) QV_REQUIRES(lock_) {
        std::size_t from = 0;
        bool lost = false;
        if (!rows_.Find(origin, from, lost))
            return MAPI_E_INVALID_BOOKMARK;
        const std::unique_ptr<RowReader> reader = source_->MakeReader(connection);
        const std::size_t steps = backward ? from : rows_.size() - from;
        for (std::size_t step = 0; step < steps; ++step) {
            const std::size_t index = backward ? from - 1 - step : from + step;
            const HRESULT moved = reader->MoveTo(rows_.IdAt(index));
            QV_RETURN_IF_FAILED(moved);
            const bool matches = moved == S_OK && restriction.Matches(*reader);
            QV_RETURN_IF_FAILED(reader->TakeFailure());
            if (matches) {
                rows_.SetCursor(index);
                return lost ? MAPI_W_POSITION_CHANGED : S_OK;
            }
        }
        return MAPI_E_NOT_FOUND;
    });
}

HRESULT TableView::Restrict(std::shared_ptr<const Restriction> restriction)
{
    return WithRows([&](SqliteConnection& connection) QV_REQUIRES(lock_) {
        std::swap(restriction_, restriction);
        std::vector<OrderedRow> rows;
        const HRESULT loaded = LoadRows(connection, rows);
        if (FAILED(loaded)) {
            std::swap(restriction_, restriction);
            return loaded;
        }
        rows_.Restart(std::move(rows));
        return S_OK;
    });
}

HRESULT TableView::Sort(std::vector<SortColumn> columns)
{
    return WithRows([&](SqliteConnection& connection) QV_REQUIRES(lock_) {
        std::vector<SortColumn> before = rows_.Sort();
        rows_.SetSort(std::move(columns));
        std::vector<OrderedRow> rows;
        const HRESULT loaded = LoadRows(connection, rows);
        if (FAILED(loaded)) {
            rows_.SetSort(std::move(before));
            return loaded;
        }
        rows_.Restart(std::move(rows));
        return S_OK;
    });
}

std::vector<SortColumn> TableView::SortOrder()
{
    const MutexLock lock(lock_);
    return rows_.Sort();
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
    return WithRows([&](SqliteConnection& connection) QV_REQUIRES(lock_) {
        const std::size_t cursor = rows_.Cursor();
        const auto most = static_cast<std::size_t>(std::abs(std::int64_t{count}));
        const std::size_t from = count < 0 ? cursor - std::min(cursor, most) : cursor;
        const std::size_t to = count < 0 ? cursor : cursor + std::min(rows_.size() - cursor, most);
        const std::unique_ptr<RowReader> reader = source_->MakeReader(connection);
        const MapiAllocator allocator;
        RowGatherer gathered;
        gathered.Reserve(to - from);
        for (std::size_t index = from; index < to; ++index) {
            const HRESULT moved = reader->MoveTo(rows_.IdAt(index));
            QV_RETURN_IF_FAILED(moved);
            if (moved == S_FALSE)
                return MAPI_E_CORRUPT_STORE;
            QV_RETURN_IF_FAILED(MakeRow(*reader, columns_, unicode_, allocator, gathered.Add()));
            QV_RETURN_IF_FAILED(reader->TakeFailure());
        }
        QV_RETURN_IF_FAILED(gathered.GiveTo(rows));
        if (advance)
            rows_.SetCursor(count < 0 ? from : to);
        return S_OK;
    });
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
        const std::optional<std::size_t> index = rows_.IndexOf(event.id);
        if (event.event == 0 || !index)
            continue;
        QV_RETURN_IF_FAILED(reader->MoveTo(event.id));
        SRow row{};
        QV_RETURN_IF_FAILED(MakeRow(*reader, columns_, unicode_, MapiAllocator(), row));
        const Bytes prior = *index == 0 ? Bytes() : InstanceKey(rows_.IdAt(*index - 1));
        batch.AddTableEvent(event.event, InstanceKey(event.id), prior, row);
    }
    return S_OK;
}

}  // namespace quorvane
