// The published helpers for property values, rows and tables.
#include <cstring>
#include <limits>
#include <string>

#include "msgstore/util/guarded.h"
#include "msgstore/util/memory.h"
#include "msgstore/util/value_copy.h"

namespace quorvane {
namespace {

// Whether a tag asked for stands for a tag found: the same, or by identifier alone with PT_UNSPECIFIED.
bool TagMatches(ULONG asked, ULONG found) noexcept
{
    return asked == found || (PROP_TYPE(asked) == PT_UNSPECIFIED && PROP_ID(asked) == PROP_ID(found));
}

HRESULT AppendRows(RowSet& batch, std::vector<SRow>& all)
{
    all.reserve(all.size() + batch.size());
    for (SRow& row : batch) {
        all.push_back(row);
        row.lpProps = nullptr;
        row.cValues = 0;
    }
    return S_OK;
}

void FreeRows(const std::vector<SRow>& rows) noexcept
{
    for (const SRow& row : rows)
        MAPIFreeBuffer(row.lpProps);
}

// Reads a table to its end in batches. MAPI_E_TABLE_TOO_BIG: more than `limit` rows, if it isn't 0.
HRESULT ReadAllRows(IMAPITable& table, LONG limit, std::vector<SRow>& all)
{
    constexpr LONG kBatch = 1000;
    for (;;) {
        RowSet batch;
        QV_RETURN_IF_FAILED(table.QueryRows(kBatch, 0, batch.Put()));
        if (batch.size() == 0)
            return S_OK;
        AppendRows(batch, all);
        if (limit > 0 && all.size() > static_cast<std::size_t>(limit))
            return MAPI_E_TABLE_TOO_BIG;
    }
}

HRESULT PackRows(const std::vector<SRow>& all, LPSRowSet* rows) noexcept
{
    const MapiAllocator allocator;
    auto* const set = static_cast<LPSRowSet>(allocator.Allocate(CbNewSRowSet(all.size() + 1)));
    if (!set)
        return MAPI_E_NOT_ENOUGH_MEMORY;
    set->cRows = static_cast<ULONG>(all.size());
    if (!all.empty())
        std::memcpy(set->aRow, all.data(), all.size() * sizeof(SRow));
    *rows = set;
    return S_OK;
}

HRESULT PrepareTable(IMAPITable& table, LPSPropTagArray tags, LPSRestriction restriction,
                     LPSSortOrderSet order)
{
    if (tags)
        QV_RETURN_IF_FAILED(table.SetColumns(tags, TBL_BATCH));
    if (restriction)
        QV_RETURN_IF_FAILED(table.Restrict(restriction, TBL_BATCH));
    if (order)
        QV_RETURN_IF_FAILED(table.SortTable(order, TBL_BATCH));
    return table.SeekRow(BOOKMARK_BEGINNING, 0, nullptr);
}

}  // namespace
}  // namespace quorvane

using namespace quorvane;

STDAPI HrGetOneProp(LPMAPIPROP object, ULONG tag, LPSPropValue* value)
{
    if (!object || !value)
        return MAPI_E_INVALID_PARAMETER;
    *value = nullptr;
    SPropTagArray tags{1, {tag}};
    ULONG count = 0;
    MapiBuffer<SPropValue> read;
    QV_RETURN_IF_FAILED(object->GetProps(&tags, 0, &count, read.Put()));
    if (count != 1 || !read)
        return MAPI_E_NOT_FOUND;
    if (PROP_TYPE(read->ulPropTag) == PT_ERROR)
        return FAILED(read->Value.err) ? read->Value.err : MAPI_E_NOT_FOUND;
    *value = read.Detach();
    return S_OK;
}

STDAPI HrSetOneProp(LPMAPIPROP object, LPSPropValue value)
{
    if (!object || !value)
        return MAPI_E_INVALID_PARAMETER;
    MapiBuffer<SPropProblemArray> problems;
    QV_RETURN_IF_FAILED(object->SetProps(1, value, problems.Put()));
    return problems && problems->cProblem > 0 ? problems->aProblem[0].scode : S_OK;
}

