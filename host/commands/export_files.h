// host/commands/export_files.h: files that are written aside and get their names when they are whole.
#ifndef QUORVANE_HOST_COMMANDS_EXPORT_FILES_H_
#define QUORVANE_HOST_COMMANDS_EXPORT_FILES_H_

#include <filesystem>
#include <string>

namespace quorvane::host {

// A directory to which files are added. What has a name there, a link too, keeps it: nothing is replaced or
// followed.
class ExportFiles {
public:
    // Makes the directory where it is missing, and within it one for files that aren't whole, which nobody
    // else may look into and which goes with this. Throws a HostError.
    explicit ExportFiles(const std::filesystem::path& directory);
    ~ExportFiles();
    ExportFiles(const ExportFiles&) = delete;
    ExportFiles& operator=(const ExportFiles&) = delete;

    // A path to write to. Keep gives the file there its name; a file that isn't kept goes.
    std::filesystem::path Aside() const { return aside_ / "file"; }

    // Makes a directory below; throws a HostError where a link or a file has that name.
    void MakeFolder(const std::string& name) const;

    // Gives what lies at Aside a name below the directory, "cur/1" too. Where there is a file of the same
    // bytes already, as after an export that was stopped, that one stays. Throws a HostError where the name
    // is taken by anything else.
    std::filesystem::path Keep(const std::string& name) const;

private:
    std::filesystem::path directory_;
    std::filesystem::path aside_;
};

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_COMMANDS_EXPORT_FILES_H_
