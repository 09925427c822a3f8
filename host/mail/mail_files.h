// host/mail/mail_files.h: the files below a list of paths that may hold mail.
#ifndef QUORVANE_HOST_MAIL_MAIL_FILES_H_
#define QUORVANE_HOST_MAIL_MAIL_FILES_H_

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace quorvane {

// There may be very many: a path is kept as its text.
struct MailFile {
    std::filesystem::path::string_type name;
    std::uint64_t size = 0;
    bool inMaildir = false;
    std::optional<bool> read;  // for a Maildir's file
    std::string problem;       // why it can't be opened, in plain words; empty when it can

    std::filesystem::path Path() const { return name; }
};

// What a Maildir file's name says behind its last ":2," (or "!2,", ";2,", as some systems write it): read
// when the flags hold an S. A file of new/ is unread.
std::optional<bool> MaildirReadState(const std::filesystem::path& path);

// Whether a file of this name lies beside mail without being mail: hidden files, mail programs' index
// files, a folder's README.
[[nodiscard]] bool IsHousekeeping(const std::string& name);

// Walks the paths, each folder in the order of its names. Links to folders are followed once: a folder
// that contains itself ends the walk there. A file named by `paths` itself is always taken.
std::vector<MailFile> FindMailFiles(const std::vector<std::filesystem::path>& paths);

}  // namespace quorvane

#endif  // QUORVANE_HOST_MAIL_MAIL_FILES_H_
