#include "host/exchange/outside.h"

#include <windows.h>

#include <algorithm>

#include "host/exchange/error.h"

namespace quorvane::host::exchange {

namespace {

constexpr std::size_t kBlock = std::size_t{256} << 10;
constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
constexpr DWORD kNoLink = FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT;

HANDLE HandleOf(const OwnedHandle& handle) noexcept
{
    return reinterpret_cast<HANDLE>(handle.Get());
}
OwnedHandle Own(HANDLE handle) noexcept
{
    return OwnedHandle(reinterpret_cast<std::intptr_t>(handle));
}

bool IsMissing(DWORD error) noexcept
{
    return error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND;
}

[[noreturn]] void FailNow(const char* what, const std::filesystem::path& shown, DWORD error = GetLastError())
{
    FailForNow(std::string("cannot ") + what + " '" + shown.string() + "': error " + std::to_string(error));
}

std::filesystem::path WideName(const std::string& name)
{
    return std::filesystem::path(std::u8string(name.begin(), name.end()));
}

std::string NarrowName(const std::filesystem::path& name)
{
    const std::u8string text = name.u8string();
    return {text.begin(), text.end()};
}

void WriteAll(HANDLE file, const char* data, std::size_t size, const std::filesystem::path& shown)
{
    while (size > 0) {
        DWORD count = 0;
        if (!WriteFile(file, data, static_cast<DWORD>(size), &count, nullptr))
            FailNow("write", shown);
        data += count;
        size -= count;
    }
}

void CopyAll(const ByteSource& source, HANDLE file, const std::filesystem::path& shown)
{
    std::string block(static_cast<std::size_t>(std::min<std::uint64_t>(kBlock, source.Size())), '\0');
    for (std::uint64_t at = 0; at < source.Size();) {
        const auto count =
            static_cast<std::size_t>(std::min<std::uint64_t>(block.size(), source.Size() - at));
        source.ReadAt(at, block.data(), count);
        WriteAll(file, block.data(), count, shown);
        at += count;
    }
}

// A file that wasn't there before: nothing that lies at its name is written to.
OwnedHandle MakeNew(const std::filesystem::path& path)
{
    if (!DeleteFileW(path.c_str()) && !IsMissing(GetLastError()))
        FailNow("replace", path);
    OwnedHandle file =
        Own(CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (HandleOf(file) == INVALID_HANDLE_VALUE)
        FailNow("write", path);
    return file;
}

// Writes a new file and gives it its name in one step; of one that fails nothing is left.
void WriteWhole(const std::filesystem::path& path, const ByteSource& content, bool flushes)
{
    std::filesystem::path aside = path;
    aside += L".part";
    try {
        {
            const OwnedHandle file = MakeNew(aside);
            CopyAll(content, HandleOf(file), path);
            if (flushes && !FlushFileBuffers(HandleOf(file)))
                FailNow("write", path);
        }
        const DWORD flags = MOVEFILE_REPLACE_EXISTING | (flushes ? MOVEFILE_WRITE_THROUGH : 0);
        if (!MoveFileExW(aside.c_str(), path.c_str(), flags))
            FailNow("write", path);
    } catch (...) {
        DeleteFileW(aside.c_str());
        throw;
    }
}

// Others may put files into it, but not another directory into its place while it is open.
std::unique_ptr<OutsideDirectory> OpenDirectory(const std::filesystem::path& path, DWORD flags)
{
    OwnedHandle handle =
        Own(CreateFileW(path.c_str(), FILE_LIST_DIRECTORY, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                        OPEN_EXISTING, flags, nullptr));
    if (HandleOf(handle) == INVALID_HANDLE_VALUE) {
        if (IsMissing(GetLastError()))
            return nullptr;
        FailNow("open the directory", path);
    }
    BY_HANDLE_FILE_INFORMATION status{};
    if (!GetFileInformationByHandle(HandleOf(handle), &status))
        FailNow("open the directory", path);
    const bool followed = (flags & FILE_FLAG_OPEN_REPARSE_POINT) == 0;
    if (!(status.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) ||
        (!followed && status.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT))
        Refuse("'" + path.string() + "' is no directory");
    return std::make_unique<OutsideDirectory>(std::move(handle), path);
}

}  // namespace

OwnedHandle::~OwnedHandle()
{
    if (handle_ != kNone)
        CloseHandle(HandleOf(*this));
}

void OutsideFile::ReadAt(std::uint64_t at, char* buffer, std::size_t size) const
{
    while (size > 0) {
        OVERLAPPED place{};
        place.Offset = static_cast<DWORD>(at);
        place.OffsetHigh = static_cast<DWORD>(at >> 32);
        DWORD count = 0;
        const BOOL read = ReadFile(HandleOf(handle_), buffer, static_cast<DWORD>(size), &count, &place);
        if (!read && GetLastError() != ERROR_HANDLE_EOF)
            FailNow("read", shown_);
        if (!read || count == 0)
            FailForNow("cannot read '" + shown_ + "': it has become shorter");
        buffer += count;
        at += count;
        size -= count;
    }
}

std::unique_ptr<OutsideDirectory> OutsideDirectory::Open(const std::filesystem::path& directory)
{
    return OpenDirectory(directory, FILE_FLAG_BACKUP_SEMANTICS);
}

std::unique_ptr<OutsideDirectory> OutsideDirectory::Sub(const std::string& name) const
{
    return OpenDirectory(path_ / WideName(name), kNoLink);
}

std::unique_ptr<OutsideDirectory> OutsideDirectory::MakeSub(const std::string& name, Readers) const
{
    const std::filesystem::path path = path_ / WideName(name);
    if (!CreateDirectoryW(path.c_str(), nullptr) && GetLastError() != ERROR_ALREADY_EXISTS)
        FailNow("make the directory", path);
    auto made = Sub(name);
    if (!made)
        FailForNow("cannot open the directory '" + path.string() + "': it has gone again");
    return made;
}

void OutsideDirectory::ForEachName(const std::function<bool(const std::string&)>& visit) const
{
    WIN32_FIND_DATAW entry{};
    HANDLE const found = FindFirstFileW((path_ / L"*").c_str(), &entry);
    if (found == INVALID_HANDLE_VALUE)
        FailNow("read the directory", path_);
    const std::unique_ptr<void, BOOL(WINAPI*)(HANDLE)> closer(found, FindClose);
    do {
        const std::wstring name = entry.cFileName;
        if (name != L"." && name != L".." && !visit(NarrowName(name)))
            return;
    } while (FindNextFileW(found, &entry));
    if (GetLastError() != ERROR_NO_MORE_FILES)
        FailNow("read the directory", path_);
}

std::unique_ptr<OutsideFile> OutsideDirectory::OpenFile(const std::string& name) const
{
    const std::filesystem::path path = path_ / WideName(name);
    OwnedHandle handle =
        Own(CreateFileW(path.c_str(), GENERIC_READ, kShareAll, nullptr, OPEN_EXISTING, kNoLink, nullptr));
    if (HandleOf(handle) == INVALID_HANDLE_VALUE) {
        if (IsMissing(GetLastError()))
            return nullptr;
        FailNow("read", path);
    }
    BY_HANDLE_FILE_INFORMATION status{};
    if (GetFileType(HandleOf(handle)) != FILE_TYPE_DISK ||
        !GetFileInformationByHandle(HandleOf(handle), &status) ||
        status.dwFileAttributes & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT))
        Refuse("'" + path.string() + "' is no plain file");
    const std::uint64_t size = static_cast<std::uint64_t>(status.nFileSizeHigh) << 32 | status.nFileSizeLow;
    return std::make_unique<OutsideFile>(std::move(handle), size, path.string());
}

void OutsideDirectory::Replace(const std::string& name, const ByteSource& content, Readers) const
{
    WriteWhole(path_ / WideName(name), content, true);
}

void OutsideDirectory::LetRead(Readers) const {}

void OutsideDirectory::Remove(const std::string& name) const
{
    const std::filesystem::path path = path_ / WideName(name);
    if (!DeleteFileW(path.c_str()) && !IsMissing(GetLastError()))
        FailNow("remove", path);
}

void CopyIn(const ByteSource& source, const std::filesystem::path& target, std::uint64_t limit,
            std::uint64_t spare)
{
    CheckRoom(source.Size(), target, limit, spare);
    WriteWhole(target, source, false);
}

}  // namespace quorvane::host::exchange
