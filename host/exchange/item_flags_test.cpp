#include "host/exchange/item_flags.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iostream>
#include <set>

#include "host/exchange/comparison.h"
#include "host/exchange/exchange_for_test.h"

namespace quorvane::host::exchange {

namespace {

DeviceId FlagDevice(unsigned char number)
{
    DeviceId id;
    id.bytes[0] = number;
    return id;
}

std::string BytesOf(const ItemFlags& flags)
{
    WireWriter bytes;
    flags.Write(bytes);
    return bytes.Bytes();
}

ItemFlags FlagsFrom(std::string_view bytes)
{
    WireReader reader(bytes, "it");
    const ItemFlags flags = ItemFlags::Read(reader, "it");
    reader.End();
    return flags;
}

TEST(ItemFlagsTest, TheLaterChangeOfEachFlagWins)
{
    ItemFlags one, other;
    EXPECT_TRUE(one.Show(0b0011, 100, FlagDevice(1)));
    EXPECT_TRUE(other.Show(0b0001, 200, FlagDevice(2)));
    EXPECT_TRUE(other.Show(0b0100, 300, FlagDevice(2)));

    EXPECT_TRUE(one.Take(other));
    EXPECT_FALSE(one.Take(other));

    EXPECT_EQ(one.Shown(), 0b0110);
    EXPECT_TRUE(other.Lacks(one));
    EXPECT_TRUE(other.Take(one));
    EXPECT_EQ(one, other);
}

TEST(ItemFlagsTest, OfTwoAtOneTimeTheGreaterDevicesWins)
{
    ItemFlags one, other;
    one.Show(1, 100, FlagDevice(1));
    other.Show(1, 50, FlagDevice(2));
    other.Show(0, 100, FlagDevice(2));
    ItemFlags both = one;
    both.Take(other);
    other.Take(one);
    EXPECT_EQ(both.Shown(), 0);
    EXPECT_EQ(both, other);
}

TEST(ItemFlagsTest, AChangeIsLaterThanThoseThatItHasSeenWhateverTheClockSays)
{
    ItemFlags ahead, behind;
    ahead.Show(1, 1'000'000, FlagDevice(9));
    behind.Take(ahead);
    EXPECT_TRUE(behind.Show(0, 5, FlagDevice(1)));
    EXPECT_TRUE(ahead.Take(behind));
    EXPECT_EQ(ahead.Shown(), 0);
}

TEST(ItemFlagsTest, WhatIsShownAlreadyIsNoChange)
{
    ItemFlags flags;
    EXPECT_FALSE(flags.Show(0, 100, FlagDevice(1)));
    EXPECT_TRUE(flags.IsEmpty());
    flags.Show(2, 100, FlagDevice(1));
    const ItemFlags before = flags;
    EXPECT_FALSE(flags.Show(2, 200, FlagDevice(2)));
    EXPECT_EQ(flags, before);
}

TEST(ItemFlagsTest, TheyAreReadAsTheyWereWritten)
{
    ItemFlags flags;
    flags.Show(0b1010, 100, FlagDevice(1));
    flags.Show(0b1000, 200, FlagDevice(2));
    EXPECT_EQ(FlagsFrom(BytesOf(flags)), flags);
    EXPECT_EQ(FlagsFrom(BytesOf(ItemFlags())), ItemFlags());
    const std::string bytes = BytesOf(flags);
    for (std::size_t size = 0; size < bytes.size(); ++size)
        EXPECT_THROW(FlagsFrom(std::string_view(bytes).substr(0, size)), Error) << size;
    std::string unknown = bytes, neither = bytes, never = bytes, late = bytes;
    unknown[0] = 0x4A;
    neither[1] = 2;
    std::fill_n(never.begin() + 2, 8, '\0');
    late[9] = 0x41;
    for (const std::string& wrong : {unknown, neither, never, late})
        EXPECT_THROW(FlagsFrom(wrong), Error);
}

TEST(FlagNoteTest, ItIsReadAsItWasWritten)
{
    FlagNote note{"{F}", {{"{A}", {}}, {"{B}", {}}}};
    note.items[0].flags.Show(1, 100, FlagDevice(1));
    const std::string bytes = note.Write();
    EXPECT_EQ(FlagNote::Read(bytes, "it"), note);
    for (std::size_t size = 0; size < bytes.size(); ++size)
        EXPECT_THROW(FlagNote::Read(bytes.substr(0, size), "it"), Error) << size;
    EXPECT_THROW(FlagNote::Read(bytes + "x", "it"), Error);
    std::swap(note.items[0], note.items[1]);
    EXPECT_THROW(FlagNote::Read(note.Write(), "it"), Error) << "its items don't rise";
    note.items = {{"", {}}};
    EXPECT_THROW(FlagNote::Read(note.Write(), "it"), Error);
    note.items.clear();
    for (std::size_t item = 0; item <= FlagNote::kMostItems; ++item)
        note.items.push_back({std::to_string(1'000'000 + item), {}});
    EXPECT_THROW(FlagNote::Read(note.Write(), "it"), Error);
    note.items.pop_back();
    EXPECT_EQ(FlagNote::Read(note.Write(), "it"), note);
}

// Every way in which devices may change the flags of one item, hear of each other's changes late, twice, in
// another order or never, and one of them delete the item: tried one after the other.
class FlagEnumeration {
public:
    struct Device {
        KnownItem item{"{I}", {}};
        unsigned changes = 0;
        bool isUnknown = false;  // the item isn't here yet
    };
    struct World {
        std::vector<Device> devices;
        std::vector<std::vector<ItemFlags>> waiting;  // for each device
        ItemHeads heads;                              // that the item comes with
        bool isDeleted = false;
    };

