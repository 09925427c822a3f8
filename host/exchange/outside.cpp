#include "host/exchange/outside.h"

#include <system_error>

#include "host/exchange/error.h"

namespace quorvane::host::exchange {

void CheckRoom(std::uint64_t size, const std::filesystem::path& target, std::uint64_t limit,
               std::uint64_t spare)
{
    const std::string shown = target.string();
    if (size > limit)
        Refuse("what would become '" + shown + "' has " + std::to_string(size) + " bytes, more than " +
               std::to_string(limit));
    std::error_code error;
    const std::filesystem::space_info space = std::filesystem::space(target.parent_path(), error);
    if (error)
        FailForNow("cannot write '" + shown + "': " + error.message());
    if (space.available < size || space.available - size < spare)
        FailForNow("cannot write '" + shown + "': the disk would be full");
}

}  // namespace quorvane::host::exchange
