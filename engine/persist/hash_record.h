// persist/hash_record.h: one record of a hash store in memory, and where it stands in the file.
#ifndef QUORVANE_ENGINE_PERSIST_HASH_RECORD_H_
#define QUORVANE_ENGINE_PERSIST_HASH_RECORD_H_

#include <cstdint>
#include <limits>
#include <memory>
#include <random>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "engine/persist/small_text.h"

namespace quorvane {

using HashOffsets = std::vector<std::uint64_t>;
inline constexpr std::uint64_t kNotInFile = std::numeric_limits<std::uint64_t>::max();

// Packed texts that mostly lie in their records: the identifiers of many message stores do, and a hash with
// its flags.
using HashKey = SmallText<47>;
using HashValue = SmallText<23>;

struct HashRecord {
    HashValue value;
    std::uint64_t offset = kNotInFile;      // of the record in the file that counts, the last with its key
    std::uint32_t size = 0;                 // of that record
    std::uint32_t place = 0;                // in the list of its size, in RecordsBySize
    std::unique_ptr<HashOffsets> outdated;  // of records in front of it that carry its key; null for none

    // Throws std::bad_alloc.
    void AddOutdated(std::uint64_t former)
    {
        if (!outdated)
            outdated = std::make_unique<HashOffsets>();
        outdated->push_back(former);
    }
};

// Packed keys and their records. A record stays where it is in memory until it is erased.
using HashRecords = std::unordered_map<HashKey, HashRecord, SmallTextHash, SmallTextEqual>;
using HashNode = HashRecords::value_type;

// The records by the size of their keys.
class RecordsBySize {
public:
    // Throws std::bad_alloc; nothing has changed then.
    void Add(HashNode& node);
    void Remove(HashNode& node) noexcept;
    // Any record whose key has as many bytes in the file as `key`, each as likely; null where there is none.
    HashNode* PickAny(std::string_view key) noexcept;

private:
    std::unordered_map<std::uint64_t, std::vector<HashNode*>> bySize_;
    std::minstd_rand random_;
};

}  // namespace quorvane

#endif  // QUORVANE_ENGINE_PERSIST_HASH_RECORD_H_
