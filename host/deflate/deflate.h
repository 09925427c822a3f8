// host/exchange/deflate.h: one chunk of content, made smaller where that helps.
#ifndef QUORVANE_HOST_EXCHANGE_DEFLATE_H_
#define QUORVANE_HOST_EXCHANGE_DEFLATE_H_

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace quorvane::host::exchange {

// The deflated bytes (zlib's format); empty when they wouldn't be fewer.
std::optional<std::string> Deflate(std::string_view bytes);

// Back again; empty when it isn't deflated, or longer than `limit`.
std::optional<std::string> Inflate(std::string_view deflated, std::size_t limit);

}  // namespace quorvane::host::exchange

#endif  // QUORVANE_HOST_EXCHANGE_DEFLATE_H_
