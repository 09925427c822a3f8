#include <algorithm>
#include <bit>
#include <cstring>

#include "msgstore/props/little_endian.h"
#include "msgstore/table/restriction.h"
#include "msgstore/table/text_fold.h"
#include "platform/com/bstr.h"

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

std::int64_t TimeBits(const PropertyValue& value) noexcept
{
    return value.data.size() == 8 ? static_cast<std::int64_t>(LoadLittle<std::uint64_t>(value.data.data()))
                                  : 0;
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
        return ToUtf8(Fold(a.AsText())).compare(ToUtf8(Fold(b.AsText())));
    } catch (...) {
        // Short of memory: the plain bytes still give one order.
        return CompareBytes(a.data, b.data);
    }
}

// The bytes of a single value, in line or not; of one that can't be read none.
Bytes AllBytes(const PropertyValue& value)
{
    Bytes bytes = value.data;
    if (value.large)
        (void)ReadWhole(*value.large, kWholeTextLimit, bytes);
    return bytes;
}

int CompareLarge(const PropertyValue& a, const PropertyValue& b) noexcept
{
    try {
        return CompareBytes(AllBytes(a), AllBytes(b));
    } catch (...) {
        return Order(a.ByteSize(), b.ByteSize());  // short of memory: still one order
    }
}

// A number whose bytes, the highest first, order as it does.
void AppendOrdered(Bytes& key, std::uint64_t number, int bytes)
{
    for (int shift = 8 * (bytes - 1); shift >= 0; shift -= 8)
        key.push_back(static_cast<BYTE>(number >> shift));
}

void AppendSigned(Bytes& key, std::int64_t number)
{
    AppendOrdered(key, static_cast<std::uint64_t>(number) ^ (std::uint64_t{1} << 63), 8);
}

// As CompareReals: what isn't a number first, the two zeros alike.
void AppendReal(Bytes& key, double value)
{
    const bool isNumber = value == value;
    key.push_back(isNumber ? 1 : 0);
    if (!isNumber)
        return;
    const auto bits = std::bit_cast<std::uint64_t>(value == 0 ? 0.0 : value);
    constexpr std::uint64_t sign = std::uint64_t{1} << 63;
    AppendOrdered(key, (bits & sign) != 0 ? ~bits : bits | sign, 8);
}

// Bytes, and an end that stands before all that could follow.
void AppendRun(Bytes& key, const Bytes& run)
{
    for (const BYTE byte : run) {
        key.push_back(byte);
        if (byte == 0)
            key.push_back(1);
    }
    key.push_back(0);
    key.push_back(0);
}

}  // namespace

Bytes SortKey(const PropertyValue& value)
{
    Bytes key;
    const ULONG rank = RankOf(value.type());
    AppendOrdered(key, rank, 4);
    if (rank == kNumbers) {
        AppendSigned(key, value.AsInteger());
    } else if (rank == kReals) {
        AppendReal(key, AsDouble(value));
    } else if (rank == kTexts) {
        const std::string text = ToUtf8(Fold(value.AsText()));
        key.insert(key.end(), text.begin(), text.end());
    } else if (value.type() == PT_SYSTIME) {
        AppendSigned(key, TimeBits(value));
    } else {
        AppendRun(key, AllBytes(value));
        for (const Bytes& item : value.items) {
            key.push_back(1);
            AppendRun(key, item);
        }
    }
    return key;
}

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
    if (a->large || b->large)
        return CompareLarge(*a, *b);
    if (const int order = CompareBytes(a->data, b->data); order != 0)
        return order;
    return CompareItems(*a, *b);
}

HRESULT ReadSortOrder(const SSortOrderSet* set, std::vector<SortColumn>& columns) noexcept
{
    columns.clear();
    if (!set)
        return S_OK;
    if (set->cCategories > set->cSorts || set->cExpanded > set->cCategories)
        return MAPI_E_INVALID_PARAMETER;
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
