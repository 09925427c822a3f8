// The program on a machine whose power fails: linked in front of the C library's calls that change files,
// this counts them and, at the one that is asked for, ends the process and takes back what no sync was
// answered for.
//
// Of each file that was written since its last sync any writes are lost, the last of them perhaps in half. Of
// names that were made, changed or removed in a directory since its last sync the last ones are lost, any
// number of them; a sync of a file keeps the name that it was made under. What the file system promises
// beyond that isn't relied on.
//
//     QUORVANE_POWER  the number of the change at which the power fails, and a seed for what is lost; with 0
//     for the seed
//                     nothing is, and it is a kill
//     QUORVANE_POWER_PLACE  the directory below which files are concerned
//     QUORVANE_POWER_STASH  another one on the same file system, for what is removed until that is synced
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdlib>
#include <map>
#include <mutex>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace quorvane::test {
namespace {

constexpr int kPowerCut = 77;  // the exit code

using Inode = std::pair<dev_t, ino_t>;

struct FileChange {
    off_t at = 0;
    std::string before, after;
    off_t sizeBefore = 0, sizeAfter = 0;
};

// What was changed of a file since its last sync, and a descriptor of it that outlives its names.
struct Unsynced {
    int file = -1;
    std::vector<FileChange> changes;
};

struct NameChange {
    enum class Kind { kMade, kRemoved, kRenamed } kind;
    std::string path, to;
    std::string stash;  // holds what was removed or replaced; may be empty
};

std::string DirectoryOf(const std::string& path)
{
    return path.substr(0, path.rfind('/'));
}

std::string PathOf(int file)
{
    char path[PATH_MAX];
    const ssize_t length = readlink(("/proc/self/fd/" + std::to_string(file)).c_str(), path, sizeof path);
    return length > 0 ? std::string(path, static_cast<std::size_t>(length)) : std::string();
}

std::string PathAt(int directory, const char* name)
{
    if (name[0] == '/')
        return name;
    if (directory != AT_FDCWD)
        return PathOf(directory) + "/" + name;
    char here[PATH_MAX];
    return getcwd(here, sizeof here) ? std::string(here) + "/" + name : std::string(name);
}

off_t SizeOf(int file)
{
    struct stat status {};
    return fstat(file, &status) == 0 ? status.st_size : 0;
}

bool Exists(const std::string& path)
{
    struct stat status {};
    return lstat(path.c_str(), &status) == 0;
}

void Rename(const std::string& from, const std::string& to)
{
    syscall(SYS_renameat2, AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), 0);
}

class Power {
public:
    static Power& Get()
    {
        static Power power;
        return power;
    }

    std::recursive_mutex lock;

    bool Concerns(const std::string& path) const
    {
        return isOn_ && path.starts_with(place_) && !path.ends_with("-shm") && !path.ends_with(" (deleted)");
    }
    // Another change is about to be made.
    void Count()
    {
        if (++changes_ == at_)
            Fail();
    }

    // A write, or a change of size, that `apply` does.
    template <class Apply>
    auto Change(int file, off_t at, std::string after, off_t sizeAfter, Apply apply)
    {
        const std::string path = PathOf(file);
        if (!Concerns(path))
            return apply();
        Unsynced* const unsynced = Track(file);
        FileChange change{at, {}, std::move(after), 0, 0};
        if (unsynced) {
            change.sizeBefore = SizeOf(file);
            change.sizeAfter = sizeAfter < 0 ? std::max<off_t>(change.sizeBefore,
                                                               at + static_cast<off_t>(change.after.size()))
                                             : sizeAfter;
            const off_t end =
                sizeAfter < 0 ? at + static_cast<off_t>(change.after.size()) : change.sizeBefore;
            if (end > at)
                change.before.resize(static_cast<std::size_t>(end - at));
            const ssize_t count = pread(unsynced->file, change.before.data(), change.before.size(), at);
            change.before.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
            unsynced->changes.push_back(std::move(change));
        }
        Count();
        return apply();
    }

    void Synced(int file)
    {
        const std::string path = PathOf(file);
        if (!Concerns(path))
            return;
        Count();
        struct stat status {};
        fstat(file, &status);
        if (S_ISDIR(status.st_mode)) {
            names_.erase(path);
            return;
        }
        if (const auto known = files_.find({status.st_dev, status.st_ino}); known != files_.end())
            known->second.changes.clear();
        auto& names = names_[DirectoryOf(path)];
        for (std::size_t i = names.size(); i-- > 0;)
            if (names[i].kind == NameChange::Kind::kMade && names[i].path == path) {
                names.erase(names.begin(), names.begin() + static_cast<std::ptrdiff_t>(i) + 1);
                break;
            }
    }

