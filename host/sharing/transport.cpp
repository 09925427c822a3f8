#include "host/sharing/transport.h"

#include <system_error>

#include "host/base/system_file.h"
#include "host/exchange/error.h"
#include "host/exchange/seal.h"

namespace quorvane::host {

namespace {

// Removes a file of passing use.
class PassingFile {
public:
    explicit PassingFile(std::filesystem::path path) : path_(std::move(path)) {}
    PassingFile(const PassingFile&) = delete;
    PassingFile& operator=(const PassingFile&) = delete;
    ~PassingFile()
    {
        std::error_code ignored;  // the next one of its name replaces it
        std::filesystem::remove(path_, ignored);
    }
    const std::filesystem::path& Path() const noexcept { return path_; }

private:
    std::filesystem::path path_;
};

}  // namespace

std::unique_ptr<exchange::OutsideFile> OpenOwnFile(const std::filesystem::path& path)
{
    const auto directory = exchange::OutsideDirectory::Open(path.parent_path());
    auto file = directory ? directory->OpenFile(path.filename().string()) : nullptr;
    if (!file)
        exchange::FailForNow("cannot read '" + path.string() + "': it is gone");
    return file;
}

std::uint64_t LaySealed(Transport& transport, const NumberedPackage& package,
                        const std::vector<exchange::Receiver>& receivers, const std::filesystem::path& clear)
{
    std::filesystem::path aside = clear;
    aside += ".qvx";
    const PassingFile sealed(aside);
    {
        const auto content = OpenOwnFile(clear);
        const SystemFile file(aside, SystemFile::Use::kWrite);
        const exchange::PackageLabel label{transport.keys.Id(), transport.peers.OwnEpoch(), package.sequence,
                                           package.kind};
        exchange::Seal(transport.keys, label, receivers, *content,
                       [&](std::string_view bytes) { file.Write(bytes.data(), bytes.size()); });
    }
    transport.place.Put(package.sequence, *OpenOwnFile(aside));
    return std::filesystem::file_size(aside);
}

void PublishCard(Transport& transport, const std::string& name)
{
    const std::string card = exchange::WriteCard(transport.keys, name, transport.peers.CardSerial(),
                                                 transport.peers.OwnLinks(transport.keys));
    std::optional<std::string> lying;
    try {
        lying =
            transport.place.Read(transport.keys.Id(), exchange::Place::Note::kCard, exchange::kLongestCard);
    } catch (const exchange::Error&) {
        // Whatever lies there is replaced.
    }
    if (lying != card)
        transport.place.Write(exchange::Place::Note::kCard, card);
}

}  // namespace quorvane::host
