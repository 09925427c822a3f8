#include "engine/persist/hash_redo.h"

#include <string_view>

#include "engine/persist/hash_text.h"
#include "engine/session/trace/crc32.h"
#include "engine/session/trace/trace.h"
#include "platform/file/path.h"

namespace quorvane {
namespace {

// Layout: the magic; CRC-32 of what follows it; offset (low and high half); the bytes before, and as many
// after.
constexpr std::string_view kMagic = "QVREDO2\n";
constexpr size_t kCrcAt = 8;
constexpr size_t kOffsetAt = 12;
constexpr size_t kBytesAt = 20;
// Two keys at their longest, and the head.
constexpr std::uint64_t kMaxRecord = 2 * kMaxHashString + kBytesAt;

bool IsWhole(const std::string& record) noexcept
{
    return record.size() > kBytesAt && (record.size() - kBytesAt) % 2 == 0 && record.size() <= kMaxRecord &&
           std::string_view(record).starts_with(kMagic) &&
           ReadLittleEndian32(record.data() + kCrcAt) ==
               Crc32(record.data() + kOffsetAt, record.size() - kOffsetAt);
}

// Whether `found` is an overwrite of `before` by `after` that stopped in its midst.
bool IsTorn(std::string_view found, std::string_view before, std::string_view after) noexcept
{
    if (found == before || found == after)
        return false;
    for (size_t i = 0; i < found.size(); ++i) {
        if (found[i] != before[i] && found[i] != after[i])
            return false;
    }
    return true;
}

// Finishes the overwrite that a whole record tells of, if it was begun.
HRESULT Finish(const std::string& record, File& target)
{
    const std::uint64_t offset =
        ReadLittleEndian32(record.data() + kOffsetAt) |
        (static_cast<std::uint64_t>(ReadLittleEndian32(record.data() + kOffsetAt + 4)) << 32);
    const size_t count = (record.size() - kBytesAt) / 2;
    const std::string_view before = std::string_view(record).substr(kBytesAt, count);
    const std::string_view after = std::string_view(record).substr(kBytesAt + count);
    std::uint64_t size = 0;
    HR_TRY_QUIET(target.GetSize(size));
    if (offset > size || count > size - offset)
        return S_OK;
    std::string found(count, '\0');
    size_t read = 0;
    HR_TRY_QUIET(target.ReadAt(offset, found.data(), count, read));
    if (read < count || !IsTorn(found, before, after))
        return S_OK;
    return target.WriteAt(offset, after.data(), count);
}

}  // namespace

HRESULT HashRedo::Recover(File& target) noexcept
{
    try {
        std::string record;
        if (SUCCEEDED(ReadWholeFile(path_, kMaxRecord, record)) && IsWhole(record))
            HR_TRY_QUIET(Finish(record, target));
        HR_IGNORE(RemoveFile(path_), "mostly there is none");
        return S_OK;
    } catch (...) {
        return E_OUTOFMEMORY;
    }
}

HRESULT HashRedo::Overwrite(File& target, std::uint64_t offset, const std::string& before,
                            const std::string& after) noexcept
{
    try {
        HR_TRY_QUIET(Record(offset, before, after));
        HR_TRY_QUIET(target.WriteAt(offset, after.data(), after.size()));
        return file_.SetSize(0);
    } catch (...) {
        return E_OUTOFMEMORY;
    }
}

HRESULT HashRedo::Record(std::uint64_t offset, const std::string& before, const std::string& after)
{
    if (!file_.IsOpen())
        HR_TRY_QUIET(file_.Open(path_, FileAccess::Write, FileMode::CreateAlways));
    std::string tail;
    AppendLittleEndian32(tail, static_cast<std::uint32_t>(offset));
    AppendLittleEndian32(tail, static_cast<std::uint32_t>(offset >> 32));
    tail += before;
    tail += after;
    std::string record(kMagic);
    AppendLittleEndian32(record, Crc32(tail.data(), tail.size()));
    record += tail;
    return file_.WriteAt(0, record.data(), record.size());
}

void HashRedo::Discard() noexcept
{
    if (!file_.IsOpen())
        return;
    file_.Close();
    HR_IGNORE(RemoveFile(path_), "an empty or finished record does no harm");
}

}  // namespace quorvane
