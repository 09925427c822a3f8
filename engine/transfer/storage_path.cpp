#include "engine/transfer/storage_path.h"

#include <algorithm>
#include <new>

#include "engine/session/trace/trace.h"
#include "engine/storeaccess/md5.h"
#include "platform/file/file.h"
#include "platform/file/path.h"
#include "platform/file/temp_file.h"

namespace quorvane {

namespace {

constexpr size_t kLongestDirectory = 260;
constexpr size_t kElementNameLength = 31;
constexpr int kAttempts = 1000;
constexpr char kPrefix[] = "QVT";
constexpr char kExtension[] = "qvt";

// A name that no temporary file has, with our extension. The name is free again for temporary files.
HRESULT ProposePath(const std::string& directory, std::string& path)
{
    std::string proposed;
    HR_TRY_QUIET(MakeTempFileName(directory, kPrefix, proposed));
    HR_IGNORE(RemoveFile(proposed), "only its name is of use");
    proposed.replace(proposed.size() - 3, 3, kExtension);
    path = std::move(proposed);
    return S_OK;
}

// Makes the file, so that a package that stands there already is never taken for ours.
HRESULT ClaimPath(const std::string& path) noexcept
{
    File file;
    return file.Open(path, FileAccess::ReadWrite, FileMode::CreateNew);
}

}  // namespace

HRESULT MakePackagePath(std::string& path) noexcept
try {
    std::string directory;
    HR_TRY_QUIET(TempDirectory(directory));
    if (directory.size() > kLongestDirectory)
        return DISP_E_BUFFERTOOSMALL;
    HRESULT hr = E_FAIL;
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        std::string proposed;
        HR_TRY_QUIET(ProposePath(directory, proposed));
        hr = ClaimPath(proposed);
        if (SUCCEEDED(hr))
            path = std::move(proposed);
        if (hr != HRESULT_FROM_WIN32(ERROR_FILE_EXISTS))
            return hr;
    }
    return hr;
} catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
}

OleString ElementName(BSTR id)
{
    const std::string narrow = Narrow(ViewOf(id));
    const size_t hashed = std::min<size_t>(narrow.size(), SysStringLen(id));
    return Md5Text<OLECHAR>(Md5(narrow.data(), hashed)).substr(0, kElementNameLength);
}

bool IsDamage(HRESULT hr) noexcept
{
    switch (hr) {
        case STG_E_FILEALREADYEXISTS:  // no compound file
        case STG_E_INVALIDHEADER:
        case STG_E_DOCFILECORRUPT:
        case STG_E_OLDFORMAT:
            return true;
        default:
            return false;
    }
}

}  // namespace quorvane
