#include "host/mail/mail_bytes.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>

#include "host/mail/mail_check.h"

namespace quorvane {
namespace {

constexpr std::size_t kWriteBlock = std::size_t{256} << 10;
constexpr std::size_t kCopiedBlock = std::size_t{256} << 10;
constexpr std::size_t kHeaderBlock = std::size_t{64} << 10;

ULARGE_INTEGER OffsetOf(std::uint64_t offset) noexcept
{
    ULARGE_INTEGER place;
    place.QuadPart = offset;
    return place;
}

}  // namespace

MailBytes::MailBytes(MailBytes&& other) noexcept
    : memory_(std::move(other.memory_)),
      file_(std::move(other.file_)),
      size_(other.size_),
      written_(other.written_),
      result_(other.result_)
{
    other.Clear();
}

MailBytes& MailBytes::operator=(MailBytes&& other) noexcept
{
    if (this == &other)
        return *this;
    memory_ = std::move(other.memory_);
    file_ = std::move(other.file_);
    size_ = other.size_;
    written_ = other.written_;
    result_ = other.result_;
    other.Clear();
    return *this;
}

void MailBytes::Clear() noexcept
{
    memory_.clear();
    file_.Reset();
    size_ = written_ = 0;
    result_ = S_OK;
}

void MailBytes::Append(std::string_view bytes)
{
    if (FAILED(result_))
        return;
    memory_.append(bytes);
    size_ += bytes.size();
    if (IsInMemory() && memory_.size() > kMemoryLimit)
        Spill();
    else if (!IsInMemory() && memory_.size() >= kWriteBlock)
        WriteMemory();
}

void MailBytes::AppendFrom(const MailBytes& other, std::uint64_t begin, std::uint64_t end)
{
    end = std::min(end, other.Size());
    std::string block;
    for (std::uint64_t at = begin; SUCCEEDED(result_) && at < end; at += block.size()) {
        block.resize(static_cast<std::size_t>(std::min<std::uint64_t>(kCopiedBlock, end - at)));
        block.resize(other.Read(at, block.data(), block.size()));
        if (block.empty())
            break;
        Append(block);
    }
    if (SUCCEEDED(result_))
        result_ = other.Result();
}

void MailBytes::Spill()
{
    result_ = CreateILockBytesOnHGlobal(nullptr, TRUE, file_.Put());
    if (SUCCEEDED(result_))
        WriteMemory();
    memory_.shrink_to_fit();
}

void MailBytes::WriteMemory()
{
    for (std::string_view rest = memory_; !rest.empty();) {
        ULONG written = 0;
        result_ = file_->WriteAt(OffsetOf(written_), rest.data(), static_cast<ULONG>(rest.size()), &written);
        if (SUCCEEDED(result_) && written == 0)
            result_ = STG_E_MEDIUMFULL;
        if (FAILED(result_))
            return;
        written_ += written;
        rest.remove_prefix(written);
    }
    memory_.clear();
}

std::size_t MailBytes::Read(std::uint64_t offset, char* buffer, std::size_t count) const
{
    std::size_t done = 0;
    while (SUCCEEDED(result_) && done < count && offset + done < written_) {
        const auto wanted =
            static_cast<ULONG>(std::min<std::uint64_t>(count - done, written_ - offset - done));
        ULONG read = 0;
        result_ = file_->ReadAt(OffsetOf(offset + done), buffer + done, wanted, &read);
        if (SUCCEEDED(result_) && read == 0)
            result_ = STG_E_READFAULT;
        done += read;
    }
    if (FAILED(result_))
        return 0;
    if (done < count && offset + done < size_) {
        const auto from = static_cast<std::size_t>(offset + done - written_);
        const std::size_t part = std::min(count - done, memory_.size() - from);
        std::memcpy(buffer + done, memory_.data() + from, part);
        done += part;
    }
    return done;
}

// Each byte is looked at once, however long lines are and however late the blank one comes.
std::string MailBytes::Header() const
{
    std::string header;
    std::array<char, kHeaderBlock> piece;
    std::size_t line = 0;  // where the line begins whose end is looked for
    while (const std::size_t got = Read(header.size(), piece.data(), piece.size())) {
        std::size_t looked = header.size();
        header.append(piece.data(), got);
        for (std::size_t end; (end = header.find('\n', looked)) != std::string::npos; line = looked = end + 1)
            if (IsBlankLine(std::string_view(header).substr(line, end + 1 - line)))
                return header.substr(0, line);
    }
    return IsBlankLine(std::string_view(header).substr(line)) ? header.substr(0, line) : header;
}

std::string MailBytes::Text() const
{
    std::string text(static_cast<std::size_t>(size_), '\0');
    text.resize(Read(0, text.data(), text.size()));
    return text;
}

}  // namespace quorvane
