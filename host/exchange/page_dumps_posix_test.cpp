// The dumps of docs/exchange.md are made anew here, out of keys made for them, and stand on the page as they
// are.

#include <gtest/gtest.h>
#include <sodium.h>

#include <cstdio>
#include <fstream>
#include <iterator>

#include "host/exchange/acks.h"
#include "host/exchange/card.h"
#include "host/exchange/comparison.h"
#include "host/exchange/device_link.h"
#include "host/exchange/exchange_for_test.h"
#include "host/exchange/membership_entry.h"

namespace quorvane::host::exchange {

namespace {

// What libsodium draws is the same each time, while there is one of these.
class NoChance {
public:
    NoChance()
    {
        static randombytes_implementation counted = {Name, Random, nullptr, nullptr, Fill, nullptr};
        next_ = 0;
        randombytes_set_implementation(&counted);
    }
    NoChance(const NoChance&) = delete;
    NoChance& operator=(const NoChance&) = delete;
    ~NoChance() { randombytes_set_implementation(&randombytes_sysrandom_implementation); }

private:
    static const char* Name() { return "counted"; }
    static std::uint32_t Random() { return next_++; }
    static void Fill(void* buffer, std::size_t size)
    {
        for (std::size_t i = 0; i < size; ++i)
            static_cast<unsigned char*>(buffer)[i] = static_cast<unsigned char>(next_++);
    }
    static inline std::uint32_t next_ = 0;
};

// The bytes of a file, field by field, each with what it is.
class PageDump {
public:
    explicit PageDump(std::string bytes) : bytes_(std::move(bytes)) {}

    PageDump& Field(std::size_t size, const std::string& what)
    {
        for (std::size_t done = 0; done < size; done += kALine)
            Line(std::min(kALine, size - done), done == 0 ? what : "");
        return *this;
    }
    // Many equal ones, of which the first is shown.
    PageDump& Repeated(std::size_t size, std::size_t count, const std::string& what)
    {
        for (std::size_t i = 1; i < count; ++i)
            EXPECT_EQ(bytes_.substr(at_, size), bytes_.substr(at_ + i * size, size));
        Field(size, what);
        at_ += size * (count - 1);
        text_ += "      ...\n";
        return *this;
    }
    std::string Text() const
    {
        EXPECT_EQ(at_, bytes_.size());
        return "```\n" + text_ + "```\n";
    }

private:
    static constexpr std::size_t kALine = 16;

    void Line(std::size_t size, const std::string& what)
    {
        char number[16];
        std::snprintf(number, sizeof number, "%04zx  ", at_);
        std::string line = number;
        for (const char byte : bytes_.substr(at_, size)) {
            std::snprintf(number, sizeof number, "%02x ", static_cast<unsigned char>(byte));
            line += number;
        }
        at_ += size;
        line.resize(std::max(line.size(), what.empty() ? 0 : kALine * 3 + 7), ' ');
        line += what;
        line.erase(line.find_last_not_of(' ') + 1);
        text_ += line + "\n";
    }

    std::string bytes_;
    std::string text_;
    std::size_t at_ = 0;
};

class PageDumpsTest : public ::testing::Test {
protected:
    void ExpectOnThePage(const PageDump& dump) const
    {
        EXPECT_NE(page.find(dump.Text()), std::string::npos) << "docs/exchange.md lacks:\n" << dump.Text();
    }

