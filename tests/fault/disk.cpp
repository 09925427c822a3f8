#include "tests/fault/disk.h"

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <stdexcept>

#include "tests/fault/disk_state.h"

namespace quorvane::test {

std::string NameOf(DiskTrouble trouble)
{
    switch (trouble) {
        case DiskTrouble::kHiccup:
            return "Hiccup";
        case DiskTrouble::kBroken:
            return "Broken";
        case DiskTrouble::kFull:
            return "Full";
        case DiskTrouble::kPowerCut:
            return "PowerCut";
        case DiskTrouble::kKill:
            return "Kill";
    }
    return "";
}

void Disk::Break(DiskTrouble trouble, unsigned at, const std::string& where, unsigned seed)
{
    DiskState::Get().Break(trouble, at, where, seed);
}

unsigned Disk::Repair()
{
    return DiskState::Get().Repair();
}

bool& InsideSqlite()
{
    static thread_local bool inside = false;
    return inside;
}

DiskState& DiskState::Get()
{
    static DiskState state;
    return state;
}

void DiskState::Break(DiskTrouble trouble, unsigned at, const std::string& where, unsigned seed)
{
    const std::lock_guard lock(lock_);
    broken_ = true;
    trouble_ = trouble;
    at_ = at;
    changes_ = 0;
    begun_ = false;
    where_ = where;
    seed_ = seed;
    random_.seed(seed);
    unsynced_.clear();
}

unsigned DiskState::Repair()
{
    const std::lock_guard lock(lock_);
    broken_ = false;
    if (trouble_ == DiskTrouble::kPowerCut && begun_) {
        for (const auto& [path, notes] : unsynced_)
            TakeBack(path, notes);
    }
    unsynced_.clear();
    return changes_;
}

bool DiskState::Concerns(const char* path) const
{
    return broken_ && path && std::string_view(path).find(where_) != std::string_view::npos;
}

Verdict DiskState::Judge(const char* path, bool isWrite, bool grows)
{
    const std::lock_guard lock(lock_);
    if (!Concerns(path) || ++changes_ < at_)
        return {};
    if (trouble_ == DiskTrouble::kKill)
        _exit(Disk::kKilled);
    if (trouble_ == DiskTrouble::kHiccup)
        return {changes_ == at_ ? Verdict::Answer::kRefused : Verdict::Answer::kDone};
    const bool isFull = trouble_ == DiskTrouble::kFull;
    if (isFull && !grows)
        return {};
    const bool isFirst = !begun_;
    begun_ = true;
    return {isFull ? Verdict::Answer::kFull : Verdict::Answer::kRefused, isFirst && isWrite};
}

bool DiskState::NotesWrites(const char* path)
{
    const std::lock_guard lock(lock_);
    return trouble_ == DiskTrouble::kPowerCut && Concerns(path);
}

void DiskState::NoteWrite(const char* path, off_t offset, std::string before, off_t size, std::string after)
{
    const std::lock_guard lock(lock_);
    unsynced_[path].push_back({offset, std::move(before), size, std::move(after)});
}

void DiskState::ForgetWrites(const char* path)
{
    const std::lock_guard lock(lock_);
    if (path)
        unsynced_.erase(path);
}

// Past the judge: the disk is whole by now.
void DiskState::TakeBack(const std::string& path, const std::vector<Note>& notes)
{
    const int file = open(path.c_str(), O_RDWR | O_CLOEXEC);
    if (file < 0)
        return;
    for (auto note = notes.rbegin(); note != notes.rend(); ++note) {
        const auto size = static_cast<ssize_t>(note->before.size());
        if (syscall(SYS_pwrite64, file, note->before.data(), note->before.size(), note->offset) != size ||
            syscall(SYS_ftruncate, file, note->size) != 0)
            throw std::runtime_error("can't take back what was written to " + path);
    }
    if (seed_ != 0)
        KeepSome(file, notes);
    close(file);
}

// Of none, few, most or all of the writes.
void DiskState::KeepSome(int file, const std::vector<Note>& notes)
{
    const auto ofFour = random_() % 5;
    for (const Note& note : notes) {
        if (random_() % 4 >= ofFour)
            continue;
        const std::size_t size = random_() % 8 == 0 ? note.after.size() / 2 : note.after.size();
        const bool isKept = note.after.empty() ? syscall(SYS_ftruncate, file, note.offset) == 0
                                               : syscall(SYS_pwrite64, file, note.after.data(), size,
                                                         note.offset) == static_cast<long>(size);
        if (!isKept)
            throw std::runtime_error("can't keep what was written");
    }
}

}  // namespace quorvane::test
