#include "platform/cfb/testing/file_faults.h"

namespace quorvane::cfb::test {

bool FileFaults::Exist() noexcept
{
    return false;
}

void FileFaults::RefuseWrite(const std::string&, std::size_t, bool) noexcept {}
void FileFaults::RefuseRead(const std::string&, std::size_t) noexcept {}
void FileFaults::DieAtWrite(std::size_t) noexcept {}
bool FileFaults::HasRefused() noexcept
{
    return false;
}
void FileFaults::Stop() noexcept {}
std::uint64_t FileFaults::Calls() noexcept
{
    return 0;
}
std::uint64_t FileFaults::Moved() noexcept
{
    return 0;
}

}  // namespace quorvane::cfb::test
