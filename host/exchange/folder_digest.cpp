#include "host/exchange/folder_digest.h"

#include <algorithm>
#include <optional>
#include <stdexcept>

#include "host/exchange/error.h"
#include "host/exchange/keys.h"
#include "host/exchange/wire.h"

namespace quorvane::host::exchange {

std::string FolderDigest::Write() const
{
    WireWriter digest;
    for (const Bucket& bucket : buckets)
        digest.Put(bucket);
    return digest.Bytes();
}

FolderDigest FolderDigest::Read(std::string_view bytes, std::string_view what)
{
    WireReader reader(bytes, what);
    FolderDigest digest;
    for (Bucket& bucket : digest.buckets)
        bucket = reader.GetBytes<sizeof(Bucket)>();
    reader.End();
    return digest;
}

std::uint8_t BucketOf(std::string_view id)
{
    Digest digest;
    digest.Add(id);
    return digest.Finish()[0];
}

std::vector<std::uint8_t> Differing(const FolderDigest& one, const FolderDigest& another)
{
    std::vector<std::uint8_t> differing;
    for (std::size_t bucket = 0; bucket < FolderDigest::kBuckets; ++bucket)
        if (one.buckets[bucket] != another.buckets[bucket])
            differing.push_back(static_cast<std::uint8_t>(bucket));
    return differing;
}

struct FolderDigestMaker::State {
    std::array<Digest, FolderDigest::kBuckets> buckets;
    std::optional<std::string> last;
};

FolderDigestMaker::FolderDigestMaker() : state_(std::make_unique<State>()) {}
FolderDigestMaker::~FolderDigestMaker() = default;

void FolderDigestMaker::Add(std::string_view id, std::string_view version)
{
    if (state_->last && *state_->last >= id)
        throw std::logic_error("items are added to a digest out of their order");
    state_->last = id;
    WireWriter item;
    item.Put(static_cast<std::uint32_t>(id.size())).Put(id);
    item.Put(static_cast<std::uint32_t>(version.size())).Put(version);
    state_->buckets[BucketOf(id)].Add(item.Bytes());
}

FolderDigest FolderDigestMaker::Finish()
{
    FolderDigest digest;
    for (std::size_t bucket = 0; bucket < FolderDigest::kBuckets; ++bucket) {
        const auto whole = state_->buckets[bucket].Finish();
        std::copy_n(whole.begin(), sizeof(FolderDigest::Bucket), digest.buckets[bucket].begin());
    }
    return digest;
}

}  // namespace quorvane::host::exchange