    FlagEnumeration(unsigned devices, unsigned changes, bool deletes, bool isLate)
        : changes_(changes), deletes_(deletes)
    {
        World world;
        world.devices.resize(devices);
        world.waiting.resize(devices);
        ContentDigest content{};
        content[0] = 1;
        ChangerId changer;
        changer.bytes[0] = 1;
        world.heads.Change(changer, FlagDevice(1), 1, content, [](const Revision&) { return false; });
        for (Device& device : world.devices)
            device.item.heads = world.heads;
        if (isLate) {
            world.devices.back().item.heads = {};
            world.devices.back().isUnknown = true;
        }
        Visit(world);
    }

    std::size_t States() const { return visited_.size(); }
    std::size_t Ends() const { return ends_; }

private:
    static std::string KeyOf(const World& world)
    {
        WireWriter key;
        for (std::size_t device = 0; device < world.devices.size(); ++device) {
            world.devices[device].item.flags.Write(key);
            key.Put(static_cast<std::uint8_t>(world.devices[device].isUnknown))
                .Put(static_cast<std::uint8_t>(world.devices[device].item.heads.Shown() != nullptr))
                .Put(static_cast<std::uint8_t>(IsDeleted(world.devices[device])))
                .Put(static_cast<std::uint8_t>(world.devices[device].changes));
            key.Put(static_cast<std::uint8_t>(world.waiting[device].size()));
            for (const ItemFlags& flags : world.waiting[device])
                flags.Write(key);
        }
        return key.Bytes();
    }
    static bool IsDeleted(const Device& device)
    {
        return device.item.heads.Shown() && device.item.heads.Shown()->isDeletion;
    }

    void Visit(const World& world)
    {
        if (::testing::Test::HasFailure() || !visited_.insert(KeyOf(world)).second)
            return;
        if (std::all_of(world.waiting.begin(), world.waiting.end(),
                        [](const auto& messages) { return messages.empty(); }))
            Judge(world);
        for (std::size_t device = 0; device < world.devices.size(); ++device) {
            Change(world, device);
            Hear(world, device);
            if (world.devices[device].isUnknown) {
                World next = world;
                next.devices[device].isUnknown = false;
                TakeItem(next.devices[device].item, {"{I}", world.heads});
                Visit(next);
            }
            if (deletes_ && device == 0 && !world.isDeleted) {
                World next = world;
                next.isDeleted = true;
                ChangerId changer;
                changer.bytes[0] = 9;
                next.devices[0].item.heads.Change(changer, FlagDevice(1), 1000, std::nullopt,
                                                  [](const Revision&) { return false; });
                DropFlagsOfDeleted(next.devices[0].item);
                Visit(next);
            }
        }
    }

