#include "host/mailbox/trash.h"

#include <set>
#include <system_error>
#include <vector>

#include "host/base/errors.h"
#include "host/base/files.h"
#include "host/base/path_text.h"
#include "host/exchange/keys.h"
#include "host/store/msg_file.h"
#include "host/store/properties.h"

namespace quorvane::host {

namespace {

constexpr std::uint64_t kFileTimesADay = std::uint64_t{24} * 60 * 60 * 10'000'000;
constexpr char kUnfinished[] = ".part";  // behind a name

// Removes a file of passing use.
class UnfinishedFile {
public:
    explicit UnfinishedFile(std::filesystem::path path) : path_(std::move(path)) {}
    UnfinishedFile(const UnfinishedFile&) = delete;
    UnfinishedFile& operator=(const UnfinishedFile&) = delete;
    ~UnfinishedFile()
    {
        std::error_code ignored;  // Expire removes it
        std::filesystem::remove(path_, ignored);
    }
    const std::filesystem::path& Path() const noexcept { return path_; }

private:
    std::filesystem::path path_;
};

// The same for the same content of the same item: what a kill left is written over.
std::filesystem::path FileIn(const std::filesystem::path& directory, const std::string& item,
                             const std::string& revision)
{
    exchange::Digest digest;
    digest.Add(item + '\n' + revision);
    const auto whole = digest.Finish();
    return directory / PathOf(Hex(Bytes(whole.begin(), whole.begin() + 16)) + ".msg");
}

}  // namespace

Trash::Trash(const Mailbox& mailbox)
    : directory_(mailbox.Directory() / "trash"),
      database_(mailbox.HostDatabasePath().string(), Database::Mode::kOpen)
{}

std::filesystem::path Trash::FileOf(const TrashEntry& entry) const
{
    return FileIn(directory_, entry.item, entry.revision);
}

// The file first: an entry always has one.
void Trash::Keep(const TrashEntry& entry, IMessage& message)
{
    const std::lock_guard lock(mutex_);
    Statement known(database_, "SELECT 1 FROM trash WHERE item = ? AND revision = ?");
    if (known.Bind(1, entry.item).Bind(2, entry.revision).Step())
        return;
    known.Reset();
    MakePrivateDirectory(directory_);
    std::filesystem::path aside = FileOf(entry);
    aside += kUnfinished;
    const UnfinishedFile unfinished(aside);
    {
        MsgFile file;
        Check(file.Create(aside), "keep in the trash", entry.subject);
        Check(CopyMessage(message, file.Message(), KEEP_OPEN_READWRITE), "keep in the trash", entry.subject);
    }
    CopyDurably(aside, FileOf(entry));
    SyncDirectory(directory_);
    Statement insert(
        database_,
        "INSERT INTO trash (item, folder_id, folder, revision, subject, member, why, since, copy) VALUES "
        "(?, ?, ?, ?, ?, ?, ?, ?, ?)");
    insert.Bind(1, entry.item).Bind(2, entry.folderId).Bind(3, entry.folder).Bind(4, entry.revision);
    insert.Bind(5, entry.subject).Bind(6, entry.member).Bind(7, static_cast<std::int64_t>(entry.why));
    insert.Bind(8, static_cast<std::int64_t>(entry.since)).Bind(9, entry.copy).Run();
}

std::vector<TrashEntry> Trash::Read(const char* where, std::int64_t key)
{
    const std::lock_guard lock(mutex_);
    Statement select(database_,
                     (std::string("SELECT number, item, folder_id, folder, revision, subject, member, why, "
                                  "since, copy FROM trash WHERE ") +
                      where)
                         .c_str());
    select.Bind(1, key);
    std::vector<TrashEntry> entries;
    while (select.Step())
        entries.push_back({select.Number(0), select.Text(1), select.Text(2), select.Text(3), select.Text(4),
                           select.Text(5), select.Text(6), static_cast<TrashEntry::Why>(select.Number(7)),
                           static_cast<std::uint64_t>(select.Number(8)), select.Text(9)});
    return entries;
}

std::vector<TrashEntry> Trash::Entries()
{
    return Read("number > ? ORDER BY number DESC", 0);
}

std::optional<TrashEntry> Trash::Find(std::int64_t number)
{
    const std::vector<TrashEntry> found = Read("number = ?", number);
    return found.empty() ? std::nullopt : std::optional(found.front());
}

std::optional<TrashEntry> Trash::FindContent(const std::string& item, const std::string& revision)
{
    std::int64_t number = 0;
    {
        const std::lock_guard lock(mutex_);
        Statement select(database_, "SELECT number FROM trash WHERE item = ? AND revision = ?");
        if (!select.Bind(1, item).Bind(2, revision).Step())
            return std::nullopt;
        number = select.Number(0);
    }
    return Find(number);
}

std::vector<TrashEntry> Trash::CopiesDue()
{
    return Read("number > ? AND copy <> '' ORDER BY number", 0);
}

void Trash::NoteCopied(std::int64_t number)
{
    const std::lock_guard lock(mutex_);
    Statement(database_, "UPDATE trash SET copy = '' WHERE number = ?").Bind(1, number).Run();
}

void Trash::Remove(const TrashEntry& entry)
{
    const std::lock_guard lock(mutex_);
    Statement(database_, "DELETE FROM trash WHERE number = ?").Bind(1, entry.number).Run();
    std::error_code ignored;  // Expire removes what is left
    std::filesystem::remove(FileOf(entry), ignored);
}

// What is yet to become an item stays.
void Trash::Expire(std::uint64_t now)
{
    const std::uint64_t age = static_cast<std::uint64_t>(Days()) * kFileTimesADay;
    const std::lock_guard lock(mutex_);
    Statement(database_, "DELETE FROM trash WHERE copy = '' AND since < ?")
        .Bind(1, static_cast<std::int64_t>(now > age ? now - age : 0))
        .Run();
    std::set<std::filesystem::path> kept;
    Statement select(database_, "SELECT item, revision FROM trash");
    while (select.Step())
        kept.insert(FileIn(directory_, select.Text(0), select.Text(1)));
    std::error_code error;
    std::vector<std::filesystem::path> gone;
    for (const auto& file : std::filesystem::directory_iterator(directory_, error))
        if (!kept.contains(file.path()))
            gone.push_back(file.path());
    for (const std::filesystem::path& path : gone)
        std::filesystem::remove(path, error);
}

std::int64_t Trash::Days()
{
    const std::lock_guard lock(mutex_);
    Statement select(database_, "SELECT trash_days FROM mailbox");
    return select.Step() ? select.Number(0) : kDays;
}

void Trash::SetDays(std::int64_t days)
{
    const std::lock_guard lock(mutex_);
    Statement(database_, "UPDATE mailbox SET trash_days = ?").Bind(1, days).Run();
}

}  // namespace quorvane::host