    static std::string TextOfPage()
    {
        std::ifstream file(QUORVANE_EXCHANGE_PAGE);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    const std::string page = TextOfPage();
    const DeviceKeys alice{std::string(32, 'a')}, bob{std::string(32, 'b')};
    const Epoch epoch{0xE0, 0xE1, 0xE2, 0xE3};
};

TEST_F(PageDumpsTest, Card)
{
    PageDump dump(WriteCard(alice, "alice", 1));
    dump.Field(8, "QV3CARD, version 1")
        .Field(8, "serial number 1")
        .Field(32, "signing key")
        .Field(32, "sealing key");
    dump.Field(1, "length of the name").Field(5, "alice").Field(1, "no links").Field(64, "signature");
    ExpectOnThePage(dump);
}

TEST_F(PageDumpsTest, Package)
{
    const NoChance same;
    std::string package;
    Seal(alice, {alice.Id(), epoch, 7, PackageKind::kItems}, {{bob.Id(), bob.Sealing(), 5}},
         MemorySource("hello"), [&](std::string_view bytes) { package += bytes; });
    const std::size_t chunk = package.size() - 64 - 191;
    PageDump dump(package);
    dump.Field(8, "QV3PACK, version 1").Field(16, "from alice").Field(16, "epoch").Field(8, "number 7");
    dump.Field(1, "items").Field(8, "5 bytes of content").Field(2, "one receiver").Field(16, "bob");
    dump.Field(8, "the one before was number 5").Field(80, "the content's key, sealed to bob");
    dump.Field(24, "header of the stream").Field(4, "size of the chunk").Field(chunk, "the chunk");
    dump.Field(64, "signature");
    ExpectOnThePage(dump);
}

TEST_F(PageDumpsTest, Acks)
{
    exchange::Acks acks;
    acks.serial = 3;
    acks.senders[alice.Id()] = {epoch, 7, {{8, 9}}};
    PageDump dump(WriteAcks(bob, acks));
    dump.Field(8, "QV3ACKS, version 1").Field(8, "serial number 3").Field(2, "one sender").Field(16, "alice");
    dump.Field(16, "epoch")
        .Field(8, "applied up to 7")
        .Field(1, "one gap")
        .Field(16, "8 to 9")
        .Field(64, "signature");
    ExpectOnThePage(dump);
}

TEST_F(PageDumpsTest, MembershipChanges)
{
    MembershipEntry founding;
    founding.folder = "{F}";
    founding.member = alice.Signing();
    founding.name = "alice";
    const std::string founded = WriteMembershipEntry(alice, founding);
    PageDump first(founded);
    first.Field(8, "QV3MEMB, version 1")
        .Field(1, "founds the folder")
        .Field(2, "length of its id")
        .Field(3, "{F}");
    first.Field(32, "whom: alice").Field(1, "length of the name").Field(5, "alice").Field(32, "no device");
    first.Field(1, "has seen none").Field(32, "by alice").Field(64, "signature");
    ExpectOnThePage(first);

    MembershipEntry addition;
    addition.change = MembershipChange::kAdd;
    addition.folder = "{F}";
    addition.member = bob.Signing();
    addition.name = "bob";
    addition.seen = {IdOfEntry(founded)};
    PageDump second(WriteMembershipEntry(alice, addition));
    second.Field(8, "QV3MEMB, version 1")
        .Field(1, "adds a member")
        .Field(2, "length of the id")
        .Field(3, "{F}");
    second.Field(32, "whom: bob").Field(1, "length of the name").Field(3, "bob").Field(32, "no device");
    second.Field(1, "has seen one").Field(32, "the founding").Field(32, "by alice").Field(64, "signature");
    ExpectOnThePage(second);

    const DeviceKeys desktop{std::string(32, 'd')};
    MembershipEntry link;
    link.change = MembershipChange::kLink;
    link.folder = "{F}";
    link.member = alice.Signing();
    link.device = desktop.Signing();
    link.agreement = AgreeToLink(desktop, alice.Signing());
    link.seen = {IdOfEntry(founded)};
    PageDump third(WriteMembershipEntry(alice, link));
    third.Field(8, "QV3MEMB, version 1")
        .Field(1, "links a device")
        .Field(2, "length of the id")
        .Field(3, "{F}");
    third.Field(32, "whose: alice").Field(1, "no name").Field(32, "the device").Field(64, "it agrees");
    third.Field(1, "has seen one").Field(32, "the founding").Field(32, "by alice").Field(64, "signature");
    ExpectOnThePage(third);

    // Of another folder, which lies in this one.
    MembershipEntry other = founding;
    other.folder = "{G}";
    MembershipEntry nests;
    nests.change = MembershipChange::kNest;
    nests.folder = "{G}";
    nests.member = alice.Signing();
    nests.outer = IdOfEntry(founded);
    nests.seen = {IdOfEntry(WriteMembershipEntry(alice, other))};
    PageDump fourth(WriteMembershipEntry(alice, nests));
    fourth.Field(8, "QV3MEMB, version 1")
        .Field(1, "lies in another folder")
        .Field(2, "length of its id")
        .Field(3, "{G}");
    fourth.Field(32, "the founder: alice").Field(1, "no name").Field(32, "the founding of {F}");
    fourth.Field(1, "has seen one")
        .Field(32, "the founding of {G}")
        .Field(32, "by alice")
        .Field(64, "signature");
    ExpectOnThePage(fourth);
}

TEST_F(PageDumpsTest, Flags)
{
    FlagNote note{"{F}", {{"{I}", {}}}};
    note.items[0].flags.Show(0b0011, 1000, alice.Id());
    note.items[0].flags.Show(0b0001, 2000, bob.Id());
    PageDump dump(note.Write());
    dump.Field(8, "QV3FLAG, version 1")
        .Field(2, "length of the folder's id")
        .Field(3, "{F}")
        .Field(4, "one item");
    dump.Field(2, "length of its id").Field(3, "{I}").Field(1, "read and flagged were changed");
    dump.Field(1, "read").Field(8, "stamp").Field(16, "by alice");
    dump.Field(1, "not flagged").Field(8, "stamp").Field(16, "by bob");
    ExpectOnThePage(dump);
}

// A folder of one item, and what lists its bucket.
TEST_F(PageDumpsTest, Report)
{
    KnownItem item;
    item.id = "{I}";
    item.heads.Change({{1, 2, 3}}, alice.Id(), 1000, DigestOfText("hello"),
                      [](const Revision&) { return false; });
    FolderReport report;
    report.folder = "{F}";
    FolderDigestMaker digest;
    digest.Add(item.id, std::string(1, '\1') + item.heads.Write());
    report.digest = digest.Finish();
    const std::uint8_t bucket = BucketOf(item.id);
    report.buckets[bucket] = {item};
    PageDump dump(report.Write());
    dump.Field(2, "length of the folder's id").Field(3, "{F}").Repeated(16, bucket, "an empty bucket");
    dump.Field(16, "bucket " + std::to_string(bucket));
    dump.Repeated(16, 255U - bucket, "an empty bucket").Field(1, "opens a comparison").Field(2, "one list");
    dump.Field(1, "of bucket " + std::to_string(bucket))
        .Field(4, "one item")
        .Field(2, "length of its id")
        .Field(3, "{I}");
    dump.Field(1, "what it shows is there").Field(4, "length of its heads").Field(2, "one revision");
    dump.Field(2, "length of the version")
        .Field(2, "one changer")
        .Field(16, "its id")
        .Field(8, "its first change");
    dump.Field(8, "stamp").Field(16, "alice made it").Field(1, "content").Field(32, "its digest");
    ExpectOnThePage(dump);
}

}  // namespace

}  // namespace quorvane::host::exchange
