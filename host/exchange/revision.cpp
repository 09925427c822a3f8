#include "host/exchange/revision.h"

#include <tuple>

namespace quorvane::host::exchange {

namespace {

constexpr std::uint8_t kContent = 0;
constexpr std::uint8_t kDeletion = 1;

// The last two tell apart what a device must never have made: two states under one version.
auto Rank(const Revision& revision)
{
    return std::make_tuple(!revision.isDeletion, revision.stamp, revision.by, revision.content,
                           revision.version.Write());
}

}  // namespace

bool IsShownBefore(const Revision& one, const Revision& another)
{
    return Rank(another) < Rank(one);
}

void Write(const Revision& revision, WireWriter& to)
{
    const std::string version = revision.version.Write();
    to.Put(static_cast<std::uint16_t>(version.size()))
        .Put(version)
        .Put(revision.stamp)
        .Put(revision.by.bytes);
    to.Put(revision.isDeletion ? kDeletion : kContent);
    if (!revision.isDeletion)
        to.Put(revision.content);
}

Revision ReadRevision(WireReader& from, std::string_view what)
{
    Revision revision;
    revision.version = Version::Read(from.Take(from.Get<std::uint16_t>()), what);
    revision.stamp = from.Get<std::uint64_t>();
    revision.by.bytes = from.GetBytes<sizeof(DeviceId::bytes)>();
    const auto kind = from.Get<std::uint8_t>();
    if (kind > kDeletion)
        Refuse(std::string(what) + " is neither content nor a deletion");
    if (revision.version == Version())
        Refuse(std::string(what) + " was changed by nobody");
    if (revision.stamp > Revision::kLatestStamp)
        Refuse(std::string(what) + " is of a time that can't be");
    revision.isDeletion = kind == kDeletion;
    if (!revision.isDeletion)
        revision.content = from.GetBytes<std::tuple_size_v<ContentDigest>>();
    return revision;
}

std::string ConflictCopyId(std::string_view item, const Revision& revision)
{
    WireWriter bytes;
    bytes.Put("a conflict's copy").Put(static_cast<std::uint32_t>(item.size())).Put(item);
    Write(revision, bytes);
    Digest digest;
    digest.Add(bytes.Bytes());
    const auto whole = digest.Finish();

    constexpr char kDigits[] = "0123456789ABCDEF";
    std::string id = "{";
    for (std::size_t byte = 0; byte < 16; ++byte) {
        if (byte == 4 || byte == 6 || byte == 8 || byte == 10)
            id += '-';
        id += kDigits[whole[byte] >> 4];
        id += kDigits[whole[byte] & 15];
    }
    return id + '}';
}

}  // namespace quorvane::host::exchange
