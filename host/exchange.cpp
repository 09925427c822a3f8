#include "host/exchange.h"

#include <algorithm>
#include <charconv>
#include <system_error>

#include "host/errors.h"
#include "host/files.h"

namespace quorvane::host {

namespace {

constexpr std::size_t kSequenceDigits = 20;
constexpr std::string_view kPackageSuffix = ".qvt";

std::string FileName(std::uint64_t sequence)
{
    std::string digits = std::to_string(sequence);
    return std::string(kSequenceDigits - digits.size(), '0') + digits + std::string(kPackageSuffix);
}

// The sequence number in a file's name; 0 when it isn't a package's.
std::uint64_t SequenceOf(const std::string& name)
{
    if (name.size() != kSequenceDigits + kPackageSuffix.size() || !name.ends_with(kPackageSuffix))
        return 0;
    std::uint64_t sequence = 0;
    const auto [end, error] = std::from_chars(name.data(), name.data() + kSequenceDigits, sequence);
    return error == std::errc() && end == name.data() + kSequenceDigits ? sequence : 0;
}

// "<sender>~<instance>" taken apart; empty when it isn't such a name.
std::string MemberOf(const std::string& sender)
{
    const std::size_t tilde = sender.rfind('~');
    if (tilde == std::string::npos || !IsMemberName(sender.substr(0, tilde)) ||
        !IsMemberName(sender.substr(tilde + 1)))
        return {};
    return sender.substr(0, tilde);
}

void ListSender(const std::filesystem::path& directory, std::vector<IncomingPackage>& packages)
{
    const std::string sender = directory.filename().string();
    const std::string member = MemberOf(sender);
    if (member.empty())
        return;
    std::error_code error;
    for (auto it = std::filesystem::directory_iterator(directory, error);
         !error && it != std::filesystem::directory_iterator(); it.increment(error))
        if (const std::uint64_t sequence = SequenceOf(it->path().filename().string()))
            packages.push_back({sender, member, sequence, it->path()});
    if (error)
        Fail("read the exchange", directory.string(), error.message());
}

}  // namespace

Exchange::Exchange(std::filesystem::path directory, const Mailbox& mailbox)
    : directory_(std::move(directory)),
      self_(mailbox.Name()),
      senderId_(mailbox.Name() + "~" + mailbox.Instance())
{}

bool Exchange::IsReachable() const noexcept
{
    std::error_code error;
    return std::filesystem::is_directory(directory_, error);
}

void Exchange::Deliver(const std::string& member, std::uint64_t sequence,
                       const std::filesystem::path& package) const
{
    // The exchange itself is never made here: a mount that is gone must not be filled behind its back.
    if (!IsReachable())
        Fail("use the exchange", directory_.string(), "the directory is not there");
    const std::filesystem::path place = directory_ / member / senderId_;
    MakeDirectory(place);
    const std::string name = FileName(sequence);
    CopyDurably(package, place / (name + ".part"), place / name);
}

std::vector<IncomingPackage> Exchange::Incoming() const
{
    std::vector<IncomingPackage> packages;
    std::error_code error;
    const std::filesystem::path own = directory_ / self_;
    if (!std::filesystem::is_directory(own, error))
        return packages;
    for (auto it = std::filesystem::directory_iterator(own, error);
         !error && it != std::filesystem::directory_iterator(); it.increment(error))
        if (it->is_directory(error))
            ListSender(it->path(), packages);
    if (error)
        Fail("read the exchange", own.string(), error.message());
    std::sort(packages.begin(), packages.end(), [](const IncomingPackage& a, const IncomingPackage& b) {
        return a.sender != b.sender ? a.sender < b.sender : a.sequence < b.sequence;
    });
    return packages;
}

void Exchange::Remove(const IncomingPackage& package) const
{
    std::error_code error;
    std::filesystem::remove(package.path, error);
    if (error)
        Fail("remove the package", package.path.string(), error.message());
}

}  // namespace quorvane::host
