// msgstore/store/table_events.h: what happened to a view's rows that one subscription hasn't been told yet.
#ifndef QUORVANE_MSGSTORE_STORE_TABLE_EVENTS_H_
#define QUORVANE_MSGSTORE_STORE_TABLE_EVENTS_H_

#include <unordered_map>

#include "msgstore/store/table_view.h"

namespace quorvane {

// More rows than this make one TABLE_CHANGED.
inline constexpr std::size_t kMostRowEvents = 1024;

// Events of rows, one a row: a later event of a row is merged with the one that waits. No lock.
class PendingEvents {
public:
    struct RowEvent {
        ULONG event =
            0;  // TABLE_ROW_ADDED, TABLE_ROW_MODIFIED, TABLE_ROW_DELETED; 0: nothing is left to tell
        std::int64_t id = 0;
    };

    void Add(ULONG event, std::int64_t id);
    // Many rows have changed, in ways that nobody recorded.
    void AddChanged() noexcept;

    bool empty() const noexcept { return !changed_ && byRow_.empty(); }
    // One TABLE_CHANGED stands for everything.
    bool IsChanged() const noexcept { return changed_; }
    // In the order in which the rows were first touched.
    const std::vector<RowEvent>& Rows() const noexcept { return rows_; }

private:
    bool changed_ = false;
    std::vector<RowEvent> rows_;
    std::unordered_map<std::int64_t, std::size_t> byRow_;
};

// One subscription's source: keeps its view alive.
class TableEvents final : public EventSource {
public:
    explicit TableEvents(std::shared_ptr<TableView> view) noexcept : view_(std::move(view)) {}
    ~TableEvents() override { view_->Forget(*this); }

    const std::shared_ptr<StoreCore>& Core() const noexcept override { return view_->Core(); }
    [[nodiscard]] HRESULT Collect(NotificationBatch& batch) noexcept override
    {
        return Guarded([&] { return view_->Collect(*this, batch); });
    }

private:
    friend class TableView;

    const std::shared_ptr<TableView> view_;
    PendingEvents pending_;  // guarded by the view's lock
};

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_STORE_TABLE_EVENTS_H_
