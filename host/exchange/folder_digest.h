// host/exchange/folder_digest.h: what two devices compare to see in which items of a folder they differ.
//
// 256 buckets of 16 bytes. An item's bucket is the first byte of its id's BLAKE2b digest; a bucket is the
// first 16 bytes of the digest over its items, by rising id: 4 length of the id and the id, 4 length of the
// version and the version, little-endian.
#ifndef QUORVANE_HOST_EXCHANGE_FOLDER_DIGEST_H_
#define QUORVANE_HOST_EXCHANGE_FOLDER_DIGEST_H_

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace quorvane::host::exchange {

struct FolderDigest {
    static constexpr std::size_t kBuckets = 256;
    using Bucket = std::array<unsigned char, 16>;

    std::array<Bucket, kBuckets> buckets{};

    std::string Write() const;
    // Throws an Error (kRefused) unless the bytes are a digest. what: names it there.
    static FolderDigest Read(std::string_view bytes, std::string_view what);
    bool operator==(const FolderDigest&) const = default;
};

// The bucket that an item is in.
std::uint8_t BucketOf(std::string_view id);

// The buckets in which two folders differ, rising.
std::vector<std::uint8_t> Differing(const FolderDigest& one, const FolderDigest& another);

// Makes the digest of a folder; memory doesn't grow with it.
class FolderDigestMaker {
public:
    FolderDigestMaker();
    ~FolderDigestMaker();

    // id, version: as bytes; the ids rise from call to call, or std::logic_error is thrown.
    void Add(std::string_view id, std::string_view version);
    // The last call.
    FolderDigest Finish();

private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace quorvane::host::exchange

#endif  // QUORVANE_HOST_EXCHANGE_FOLDER_DIGEST_H_
