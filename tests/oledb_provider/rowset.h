// tests/oledb_provider/rowset.h: the rows that a command gave.
#ifndef QUORVANE_TESTS_OLEDB_PROVIDER_ROWSET_H_
#define QUORVANE_TESTS_OLEDB_PROVIDER_ROWSET_H_

#include <map>
#include <string>
#include <vector>

#include "tests/oledb_provider/accessors.h"
#include "tests/oledb_provider/values.h"

namespace quorvane::test {

// Rows that were read when their command ran, given from the first to the last. The rows that were given are
// to be released before the next ones are asked for. One thread at a time.
class Rowset final : public ObjectWithAccessors<Rowset, IRowset, IColumnsInfo> {
public:
    Rowset(std::vector<std::string> columns, std::vector<Row> rows) noexcept
        : columns_(std::move(columns)), rows_(std::move(rows))
    {}

    HRESULT STDMETHODCALLTYPE GetNextRows(HCHAPTER chapter, DBROWOFFSET skip, DBROWCOUNT count,
                                          DBCOUNTITEM* obtained, HROW** rows) override;
    HRESULT STDMETHODCALLTYPE GetData(HROW row, HACCESSOR accessor, void* data) override;
    HRESULT STDMETHODCALLTYPE AddRefRows(DBCOUNTITEM count, const HROW* rows, DBREFCOUNT* references,
                                         DBROWSTATUS* statuses) override;
    HRESULT STDMETHODCALLTYPE ReleaseRows(DBCOUNTITEM count, const HROW* rows, DBROWOPTIONS*,
                                          DBREFCOUNT* references, DBROWSTATUS* statuses) override;
    HRESULT STDMETHODCALLTYPE RestartPosition(HCHAPTER) override;

    HRESULT STDMETHODCALLTYPE GetColumnInfo(DBORDINAL* count, DBCOLUMNINFO** info, OLECHAR** texts) override;
    HRESULT STDMETHODCALLTYPE MapColumnIDs(DBORDINAL, const DBID*, DBORDINAL*) override { return E_NOTIMPL; }

private:
    HRESULT Count(DBCOUNTITEM count, const HROW* rows, LONG change, DBREFCOUNT* references,
                  DBROWSTATUS* statuses);

    const std::vector<std::string> columns_;  // their names
    const std::vector<Row> rows_;
    size_t next_ = 0;
    std::map<HROW, DBREFCOUNT> given_;  // a row's handle is its place from 1
};

}  // namespace quorvane::test

#endif  // QUORVANE_TESTS_OLEDB_PROVIDER_ROWSET_H_
