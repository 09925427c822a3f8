#include "host/commands/check_report.h"

#include <algorithm>
#include <vector>

#include "host/base/errors.h"
#include "host/base/files.h"
#include "host/base/path_text.h"
#include "host/base/sqlite.h"

namespace quorvane::host {

namespace {

constexpr char kPlace[] = "before-repair";

std::vector<std::string> FaultsOf(Database& database)
{
    std::vector<std::string> faults;
    Statement integrity(database, "PRAGMA integrity_check");
    while (integrity.Step())
        if (integrity.Text(0) != "ok")
            faults.push_back(integrity.Text(0));
    return faults;
}

// Whether a complaint is of an index, which holds nothing that its table doesn't.
bool IsOfIndex(const std::string& fault)
{
    for (const char* const sign : {" missing from index ", "wrong # of entries in index ",
                                   "non-unique entry in index ", "values differ from index "})
        if (fault.find(sign) != std::string::npos)
            return true;
    return false;
}

void RebuildIndexes(const std::filesystem::path& path)
{
    Database database(path.string(), Database::Mode::kOpen);
    Transaction transaction(database);
    database.Execute("REINDEX");
    if (!FaultsOf(database).empty())
        Fail("mend the database", path.string(), "its indexes can't be made anew");
    transaction.Commit();
}

void MendIndexes(const std::filesystem::path& path, std::size_t found, CheckReport& report, Mender& mender)
{
    const std::string file = path.filename().string();
    try {
        mender.KeepDatabase(path);
        RebuildIndexes(path);
        report.open -= found;
        report.AddMended(file, {}, "its indexes were made anew");
    } catch (const HostError& error) {
        report.text += Printable(error.what()) + "\n";
    }
}

}  // namespace

void CheckReport::AddDatabase(const std::string& file, const std::string& what)
{
    databases.push_back({{"file", file}, {"what", what}});
    text += file + ": " + Printable(what) + "\n";
    ++open;
}

void CheckReport::AddDisagreement(const std::string& kind, const std::string& folder, const std::string& item,
                                  const std::string& what)
{
    disagreements.push_back({{"kind", kind}, {"folder", folder}, {"item", item}, {"what", what}});
    text += Printable(folder) + ": " + (item.empty() ? "" : Printable(item) + " ") + Printable(what) + "\n";
    ++open;
}

void CheckReport::AddMended(const std::string& file, const std::string& item, const std::string& how)
{
    mended.push_back({{"file", file}, {"item", item}, {"how", how}});
    text += "mended " + Printable(file) + ": " + (item.empty() ? "" : Printable(item) + " ") +
            Printable(how) + "\n";
}

Mender::Mender(const Mailbox& mailbox, bool isAsked) : isAsked_(isAsked)
{
    std::string time = TimeText(FileTimeNow());
    std::erase(time, ':');
    place_ = mailbox.Directory() / kPlace / PathOf(time);
    for (int number = 2; std::filesystem::exists(place_); ++number)
        place_ = mailbox.Directory() / kPlace / PathOf(time + "-" + std::to_string(number));
}

bool Mender::IsKept(const std::filesystem::path& path)
{
    if (!isAsked_)
        Fail("change the file", path.string(), "only --repair changes anything");
    if (kept_.contains(path))
        return true;
    MakePrivateDirectory(place_.parent_path());
    MakePrivateDirectory(place_);
    return false;
}

void Mender::KeepDatabase(const std::filesystem::path& path)
{
    if (IsKept(path))
        return;
    const std::filesystem::path copy = place_ / path.filename();
    MakePrivateFile(copy);
    Database(path.string(), Database::Mode::kReadOnly).CopyTo(copy.string(), [](int, int) {});
    SyncFile(copy);
    SyncDirectory(place_.parent_path());
    kept_.insert(path);
}

void Mender::KeepFile(const std::filesystem::path& path)
{
    if (IsKept(path))
        return;
    CopyDurably(path, place_ / path.filename());
    SyncDirectory(place_);
    SyncDirectory(place_.parent_path());
    kept_.insert(path);
}

void CheckDatabase(const std::filesystem::path& path, CheckReport& report, Mender& mender)
{
    const std::string file = path.filename().string();
    try {
        std::vector<std::string> faults;
        {
            Database database(path.string(), Database::Mode::kReadOnly);
            faults = FaultsOf(database);
            for (const std::string& fault : faults)
                report.AddDatabase(file, fault);
            Statement foreign(database, "PRAGMA foreign_key_check");
            while (foreign.Step())
                report.AddDatabase(file, "a row of '" + foreign.Text(0) + "' refers to one that '" +
                                             foreign.Text(2) + "' hasn't");
        }
        if (mender.IsAsked() && !faults.empty() && std::all_of(faults.begin(), faults.end(), IsOfIndex))
            MendIndexes(path, faults.size(), report, mender);
    } catch (const HostError& error) {
        report.AddDatabase(file, error.what());
    }
}

}  // namespace quorvane::host
