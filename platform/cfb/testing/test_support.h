// platform/cfb/testing/test_support.h: what the tests of this folder share.
#ifndef QUORVANE_PLATFORM_CFB_TESTING_TEST_SUPPORT_H_
#define QUORVANE_PLATFORM_CFB_TESTING_TEST_SUPPORT_H_

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "platform/bytes/testing/memory_store.h"
#include "platform/cfb/docfile.h"
#include "platform/cfb/element_name.h"
#include "platform/com/bstr.h"
#include "platform/com/com_ptr.h"
#include "platform/testing/surroundings.h"

namespace quorvane::cfb::test {

inline constexpr DWORD kCreate = STGM_CREATE | STGM_READWRITE | STGM_SHARE_EXCLUSIVE;
inline constexpr DWORD kOpen = STGM_READWRITE | STGM_SHARE_EXCLUSIVE;
inline constexpr DWORD kRead = STGM_READ | STGM_SHARE_EXCLUSIVE;

// Of the many cases that a test looks at, under the address sanitizer one in so many: it takes ten times as
// long there, and what it looks for are faults of the code, which a few of them reach. All of them are looked
// at without it.
#ifdef __SANITIZE_ADDRESS__
inline constexpr unsigned kOneOf = 6;
#else
inline constexpr unsigned kOneOf = 1;
#endif

using ::quorvane::test::Bytes;
using ::quorvane::test::MemoryStore;

// A byte store as ILockBytes is what the COM layer takes.
inline ComPtr<ILockBytes> NewLockBytes()
{
    ComPtr<ILockBytes> bytes;
    if (FAILED(CreateLockBytesInMemory(bytes.Put())))
        std::abort();
    return bytes;
}

inline ULARGE_INTEGER Large(std::uint64_t value)
{
    ULARGE_INTEGER large;
    large.QuadPart = value;
    return large;
}

inline Bytes ContentOf(ILockBytes& bytes)
{
    STATSTG stat{};
    if (FAILED(bytes.Stat(&stat, STATFLAG_NONAME)))
        std::abort();
    Bytes content(stat.cbSize.QuadPart);
    ULONG read = 0;
    if (FAILED(bytes.ReadAt(Large(0), content.data(), static_cast<ULONG>(content.size()), &read)))
        std::abort();
    return content;
}

inline ComPtr<ILockBytes> LockBytesWith(const Bytes& content)
{
    auto bytes = NewLockBytes();
    ULONG written = 0;
    if (FAILED(bytes->WriteAt(Large(0), content.data(), static_cast<ULONG>(content.size()), &written)))
        std::abort();
    return bytes;
}

inline OleString Wide(const std::string& text)
{
    return OleString(text.begin(), text.end());
}

inline ElementName Named(const std::string& text)
{
    ElementName name;
    if (FAILED(name.Assign(Wide(text).c_str())))
        std::abort();
    return name;
}

inline std::string NarrowName(LPCOLESTR text)
{
    std::string result;
    for (; *text; ++text)
        result += static_cast<char>(*text < 0x80 ? *text : '?');
    return result;
}

inline Bytes LoadFile(const std::filesystem::path& path)
{
    std::ifstream in(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), {});
}

// Bytes that tell from where they come.
inline Bytes Pattern(std::size_t count, unsigned seed)
{
    Bytes bytes(count);
    std::uint32_t state = seed * 2654435761u + 1;
    for (BYTE& byte : bytes) {
        state = state * 1664525 + 1013904223;
        byte = static_cast<BYTE>(state >> 24);
    }
    return bytes;
}

[[nodiscard]] inline HRESULT WriteStream(IStorage& storage, const std::string& name, const Bytes& content)
{
    ComPtr<IStream> stream;
    HRESULT hr = storage.CreateStream(Wide(name).c_str(), kCreate, 0, 0, stream.Put());
    ULONG written = 0;
    if (SUCCEEDED(hr) && !content.empty())
        hr = stream->Write(content.data(), static_cast<ULONG>(content.size()), &written);
    return hr;
}

