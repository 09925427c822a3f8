// host/exchange.h: the directory through which members hand packages to each other. docs/exchange.md tells
// it.
//
//     EXCHANGE/<member>/<sender>~<instance>/<sequence, 20 digits>.qvt
//
// A file under its final name is whole and never changes; what is being written ends in ".part". The sender's
// sequence numbers to a member rise by one, and the receiver takes files in their order and removes them.
#ifndef QUORVANE_HOST_EXCHANGE_H_
#define QUORVANE_HOST_EXCHANGE_H_

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "host/mailbox.h"

namespace quorvane::host {

// A package that lies in the exchange for this mailbox.
struct IncomingPackage {
    std::string sender;  // "<sender>~<instance>"
    std::string member;  // the sender's name alone
    std::uint64_t sequence = 0;
    std::filesystem::path path;
};

// One mailbox's view of an exchange. Methods throw a HostError when the exchange can't be used; they may be
// called again when it has come back. One thread at a time.
class Exchange {
public:
    Exchange(std::filesystem::path directory, const Mailbox& mailbox);

    // Whether the directory is there. No error.
    bool IsReachable() const noexcept;

    // Puts a copy of `package` there for `member`. A file that is there under that number already is the same
    // package from before a kill, and stays.
    void Deliver(const std::string& member, std::uint64_t sequence,
                 const std::filesystem::path& package) const;

    // What lies there for this mailbox, per sender in the order of sending.
    std::vector<IncomingPackage> Incoming() const;

    // Removes a package that was taken.
    void Remove(const IncomingPackage& package) const;

private:
    std::filesystem::path directory_;
    std::string self_;      // this mailbox's name
    std::string senderId_;  // with its instance
};

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_EXCHANGE_H_
