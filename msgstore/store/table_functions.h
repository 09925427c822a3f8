// msgstore/store/table_functions.h: what the SQL of tables calls beside SQLite's own functions.
//
//   qv_fold(text)                  text without regard to case, as tables compare it; null of null
//   qv_key(reader, id, tag)        a value as bytes that order as it does (SortKey); null where the row has
//   none
//
// Neither stands in the file: no index or view names them, so that any other program can read and check a
// store.
#ifndef QUORVANE_MSGSTORE_STORE_TABLE_FUNCTIONS_H_
#define QUORVANE_MSGSTORE_STORE_TABLE_FUNCTIONS_H_

#include "msgstore/store/table_source.h"

struct sqlite3;

namespace quorvane {

// SQLite's code.
int AddTableFunctions(sqlite3* database) noexcept;

// The first argument of qv_key: remembers at which row the reader is, and its first failure.
class SortKeyReader {
public:
    explicit SortKeyReader(RowReader& reader) noexcept : reader_(reader) {}

    // Binds itself as the next parameter. Must outlive the statement's use.
    void BindTo(SqliteRows& rows) noexcept;
    // False: the row has no value, or there was a failure.
    bool Read(std::int64_t id, ULONG tag, Bytes& key) noexcept;
    [[nodiscard]] HRESULT Failure() const noexcept { return failure_; }

private:
    RowReader& reader_;
    std::int64_t at_ = 0;
    HRESULT failure_ = S_OK;
};

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_STORE_TABLE_FUNCTIONS_H_
