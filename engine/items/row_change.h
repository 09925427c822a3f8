// items/row_change.h: several statements on an item's row, of which all remain or none.
#ifndef QUORVANE_ENGINE_ITEMS_ROW_CHANGE_H_
#define QUORVANE_ENGINE_ITEMS_ROW_CHANGE_H_

#include <utility>

#include "engine/persist/database.h"

namespace quorvane {

// A transaction on a session for as long as it lives, taken back unless it is committed. Where none can be
// had, as when the session has one already, each statement stands for itself.
class RowChange {
public:
    explicit RowChange(DatabaseSession& session) noexcept
        : session_(session), open_(SUCCEEDED(session.StartTransaction()))
    {}
    RowChange(const RowChange&) = delete;
    RowChange& operator=(const RowChange&) = delete;
    ~RowChange()
    {
        if (open_)
            HR_IGNORE(session_.Abort(), "a connection that can't take it back is closed");
    }

    // The failure of the commit, after which nothing of the change remains.
    [[nodiscard]] HRESULT Commit() noexcept { return std::exchange(open_, false) ? session_.Commit() : S_OK; }

private:
    DatabaseSession& session_;
    bool open_;
};

}  // namespace quorvane

#endif  // QUORVANE_ENGINE_ITEMS_ROW_CHANGE_H_
