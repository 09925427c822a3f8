// persist/hash_reader.h: reads the strings of a hash file one after the other.
#ifndef QUORVANE_ENGINE_PERSIST_HASH_READER_H_
#define QUORVANE_ENGINE_PERSIST_HASH_READER_H_

#include <cstdint>
#include <string>

#include "platform/file/file.h"

namespace quorvane {

class HashReader {
public:
    explicit HashReader(File& file) noexcept : file_(file) {}

    enum class Kind {
        Text,
        Null,
        Damaged,  // the end of the file, or what can't be a string: Code() tells; the position stays
        Failed,   // the file can't be read: Code() tells
    };

    // Reads the string at the position and moves behind it. `packed` is set for Text and Null. Throws
    // std::bad_alloc.
    Kind Read(std::string& packed);

    // E_FAIL or E_ACCESSDENIED (too long) for Damaged; the file's failure for Failed.
    HRESULT Code() const noexcept { return code_; }
    // Where the next string begins.
    std::uint64_t Offset() const noexcept { return offset_; }
    // Whether a text had an odd number of bytes, the last of which was dropped.
    bool SawOddText() const noexcept { return sawOddText_; }

private:
    Kind Damaged(HRESULT code) noexcept;
    // The bytes at the position, `count` or fewer at the end of the file. Valid until the next call.
    HRESULT Peek(size_t count, const char*& bytes, size_t& available);

    File& file_;
    std::uint64_t offset_ = 0;
    std::uint64_t bufferOffset_ = 0;
    std::string buffer_;
    HRESULT code_ = S_OK;
    bool sawOddText_ = false;
};

}  // namespace quorvane

#endif  // QUORVANE_ENGINE_PERSIST_HASH_READER_H_
