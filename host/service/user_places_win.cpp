#include <cstdlib>

#include "host/base/errors.h"
#include "host/service/user_places.h"
#include "quorvane3/com.h"

namespace quorvane::host {

std::optional<std::string> UserVariable(const std::string& name)
{
    const wchar_t* const value = _wgetenv(FromUtf8(name).c_str());
    return value ? std::optional(ToUtf8(value)) : std::nullopt;
}

UserPlaces FindUserPlaces()
{
    UserPlaces places;
    const wchar_t* const home = _wgetenv(L"USERPROFILE");
    if (!home)
        throw HostError("cannot find the user's directory: USERPROFILE isn't set");
    places.home = home;
    places.name = UserVariable("USERNAME").value_or("");
    return places;
}

}  // namespace quorvane::host
