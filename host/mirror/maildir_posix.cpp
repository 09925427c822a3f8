#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <ctime>
#include <streambuf>
#include <utility>

#include "host/base/errors.h"
#include "host/base/files.h"
#include "host/exchange/keys.h"
#include "host/mail/mail_check.h"
#include "host/mail/mail_reader.h"
#include "host/mirror/maildir.h"
#include "host/mirror/maildir_name.h"

namespace quorvane::host {

namespace {

constexpr std::size_t kPiece = std::size_t{64} << 10;
constexpr std::size_t kDigestSize = 32;
constexpr std::int64_t kNanoseconds = 1'000'000'000;
constexpr int kMostTries = 5;
constexpr std::string_view kOwnSuffix = ".quorvane";
constexpr std::string_view kRemovedPrefix = "quorvane-removed:";  // and the part and the name
// Of files that nobody delivered for so long, as the Maildir's rules have it.
constexpr std::int64_t kAbandonedSeconds = 36 * 60 * 60;

std::int64_t TimeOf(const timespec& time)
{
    return std::int64_t{time.tv_sec} * kNanoseconds + time.tv_nsec;
}

FileLook LookOf(const struct stat& status)
{
    return {static_cast<std::uint64_t>(status.st_ino), static_cast<std::uint64_t>(status.st_size),
            TimeOf(status.st_mtim)};
}

bool IsSame(const FileLook& listed, const FileLook& now)
{
    return listed.inode == now.inode && listed.size == now.size &&
           (listed.time == 0 || listed.time == now.time);
}

[[noreturn]] void FailAt(const char* what, const std::filesystem::path& path, int error)
{
    Fail(what, path.string(), DescribeErrno(error));
}

Descriptor OpenPart(int root, const std::filesystem::path& path, const char* part)
{
    Descriptor directory(openat(root, part, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!directory)
        FailAt("open the Maildir's directory", path / part, errno);
    return directory;
}

std::string DigestText(exchange::Digest& digest)
{
    const auto whole = digest.Finish();
    return {whole.begin(), whole.begin() + kDigestSize};
}

class OpenDirectory {
public:
    OpenDirectory(int directory, const std::filesystem::path& path)
        : stream_(fdopendir(openat(directory, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC)))
    {
        if (!stream_)
            FailAt("read the Maildir's directory", path, errno);
    }
    ~OpenDirectory() { closedir(stream_); }
    OpenDirectory(const OpenDirectory&) = delete;
    OpenDirectory& operator=(const OpenDirectory&) = delete;

    // Null at the end.
    const char* Next() const
    {
        const dirent* const entry = readdir(stream_);
        return entry ? entry->d_name : nullptr;
    }

private:
    DIR* stream_;
};

}  // namespace

Descriptor::~Descriptor()
{
    if (number_ >= 0)
        close(number_);
}

// Writes to a descriptor, and keeps the digest of what was written.
class Maildir::NewFile::Buffer final : public std::streambuf {
public:
    explicit Buffer(Descriptor file) : file_(std::move(file)) {}

