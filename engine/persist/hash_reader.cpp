#include "engine/persist/hash_reader.h"

#include <algorithm>

#include "engine/persist/hash_text.h"

namespace quorvane {
namespace {

constexpr size_t kBlock = 64 * 1024;

}  // namespace

HashReader::Kind HashReader::Read(std::string& packed)
{
    const char* bytes = nullptr;
    size_t available = 0;
    code_ = Peek(kHashLengthSize, bytes, available);
    if (FAILED(code_))
        return Kind::Failed;
    if (available < kHashLengthSize)
        return Damaged(E_FAIL);
    const std::uint32_t size = ReadLittleEndian32(bytes);
    if (size == 0) {
        offset_ += kHashLengthSize;
        packed = kNullHashText;
        return Kind::Null;
    }
    if (size < kHashTerminatorSize)
        return Damaged(E_FAIL);
    if (size > kMaxHashString)
        return Damaged(E_ACCESSDENIED);

    const size_t whole = kHashLengthSize + size;
    code_ = Peek(whole, bytes, available);
    if (FAILED(code_))
        return Kind::Failed;
    if (available < whole || bytes[whole - 2] != 0 || bytes[whole - 1] != 0)
        return Damaged(E_FAIL);
    const size_t textBytes = size - kHashTerminatorSize;
    sawOddText_ = sawOddText_ || textBytes % 2 != 0;
    PackHashBytes(bytes + kHashLengthSize, textBytes / 2, packed);
    offset_ += whole;
    return Kind::Text;
}

HashReader::Kind HashReader::Damaged(HRESULT code) noexcept
{
    code_ = code;
    return Kind::Damaged;
}

HRESULT HashReader::Peek(size_t count, const char*& bytes, size_t& available)
{
    size_t start = static_cast<size_t>(offset_ - bufferOffset_);
    if (buffer_.size() < start + count) {
        buffer_.erase(0, std::min(start, buffer_.size()));
        bufferOffset_ = offset_;
        start = 0;
        const size_t kept = buffer_.size();
        buffer_.resize(std::max(count, kBlock));
        size_t read = 0;
        const HRESULT hr = file_.ReadAt(offset_ + kept, buffer_.data() + kept, buffer_.size() - kept, read);
        buffer_.resize(FAILED(hr) ? kept : kept + read);
        if (FAILED(hr))
            return hr;
    }
    bytes = buffer_.data() + start;
    available = buffer_.size() - start;
    return S_OK;
}

}  // namespace quorvane
