#include <zlib.h>

#include <new>

#include "host/deflate/deflate.h"

namespace quorvane::host {

std::string Deflate(std::string_view bytes)
{
    // Mail is mostly small texts: what the slower levels save isn't worth their time.
    constexpr int kLevel = 3;
    uLongf size = compressBound(static_cast<uLong>(bytes.size()));
    std::string deflated(size, '\0');
    if (compress2(reinterpret_cast<Bytef*>(deflated.data()), &size,
                  reinterpret_cast<const Bytef*>(bytes.data()), static_cast<uLong>(bytes.size()),
                  kLevel) != Z_OK)
        throw std::bad_alloc();
    deflated.resize(size);
    return deflated;
}

std::optional<std::string> Inflate(std::string_view deflated, std::size_t limit)
{
    std::string bytes(limit, '\0');
    uLongf size = static_cast<uLongf>(limit);
    uLong taken = static_cast<uLong>(deflated.size());
    const int result = uncompress2(reinterpret_cast<Bytef*>(bytes.data()), &size,
                                   reinterpret_cast<const Bytef*>(deflated.data()), &taken);
    if (result == Z_MEM_ERROR)
        throw std::bad_alloc();
    if (result != Z_OK || taken != deflated.size())
        return std::nullopt;
    bytes.resize(size);
    return bytes;
}

}  // namespace quorvane::host
