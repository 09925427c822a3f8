// host/exchange/byte_source.h: bytes that lie somewhere, and where bytes go.
#ifndef QUORVANE_HOST_EXCHANGE_BYTE_SOURCE_H_
#define QUORVANE_HOST_EXCHANGE_BYTE_SOURCE_H_

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <string>
#include <string_view>

#include "host/exchange/error.h"

namespace quorvane::host::exchange {

class ByteSource {
public:
    virtual ~ByteSource() = default;
    virtual std::uint64_t Size() const = 0;
    // Throws an Error when that many bytes aren't there.
    virtual void ReadAt(std::uint64_t at, char* buffer, std::size_t size) const = 0;
};

// Those of a text, which outlives this.
class TextSource final : public ByteSource {
public:
    explicit TextSource(std::string_view text) noexcept : text_(text) {}
    std::uint64_t Size() const override { return text_.size(); }
    void ReadAt(std::uint64_t at, char* buffer, std::size_t size) const override
    {
        if (at > text_.size() || size > text_.size() - at)
            FailForNow("a text has no place " + std::to_string(at));
        std::memcpy(buffer, text_.data() + at, size);
    }

private:
    std::string_view text_;
};

using ByteSink = std::function<void(std::string_view)>;

}  // namespace quorvane::host::exchange

#endif  // QUORVANE_HOST_EXCHANGE_BYTE_SOURCE_H_
