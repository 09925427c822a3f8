#include "msgstore/store/entry_id.h"

#include <sqlite3.h>

#include <algorithm>

#include "platform/clock/clock.h"

namespace quorvane {
namespace {

constexpr std::size_t kStoreAt = 4;
constexpr std::size_t kVersionAt = 20;
constexpr std::size_t kKindAt = 21;
constexpr std::size_t kObjectAt = 24;
constexpr std::size_t kGuidSize = 16;
constexpr std::size_t kRowSize = 8;
constexpr std::size_t kLongTermSize = kObjectAt + kGuidSize;
constexpr std::size_t kShortTermSize = kObjectAt + kRowSize;
constexpr std::size_t kTimeSize = 6;
constexpr std::uint64_t kTicksTo1970 = 116444736000000000;
constexpr std::uint64_t kTicksInMillisecond = 10000;
constexpr BYTE kVersion = 1;
constexpr BYTE kShortTermFlags = MAPI_SHORTTERM | MAPI_NOTRECIP | MAPI_THISSESSION;

Bytes Head(const ObjectGuid& store, ULONG kind, std::size_t size)
{
    Bytes id(size, 0);
    std::copy(store.begin(), store.end(), id.begin() + kStoreAt);
    id[kVersionAt] = kVersion;
    id[kKindAt] = static_cast<BYTE>(kind);
    return id;
}

bool AreFlagsKnown(const BYTE* id, bool isShortTerm) noexcept
{
    return id[0] == (isShortTerm ? kShortTermFlags : 0) && id[1] == 0 && id[2] == 0 && id[3] == 0;
}

bool IsKindKnown(ULONG kind) noexcept
{
    return kind == MAPI_STORE || kind == MAPI_FOLDER || kind == MAPI_MESSAGE;
}

std::int64_t ReadRow(const BYTE* bytes) noexcept
{
    std::uint64_t row = 0;
    for (std::size_t i = kRowSize; i-- > 0;)
        row = (row << 8) | bytes[i];
    return static_cast<std::int64_t>(row);
}

}  // namespace

ObjectGuid ObjectGuidOf(std::span<const std::uint8_t> bytes) noexcept
{
    ObjectGuid guid{};
    std::copy_n(bytes.begin(), std::min(bytes.size(), guid.size()), guid.begin());
    return guid;
}

ObjectGuid MakeObjectGuid() noexcept
{
    ObjectGuid guid;
    sqlite3_randomness(static_cast<int>(guid.size()), guid.data());
    const std::uint64_t milliseconds = (ToTicks(FileTimeNow()) - kTicksTo1970) / kTicksInMillisecond;
    for (std::size_t i = 0; i < kTimeSize; ++i)
        guid[i] = static_cast<std::uint8_t>(milliseconds >> (8 * (kTimeSize - 1 - i)));
    guid[6] = static_cast<std::uint8_t>((guid[6] & 0x0F) | 0x70);
    guid[8] = static_cast<std::uint8_t>((guid[8] & 0x3F) | 0x80);
    return guid;
}

Bytes LongTermId(const ObjectGuid& store, ULONG kind, const ObjectGuid& object)
{
    Bytes id = Head(store, kind, kLongTermSize);
    std::copy(object.begin(), object.end(), id.begin() + kObjectAt);
    return id;
}

Bytes ShortTermId(const ObjectGuid& store, ULONG kind, std::int64_t row)
{
    Bytes id = Head(store, kind, kShortTermSize);
    id[0] = kShortTermFlags;
    for (std::size_t i = 0; i < kRowSize; ++i)
        id[kObjectAt + i] = static_cast<BYTE>(static_cast<std::uint64_t>(row) >> (8 * i));
    return id;
}

HRESULT ParseEntryId(const void* bytes, std::size_t size, EntryId& id) noexcept
{
    if (!bytes || (size != kLongTermSize && size != kShortTermSize))
        return MAPI_E_INVALID_ENTRYID;
    const auto* const at = static_cast<const BYTE*>(bytes);
    const bool isShortTerm = size == kShortTermSize;
    if (!AreFlagsKnown(at, isShortTerm) || at[kVersionAt] != kVersion || !IsKindKnown(at[kKindAt]))
        return MAPI_E_INVALID_ENTRYID;
    id = {};
    id.kind = at[kKindAt];
    id.isShortTerm = isShortTerm;
    std::copy_n(at + kStoreAt, kGuidSize, id.store.begin());
    if (isShortTerm)
        id.row = ReadRow(at + kObjectAt);
    else
        std::copy_n(at + kObjectAt, kGuidSize, id.object.begin());
    return S_OK;
}

}  // namespace quorvane
