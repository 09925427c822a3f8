#include "engine/change/row_snapshot.h"

#include <algorithm>
#include <cstring>

#include "engine/session/trace/trace.h"

namespace quorvane {
namespace {

// Up to so many rows are asked for at once.
constexpr ULONG kSnapshotRowsAtOnce = 500;
constexpr std::size_t kBlockSize = 64 * 1024;

// In front of a packed row: which columns follow, in their order.
using Columns = BYTE;

template <class Value>
void Put(std::vector<BYTE>& block, const Value& value)
{
    const auto* const bytes = reinterpret_cast<const BYTE*>(&value);
    block.insert(block.end(), bytes, bytes + sizeof value);
}

template <class Value>
const BYTE* Get(const BYTE* from, Value& value) noexcept
{
    std::memcpy(&value, from, sizeof value);
    return from + sizeof value;
}

}  // namespace

HRESULT RowSnapshot::Take(IMAPITable& table, ULONG count) noexcept
{
    try {
        // A long table goes on while it has rows: some may have come since they were counted.
        const bool isLong = count > kSnapshotRowsAtOnce;
        for (bool goesOn = count != 0; goesOn;) {
            RowSet rows;
            HR_TRY_QUIET(table.QueryRows(static_cast<LONG>(std::min(count, kSnapshotRowsAtOnce)),
                                         isLong ? 0 : TBL_NOADVANCE, rows.Put()));
            for (const SRow& row : rows)
                Add(row);
            goesOn = isLong && rows.Count() != 0;
        }
        return isLong ? table.SeekRow(BOOKMARK_BEGINNING, 0, nullptr) : S_OK;
    } catch (...) {
        return E_OUTOFMEMORY;
    }
}

void RowSnapshot::Add(const SRow& row)
{
    const SPropValue* values[kColumns];
    Columns columns = 0;
    std::size_t size = sizeof columns + sizeof(ULONG) + sizeof(LONG) + sizeof(FILETIME) + sizeof(LONG);
    for (ULONG i = 0; i < kColumns; ++i) {
        values[i] = FindProp(row, kTags[i]);
        if (values[i])
            columns = static_cast<Columns>(columns | (1 << i));
    }
    if (values[0])
        size += values[0]->Value.bin.cb;
    if (blocks_.empty() || blocks_.back().capacity() - blocks_.back().size() < size) {
        std::vector<BYTE> block;
        block.reserve(std::max(size, kBlockSize));
        blocks_.push_back(std::move(block));
    }
    std::vector<BYTE>& block = blocks_.back();
    Put(block, columns);
    if (values[0]) {
        const SBinary& identifier = values[0]->Value.bin;
        Put(block, identifier.cb);
        block.insert(block.end(), identifier.lpb, identifier.lpb + identifier.cb);
    }
    if (values[1])
        Put(block, values[1]->Value.l);
    if (values[2])
        Put(block, values[2]->Value.ft);
    if (values[3])
        Put(block, values[3]->Value.l);
}

const BYTE* RowSnapshot::Unpack(const BYTE* packed, SRow& row) noexcept
{
    Columns columns = 0;
    const BYTE* at = Get(packed, columns);
    for (ULONG i = 0; i < kColumns; ++i) {
        if (!(columns & (1 << i)))
            continue;
        SPropValue& value = row.lpProps[row.cValues++];
        value = {};
        value.ulPropTag = kTags[i];
        if (PROP_TYPE(kTags[i]) == PT_SYSTIME) {
            at = Get(at, value.Value.ft);
        } else if (PROP_TYPE(kTags[i]) == PT_LONG) {
            at = Get(at, value.Value.l);
        } else {
            at = Get(at, value.Value.bin.cb);
            value.Value.bin.lpb = const_cast<BYTE*>(at);
            at += value.Value.bin.cb;
        }
    }
    return at;
}

}  // namespace quorvane
