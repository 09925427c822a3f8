// host/commands/check_report.h: what `check` has found, and what was mended of it.
#ifndef QUORVANE_HOST_COMMANDS_CHECK_REPORT_H_
#define QUORVANE_HOST_COMMANDS_CHECK_REPORT_H_

#include <filesystem>
#include <set>
#include <string>

#include "host/base/output.h"
#include "host/mailbox/mailbox.h"

namespace quorvane::host {

// What is wrong with a mailbox, one line each.
struct CheckReport {
    Json databases = Json::array();
    Json items = Json::array();
    Json disagreements = Json::array();
    Json mended = Json::array();
    std::string text;

    // Notes what is wrong with a database.
    void AddDatabase(const std::string& file, const std::string& what);
    // Notes what the files of a mailbox tell differently: `kind`, of a folder (its path) and of an item, both
    // empty where there is none.
    void AddDisagreement(const std::string& kind, const std::string& folder, const std::string& item,
                         const std::string& what);
    // Notes that what was found in `file` is mended now.
    void AddMended(const std::string& file, const std::string& item, const std::string& how);

    // What was found, and isn't mended.
    std::size_t open = 0;
};

// What may change a mailbox's files while it is checked, and keeps each as it was before the first change.
class Mender {
public:
    // isAsked: else nothing may be changed.
    Mender(const Mailbox& mailbox, bool isAsked);

    bool IsAsked() const noexcept { return isAsked_; }
    // Before a file is changed. Databases are copied with what lies in their logs. Throws a HostError; then
    // the file must not be changed.
    void KeepDatabase(const std::filesystem::path& path);
    void KeepFile(const std::filesystem::path& path);
    // Where the copies lie; empty when nothing was changed.
    std::string Place() const { return kept_.empty() ? std::string() : place_.string(); }

private:
    bool IsKept(const std::filesystem::path& path);

    const bool isAsked_;
    std::filesystem::path place_;
    std::set<std::filesystem::path> kept_;
};

// Looks whether a database is sound. One whose indexes alone are damaged has them made anew.
void CheckDatabase(const std::filesystem::path& path, CheckReport& report, Mender& mender);

// What was looked at.
struct CheckCounts {
    std::size_t items = 0;
    Json deletionsToTell;  // how many the next run tells of; null where the files weren't compared
};

// Reads all of a mailbox (`check`), with progress. Throws a HostError where the message store can't be read.
CheckCounts ExamineMailbox(const Mailbox& mailbox, CheckReport& report, Mender& mender);

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_COMMANDS_CHECK_REPORT_H_
