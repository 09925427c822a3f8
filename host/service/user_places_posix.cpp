#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <system_error>

#include "host/base/errors.h"
#include "host/service/user_places.h"

namespace quorvane::host {

std::optional<std::string> UserVariable(const std::string& name)
{
    const char* value = std::getenv(("QUORVANE_USER_" + name).c_str());
    if (value && *value == '\0')
        return std::nullopt;  // it wasn't set
    if (!value)
        value = std::getenv(name.c_str());
    return value ? std::optional<std::string>(value) : std::nullopt;
}

UserPlaces FindUserPlaces()
{
    UserPlaces places;
    const passwd* const user = getpwuid(getuid());
    const auto home = UserVariable("HOME");
    places.home = home && !home->empty() ? *home : user && user->pw_dir ? user->pw_dir : "";
    if (!places.home.is_absolute())
        throw HostError("cannot find the user's directory: HOME isn't set");
    places.name = user && user->pw_name ? user->pw_name : "";
    const auto config = UserVariable("XDG_CONFIG_HOME");
    const std::filesystem::path settings =
        config && !config->empty() ? std::filesystem::path(*config) : places.home / ".config";
    places.units = settings / "systemd" / "user";
    std::error_code error;
    places.program = std::filesystem::read_symlink("/proc/self/exe", error);
    return places;
}

}  // namespace quorvane::host
