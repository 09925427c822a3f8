// host/sharing/settled_note.h: that a run left a mailbox with nothing to be sent, so that the next one
// needn't compare each of its messages with what is known of it.
//
// The note tells what the mailbox's databases looked like then. Whoever writes to one of them, by whatever
// way, changes that, and the note holds no more. One that was made within two seconds of a database's last
// change is taken for none, as a change more might not show: the next run that finds nothing to do makes it
// anew.
#ifndef QUORVANE_HOST_SHARING_SETTLED_NOTE_H_
#define QUORVANE_HOST_SHARING_SETTLED_NOTE_H_

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "host/mailbox/mailbox.h"

namespace quorvane::host {

// For the run's thread alone.
class SettledNote {
public:
    // Looks whether the note holds: before anything of the mailbox is written. Throws std::bad_alloc alone.
    explicit SettledNote(const Mailbox& mailbox);

    bool Holds() const noexcept { return holds_; }

    // Notes it, if `isSettled` says so when it is asked and nobody writes to a database from then until it is
    // noted. What can't be noted now is left to the next run. Throws what `isSettled` does.
    void Write(const std::function<bool()>& isSettled) const;

private:
    // Empty while something that was committed stands beside a database.
    std::string Look() const;
    bool Says(const std::string& look) const;

    std::filesystem::path path_;
    std::vector<std::filesystem::path> databases_;
    bool holds_ = false;
};

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_SHARING_SETTLED_NOTE_H_
