#include <climits>
#include <new>

#include "platform/com/bstr.h"

namespace quorvane {

std::string Narrow(OleStringView text)
{
    if (text.size() > INT_MAX)
        throw std::bad_alloc();
    const int length = static_cast<int>(text.size());
    const int needed = WideCharToMultiByte(CP_ACP, 0, text.data(), length, nullptr, 0, nullptr, nullptr);
    std::string result(static_cast<size_t>(needed), '\0');
    WideCharToMultiByte(CP_ACP, 0, text.data(), length, result.data(), needed, nullptr, nullptr);
    return result;
}

OleString Widen(std::string_view text)
{
    if (text.size() > INT_MAX)
        throw std::bad_alloc();
    const int length = static_cast<int>(text.size());
    const int needed = MultiByteToWideChar(CP_ACP, 0, text.data(), length, nullptr, 0);
    OleString result(static_cast<size_t>(needed), L'\0');
    MultiByteToWideChar(CP_ACP, 0, text.data(), length, result.data(), needed);
    return result;
}

}  // namespace quorvane
