// host/exchange/outside.h: directories and files that others may have laid there, or may change at any
// moment.
//
// They are opened without following a link, and without waiting for anybody (a pipe's other end, a device).
// What is open stays the same thing, whatever its name is given to meanwhile.
#ifndef QUORVANE_HOST_EXCHANGE_OUTSIDE_H_
#define QUORVANE_HOST_EXCHANGE_OUTSIDE_H_

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "host/exchange/byte_source.h"

namespace quorvane::host::exchange {

// Who else may read what is laid outside, where the system has modes: directories 0700, 0750 or 0755 and
// files 0600, 0640 or 0644, whatever the process's mask says. On Windows the directory's own rules hold.
enum class Readers { kNobody = 0, kGroup = 1, kEverybody = 2 };

// A handle of the system's, closed with its owner.
class OwnedHandle {
public:
    explicit OwnedHandle(std::intptr_t handle = kNone) noexcept : handle_(handle) {}
    OwnedHandle(OwnedHandle&& other) noexcept : handle_(std::exchange(other.handle_, kNone)) {}
    OwnedHandle& operator=(OwnedHandle&& other) noexcept
    {
        std::swap(handle_, other.handle_);
        return *this;
    }
    ~OwnedHandle();
    std::intptr_t Get() const noexcept { return handle_; }

private:
    static constexpr std::intptr_t kNone = -1;
    std::intptr_t handle_;
};

// A plain file. What is cut off while it is read is an Error (kPassing).
class OutsideFile final : public ByteSource {
public:
    OutsideFile(OwnedHandle handle, std::uint64_t size, std::string shown) noexcept
        : handle_(std::move(handle)), size_(size), shown_(std::move(shown))
    {}
    // As it was when the file was opened.
    std::uint64_t Size() const override { return size_; }
    void ReadAt(std::uint64_t at, char* buffer, std::size_t size) const override;

private:
    OwnedHandle handle_;
    std::uint64_t size_;
    std::string shown_;
};

// An open directory. Methods throw an Error: kRefused for what isn't a directory or a plain file, kPassing
// for what the system can't do just now. Names are single ones, UTF-8.
class OutsideDirectory {
public:
    // The directory that the user named: that one may be reached through links. Empty when there is none.
    static std::unique_ptr<OutsideDirectory> Open(const std::filesystem::path& directory);

    // One in it; empty when there is none.
    std::unique_ptr<OutsideDirectory> Sub(const std::string& name) const;
    // One in it, made when there is none, for its owner to write and `readers` to read. What the system hands
    // down from the directory that it lies in, such as its group, stays. One that was there is let to be read
    // by them too if it is this user's.
    std::unique_ptr<OutsideDirectory> MakeSub(const std::string& name, Readers readers) const;

    // Calls `visit` with the name of everything in it, in no order, as long as it answers true.
    void ForEachName(const std::function<bool(const std::string&)>& visit) const;

    // A file in it, to read; empty when there is none.
    std::unique_ptr<OutsideFile> OpenFile(const std::string& name) const;

    // Writes a file in full, on the disk when this returns, and in one step in place of what has the name;
    // for its owner to write and `readers` to read. Nothing else is written to, whatever lies at the name.
    void Replace(const std::string& name, const ByteSource& content, Readers readers) const;
    // Lets `readers` read the plain files in it, and nobody else.
    void LetRead(Readers readers) const;
    // No error if there is none.
    void Remove(const std::string& name) const;

    OutsideDirectory(OwnedHandle handle, std::filesystem::path path) noexcept
        : handle_(std::move(handle)), path_(std::move(path))
    {}

private:
    OwnedHandle handle_;
    std::filesystem::path path_;  // for errors; on Windows also to reach what is in it
};

// Copies what lies outside to a file of this mailbox's own, which nobody else can read or write.
//
// source  what is copied, as long as it was when it was opened.
// target  replaced in one step, or left as it is; its directory exists. Not flushed to the disk: it can be
// copied again. limit   the most bytes that are taken. spare   the bytes that the target's disk must have
// left after it.
//
// Throws an Error: kRefused when the source is larger than `limit`, kPassing when the disk would have less
// than `spare` bytes left, or the copy fails, of which nothing is left. Any thread, one a target.
void CopyIn(const ByteSource& source, const std::filesystem::path& target, std::uint64_t limit,
            std::uint64_t spare);

// The first thing that CopyIn does: throws its Errors about so many bytes, and copies nothing.
void CheckRoom(std::uint64_t size, const std::filesystem::path& target, std::uint64_t limit,
               std::uint64_t spare);

}  // namespace quorvane::host::exchange

#endif  // QUORVANE_HOST_EXCHANGE_OUTSIDE_H_