STDAPI_(LPSPropValue) PpropFindProp(LPSPropValue values, ULONG count, ULONG tag)
{
    if (!values)
        return nullptr;
    for (ULONG i = 0; i < count; ++i) {
        if (TagMatches(tag, values[i].ulPropTag))
            return &values[i];
    }
    return nullptr;
}

STDAPI_(SCODE) ScCountProps(INT count, LPSPropValue values, ULONG* size)
{
    if (count < 0 || (count > 0 && !values) || !size)
        return MAPI_E_INVALID_PARAMETER;
    BlockWriter counter(nullptr);
    QV_RETURN_IF_FAILED(counter.CopyValues(static_cast<ULONG>(count), values).result);
    return counter.GiveSize(size);
}

STDAPI_(SCODE) ScCopyProps(INT count, LPSPropValue values, LPVOID target, ULONG* size)
{
    if (count < 0 || (count > 0 && !values) || !target)
        return MAPI_E_INVALID_PARAMETER;
    BlockWriter writer(target);
    QV_RETURN_IF_FAILED(writer.CopyValues(static_cast<ULONG>(count), values).result);
    return size ? writer.GiveSize(size) : S_OK;
}

STDAPI_(SCODE) ScDupPropset(INT count, LPSPropValue values, LPALLOCATEBUFFER allocate, LPSPropValue* copy)
{
    if (!allocate || !copy)
        return MAPI_E_INVALID_PARAMETER;
    ULONG size = 0;
    QV_RETURN_IF_FAILED(ScCountProps(count, values, &size));
    void* block = nullptr;
    QV_RETURN_IF_FAILED(allocate(size, &block));
    QV_RETURN_IF_FAILED(ScCopyProps(count, values, block, nullptr));
    *copy = static_cast<LPSPropValue>(block);
    return S_OK;
}

STDAPI_(SCODE)
PropCopyMore(LPSPropValue target, LPSPropValue source, ALLOCATEMORE* allocateMore, LPVOID object)
{
    if (!target || !source || !allocateMore)
        return MAPI_E_INVALID_PARAMETER;
    BlockWriter counter(nullptr);
    SPropValue copy = *source;
    QV_RETURN_IF_FAILED(counter.CopyPayload(*source, copy));
    ULONG size = 0;
    QV_RETURN_IF_FAILED(counter.GiveSize(&size));
    void* block = nullptr;
    if (size > 0) {
        QV_RETURN_IF_FAILED(allocateMore(size, object, &block));
        BlockWriter writer(block);
        QV_RETURN_IF_FAILED(writer.CopyPayload(*source, copy));
    }
    *target = copy;
    return S_OK;
}

STDAPI_(void) FreePadrlist(LPADRLIST list)
{
    if (!list)
        return;
    for (ULONG i = 0; i < list->cEntries; ++i)
        MAPIFreeBuffer(list->aEntries[i].rgPropVals);
    MAPIFreeBuffer(list);
}

STDAPI_(void) FreeProws(LPSRowSet rows)
{
    // A row set and an address list have one layout, so that either can be taken for the other.
    FreePadrlist(reinterpret_cast<LPADRLIST>(rows));
}

STDAPI HrQueryAllRows(LPMAPITABLE table, LPSPropTagArray tags, LPSRestriction restriction,
                      LPSSortOrderSet order, LONG maxRows, LPSRowSet* rows)
{
    if (!table || !rows)
        return MAPI_E_INVALID_PARAMETER;
    *rows = nullptr;
    QV_RETURN_IF_FAILED(PrepareTable(*table, tags, restriction, order));
    std::vector<SRow> all;
    HRESULT hr = Guarded([&] { return ReadAllRows(*table, maxRows, all); });
    if (SUCCEEDED(hr))
        hr = PackRows(all, rows);
    if (FAILED(hr))
        FreeRows(all);
    return hr;
}
