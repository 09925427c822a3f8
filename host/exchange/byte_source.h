// host/exchange/byte_source.h: bytes that lie somewhere, and where bytes go.
#ifndef QUORVANE_HOST_EXCHANGE_BYTE_SOURCE_H_
#define QUORVANE_HOST_EXCHANGE_BYTE_SOURCE_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string_view>

namespace quorvane::host::exchange {

class ByteSource {
public:
    virtual ~ByteSource() = default;
    virtual std::uint64_t Size() const = 0;
    // Throws an Error when that many bytes aren't there.
    virtual void ReadAt(std::uint64_t at, char* buffer, std::size_t size) const = 0;
};

using ByteSink = std::function<void(std::string_view)>;

}  // namespace quorvane::host::exchange

#endif  // QUORVANE_HOST_EXCHANGE_BYTE_SOURCE_H_
