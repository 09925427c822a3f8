#include <algorithm>
#include <bit>
#include <cstring>

#include "msgstore/props/little_endian.h"
#include "msgstore/table/restriction.h"
#include "msgstore/table/text_fold.h"

namespace quorvane {
namespace {

template <class T>
int Order(const T& a, const T& b) noexcept
{
    return a < b ? -1 : (b < a ? 1 : 0);
}

double AsDouble(const PropertyValue& value) noexcept
{
    if (value.data.size() == 4)
        return std::bit_cast<float>(LoadLittle<std::uint32_t>(value.data.data()));
    return value.data.size() == 8 ? std::bit_cast<double>(LoadLittle<std::uint64_t>(value.data.data())) : 0;
}

// Not-a-number stands before all numbers, so that the order is one.
int CompareReals(double a, double b) noexcept
{
    const bool aIsNumber = a == a;
    const bool bIsNumber = b == b;
    return aIsNumber && bIsNumber ? Order(a, b) : Order(aIsNumber, bIsNumber);
}

std::uint64_t TimeBits(const PropertyValue& value) noexcept
{
    return value.data.size() == 8 ? LoadLittle<std::uint64_t>(value.data.data()) : 0;
}

int CompareItems(const PropertyValue& a, const PropertyValue& b) noexcept
{
    const std::size_t shared = std::min(a.items.size(), b.items.size());
    for (std::size_t i = 0; i < shared; ++i) {
        if (const int order = CompareBytes(a.items[i], b.items[i]); order != 0)
            return order;
    }
    return Order(a.items.size(), b.items.size());
}

// Types whose values compare with each other have one rank; all others one each, above these.
enum Rank : ULONG { kNumbers, kReals, kTexts, kOthers };

ULONG RankOf(ULONG type) noexcept
{
    switch (type) {
        case PT_I2:
        case PT_LONG:
        case PT_I8:
        case PT_BOOLEAN:
        case PT_CURRENCY:
            return kNumbers;
        case PT_R4:
        case PT_DOUBLE:
        case PT_APPTIME:
            return kReals;
        case PT_STRING8:
        case PT_UNICODE:
            return kTexts;
        default:
            return kOthers + type;
    }
}

int CompareTexts(const PropertyValue& a, const PropertyValue& b) noexcept
{
    try {
        return Fold(a.AsText()).compare(Fold(b.AsText()));
    } catch (...) {
        // Short of memory: the plain bytes still give one order.
        return CompareBytes(a.data, b.data);
    }
}

}  // namespace

int CompareBytes(const Bytes& a, const Bytes& b) noexcept
{
    const std::size_t shared = std::min(a.size(), b.size());
    const int order = shared == 0 ? 0 : std::memcmp(a.data(), b.data(), shared);
    return order != 0 ? order : Order(a.size(), b.size());
}

int CompareValues(const PropertyValue* a, const PropertyValue* b) noexcept
{
    if (!a || !b)
        return Order(a != nullptr, b != nullptr);
    const ULONG rank = RankOf(a->type());
    if (rank != RankOf(b->type()))
        return Order(rank, RankOf(b->type()));
    if (rank == kNumbers)
        return Order(a->AsInteger(), b->AsInteger());
    if (rank == kReals)
        return CompareReals(AsDouble(*a), AsDouble(*b));
    if (rank == kTexts)
        return CompareTexts(*a, *b);
    if (a->type() == PT_SYSTIME)
        return Order(TimeBits(*a), TimeBits(*b));
    if (const int order = CompareBytes(a->data, b->data); order != 0)
        return order;
    return CompareItems(*a, *b);
}

HRESULT ReadSortOrder(const SSortOrderSet* set, std::vector<SortColumn>& columns) noexcept
{
    columns.clear();
    if (!set)
        return S_OK;
    if (set->cCategories > 0)
        return MAPI_E_TOO_COMPLEX;
    try {
        for (ULONG i = 0; i < set->cSorts; ++i) {
            const SSortOrder& sort = set->aSort[i];
            if (sort.ulOrder != TABLE_SORT_ASCEND && sort.ulOrder != TABLE_SORT_DESCEND)
                return MAPI_E_INVALID_PARAMETER;
            columns.push_back({sort.ulPropTag, sort.ulOrder == TABLE_SORT_DESCEND});
        }
    } catch (...) {
        return E_OUTOFMEMORY;
    }
    return S_OK;
}

int CompareRows(const PropertyLookup& a, const PropertyLookup& b, const std::vector<SortColumn>& columns)
{
    for (const SortColumn& column : columns) {
        const int order = CompareValues(a.Find(column.tag), b.Find(column.tag));
        if (order != 0)
            return column.descending ? -order : order;
    }
    return 0;
}

}  // namespace quorvane
