#include <limits>
#include <new>

#include "platform/file/file.h"
#include "platform/file/path.h"
#include "platform/file/permissions.h"
#include "platform/file/temp_file.h"

namespace quorvane {

namespace {

HRESULT WriteAndSync(const std::string& path, std::string_view contents) noexcept
{
    File file;
    HRESULT hr = file.Open(path, FileAccess::Write, FileMode::TruncateExisting, FileShare::None);
    if (SUCCEEDED(hr))
        hr = file.Write(contents.data(), contents.size());
    return SUCCEEDED(hr) ? file.Sync() : hr;
}

}  // namespace

HRESULT ReadWholeFile(const std::string& path, std::uint64_t limit, std::string& contents) noexcept
{
    try {
        File file;
        std::uint64_t size = 0;
        HRESULT hr = file.Open(path, FileAccess::Read, FileMode::OpenExisting, FileShare::All);
        if (SUCCEEDED(hr))
            hr = file.GetSize(size);
        if (FAILED(hr))
            return hr;
        if (size > limit || size > std::numeric_limits<size_t>::max() / 2)
            return HRESULT_FROM_WIN32(ERROR_FILE_TOO_LARGE);
        std::string read(static_cast<size_t>(size), '\0');
        size_t got = 0;
        hr = file.Read(read.data(), read.size(), got);
        if (FAILED(hr))
            return hr;
        read.resize(got);
        contents = std::move(read);
        return S_OK;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

HRESULT ReplaceWholeFile(const std::string& path, std::string_view contents) noexcept
{
    try {
        const std::string directory(DirectoryOf(path));
        std::string aside;
        HRESULT hr = MakeTempFileName(directory, "qvw", aside);
        if (FAILED(hr))
            return hr;
        TempFile owner(std::move(aside));
        hr = WriteAndSync(owner.Path(), contents);
        CopyPermissions(path, owner.Path());
        if (SUCCEEDED(hr))
            hr = RenameOver(owner.Path(), path);
        if (FAILED(hr))
            return hr;
        owner.LetGo();
        return SyncDirectory(directory);
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

}  // namespace quorvane
