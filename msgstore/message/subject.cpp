#include "msgstore/message/subject.h"

#include <algorithm>

namespace quorvane {

std::size_t SubjectPrefixLength(OleStringView subject) noexcept
{
    constexpr std::size_t kLongestPrefix = 3;
    const std::size_t colon = subject.find(OLESTR(':'));
    if (colon == OleStringView::npos || colon == 0 || colon > kLongestPrefix || colon + 1 >= subject.size() ||
        subject[colon + 1] != OLESTR(' '))
        return 0;
    const auto isDigitOrSpace = [](OLECHAR unit) {
        return (unit >= OLESTR('0') && unit <= OLESTR('9')) || unit == OLESTR(' ');
    };
    return std::any_of(subject.begin(), subject.begin() + static_cast<std::ptrdiff_t>(colon), isDigitOrSpace)
               ? 0
               : colon + 2;
}

}  // namespace quorvane
