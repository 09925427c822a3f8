// host/deflate/deflate.h: bytes in one piece, made smaller and made again, in zlib's format (RFC 1950).
#ifndef QUORVANE_HOST_DEFLATE_DEFLATE_H_
#define QUORVANE_HOST_DEFLATE_DEFLATE_H_

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace quorvane::host {

// The deflated bytes, of what can't be made smaller a few more than there were. Throws std::bad_alloc. Any
// thread.
std::string Deflate(std::string_view bytes);

// Back again; empty when it isn't deflated, or longer than `limit`. Throws std::bad_alloc. Any thread.
std::optional<std::string> Inflate(std::string_view deflated, std::size_t limit);

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_DEFLATE_DEFLATE_H_
