#include "platform/file/temp_file.h"

#include "platform/file/path.h"

namespace quorvane {

HRESULT TempFile::Create(std::string_view prefix) noexcept
{
    std::string directory;
    std::string path;
    HRESULT hr = TempDirectory(directory);
    if (SUCCEEDED(hr))
        hr = MakeTempFileName(directory, prefix, path);
    if (FAILED(hr))
        return hr;
    Remove();
    path_ = std::move(path);
    return S_OK;
}

void TempFile::Remove() noexcept
{
    if (path_.empty())
        return;
    // It may be gone already, or be held by another process; there is nobody to tell.
    static_cast<void>(RemoveFile(path_));
    path_.clear();
}

}  // namespace quorvane
