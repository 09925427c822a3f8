// host/sharing/since.h: items from a date on.
#ifndef QUORVANE_HOST_SHARING_SINCE_H_
#define QUORVANE_HOST_SHARING_SINCE_H_

#include <cstdint>
#include <optional>
#include <string_view>

#include "quorvane3/callbacks.h"

namespace quorvane::host {

// A date, "2026-11-21", or a time, "2026-11-21T06:16:47Z", as a FILETIME, in UTC. Nothing when the text is
// neither.
std::optional<std::uint64_t> ParseTime(std::string_view text);

// Leaves the items of a table that were sent at that time or later; of those that were never sent, the ones
// that were changed then or later.
class SinceRestriction final : public RestrictHandler {
public:
    explicit SinceRestriction(std::uint64_t time) noexcept : time_(time) {}
    HRESULT RestrictTable(IDispatch* table) override;

private:
    const std::uint64_t time_;
};

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_SHARING_SINCE_H_
