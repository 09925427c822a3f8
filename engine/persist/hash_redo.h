// persist/hash_redo.h: makes one overwrite in a file whole, whatever happens in its midst.
//
// What stands there and what is to stand there is first recorded in a small file beside it. A process that
// opens the file after a kill finishes an overwrite that was begun.
#ifndef QUORVANE_ENGINE_PERSIST_HASH_REDO_H_
#define QUORVANE_ENGINE_PERSIST_HASH_REDO_H_

#include <cstdint>
#include <string>

#include "platform/file/file.h"

namespace quorvane {

// For one thread at a time.
class HashRedo {
public:
    HashRedo() noexcept = default;
    ~HashRedo() { Discard(); }
    HashRedo(const HashRedo&) = delete;
    HashRedo& operator=(const HashRedo&) = delete;

    // Where the record goes, from now on. Throws std::bad_alloc.
    void SetPath(const std::string& path) { path_ = path; }

    // Finishes what an earlier process left half done in `target`, and removes its record. A record that
    // isn't whole, or of bytes that have become others since, is only removed. Failures come from `target`.
    [[nodiscard]] HRESULT Recover(File& target) noexcept;

    // Puts `after` in the place of `before`, which is as long, at an offset within the size of `target`.
    // After a failure the bytes may be torn; the record stands.
    [[nodiscard]] HRESULT Overwrite(File& target, std::uint64_t offset, const std::string& before,
                                    const std::string& after) noexcept;

    // Forgets what was recorded, when the target has been written anew.
    void Discard() noexcept;

private:
    HRESULT Record(std::uint64_t offset, const std::string& before, const std::string& after);

    std::string path_;
    File file_;
};

}  // namespace quorvane

#endif  // QUORVANE_ENGINE_PERSIST_HASH_REDO_H_
