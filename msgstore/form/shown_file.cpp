#include "msgstore/form/shown_file.h"

#include <vector>

#include "msgstore/util/guarded.h"
#include "platform/clock/clock.h"
#include "platform/file/file.h"
#include "platform/file/path.h"

namespace quorvane {
namespace {

constexpr char kFolder[] = "Quorvane3";
constexpr char kSubfolder[] = "shown";
constexpr std::string_view kExtension = ".eml";
constexpr std::uint64_t kOneDay = 864'000'000'000;  // in steps of 100 nanoseconds

HRESULT ShownDirectory(std::string& directory)
{
    std::string data;
    QV_RETURN_IF_FAILED(LocalAppDataDirectory(data));
    directory = JoinPath(JoinPath(data, kFolder), kSubfolder);
    return MakeDirectories(directory);
}

void RemoveOldFiles(const std::string& directory)
{
    std::vector<std::string> names;
    if (FAILED(ListDirectory(directory, names)))
        return;
    const std::uint64_t now = ToTicks(FileTimeNow());
    for (const std::string& name : names) {
        const std::string path = JoinPath(directory, name);
        PathStatus status{};
        if (name.ends_with(kExtension) && SUCCEEDED(GetPathStatus(path, status)) && !status.isDirectory &&
            ToTicks(status.modified) + kOneDay < now)
            (void)RemoveFile(path);  // one that is still open goes another day
    }
}

}  // namespace

HRESULT WriteShownFile(std::string_view contents, std::string& path)
{
    std::string directory;
    QV_RETURN_IF_FAILED(ShownDirectory(directory));
    RemoveOldFiles(directory);
    GUID name{};
    QV_RETURN_IF_FAILED(CoCreateGuid(&name));
    OLECHAR text[40] = {};
    const int length = StringFromGUID2(name, text, 40);
    // Without the braces, and without the zero at its end.
    std::string written = JoinPath(directory, std::string(text + 1, text + length - 2).append(kExtension));
    QV_RETURN_IF_FAILED(ReplaceWholeFile(written, contents));
    path = std::move(written);
    return S_OK;
}

}  // namespace quorvane
