// platform/cfb/known_files.h: what this process has learnt of files that it has closed.
#ifndef QUORVANE_PLATFORM_CFB_KNOWN_FILES_H_
#define QUORVANE_PLATFORM_CFB_KNOWN_FILES_H_

#include <array>
#include <memory>
#include <optional>

#include "platform/cfb/volume.h"
#include "platform/com/mutex.h"

namespace quorvane::cfb {

// The volumes of the files that were closed last, so that whoever opens, changes and closes a file time and
// again doesn't follow its chains from their beginning each time. A volume is given out again for the file
// that has the identity with which the other was left: the same file, unchanged since. Of the last one the
// pages are kept too that it has cached.
//
// Any thread may call.
class KnownFiles {
public:
    // Of this process.
    static KnownFiles& Instance();

    // Takes the volume of a file that is as it was left, none if there is no such.
    std::unique_ptr<Volume> Take(const ByteStore::Identity& identity) noexcept;
    // Keeps a volume that has left its store; the one that was used longest ago goes.
    void Keep(const ByteStore::Identity& identity, std::unique_ptr<Volume> volume) noexcept;

private:
    struct Known {
        ByteStore::Identity identity;
        std::unique_ptr<Volume> volume;
    };

    Mutex lock_;
    std::array<Known, 4> files_ QV_GUARDED_BY(lock_){};  // the last one first
};

}  // namespace quorvane::cfb

#endif  // QUORVANE_PLATFORM_CFB_KNOWN_FILES_H_