    void NoteMade(const std::string& path)
    {
        names_[DirectoryOf(path)].push_back({NameChange::Kind::kMade, path, {}, {}});
    }
    void NoteRemoval(const std::string& path)
    {
        names_[DirectoryOf(path)].push_back({NameChange::Kind::kRemoved, path, {}, Stash(path)});
    }
    void NoteRename(const std::string& from, const std::string& to)
    {
        names_[DirectoryOf(to)].push_back(
            {NameChange::Kind::kRenamed, from, to, Exists(to) ? Stash(to) : std::string()});
    }

private:
    Power()
    {
        const char* const when = std::getenv("QUORVANE_POWER");
        const char* const place = std::getenv("QUORVANE_POWER_PLACE");
        const char* const stash = std::getenv("QUORVANE_POWER_STASH");
        isOn_ = when && place && stash;
        if (!isOn_)
            return;
        char* end = nullptr;
        at_ = std::strtoul(when, &end, 10);
        const unsigned long seed = std::strtoul(end, nullptr, 10);
        isKill_ = seed == 0;
        random_.seed(seed);
        place_ = std::string(place) + "/";
        stash_ = stash;
        // Descriptors of databases stay open: closing one would end the locks of the others.
        rlimit files{};
        getrlimit(RLIMIT_NOFILE, &files);
        files.rlim_cur = files.rlim_max;
        setrlimit(RLIMIT_NOFILE, &files);
    }

    Unsynced* Track(int file)
    {
        struct stat status {};
        fstat(file, &status);
        Unsynced& unsynced = files_[{status.st_dev, status.st_ino}];
        if (unsynced.file < 0)
            unsynced.file = static_cast<int>(syscall(SYS_openat, AT_FDCWD,
                                                     ("/proc/self/fd/" + std::to_string(file)).c_str(),
                                                     O_RDWR | O_CLOEXEC, 0));
        return unsynced.file < 0 ? nullptr : &unsynced;
    }

    std::string Stash(const std::string& path)
    {
        const std::string to = stash_ + "/" + std::to_string(getpid()) + "-" + std::to_string(++stashed_);
        return syscall(SYS_linkat, AT_FDCWD, path.c_str(), AT_FDCWD, to.c_str(), 0) == 0 ? to : std::string();
    }

    [[noreturn]] void Fail()
    {
        if (!isKill_) {
            for (auto& [inode, unsynced] : files_)
                LoseWrites(unsynced);
            for (auto& [directory, names] : names_)
                LoseNames(names);
        }
        syscall(SYS_exit_group, kPowerCut);
        std::abort();
    }

    static void Put(int file, const std::string& bytes, std::size_t count, off_t at, off_t size)
    {
        syscall(SYS_pwrite64, file, bytes.data(), count, at);
        syscall(SYS_ftruncate, file, size);
    }

    // All of them are taken back, and then some of them are made after all. The last one was never made.
    void LoseWrites(const Unsynced& unsynced)
    {
        const auto& changes = unsynced.changes;
        for (auto change = changes.rbegin(); change != changes.rend(); ++change)
            Put(unsynced.file, change->before, change->before.size(), change->at, change->sizeBefore);
        const auto ofFour = random_() % 5;
        for (const FileChange& change : changes)
            if (random_() % 4 < ofFour) {
                const std::size_t size = change.after.size();
                const off_t grown = std::max(SizeOf(unsynced.file), change.sizeAfter);
                Put(unsynced.file, change.after, random_() % 8 == 0 ? size / 2 : size, change.at,
                    change.after.empty() ? change.sizeAfter : grown);
            }
    }

    void LoseNames(const std::vector<NameChange>& names)
    {
        for (std::size_t lost = random_() % (names.size() + 1), i = names.size(); lost > 0; --lost) {
            const NameChange& change = names[--i];
            switch (change.kind) {
                case NameChange::Kind::kMade:
                    syscall(SYS_unlinkat, AT_FDCWD, change.path.c_str(), 0);
                    break;
                case NameChange::Kind::kRenamed:
                    Rename(change.to, change.path);
                    [[fallthrough]];
                case NameChange::Kind::kRemoved:
                    if (!change.stash.empty())
                        Rename(change.stash, change.to.empty() ? change.path : change.to);
                    break;
            }
        }
    }

    bool isOn_ = false, isKill_ = false;
    std::string place_, stash_;
    unsigned long at_ = 0, changes_ = 0, stashed_ = 0;
    std::mt19937 random_;
    std::map<Inode, Unsynced> files_;
    std::map<std::string, std::vector<NameChange>> names_;
};

using Lock = std::lock_guard<std::recursive_mutex>;

ssize_t WriteAt(int file, const void* bytes, size_t count, off_t at, bool moves)
{
    Power& power = Power::Get();
    const Lock lock(power.lock);
    return power.Change(file, at, std::string(static_cast<const char*>(bytes), count), -1, [&] {
        return moves ? syscall(SYS_write, file, bytes, count) : syscall(SYS_pwrite64, file, bytes, count, at);
    });
}

int SetSize(int file, off_t size)
{
    Power& power = Power::Get();
    const Lock lock(power.lock);
    return static_cast<int>(power.Change(file, std::min(size, SizeOf(file)), {}, size,
                                         [&] { return syscall(SYS_ftruncate, file, size); }));
}

