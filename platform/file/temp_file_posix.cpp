#include "platform/file/temp_file.h"

#include <fcntl.h>
#include <sys/random.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <new>

#include "platform/file/path.h"
#include "platform/file/posix_file.h"

namespace quorvane {

namespace {

constexpr unsigned kNumbers = 0x10000;

// Where the search for a free number begins, so that processes rarely meet.
std::uint16_t FirstNumber() noexcept
{
    std::uint16_t number = 0;
    const ssize_t got = getrandom(&number, sizeof(number), GRND_NONBLOCK);
    return got == sizeof(number) ? number : static_cast<std::uint16_t>(getpid());
}

std::string NumberedName(std::string_view prefix, unsigned number)
{
    char suffix[16];
    std::snprintf(suffix, sizeof(suffix), "%04X.tmp", number & (kNumbers - 1));
    return std::string(prefix) + suffix;
}

}  // namespace

HRESULT MakeTempFileName(std::string_view directory, std::string_view prefix, std::string& path) noexcept
{
    constexpr size_t kPrefixLength = 3;
    if (!IsPlainFileName(prefix))
        return HRESULT_FROM_WIN32(ERROR_INVALID_PARAMETER);
    try {
        const std::string_view head = prefix.substr(0, kPrefixLength);
        const unsigned first = FirstNumber();
        for (unsigned i = 0; i < kNumbers; ++i) {
            std::string candidate = JoinPath(directory, NumberedName(head, first + i));
            if (posix::HasZero(candidate))
                return HRESULT_FROM_WIN32(ERROR_INVALID_NAME);
            const int file = open(candidate.c_str(), O_CREAT | O_EXCL | O_RDWR | O_CLOEXEC, 0600);
            if (file >= 0) {
                close(file);
                path = std::move(candidate);
                return S_OK;
            }
            if (errno != EEXIST && errno != EINTR)
                return posix::PathError(candidate);
        }
        return HRESULT_FROM_WIN32(ERROR_FILE_EXISTS);
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

}  // namespace quorvane
