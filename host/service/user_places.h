// host/service/user_places.h: what a system tells of the user and of the program that he runs.
#ifndef QUORVANE_HOST_SERVICE_USER_PLACES_H_
#define QUORVANE_HOST_SERVICE_USER_PLACES_H_

#include <filesystem>
#include <optional>
#include <string>

namespace quorvane::host {

// A variable of the user's environment as it is for him, whatever mailbox this process works on
// (host/mailbox/user_settings.h); nothing where it isn't set.
std::optional<std::string> UserVariable(const std::string& name);

struct UserPlaces {
    std::filesystem::path home;
    std::string name;               // he logs on under; may be empty
    std::filesystem::path units;    // where his own units of systemd lie; empty on Windows
    std::filesystem::path program;  // this one's file
};

// Throws a HostError where he has no home.
UserPlaces FindUserPlaces();

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_SERVICE_USER_PLACES_H_
