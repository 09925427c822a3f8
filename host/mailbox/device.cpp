#include "host/mailbox/device.h"

#include <algorithm>

#include "host/base/errors.h"
#include "host/base/files.h"
#include "host/base/system_file.h"
#include "host/exchange/error.h"

namespace quorvane::host {

namespace {

std::string_view BytesOf(const exchange::SecretBytes& secret) noexcept
{
    return {reinterpret_cast<const char*>(secret.data()), secret.size()};
}

constexpr std::size_t kSeedSize = 32;

}  // namespace

void DrawDeviceKeys(const std::filesystem::path& keyFile, Database& records)
{
    const exchange::DeviceKeys keys;
    WriteDurably(keyFile, BytesOf(keys.Seed()));
    Statement(records, "UPDATE mailbox SET device = ?, epoch = ?")
        .Bind(1, exchange::TextOf(keys.Id()))
        .Bind(2, TextOfEpoch(NewEpoch()))
        .Run();
}

exchange::DeviceKeys ReadDeviceKeys(const Mailbox& mailbox)
{
    const std::filesystem::path path = mailbox.KeyPath();
    const exchange::SecretBytes seed(kSeedSize);
    const SystemFile file(path, SystemFile::Use::kRead);
    std::size_t size = 0;
    while (size < kSeedSize) {
        const std::size_t count = file.Read(reinterpret_cast<char*>(seed.data()) + size, kSeedSize - size);
        if (count == 0)
            Fail("use the keys in", path.string(), "the file is cut short");
        size += count;
    }
    exchange::DeviceKeys keys(BytesOf(seed));
    if (exchange::TextOf(keys.Id()) != mailbox.Device())
        Fail("use the keys in", path.string(), "they are another mailbox's");
    return keys;
}

exchange::Epoch NewEpoch()
{
    exchange::Epoch epoch{};
    const exchange::SecretBytes random(epoch.size());
    std::copy_n(random.data(), epoch.size(), epoch.data());
    return epoch;
}

std::string TextOfEpoch(const exchange::Epoch& epoch)
{
    return exchange::TextOf(exchange::DeviceId{epoch});
}

exchange::Epoch ParseEpoch(const std::string& text)
{
    const auto id = exchange::ParseDeviceId(text);
    return id ? id->bytes : exchange::Epoch{};
}

}  // namespace quorvane::host
