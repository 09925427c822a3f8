// host/mail/mail_bytes.h: the bytes of one mail, of any size.
#ifndef QUORVANE_HOST_MAIL_MAIL_BYTES_H_
#define QUORVANE_HOST_MAIL_MAIL_BYTES_H_

#include <cstdint>
#include <string>
#include <string_view>

#include "quorvane3/com.h"
#include "quorvane3/storage.h"

namespace quorvane {

// Bytes that are appended and then read: in memory while they are few, beyond that in a temporary file.
// Moves, and isn't copied. One thread at a time. Throws std::bad_alloc alone.
class MailBytes {
public:
    static constexpr std::size_t kMemoryLimit = std::size_t{1} << 20;

    MailBytes() = default;
    MailBytes(std::string_view bytes) { Append(bytes); }
    MailBytes(const std::string& bytes) : MailBytes(std::string_view(bytes)) {}
    MailBytes(const char* bytes) : MailBytes(std::string_view(bytes)) {}
    MailBytes(MailBytes&& other) noexcept;
    MailBytes& operator=(MailBytes&& other) noexcept;

    // After a failure the bytes are of no use; Result tells.
    void Append(std::string_view bytes);
    // The same with what `other` holds from `begin` to `end` or to its last byte, in pieces. What can't be
    // read there is a failure of this one too.
    void AppendFrom(const MailBytes& other, std::uint64_t begin = 0, std::uint64_t end = UINT64_MAX);
    void Clear() noexcept;

    // S_OK, or why bytes couldn't be written or read: STG_E_MEDIUMFULL and others.
    [[nodiscard]] HRESULT Result() const noexcept { return result_; }

    [[nodiscard]] std::uint64_t Size() const noexcept { return size_; }
    [[nodiscard]] bool IsInMemory() const noexcept { return !file_; }
    // All bytes, while they are in memory; of others the last few.
    [[nodiscard]] std::string_view Memory() const noexcept { return memory_; }

    // Reads up to `count` bytes from `offset` on; gives how many there were: fewer only at the end, and 0
    // after a failure, which Result tells.
    [[nodiscard]] std::size_t Read(std::uint64_t offset, char* buffer, std::size_t count) const;

    // The header block at the beginning, without the blank line that ends it.
    [[nodiscard]] std::string Header() const;
    // All bytes in memory: for those that are few.
    [[nodiscard]] std::string Text() const;

private:
    void Spill();
    void WriteMemory();

    std::string memory_;  // all bytes; once there is a file, those that aren't in it yet
    ComPtr<ILockBytes> file_;
    std::uint64_t size_ = 0;
    std::uint64_t written_ = 0;  // how much is in the file
    mutable HRESULT result_ = S_OK;
};

}  // namespace quorvane

#endif  // QUORVANE_HOST_MAIL_MAIL_BYTES_H_
