#include "host/exchange/member_name.h"

#include <algorithm>

namespace quorvane::host {

bool IsMemberName(std::string_view name) noexcept
{
    const auto allowed = [](unsigned char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' ||
               c == '-' || c == '_' || c == '@';
    };
    return !name.empty() && name.size() <= kLongestMemberName && name[0] != '.' &&
           std::all_of(name.begin(), name.end(), allowed);
}

}  // namespace quorvane::host
