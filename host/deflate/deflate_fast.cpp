#include <libdeflate.h>

#include <memory>
#include <new>

#include "host/deflate/deflate.h"

namespace quorvane::host {

namespace {

struct Free {
    void operator()(libdeflate_compressor* one) const noexcept { libdeflate_free_compressor(one); }
    void operator()(libdeflate_decompressor* one) const noexcept { libdeflate_free_decompressor(one); }
};

// One for each thread, for as long as it lives: making one costs more than deflating a small mail.
libdeflate_compressor& Compressor()
{
    // The slower levels take half as much time again, and save one percent.
    constexpr int kLevel = 1;
    thread_local const std::unique_ptr<libdeflate_compressor, Free> own(libdeflate_alloc_compressor(kLevel));
    if (!own)
        throw std::bad_alloc();
    return *own;
}

libdeflate_decompressor& Decompressor()
{
    thread_local const std::unique_ptr<libdeflate_decompressor, Free> own(libdeflate_alloc_decompressor());
    if (!own)
        throw std::bad_alloc();
    return *own;
}

}  // namespace

std::string Deflate(std::string_view bytes)
{
    libdeflate_compressor& compressor = Compressor();
    std::string deflated(libdeflate_zlib_compress_bound(&compressor, bytes.size()), '\0');
    deflated.resize(
        libdeflate_zlib_compress(&compressor, bytes.data(), bytes.size(), deflated.data(), deflated.size()));
    return deflated;
}

std::optional<std::string> Inflate(std::string_view deflated, std::size_t limit)
{
    std::string bytes(limit, '\0');
    std::size_t taken = 0;
    std::size_t size = 0;
    if (libdeflate_zlib_decompress_ex(&Decompressor(), deflated.data(), deflated.size(), bytes.data(), limit,
                                      &taken, &size) != LIBDEFLATE_SUCCESS ||
        taken != deflated.size())
        return std::nullopt;
    bytes.resize(size);
    return bytes;
}

}  // namespace quorvane::host
