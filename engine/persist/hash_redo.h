// persist/hash_redo.h: makes one overwrite in a file whole, whatever happens in its midst.
//
// What is to be written is first recorded in a small file beside it. A process that opens the file after a
// kill repeats an overwrite that was recorded and not finished.
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

    // Finishes what an earlier process left in the redo file of that path, and removes it. Files that hold
    // no whole record are removed alone. Failures come from `target`.
    [[nodiscard]] HRESULT Recover(const std::string& path, File& target) noexcept;

    // Overwrites bytes of `target` within its size. After a failure the bytes may be torn; the record stands.
    [[nodiscard]] HRESULT Overwrite(File& target, std::uint64_t offset, const std::string& bytes) noexcept;

    // Forgets what was recorded, when the target has been written anew.
    void Discard() noexcept;

private:
    HRESULT Record(std::uint64_t offset, const std::string& bytes);

    std::string path_;
    File file_;
};

}  // namespace quorvane

#endif  // QUORVANE_ENGINE_PERSIST_HASH_REDO_H_
