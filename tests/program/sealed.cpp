#include "tests/program/sealed.h"

#include <fstream>
#include <sstream>

#include "host/exchange/card.h"
#include "host/exchange/exchange_for_test.h"

namespace quorvane::test {

using namespace host::exchange;

std::string BytesOf(const std::filesystem::path& path)
{
    std::ifstream file(path, std::ios::binary);
    std::ostringstream bytes;
    bytes << file.rdbuf();
    return bytes.str();
}

Epoch EpochOf(const std::filesystem::path& package)
{
    const MemorySource source(BytesOf(package));
    return SealedPackage(source, package.string()).Label().epoch;
}

DeviceKeys KeysOf(const std::filesystem::path& mailbox)
{
    return DeviceKeys(BytesOf(mailbox / "device.key"));
}

std::optional<std::string> Open(const std::filesystem::path& package, const DeviceKeys& receiver)
{
    const MemorySource source(BytesOf(package));
    SealedPackage sealed(source, package.string());
    if (!sealed.PreviousFor(receiver.Id()))
        return std::nullopt;
    const Card sender =
        ReadCard(BytesOf(package.parent_path().parent_path() / "card"), sealed.Label().sender);
    sealed.Verify(sender.signing);
    std::string content;
    sealed.Unseal(receiver, [&](std::string_view bytes) { content += bytes; });
    return content;
}

TestDevice::TestDevice(std::filesystem::path exchange, DeviceKeys keys)
    : exchange_(std::move(exchange)), keys_(std::move(keys))
{
    sender = keys_.Id();
}

std::filesystem::path TestDevice::Home() const
{
    return exchange_ / TextOf(keys_.Id());
}

std::filesystem::path TestDevice::PackagePath(std::uint64_t sequence) const
{
    std::string name = std::to_string(sequence);
    name.insert(0, 20 - name.size(), '0');
    return Home() / "out" / (name + ".qvx");
}

void TestDevice::LayCard(const std::string& name) const
{
    Place(exchange_, keys_.Id()).Write(Place::Note::kCard, WriteCard(keys_, name, 1));
}

std::string TestDevice::Sealed(std::uint64_t sequence, std::uint64_t previous, const DeviceKeys& receiver,
                               const std::string& content) const
{
    std::string package;
    Seal(keys_, {sender, epoch, sequence, kind}, {{receiver.Id(), receiver.Sealing(), previous}},
         MemorySource(content), [&](std::string_view bytes) { package += bytes; });
    return package;
}

void TestDevice::Lay(std::uint64_t sequence, const std::string& package) const
{
    Place(exchange_, keys_.Id()).Put(sequence, MemorySource(package));
}

}  // namespace quorvane::test
