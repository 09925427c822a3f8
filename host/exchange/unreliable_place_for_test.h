// host/exchange/unreliable_place_for_test.h: a place that does with its members' files what it likes.
#ifndef QUORVANE_HOST_EXCHANGE_UNRELIABLE_PLACE_FOR_TEST_H_
#define QUORVANE_HOST_EXCHANGE_UNRELIABLE_PLACE_FOR_TEST_H_

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "host/exchange/member_for_test.h"

namespace quorvane::host::exchange {

namespace adversary {

inline std::string BytesOfFile(const fs::path& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

inline void LayFile(const fs::path& path, const std::string& bytes)
{
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

using Files = std::map<std::string, std::string>;  // bytes by path below a device's directory

inline Files FilesIn(const fs::path& directory)
{
    Files files;
    if (fs::exists(directory))
        for (const auto& entry : fs::recursive_directory_iterator(directory))
            if (entry.is_regular_file())
                files.emplace(entry.path().lexically_relative(directory).generic_string(),
                              BytesOfFile(entry.path()));
    return files;
}

inline void LayFiles(const fs::path& directory, const Files& files)
{
    fs::remove_all(directory);
    for (const auto& [name, bytes] : files)
        LayFile(directory / name, bytes);
}

class UnreliablePlace {
public:
    UnreliablePlace(std::vector<std::unique_ptr<Member>>& members, Random& random)
        : members_(members), random_(random)
    {}

    // Brings one file of one member's to another's eyes, or does something worse.
    void Meddle()
    {
        Member& owner = *members_[random_() % kMembers];
        Member& viewer = *members_[random_() % kMembers];
        const Files files = FilesIn(owner.OwnDirectory());
        if (files.empty())
            return;
        const auto& [name, bytes] = AnyOf(files, random_);
        const fs::path theirs = viewer.DirectoryOf(owner);
        if (&owner == &viewer) {
            MeddleAtHome(owner, files);
            return;
        }
        switch (random_() % 16) {
            case 0:
                LayFile(theirs / name, bytes.substr(0, random_() % (bytes.size() + 1)));
                break;
            case 1:
                LayFile(theirs / name, Flipped(bytes));
                break;
            case 2:
                fs::remove(theirs / name);
                break;
            case 3:
                LayFile(theirs / AnyOf(files, random_).first, bytes);  // under another's name
                break;
            case 4:
                LayFile(viewer.DirectoryOf(*members_[random_() % kMembers]) / name, bytes);
                break;
            case 5:
                past_[&owner].push_back(files);
                break;
            case 6:
                if (!past_[&owner].empty())
                    LayFiles(theirs, AnyOf(past_[&owner], random_));
                break;
            case 7:
                Forge(owner, viewer);
                break;
            default:
                LayFile(theirs / name, bytes);
        }
    }

    // All that everybody laid there is seen by everybody.
    void BeHonest()
    {
        for (const auto& owner : members_)
            for (const auto& viewer : members_)
                if (owner != viewer)
                    LayFiles(viewer->DirectoryOf(*owner), FilesIn(owner->OwnDirectory()));
    }

private:
    // Even in its own directory a device doesn't find what it laid there.
    void MeddleAtHome(const Member& owner, const Files& files)
    {
        if (Chance(random_, 4))
            fs::remove(owner.OwnDirectory() / AnyOf(files, random_).first);
        else if (Chance(random_, 4) && !past_[&owner].empty())
            LayFiles(owner.OwnDirectory(), AnyOf(past_[&owner], random_));
    }
    std::string Flipped(std::string bytes)
    {
        if (!bytes.empty())
            bytes[random_() % bytes.size()] ^= static_cast<char>(1U << random_() % 8);
        return bytes;
    }
    // A stranger's package, as the next one of a member's.
    void Forge(const Member& owner, const Member& victim)
    {
        const std::uint64_t next = owner.disk.sequence + 1;
        Content content{kEverybodys, members_[0]->disk.folders.at(kEverybodys).membership->Entries(), {}, {}};
        std::string sealed;
        Seal(stranger_, {owner.keys.Id(), owner.disk.epoch, next, PackageKind::kItems},
             {{victim.keys.Id(), victim.keys.Sealing(), next - 1}}, MemorySource(content.Write()),
             [&](std::string_view bytes) { sealed += bytes; });
        char name[32];
        std::snprintf(name, sizeof name, "out/%020llu.qvx", static_cast<unsigned long long>(next));
        LayFile(victim.DirectoryOf(owner) / name, sealed);
    }

    std::vector<std::unique_ptr<Member>>& members_;
    Random& random_;
    const DeviceKeys stranger_;
    std::map<const Member*, std::vector<Files>> past_;
};

}  // namespace adversary

}  // namespace quorvane::host::exchange

#endif  // QUORVANE_HOST_EXCHANGE_UNRELIABLE_PLACE_FOR_TEST_H_
