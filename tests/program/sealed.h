// tests/program/sealed.h: what lies in an exchange, made and opened by a test with keys that it may have.
#ifndef QUORVANE_TESTS_PROGRAM_SEALED_H_
#define QUORVANE_TESTS_PROGRAM_SEALED_H_

#include <filesystem>
#include <optional>
#include <string>

#include "host/exchange/place.h"
#include "host/exchange/seal.h"

namespace quorvane::test {

// All of a file; empty when it isn't there.
std::string BytesOf(const std::filesystem::path& path);

// The epoch that a package that lies in an exchange says it is of.
host::exchange::Epoch EpochOf(const std::filesystem::path& package);

// The keys of a mailbox's device.
host::exchange::DeviceKeys KeysOf(const std::filesystem::path& mailbox);

// The content of a package that lies in an exchange; empty when it isn't for this receiver.
std::optional<std::string> Open(const std::filesystem::path& package,
                                const host::exchange::DeviceKeys& receiver);

// A device of a test's own, or of a mailbox whose keys it uses, and what it lays into an exchange.
class TestDevice {
public:
    TestDevice(std::filesystem::path exchange, host::exchange::DeviceKeys keys);

    const host::exchange::DeviceKeys& Keys() const noexcept { return keys_; }
    std::filesystem::path Home() const;
    std::filesystem::path PackagePath(std::uint64_t sequence) const;

    void LayCard(const std::string& name) const;
    // A package for one receiver.
    std::string Sealed(std::uint64_t sequence, std::uint64_t previous,
                       const host::exchange::DeviceKeys& receiver, const std::string& content) const;
    void Lay(std::uint64_t sequence, const std::string& package) const;

    host::exchange::Epoch epoch{1, 2, 3};
    host::exchange::DeviceId sender;  // whom its packages name; itself at first
    host::exchange::PackageKind kind = host::exchange::PackageKind::kItems;

private:
    std::filesystem::path exchange_;
    host::exchange::DeviceKeys keys_;
};

}  // namespace quorvane::test

#endif  // QUORVANE_TESTS_PROGRAM_SEALED_H_