[[nodiscard]] inline HRESULT ReadAll(IStream& stream, Bytes* content)
{
    content->clear();
    Bytes part(10000);
    for (;;) {
        ULONG read = 0;
        const HRESULT hr = stream.Read(part.data(), static_cast<ULONG>(part.size()), &read);
        if (FAILED(hr))
            return hr;
        content->insert(content->end(), part.begin(), part.begin() + read);
        if (read < part.size())
            return S_OK;
    }
}

[[nodiscard]] inline HRESULT ReadStream(IStorage& storage, const std::string& name, Bytes* content)
{
    ComPtr<IStream> stream;
    const HRESULT hr = storage.OpenStream(Wide(name).c_str(), nullptr, kRead, 0, stream.Put());
    return FAILED(hr) ? hr : ReadAll(*stream, content);
}

// Opens the storages of a path one through the other, and keeps all of them open while `use` (IStorage& ->
// HRESULT) works with the last one.
template <class Use>
[[nodiscard]] HRESULT InStorage(IStorage& root, const std::string& path, const Use& use)
{
    if (path.empty())
        return use(root);
    const std::size_t end = std::min(path.find('/'), path.size());
    ComPtr<IStorage> next;
    const HRESULT hr =
        root.OpenStorage(FromUtf8(path.substr(0, end)).c_str(), nullptr, kOpen, nullptr, 0, next.Put());
    return FAILED(hr) ? hr : InStorage(*next, path.substr(std::min(end + 1, path.size())), use);
}

[[nodiscard]] inline HRESULT WriteAt(IStream& stream, std::size_t offset, const Bytes& content)
{
    LARGE_INTEGER move;
    ULONG written = 0;
    move.QuadPart = static_cast<LONGLONG>(offset);
    const HRESULT hr = stream.Seek(move, STREAM_SEEK_SET, nullptr);
    return FAILED(hr) ? hr : stream.Write(content.data(), static_cast<ULONG>(content.size()), &written);
}

// All that a storage holds: paths in UTF-8 with '/' between the names; a storage has no content.
using Tree = std::map<std::string, std::optional<Bytes>>;

[[nodiscard]] inline HRESULT Walk(IStorage& storage, const std::string& prefix, Tree* tree)
{
    ComPtr<IEnumSTATSTG> elements;
    HRESULT hr = storage.EnumElements(0, nullptr, 0, elements.Put());
    if (FAILED(hr))
        return hr;
    HRESULT worst = S_OK;
    for (;;) {
        STATSTG stat{};
        hr = elements->Next(1, &stat, nullptr);
        if (hr != S_OK)
            return FAILED(hr) ? hr : worst;
        const OleString name = stat.pwcsName;
        CoTaskMemFree(stat.pwcsName);
        const std::string path = prefix + ToUtf8(name);
        if (stat.type == STGTY_STREAM) {
            ComPtr<IStream> stream;
            Bytes content;
            hr = storage.OpenStream(name.c_str(), nullptr, kRead, 0, stream.Put());
            if (SUCCEEDED(hr))
                hr = ReadAll(*stream, &content);
            if (SUCCEEDED(hr))
                (*tree)[path] = content;
        } else {
            ComPtr<IStorage> child;
            (*tree)[path] = std::nullopt;
            hr = storage.OpenStorage(name.c_str(), nullptr, kRead, nullptr, 0, child.Put());
            if (SUCCEEDED(hr))
                hr = Walk(*child, path + "/", tree);
        }
        if (FAILED(hr))
            worst = hr;
    }
}

// A directory for the test that makes it; gone with it.
class ScratchDirectory {
public:
    ScratchDirectory() : path_(quorvane::test::MakeTestDirectory()) {}
    ScratchDirectory(const ScratchDirectory&) = delete;
    ScratchDirectory& operator=(const ScratchDirectory&) = delete;
    ~ScratchDirectory()
    {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    std::string File(const std::string& name) const { return (path_ / name).string(); }

private:
    std::filesystem::path path_;
};

}  // namespace quorvane::cfb::test

#endif  // QUORVANE_PLATFORM_CFB_TESTING_TEST_SUPPORT_H_