// Nothing here has to outlast this machine: the disk below isn't waited for.
int Sync(int file)
{
    Power& power = Power::Get();
    const Lock lock(power.lock);
    power.Synced(file);
    return 0;
}

int OpenAt(int directory, const char* name, int flags, mode_t mode)
{
    Power& power = Power::Get();
    const Lock lock(power.lock);
    const bool isMade = (flags & O_CREAT) != 0;
    const std::string path = isMade || (flags & O_TRUNC) != 0 ? PathAt(directory, name) : std::string();
    if (path.empty() || !power.Concerns(path))
        return static_cast<int>(syscall(SYS_openat, directory, name, flags, mode));
    const bool isThere = Exists(path);
    if (!isThere && isMade) {
        power.Count();
        power.NoteMade(path);
    }
    const int file = static_cast<int>(syscall(SYS_openat, directory, name, flags & ~O_TRUNC, mode));
    if (file >= 0 && isThere && (flags & O_TRUNC) != 0)
        SetSize(file, 0);
    return file;
}

int Unlink(int directory, const char* name, int flags)
{
    Power& power = Power::Get();
    const Lock lock(power.lock);
    const std::string path = PathAt(directory, name);
    if ((flags & AT_REMOVEDIR) == 0 && power.Concerns(path) && Exists(path)) {
        power.Count();
        power.NoteRemoval(path);
    }
    return static_cast<int>(syscall(SYS_unlinkat, directory, name, flags));
}

int RenameAt(int from, const char* name, int to, const char* newName, unsigned flags = 0)
{
    Power& power = Power::Get();
    const Lock lock(power.lock);
    const std::string path = PathAt(from, name), newPath = PathAt(to, newName);
    const bool isRefused = (flags & RENAME_NOREPLACE) != 0 && Exists(newPath);
    if (power.Concerns(newPath) && Exists(path) && !isRefused) {
        power.Count();
        power.NoteRename(path, newPath);
    }
    return static_cast<int>(syscall(SYS_renameat2, from, name, to, newName, flags));
}

mode_t ModeOf(int flags, va_list arguments)
{
    return (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
}

}  // namespace
}  // namespace quorvane::test

using namespace quorvane::test;

extern "C" ssize_t write(int file, const void* bytes, size_t count)
{
    struct stat status {};
    if (fstat(file, &status) != 0 || !S_ISREG(status.st_mode))
        return syscall(SYS_write, file, bytes, count);
    const bool appends = (fcntl(file, F_GETFL) & O_APPEND) != 0;
    return WriteAt(file, bytes, count, appends ? status.st_size : lseek(file, 0, SEEK_CUR), true);
}

extern "C" ssize_t pwrite(int file, const void* bytes, size_t count, off_t at)
{
    return WriteAt(file, bytes, count, at, false);
}

extern "C" ssize_t pwrite64(int file, const void* bytes, size_t count, off_t at)
{
    return WriteAt(file, bytes, count, at, false);
}

extern "C" int ftruncate(int file, off_t size) noexcept
{
    return SetSize(file, size);
}

extern "C" int ftruncate64(int file, off_t size) noexcept
{
    return SetSize(file, size);
}

extern "C" int fallocate(int, int, off_t, off_t)
{
    errno = EOPNOTSUPP;
    return -1;
}

extern "C" int fsync(int file)
{
    return Sync(file);
}

extern "C" int fdatasync(int file)
{
    return Sync(file);
}

extern "C" int open(const char* path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = ModeOf(flags, arguments);
    va_end(arguments);
    return OpenAt(AT_FDCWD, path, flags, mode);
}

extern "C" int open64(const char* path, int flags, ...) __attribute__((alias("open")));

extern "C" int openat(int directory, const char* path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = ModeOf(flags, arguments);
    va_end(arguments);
    return OpenAt(directory, path, flags, mode);
}

extern "C" int unlink(const char* path) noexcept
{
    return Unlink(AT_FDCWD, path, 0);
}

extern "C" int unlinkat(int directory, const char* path, int flags) noexcept
{
    return Unlink(directory, path, flags);
}

extern "C" int remove(const char* path) noexcept
{
    struct stat status {};
    const bool isDirectory = lstat(path, &status) == 0 && S_ISDIR(status.st_mode);
    return Unlink(AT_FDCWD, path, isDirectory ? AT_REMOVEDIR : 0);
}

extern "C" int rename(const char* from, const char* to) noexcept
{
    return RenameAt(AT_FDCWD, from, AT_FDCWD, to);
}

extern "C" int renameat(int from, const char* name, int to, const char* newName) noexcept
{
    return RenameAt(from, name, to, newName);
}

extern "C" int renameat2(int from, const char* name, int to, const char* newName, unsigned flags) noexcept
{
    return RenameAt(from, name, to, newName, flags);
}
