#include "tests/oledb_provider/rowset.h"

#include <algorithm>
#include <memory>

#include "platform/com/bstr.h"

namespace quorvane::test {

HRESULT Rowset::GetNextRows(HCHAPTER chapter, DBROWOFFSET skip, DBROWCOUNT count, DBCOUNTITEM* obtained,
                            HROW** rows)
{
    if (!obtained || !rows)
        return E_INVALIDARG;
    *obtained = 0;
    if (chapter != DB_NULL_HCHAPTER || skip < 0 || count < 0)
        return Fail(DB_E_CANTFETCHBACKWARDS, {"Rows come in their order."});
    if (!given_.empty())
        return Fail(DB_E_ROWSNOTRELEASED, {"The last rows are still held."});
    const size_t first = std::min(rows_.size(), next_ + static_cast<size_t>(skip));
    const size_t found = std::min(rows_.size() - first, static_cast<size_t>(count));
    if (found != 0 && !*rows) {
        *rows = static_cast<HROW*>(CoTaskMemAlloc(found * sizeof(HROW)));
        if (!*rows)
            return E_OUTOFMEMORY;
    }
    for (size_t i = 0; i < found; ++i) {
        (*rows)[i] = first + i + 1;
        given_[first + i + 1] = 1;
    }
    next_ = first + found;
    *obtained = found;
    return found == static_cast<size_t>(count) ? S_OK : DB_S_ENDOFROWSET;
}

HRESULT Rowset::GetData(HROW row, HACCESSOR accessor, void* data)
{
    if (!given_.contains(row))
        return Fail(DB_E_BADROWHANDLE, {"There is no such row."});
    std::vector<DBBINDING> bindings;
    if (const HRESULT hr = accessors_.Find(accessor, DBACCESSOR_ROWDATA, bindings); FAILED(hr))
        return hr;
    if (!data)
        return bindings.empty() ? S_OK : E_INVALIDARG;
    const Row& values = rows_[row - 1];
    size_t good = 0;
    for (const DBBINDING& binding : bindings) {
        if (binding.iOrdinal > values.size())
            return Fail(DB_E_BADORDINAL, {"There is no such column."});
        const DBSTATUS status = PutValue(values[binding.iOrdinal - 1], binding, static_cast<BYTE*>(data));
        good += status == DBSTATUS_S_OK || status == DBSTATUS_S_ISNULL || status == DBSTATUS_S_TRUNCATED;
    }
    if (good == bindings.size())
        return S_OK;
    return good == 0 ? DB_E_ERRORSOCCURRED : DB_S_ERRORSOCCURRED;
}

HRESULT Rowset::Count(DBCOUNTITEM count, const HROW* rows, LONG change, DBREFCOUNT* references,
                      DBROWSTATUS* statuses)
{
    DBCOUNTITEM good = 0;
    for (DBCOUNTITEM i = 0; i < count; ++i) {
        const auto found = given_.find(rows[i]);
        const bool isGood = found != given_.end();
        DBREFCOUNT left = 0;
        if (isGood) {
            left = found->second += static_cast<DBREFCOUNT>(change);
            if (left == 0)
                given_.erase(found);
            ++good;
        }
        if (references)
            references[i] = left;
        if (statuses)
            statuses[i] = isGood ? DBROWSTATUS_S_OK : DBROWSTATUS_E_INVALID;
    }
    if (good == count)
        return S_OK;
    return good == 0 ? DB_E_ERRORSOCCURRED : DB_S_ERRORSOCCURRED;
}

HRESULT Rowset::AddRefRows(DBCOUNTITEM count, const HROW* rows, DBREFCOUNT* references, DBROWSTATUS* statuses)
{
    return Count(count, rows, 1, references, statuses);
}

HRESULT Rowset::ReleaseRows(DBCOUNTITEM count, const HROW* rows, DBROWOPTIONS*, DBREFCOUNT* references,
                            DBROWSTATUS* statuses)
{
    return Count(count, rows, -1, references, statuses);
}

HRESULT Rowset::RestartPosition(HCHAPTER)
{
    if (!given_.empty())
        return Fail(DB_E_ROWSNOTRELEASED, {"The last rows are still held."});
    next_ = 0;
    return S_OK;
}

HRESULT Rowset::GetColumnInfo(DBORDINAL* count, DBCOLUMNINFO** info, OLECHAR** texts)
{
    if (!count || !info || !texts)
        return E_INVALIDARG;
    *count = 0;
    *info = nullptr;
    *texts = nullptr;
    try {
        OleString names;
        for (const std::string& column : columns_)
            names += FromUtf8(column) + OLESTR('\0');
        const size_t bytes = names.size() * sizeof(OLECHAR);
        auto* const described =
            static_cast<DBCOLUMNINFO*>(CoTaskMemAlloc(columns_.size() * sizeof(DBCOLUMNINFO)));
        auto* const buffer = static_cast<OLECHAR*>(CoTaskMemAlloc(bytes));
        if (!described || !buffer) {
            CoTaskMemFree(described);
            CoTaskMemFree(buffer);
            return E_OUTOFMEMORY;
        }
        std::copy(names.begin(), names.end(), buffer);
        OLECHAR* name = buffer;
        for (size_t i = 0; i < columns_.size(); ++i) {
            DBCOLUMNINFO& one = described[i] = {};
            one.pwszName = name;
            one.iOrdinal = i + 1;
            one.wType = DBTYPE_VARIANT;
            name += OleStringView(name).size() + 1;
        }
        *count = columns_.size();
        *info = described;
        *texts = buffer;
        return S_OK;
    } catch (...) {
        return E_OUTOFMEMORY;
    }
}

}  // namespace quorvane::test
