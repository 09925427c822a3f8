#include "host/exchange/item_flags.h"

#include <algorithm>

#include "host/exchange/error.h"

namespace quorvane::host::exchange {

namespace {

constexpr std::string_view kFlagMagic("QV3FLAG\1", 8);
constexpr std::size_t kLongestFlagId = 256;

std::string_view TakeFlagId(WireReader& from, std::string_view what)
{
    const std::string_view id = from.Take(from.Get<std::uint16_t>());
    if (id.empty() || id.size() > kLongestFlagId)
        Refuse(std::string(what) + " has no proper id");
    return id;
}

}  // namespace

std::uint8_t ItemFlags::Shown() const noexcept
{
    unsigned shown = 0;
    for (std::size_t flag = 0; flag < kCount; ++flag)
        shown |= changes_[flag].isSet ? 1U << flag : 0U;
    return static_cast<std::uint8_t>(shown);
}

bool ItemFlags::IsEmpty() const noexcept
{
    return std::all_of(changes_.begin(), changes_.end(),
                       [](const Change& change) { return change.stamp == 0; });
}

bool ItemFlags::Show(std::uint8_t shown, std::uint64_t when, const DeviceId& by)
{
    const unsigned differing = static_cast<unsigned>(shown ^ Shown());
    for (std::size_t flag = 0; flag < kCount; ++flag)
        if ((differing >> flag & 1) != 0) {
            Change& change = changes_[flag];
            change = {std::min(std::max(when, change.stamp + 1), kLastStamp), by, !change.isSet};
        }
    return (differing & ((1U << kCount) - 1)) != 0;
}

bool ItemFlags::Take(const ItemFlags& others)
{
    const bool isNew = Lacks(others);
    for (std::size_t flag = 0; flag < kCount; ++flag)
        changes_[flag] = std::max(changes_[flag], others.changes_[flag]);
    return isNew;
}

bool ItemFlags::Lacks(const ItemFlags& other) const
{
    for (std::size_t flag = 0; flag < kCount; ++flag)
        if (changes_[flag] < other.changes_[flag])
            return true;
    return false;
}

void ItemFlags::Write(WireWriter& to) const
{
    unsigned changed = 0;
    for (std::size_t flag = 0; flag < kCount; ++flag)
        changed |= changes_[flag].stamp != 0 ? 1U << flag : 0U;
    to.Put(static_cast<std::uint8_t>(changed));
    for (const Change& change : changes_)
        if (change.stamp != 0)
            to.Put(static_cast<std::uint8_t>(change.isSet)).Put(change.stamp).Put(change.by.bytes);
}

ItemFlags ItemFlags::Read(WireReader& from, std::string_view what)
{
    ItemFlags flags;
    const auto changed = from.Get<std::uint8_t>();
    if (changed >> kCount != 0)
        Refuse(std::string(what) + " has a flag of an unknown kind");
    for (std::size_t flag = 0; flag < kCount; ++flag) {
        if ((changed >> flag & 1) == 0)
            continue;
        Change& change = flags.changes_[flag];
        const auto isSet = from.Get<std::uint8_t>();
        change.stamp = from.Get<std::uint64_t>();
        change.by.bytes = from.GetBytes<16>();
        if (isSet > 1 || change.stamp == 0 || change.stamp > kLastStamp)
            Refuse(std::string(what) + " has a flag that can't be");
        change.isSet = isSet == 1;
    }
    return flags;
}

std::string FlagNote::Write() const
{
    WireWriter note;
    note.Put(kFlagMagic).Put(static_cast<std::uint16_t>(folder.size())).Put(folder);
    note.Put(static_cast<std::uint32_t>(items.size()));
    for (const Item& item : items) {
        note.Put(static_cast<std::uint16_t>(item.id.size())).Put(item.id);
        item.flags.Write(note);
    }
    return note.Bytes();
}

FlagNote FlagNote::Read(std::string_view bytes, std::string_view what)
{
    WireReader reader(bytes, what);
    if (bytes.size() > kLongest || reader.Take(kFlagMagic.size()) != kFlagMagic)
        Refuse(std::string(what) + " is too long, or begins as nothing of the kind");
    FlagNote note;
    note.folder = TakeFlagId(reader, what);
    const auto count = reader.Get<std::uint32_t>();
    if (count > kMostItems)
        Refuse(std::string(what) + " has more items than it may");
    for (std::uint32_t left = count; left != 0; --left) {
        Item item{std::string(TakeFlagId(reader, what)), ItemFlags::Read(reader, what)};
        if (!note.items.empty() && note.items.back().id >= item.id)
            Refuse(std::string(what) + " has its items out of order");
        note.items.push_back(std::move(item));
    }
    reader.End();
    return note;
}

}  // namespace quorvane::host::exchange
