// host/mirror/mail_places.h: where a user's mail lies in Maildirs already.
#ifndef QUORVANE_HOST_MIRROR_MAIL_PLACES_H_
#define QUORVANE_HOST_MIRROR_MAIL_PLACES_H_

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace quorvane::host {

// A Maildir, or a directory with some in it.
struct MailPlace {
    std::filesystem::path root;
    // Folders that its Maildirs are to be tied to, and these. The Maildir that others lie in is the Inbox,
    // and so is one that is called so in any case.
    std::vector<std::pair<std::string, std::filesystem::path>> maildirs;
    std::size_t mails = 0;  // files, at a glance
};

// What lies in a directory, in whichever layout; nothing where it holds no Maildir, or can't be read. Links
// in it aren't followed.
std::optional<MailPlace> LookForMail(const std::filesystem::path& directory);

// Those of the directories that mail programs use by custom: ~/Maildir, ~/Mail, ~/mail, ~/.mail, and before
// them what the variable MAILDIR names (empty: nothing). Each once.
std::vector<MailPlace> FindMailPlaces(const std::filesystem::path& home,
                                      const std::filesystem::path& maildir);

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_MIRROR_MAIL_PLACES_H_