    void Change(const World& world, std::size_t device)
    {
        const Device& own = world.devices[device];
        if (own.changes == changes_ || own.isUnknown || IsDeleted(own))
            return;
        for (const std::uint8_t flag : {1, 2}) {
            World next = world;
            Device& changed = next.devices[device];
            ++changed.changes;
            changed.item.flags.Show(static_cast<std::uint8_t>(changed.item.flags.Shown() ^ flag),
                                    100 + own.changes % 2,
                                    FlagDevice(static_cast<unsigned char>(device + 1)));
            for (std::size_t other = 0; other < world.devices.size(); ++other)
                if (other != device)
                    next.waiting[other].push_back(changed.item.flags);
            Visit(next);
        }
    }

    // Any of those that wait comes, and may come again; or is lost.
    void Hear(const World& world, std::size_t device)
    {
        for (std::size_t message = 0; message < world.waiting[device].size(); ++message) {
            World lost = world;
            lost.waiting[device].erase(lost.waiting[device].begin() + static_cast<std::ptrdiff_t>(message));
            World taken = lost;
            TakeFlags(taken.devices[device].item, world.waiting[device][message]);
            World again = world;
            TakeFlags(again.devices[device].item, world.waiting[device][message]);
            for (const World& next : {lost, taken, again})
                Visit(next);
        }
    }

    // Whatever has come or not: where all is compared, all are equal, and the last changes are what they
    // show.
    void Judge(World world)
    {
        ++ends_;
        ItemFlags all;
        for (const Device& device : world.devices)
            all.Take(device.item.flags);
        for (int round = 0; round < 2; ++round)
            for (Device& one : world.devices)
                for (Device& other : world.devices)
                    if (&one != &other)
                        Reconcile(one, other);
        for (const Device& device : world.devices) {
            ASSERT_EQ(device.item, world.devices.front().item);
            ASSERT_EQ(device.item.flags, world.isDeleted ? ItemFlags() : all);
        }
    }

    class OneItem final : public FolderView {
    public:
        explicit OneItem(const KnownItem& item) : item_(item) {}
        void ForEach(const Visit& visit) const override
        {
            if (item_.heads.Shown())
                visit(item_);
        }
        void ForEachIn(std::uint8_t bucket, const Visit& visit) const override
        {
            if (item_.heads.Shown() && bucket == BucketOf(item_.id))
                visit(item_);
        }

    private:
        const KnownItem& item_;
    };

    // A comparison between two, to its end.
    static void Reconcile(Device& one, Device& other)
    {
        std::optional<FolderReport> report = ReportOf("{F}", OneItem(one.item), true);
        Device* from = &one;
        Device* to = &other;
        while (report) {
            const Comparison result =
                Compare(OneItem(to->item), ReportOf("{F}", OneItem(to->item), true), *report);
            if (!result.lacking.empty())
                TakeItem(from->item, to->item);
            DropFlagsOfDeleted(from->item);
            if (!result.lackingFlags.empty())
                TakeFlags(from->item, to->item.flags);
            report = result.answer;
            std::swap(from, to);
        }
    }

    const unsigned changes_;
    const bool deletes_;
    std::set<std::string> visited_;
    std::size_t ends_ = 0;
};

TEST(FlagEnumerationTest, InEveryOrderAllComeToTheSameFlags)
{
    for (const bool deletes : {false, true})
        for (const bool isLate : {false, true}) {
            const FlagEnumeration two(2, 2, deletes, isLate);
            std::cout << "two devices: " << two.States() << " states, " << two.Ends() << " ends\n";
            EXPECT_GT(two.Ends(), 100U);
        }
    const FlagEnumeration three(3, 1, false, true);
    std::cout << "three devices: " << three.States() << " states, " << three.Ends() << " ends\n";
    EXPECT_GT(three.Ends(), 100U);
}

}  // namespace

}  // namespace quorvane::host::exchange