    int File() const noexcept { return file_.Get(); }
    int Error() const noexcept { return error_; }
    std::string Digest() { return DigestText(digest_); }
    bool Flush()
    {
        std::string_view left = held_;
        while (!left.empty() && error_ == 0) {
            const ssize_t count = write(file_.Get(), left.data(), left.size());
            if (count >= 0)
                left.remove_prefix(static_cast<std::size_t>(count));
            else if (errno != EINTR)
                error_ = errno;
        }
        digest_.Add(held_);
        held_.clear();
        return error_ == 0;
    }

protected:
    int overflow(int c) override
    {
        const char one = static_cast<char>(c);
        return xsputn(&one, 1) == 1 ? c : traits_type::eof();
    }
    std::streamsize xsputn(const char* data, std::streamsize size) override
    {
        held_.append(data, static_cast<std::size_t>(size));
        return held_.size() < kPiece || Flush() ? size : 0;
    }
    int sync() override { return Flush() ? 0 : -1; }

private:
    Descriptor file_;
    exchange::Digest digest_;
    std::string held_;
    int error_ = 0;
};

Maildir::NewFile::NewFile(int directory, std::string name) : directory_(directory), name_(std::move(name))
{
    Descriptor file(
        openat(directory, name_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!file && errno == EEXIST && unlinkat(directory, name_.c_str(), 0) == 0)  // a kill left it
        file = Descriptor(
            openat(directory, name_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!file)
        Fail("write the mail", name_, DescribeErrno(errno));
    buffer_ = std::make_unique<Buffer>(std::move(file));
    stream_ = std::make_unique<std::ostream>(buffer_.get());
}

Maildir::NewFile::~NewFile()
{
    if (buffer_ && !name_.empty())
        (void)unlinkat(directory_, name_.c_str(), 0);  // TidyUp removes what is left
}

std::string Maildir::NewFile::Finish()
{
    if (!buffer_->Flush() || !*stream_)
        Fail("write the mail", name_, DescribeErrno(buffer_->Error() != 0 ? buffer_->Error() : EIO));
    if (fsync(buffer_->File()) != 0)
        Fail("write the mail", name_, DescribeErrno(errno));
    return buffer_->Digest();
}

// It was written just now, so its time may hide a change.
FileLook Maildir::NewFile::Look() const
{
    struct stat status {};
    if (fstat(buffer_->File(), &status) != 0)
        Fail("look at the mail", name_, DescribeErrno(errno));
    FileLook look = LookOf(status);
    look.time = 0;
    return look;
}

void Maildir::Make(const std::filesystem::path& path)
{
    MakeDirectory(path);
    for (const char* const part : {"cur", "new", "tmp"})
        if (mkdir((path / part).c_str(), 0700) != 0 && errno != EEXIST)
            FailAt("make the directory", path / part, errno);
    Maildir(path).Open();
}

void Maildir::Remember(const FileLook& look, const std::string& digest)
{
    if (look.time != 0)
        seen_[look.inode] = {look, digest, {}};
}

void Maildir::Open()
{
    const Descriptor root(open(path_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!root)
        FailAt("open the Maildir", path_, errno);
    cur_ = OpenPart(root.Get(), path_, "cur");
    new_ = OpenPart(root.Get(), path_, "new");
    tmp_ = OpenPart(root.Get(), path_, "tmp");
}

std::string Maildir::Identity() const
{
    std::string text;
    for (const int part : {cur_.Get(), new_.Get()}) {
        struct stat status {};
        if (fstat(part, &status) != 0)
            FailAt("look at the Maildir", path_, errno);
        text += (text.empty() ? "" : " ") + std::to_string(status.st_ino);
    }
    return text;
}

std::string Maildir::OutsideLook() const
{
    std::string text;
    for (const char* const part : {"cur", "new"}) {
        struct stat status {};
        if (lstat((path_ / part).c_str(), &status) != 0)
            return {};
        text += std::to_string(status.st_ino) + " " + std::to_string(TimeOf(status.st_mtim)) + "\n";
    }
    return text;
}

int Maildir::PartOf(const std::string& part) const
{
    return part == "cur" ? cur_.Get() : new_.Get();
}

std::int64_t Maildir::TimeOfParts() const
{
    std::int64_t latest = 0;
    for (const int part : {cur_.Get(), new_.Get()}) {
        struct stat status {};
        if (fstat(part, &status) != 0)
            FailAt("look at the Maildir", path_, errno);
        if (status.st_nlink == 0)
            Fail("look at the Maildir", path_.string(), "it was removed");
        latest = std::max(latest, TimeOf(status.st_mtim));
    }
    return latest;
}

std::int64_t Maildir::Now()
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return TimeOf(now);
}

bool Maildir::IsYoung(std::int64_t time, std::int64_t now, std::chrono::milliseconds patience)
{
    return patience.count() > 0 && now - time < std::chrono::nanoseconds(patience).count();
}

// A file that is renamed while its directory is read may not be seen at all.
Maildir::Listing Maildir::List(std::int64_t since)
{
    Listing listing;
    for (int i = 0; i < kMostTries && !listing.isSettled; ++i) {
        listing = {};
        now_.clear();
        const std::int64_t before = TimeOfParts();
        const bool isYoung = IsYoung(before, since, patience_.directory);
        ListPart("new", listing);
        ListPart("cur", listing);
        listing.isSettled = TimeOfParts() == before && !isYoung;
        if (isYoung)
            break;
    }
    seen_ = std::move(now_);
    now_.clear();
    return listing;
}

void Maildir::ListPart(const std::string& part, Listing& listing)
{
    const OpenDirectory directory(PartOf(part), path_ / part);
    while (const char* const name = directory.Next()) {
        if (name[0] == '.')
            continue;
        MailFile file;
        file.part = part;
        file.name = name;
        const MaildirName parsed(file.name);
        file.base = parsed.base;
        file.marks = MarksOfInfo(parsed.info);  // some programs write the info part in new/ too
        if (Examine(file, listing))
            listing.files.push_back(std::move(file));
    }
}

// False where it has gone.
bool Maildir::Examine(MailFile& file, Listing& listing)
{
    struct stat status {};
    const int part = PartOf(file.part);
    if (fstatat(part, file.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0)
        return false;
    file.look = LookOf(status);
    if (!S_ISREG(status.st_mode)) {
        file.problem = S_ISLNK(status.st_mode)   ? "it is a link"
                       : S_ISDIR(status.st_mode) ? "it is a directory"
                                                 : "it is no plain file";
        return true;
    }
    const bool isYoung = IsYoung(file.look.time, Now(), patience_.file);
    listing.isFresh |= isYoung;
    if (const auto seen = seen_.find(file.look.inode);
        seen != seen_.end() && seen->second.look == file.look) {
        file.digest = seen->second.digest;
        file.problem = seen->second.problem;
        now_[file.look.inode] = seen->second;
        return true;
    }
    const FileLook look = file.look;
    MailBytes bytes;
    if (status.st_size == 0) {
        file.problem = "it is empty";
    } else if (file.look.size > kLargestMail) {
        file.problem = "it is larger than 1 GB";
    } else if (!Read(file, bytes)) {
        struct stat now {};
        if (fstatat(part, file.name.c_str(), &now, AT_SYMLINK_NOFOLLOW) != 0)
            return false;
        file.problem = "it can't be read";
    } else {
        exchange::Digest digest;
        std::string piece(kPiece, '\0');
        std::uint64_t at = 0;
        while (const std::size_t count = bytes.Read(at, piece.data(), piece.size())) {
            const std::string_view got(piece.data(), count);
            if (at == 0)
                file.problem = WhyNotMail(got, MailHint::Named).value_or("");
            digest.Add(got);
            at += count;
        }
        file.digest = DigestText(digest);
        if (at != file.look.size)
            file.problem = "it can't be read";
    }
    if (isYoung)
        file.look.time = 0;
    else if (!file.digest.empty())
        now_[look.inode] = {look, file.digest, file.problem};
    return true;
}

bool Maildir::Read(const MailFile& file, MailBytes& bytes) const
{
    bytes.Clear();
    const Descriptor open(
        openat(PartOf(file.part), file.name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat status {};
    if (!open || fstat(open.Get(), &status) != 0 || !S_ISREG(status.st_mode) ||
        !IsSame(file.look, LookOf(status)))
        return false;
    exchange::Digest digest;
    std::string piece(kPiece, '\0');
    for (;;) {
        const ssize_t count = read(open.Get(), piece.data(), piece.size());
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0 || bytes.Size() + static_cast<std::uint64_t>(count) > file.look.size)
            return false;
        if (count == 0)
            break;
        const std::string_view got(piece.data(), static_cast<std::size_t>(count));
        bytes.Append(got);
        digest.Add(got);
    }
    if (bytes.Size() != file.look.size || FAILED(bytes.Result()))
        return false;
    return file.digest.empty() || DigestText(digest) == file.digest;
}

// Systems write out what was changed within half a minute.
bool Maildir::SyncNew(const MailFile& file) const
{
    if (file.look.time != 0 && !IsYoung(file.look.time, Now(), std::chrono::minutes(1)))
        return false;
    const Descriptor open(
        openat(PartOf(file.part), file.name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (open && fsync(open.Get()) != 0)
        FailAt("write the mail", path_ / file.part / file.name, errno);
    return true;
}

Maildir::NewFile Maildir::Begin(const std::string& base) const
{
    return NewFile(tmp_.Get(), base);
}

namespace {

// Renames where nothing has the new name: 0, or an errno.
int RenameWithin(int from, const std::string& name, int to, const std::string& newName)
{
    if (renameat2(from, name.c_str(), to, newName.c_str(), RENAME_NOREPLACE) == 0)
        return 0;
    if (errno != EINVAL && errno != ENOSYS)
        return errno;
    if (linkat(from, name.c_str(), to, newName.c_str(), 0) != 0)  // a file system without that
        return errno;
    return unlinkat(from, name.c_str(), 0) == 0 ? 0 : errno;
}

}  // namespace

bool Maildir::Deliver(NewFile& file, const std::string& part, const std::string& name) const
{
    const int error = RenameWithin(tmp_.Get(), file.name_, PartOf(part), name);
    if (error == EEXIST)
        return false;
    if (error != 0)
        FailAt("deliver the mail", path_ / part / name, error);
    file.name_.clear();
    return true;
}

Maildir::Renamed Maildir::Rename(const MailFile& file, const Maildir& to, const std::string& part,
                                 const std::string& name) const
{
    const int error = RenameWithin(PartOf(file.part), file.name, to.PartOf(part), name);
    switch (error) {
        case 0:
            return Renamed::kDone;
        case ENOENT:
            return Renamed::kGone;
        case EEXIST:
            return Renamed::kTaken;
        case EXDEV:
            return Renamed::kOtherDisk;
        default:
            FailAt("rename the mail", path_ / file.part / file.name, error);
    }
}

// It leaves its place before it is looked at once more: who changes it by its name from then on doesn't find
// it.
bool Maildir::Remove(const MailFile& file) const
{
    const std::string aside = std::string(kRemovedPrefix) + file.part + ":" + file.name;
    const int error = RenameWithin(PartOf(file.part), file.name, tmp_.Get(), aside);
    if (error == ENOENT)
        return false;
    if (error != 0)
        FailAt("remove the mail", path_ / file.part / file.name, error);
    const auto listed = [&] {
        MailFile moved = file;
        struct stat status {};
        if (fstatat(tmp_.Get(), aside.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0)
            return false;
        return S_ISREG(status.st_mode) && IsSame(file.look, LookOf(status));
    };
    if (listed()) {
        if (unlinkat(tmp_.Get(), aside.c_str(), 0) != 0)
            FailAt("remove the mail", path_ / file.part / file.name, errno);
        return true;
    }
    if (const int back = RenameWithin(tmp_.Get(), aside, PartOf(file.part), file.name); back != 0)
        FailAt("put back the mail", path_ / file.part / file.name, back);
    return false;
}

// What is removed goes by way of tmp/.
void Maildir::Sync() const
{
    for (const int part : {cur_.Get(), new_.Get(), tmp_.Get()})
        if (fsync(part) != 0)
            FailAt("write to the Maildir", path_, errno);
}

void Maildir::TidyUp() const
{
    std::vector<std::string> names;
    {
        const OpenDirectory directory(tmp_.Get(), path_ / "tmp");
        while (const char* const name = directory.Next())
            names.emplace_back(name);
    }
    for (const std::string& name : names) {
        if (name.starts_with(kRemovedPrefix)) {
            const std::string rest = name.substr(kRemovedPrefix.size());
            const std::string part = rest.substr(0, 3);
            if (rest.size() > 4 && rest[3] == ':' && (part == "cur" || part == "new"))
                (void)RenameWithin(tmp_.Get(), name, PartOf(part), rest.substr(4));
        } else if (name.ends_with(kOwnSuffix)) {
            struct stat status {};
            const bool isThere = fstatat(tmp_.Get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0;
            if (isThere && std::time(nullptr) - status.st_mtim.tv_sec > kAbandonedSeconds)
                (void)unlinkat(tmp_.Get(), name.c_str(), 0);
        }
    }
}

}  // namespace quorvane::host
