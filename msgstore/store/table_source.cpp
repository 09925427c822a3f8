#include "msgstore/store/table_source.h"

#include <algorithm>

namespace quorvane {
namespace {

struct SortedRow {
    std::int64_t id = 0;
    PropertyBag values;
};

}  // namespace

PropertyBag SortValues(const RowReader& reader, const std::vector<SortColumn>& sort)
{
    PropertyBag values;
    for (const SortColumn& column : sort) {
        if (const PropertyValue* const value = reader.Find(column.tag))
            values.Put(*value);
    }
    return values;
}

HRESULT SelectByReading(RowReader& reader, const TableQuery& query, std::vector<std::int64_t>& ids)
{
    if (!query.restriction && query.sort.empty())
        return S_OK;
    std::vector<SortedRow> rows;
    for (const std::int64_t id : ids) {
        const HRESULT moved = reader.MoveTo(id);
        QV_RETURN_IF_FAILED(moved);
        if (moved == S_OK && (!query.restriction || query.restriction->Matches(reader)))
            rows.push_back({id, SortValues(reader, query.sort)});
        QV_RETURN_IF_FAILED(reader.TakeFailure());
    }
    std::stable_sort(rows.begin(), rows.end(), [&](const SortedRow& a, const SortedRow& b) {
        return CompareRows(BagLookup(a.values), BagLookup(b.values), query.sort) < 0;
    });
    ids.clear();
    for (const SortedRow& row : rows)
        ids.push_back(row.id);
    return S_OK;
}

}  // namespace quorvane
