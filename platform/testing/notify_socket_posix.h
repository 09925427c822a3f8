// platform/testing/notify_socket_posix.h: the socket that a service manager listens on.
#ifndef QUORVANE_PLATFORM_TESTING_NOTIFY_SOCKET_POSIX_H_
#define QUORVANE_PLATFORM_TESTING_NOTIFY_SOCKET_POSIX_H_

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

namespace quorvane::test {

// A datagram socket whose path stands in NOTIFY_SOCKET, with a watchdog of so long (0: none), as long as this
// lives.
class NotifySocket {
public:
    NotifySocket(const std::filesystem::path& path, std::chrono::microseconds watchdog)
        : socket_(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
        if (socket_ < 0 || bind(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
            throw std::runtime_error("no socket at " + path.string());
        setenv("NOTIFY_SOCKET", path.c_str(), 1);
        if (watchdog.count() > 0)
            setenv("WATCHDOG_USEC", std::to_string(watchdog.count()).c_str(), 1);
    }
    NotifySocket(const NotifySocket&) = delete;
    NotifySocket& operator=(const NotifySocket&) = delete;
    ~NotifySocket()
    {
        Hide();
        close(socket_);
    }

    // Processes that begin from now on don't know of it.
    static void Hide()
    {
        unsetenv("NOTIFY_SOCKET");
        unsetenv("WATCHDOG_USEC");
    }

    // The next that was told; empty where nothing was for so long.
    std::string Next(std::chrono::milliseconds time)
    {
        pollfd heard{socket_, POLLIN, 0};
        if (poll(&heard, 1, static_cast<int>(time.count())) <= 0)
            return {};
        char text[4096];
        const ssize_t size = recv(socket_, text, sizeof text, 0);
        return size > 0 ? std::string(text, static_cast<std::size_t>(size)) : std::string();
    }
    // What was told until `last` was, that one included; where it isn't within the time, an empty text is the
    // last.
    std::vector<std::string> Until(const std::string& last,
                                   std::chrono::milliseconds time = std::chrono::seconds(30))
    {
        std::vector<std::string> told;
        const auto deadline = std::chrono::steady_clock::now() + time;
        do {
            const auto left =
                std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
            told.push_back(left.count() > 0 ? Next(left) : std::string());
        } while (!told.back().empty() && told.back() != last);
        return told;
    }

private:
    int socket_;
};

}  // namespace quorvane::test

#endif  // QUORVANE_PLATFORM_TESTING_NOTIFY_SOCKET_POSIX_H_
