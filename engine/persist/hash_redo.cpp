#include "engine/persist/hash_redo.h"

#include <string_view>

#include "engine/persist/hash_text.h"
#include "engine/session/trace/crc32.h"
#include "engine/session/trace/trace.h"
#include "platform/file/path.h"

namespace quorvane {
namespace {

// Layout: the magic; CRC-32 of what follows it; offset (low and high half); the bytes up to the end.
constexpr std::string_view kMagic = "QVREDO1\n";
constexpr size_t kCrcAt = 8;
constexpr size_t kOffsetAt = 12;
constexpr size_t kBytesAt = 20;
// A key at its longest, with its length fields.
constexpr std::uint64_t kMaxRecord = 2 * kMaxHashString;

std::uint64_t ReadOffset(const std::string& record) noexcept
{
    return ReadLittleEndian32(record.data() + kOffsetAt) |
           (static_cast<std::uint64_t>(ReadLittleEndian32(record.data() + kOffsetAt + 4)) << 32);
}

bool IsWhole(const std::string& record) noexcept
{
    return record.size() > kBytesAt && std::string_view(record).starts_with(kMagic) &&
           ReadLittleEndian32(record.data() + kCrcAt) ==
               Crc32(record.data() + kOffsetAt, record.size() - kOffsetAt);
}

}  // namespace

HRESULT HashRedo::Recover(const std::string& path, File& target) noexcept
{
    try {
        path_ = path;
        std::string record;
        if (SUCCEEDED(ReadWholeFile(path, kMaxRecord, record)) && IsWhole(record)) {
            std::uint64_t size = 0;
            HR_TRY_QUIET(target.GetSize(size));
            const std::uint64_t offset = ReadOffset(record);
            const size_t count = record.size() - kBytesAt;
            if (offset <= size && count <= size - offset)
                HR_TRY_QUIET(target.WriteAt(offset, record.data() + kBytesAt, count));
        }
        HR_IGNORE(RemoveFile(path), "mostly there is none");
        return S_OK;
    } catch (...) {
        return E_OUTOFMEMORY;
    }
}

HRESULT HashRedo::Overwrite(File& target, std::uint64_t offset, const std::string& bytes) noexcept
{
    try {
        HR_TRY_QUIET(Record(offset, bytes));
        HR_TRY_QUIET(target.WriteAt(offset, bytes.data(), bytes.size()));
        return file_.SetSize(0);
    } catch (...) {
        return E_OUTOFMEMORY;
    }
}

HRESULT HashRedo::Record(std::uint64_t offset, const std::string& bytes)
{
    if (!file_.IsOpen())
        HR_TRY_QUIET(file_.Open(path_, FileAccess::Write, FileMode::CreateAlways));
    std::string tail;
    AppendLittleEndian32(tail, static_cast<std::uint32_t>(offset));
    AppendLittleEndian32(tail, static_cast<std::uint32_t>(offset >> 32));
    tail += bytes;
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
