// host/exchange/member_name.h: the names under which members know each other.
#ifndef QUORVANE_HOST_EXCHANGE_MEMBER_NAME_H_
#define QUORVANE_HOST_EXCHANGE_MEMBER_NAME_H_

#include <cstddef>
#include <string_view>

namespace quorvane::host {

// A member's name becomes part of paths: letters, digits, '.', '-', '_' and '@', not beginning with a dot,
// at most 64 bytes.
inline constexpr std::size_t kLongestMemberName = 64;
bool IsMemberName(std::string_view name) noexcept;

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_EXCHANGE_MEMBER_NAME_H_
