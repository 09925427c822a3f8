// tests/fault/disk_state.h: what the disk's two places share: who counts the changes, and who judges them.
#ifndef QUORVANE_TESTS_FAULT_DISK_STATE_H_
#define QUORVANE_TESTS_FAULT_DISK_STATE_H_

#include <sys/types.h>

#include <map>
#include <mutex>
#include <random>
#include <string>
#include <vector>

#include "tests/fault/disk.h"

namespace quorvane::test {

// What becomes of a change.
struct Verdict {
    enum class Answer { kDone, kRefused, kFull };
    Answer answer = Answer::kDone;
    bool isHalfDone = false;  // of a write that isn't done: half of it arrives

    bool IsDone() const { return answer == Answer::kDone; }
};

// Any thread.
class DiskState {
public:
    static DiskState& Get();

    void Break(DiskTrouble trouble, unsigned at, const std::string& where, unsigned seed);
    unsigned Repair();

    // Counts a change of the file and judges it. `path` may be null: a file without a name.
    Verdict Judge(const char* path, bool isWrite, bool grows);

    // Whether what a write replaces is to be noted.
    bool NotesWrites(const char* path);
    // A write that is about to be: the bytes that stand there, the file's size, and what is written. A
    // truncation writes nothing, from the file's new size on.
    void NoteWrite(const char* path, off_t offset, std::string before, off_t size, std::string after);
    // What was noted of the file is on the disk, or gone with it.
    void ForgetWrites(const char* path);

private:
    struct Note {
        off_t offset;
        std::string before;
        off_t size;
        std::string after;
    };

    bool Concerns(const char* path) const;
    void TakeBack(const std::string& path, const std::vector<Note>& notes);
    void KeepSome(int file, const std::vector<Note>& notes);

    std::mutex lock_;
    bool broken_ = false;
    DiskTrouble trouble_ = DiskTrouble::kHiccup;
    unsigned at_ = 0;
    unsigned changes_ = 0;
    bool begun_ = false;
    std::string where_;
    unsigned seed_ = 0;
    std::mt19937 random_;
    std::map<std::string, std::vector<Note>> unsynced_;
};

// True while this thread is within SQLite's own file system, whose calls were judged before.
bool& InsideSqlite();

}  // namespace quorvane::test

#endif  // QUORVANE_TESTS_FAULT_DISK_STATE_H_
