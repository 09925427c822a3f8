// host/exchange/wire.h: numbers and bytes as they stand in the files of the exchange: little-endian, nothing
// between them.
#ifndef QUORVANE_HOST_EXCHANGE_WIRE_H_
#define QUORVANE_HOST_EXCHANGE_WIRE_H_

#include <algorithm>
#include <array>
#include <concepts>
#include <cstddef>
#include <string>
#include <string_view>

#include "host/exchange/error.h"

namespace quorvane::host::exchange {

class WireWriter {
public:
    template <std::unsigned_integral Number>
    WireWriter& Put(Number number)
    {
        for (std::size_t byte = 0; byte < sizeof(Number); ++byte)
            bytes_ += static_cast<char>(number >> (8 * byte) & 0xFF);
        return *this;
    }
    template <std::size_t Size>
    WireWriter& Put(const std::array<unsigned char, Size>& bytes)
    {
        bytes_.append(reinterpret_cast<const char*>(bytes.data()), Size);
        return *this;
    }
    WireWriter& Put(std::string_view bytes)
    {
        bytes_ += bytes;
        return *this;
    }

    const std::string& Bytes() const noexcept { return bytes_; }

private:
    std::string bytes_;
};

// Reads what others wrote. Each method refuses (Error) to read beyond the end.
class WireReader {
public:
    // what: names the thing that is read, for the error's line. Both must outlive the reader.
    WireReader(std::string_view bytes, std::string_view what) noexcept : rest_(bytes), what_(what) {}

    template <std::unsigned_integral Number>
    Number Get()
    {
        Number number = 0;
        const std::string_view bytes = Take(sizeof(Number));
        for (std::size_t byte = 0; byte < sizeof(Number); ++byte)
            number |= static_cast<Number>(static_cast<Number>(static_cast<unsigned char>(bytes[byte]))
                                          << (8 * byte));
        return number;
    }
    template <std::size_t Size>
    std::array<unsigned char, Size> GetBytes()
    {
        std::array<unsigned char, Size> bytes;
        const std::string_view taken = Take(Size);
        std::copy(taken.begin(), taken.end(), bytes.begin());
        return bytes;
    }
    std::string_view Take(std::size_t size)
    {
        if (size > rest_.size())
            Refuse(std::string(what_) + " is cut short");
        const std::string_view taken = rest_.substr(0, size);
        rest_.remove_prefix(size);
        return taken;
    }

    std::size_t Left() const noexcept { return rest_.size(); }
    // Refuses what has bytes left over.
    void End() const
    {
        if (!rest_.empty())
            Refuse(std::string(what_) + " has bytes behind its end");
    }

private:
    std::string_view rest_;
    std::string_view what_;
};

}  // namespace quorvane::host::exchange

#endif  // QUORVANE_HOST_EXCHANGE_WIRE_H_
