#include "msgstore/props/packed_record.h"

#include "msgstore/props/little_endian.h"
#include "msgstore/props/packed_bytes.h"

namespace quorvane {
namespace {

// Where the fields of a record's head lie; a record begins with this mark in place of a tag.
constexpr std::uint32_t kMark = 0xFFFFFFFF;
constexpr std::size_t kSizeAt = 4;      // of what follows
constexpr std::size_t kChecksumAt = 8;  // of what follows
constexpr std::size_t kWholeAt = 12;
constexpr std::size_t kDictionaryAt = 16;
constexpr std::size_t kCountAt = 20;
constexpr std::size_t kHead = 24;
constexpr std::size_t kTagSize = 4;
// Fewer bytes aren't worth the time, and of more there is no need: no one asks for a message's run of this
// size.
constexpr std::size_t kLeastPacked = 512;
constexpr std::size_t kMostPacked = std::size_t{1} << 20;

std::uint32_t Field(std::span<const BYTE> bytes, std::size_t at) noexcept
{
    return LoadLittle<std::uint32_t>(bytes.data() + at);
}

std::uint32_t ChecksumOf(std::span<const BYTE> record) noexcept
{
    return Checksum(record.subspan(kChecksumAt + sizeof(std::uint32_t)));
}

}  // namespace

std::size_t PackedRecord::Count() const noexcept
{
    return tags_.size() / kTagSize;
}

ULONG PackedRecord::Tag(std::size_t place) const noexcept
{
    return Field(tags_, place * kTagSize);
}

HRESULT PackedRecord::Unpack(const Bytes& dictionary, Bytes& unpacked) const
{
    unpacked.resize(whole_);
    return quorvane::Unpack(packed_, dictionary, unpacked) ? S_OK : MAPI_E_CORRUPT_DATA;
}

HRESULT PackedRecord::Take(std::span<const BYTE>& bytes, PackedRecord& record) noexcept
{
    if (bytes.size() < kHead)
        return MAPI_E_CORRUPT_DATA;
    const std::size_t behind = Field(bytes, kSizeAt);
    const std::size_t size = kSizeAt + sizeof(std::uint32_t) + behind;
    if (size < kHead || size > bytes.size())
        return MAPI_E_CORRUPT_DATA;
    const std::span<const BYTE> whole = bytes.first(size);
    const std::size_t tagBytes = Field(whole, kCountAt) * kTagSize;
    record.whole_ = Field(whole, kWholeAt);
    record.dictionary_ = Field(whole, kDictionaryAt);
    if (record.whole_ > kMostPacked || tagBytes > size - kHead ||
        Field(whole, kChecksumAt) != ChecksumOf(whole))
        return MAPI_E_CORRUPT_DATA;
    record.tags_ = whole.subspan(kHead, tagBytes);
    record.packed_ = whole.subspan(kHead + tagBytes);
    bytes = bytes.subspan(size);
    return S_OK;
}

bool IsPackedRecord(std::span<const BYTE> bytes) noexcept
{
    return bytes.size() >= sizeof(kMark) && Field(bytes, 0) == kMark;
}

bool AppendPackedRecord(const Bytes& bytes, const std::vector<ULONG>& tags, ULONG dictionaryTag,
                        const Bytes& dictionary, Bytes& to)
{
    const std::size_t head = kHead + tags.size() * kTagSize;
    if (bytes.size() < kLeastPacked || bytes.size() > kMostPacked || bytes.size() / 2 < head)
        return false;
    const std::size_t before = to.size();
    AppendLittle(to, kMark);
    to.resize(before + kWholeAt);
    AppendLittle(to, static_cast<std::uint32_t>(bytes.size()));
    AppendLittle(to, static_cast<std::uint32_t>(dictionaryTag));
    AppendLittle(to, static_cast<std::uint32_t>(tags.size()));
    for (const ULONG tag : tags)
        AppendLittle(to, static_cast<std::uint32_t>(tag));
    // What saves less than an eighth isn't worth being unpacked at each reading.
    if (!AppendPacked(bytes, dictionary, bytes.size() - bytes.size() / 8 - head, to)) {
        to.resize(before);
        return false;
    }
    const std::span<BYTE> record = std::span<BYTE>(to).subspan(before);
    StoreLittle(record.data() + kSizeAt, static_cast<std::uint32_t>(record.size() - kChecksumAt));
    StoreLittle(record.data() + kChecksumAt, ChecksumOf(record));
    return true;
}

}  // namespace quorvane
