#include "host/exchange/place.h"

#include <charconv>
#include <set>

#include "host/exchange/error.h"

namespace quorvane::host::exchange {

namespace {

constexpr std::size_t kSequenceDigits = 20;
constexpr std::string_view kSuffix = ".qvx";
constexpr char kOutName[] = "out";

const char* NameOf(Place::Note note) noexcept
{
    return note == Place::Note::kCard ? "card" : "acks";
}

std::string NameOf(std::uint64_t sequence)
{
    const std::string digits = std::to_string(sequence);
    return std::string(kSequenceDigits - digits.size(), '0') + digits + std::string(kSuffix);
}

// 0 for a name that isn't a package's.
std::uint64_t SequenceOf(std::string_view name) noexcept
{
    if (name.size() != kSequenceDigits + kSuffix.size() || !name.ends_with(kSuffix))
        return 0;
    std::uint64_t sequence = 0;
    const auto [end, error] = std::from_chars(name.data(), name.data() + kSequenceDigits, sequence);
    return error == std::errc() && end == name.data() + kSequenceDigits ? sequence : 0;
}

// Keeps the lowest `most` of what it is given.
template <class Value>
class Lowest {
public:
    explicit Lowest(std::size_t most) noexcept : most_(most) {}
    void Add(const Value& value)
    {
        values_.insert(value);
        if (values_.size() > most_)
            values_.erase(std::prev(values_.end()));
    }
    std::vector<Value> Take() const { return {values_.begin(), values_.end()}; }

private:
    std::size_t most_;
    std::set<Value> values_;
};

}  // namespace

bool Place::IsReachable() const noexcept
{
    std::error_code error;
    return std::filesystem::is_directory(directory_, error);
}

std::unique_ptr<OutsideDirectory> Place::Root() const
{
    auto root = OutsideDirectory::Open(directory_);
    if (!root)
        FailForNow("cannot use the exchange '" + directory_.string() + "': the directory is not there");
    return root;
}

std::unique_ptr<OutsideDirectory> Place::Home(const DeviceId& device) const
{
    return Root()->Sub(TextOf(device));
}

std::unique_ptr<OutsideDirectory> Place::Out(const DeviceId& device) const
{
    const auto home = Home(device);
    return home ? home->Sub(kOutName) : nullptr;
}

std::vector<DeviceId> Place::Devices() const
{
    Lowest<DeviceId> devices(kMostDevices);
    Root()->ForEachName([&](const std::string& name) {
        if (const auto id = ParseDeviceId(name))
            devices.Add(*id);
        return true;
    });
    return devices.Take();
}

std::optional<std::string> Place::Read(const DeviceId& device, Note note, std::size_t limit) const
{
    const auto home = Home(device);
    const auto file = home ? home->OpenFile(NameOf(note)) : nullptr;
    if (!file)
        return std::nullopt;
    if (file->Size() > limit)
        Refuse("'" + std::string(NameOf(note)) + "' of device " + TextOf(device) + " is longer than " +
               std::to_string(limit) + " bytes");
    std::string bytes(static_cast<std::size_t>(file->Size()), '\0');
    file->ReadAt(0, bytes.data(), bytes.size());
    return bytes;
}

std::vector<std::uint64_t> Place::Packages(const DeviceId& device, std::uint64_t from) const
{
    Lowest<std::uint64_t> packages(kMostPackages);
    if (const auto out = Out(device))
        out->ForEachName([&](const std::string& name) {
            if (const std::uint64_t sequence = SequenceOf(name); sequence != 0 && sequence >= from)
                packages.Add(sequence);
            return true;
        });
    return packages.Take();
}

std::unique_ptr<OutsideFile> Place::Open(const DeviceId& device, std::uint64_t sequence) const
{
    const auto out = Out(device);
    return out ? out->OpenFile(NameOf(sequence)) : nullptr;
}

void Place::Write(Note note, std::string_view bytes) const
{
    Root()->MakeSub(TextOf(own_), readers_)->Replace(NameOf(note), TextSource(bytes), readers_);
}

void Place::Put(std::uint64_t sequence, const ByteSource& package) const
{
    Root()
        ->MakeSub(TextOf(own_), readers_)
        ->MakeSub(kOutName, readers_)
        ->Replace(NameOf(sequence), package, readers_);
}

void Place::Remove(std::uint64_t sequence) const
{
    if (const auto out = Out(own_))
        out->Remove(NameOf(sequence));
}

void Place::LetRead() const
{
    const auto root = Root();
    if (!root->Sub(TextOf(own_)))
        return;
    const auto home = root->MakeSub(TextOf(own_), readers_);
    home->LetRead(readers_);
    home->MakeSub(kOutName, readers_)->LetRead(readers_);
}

}  // namespace quorvane::host::exchange
