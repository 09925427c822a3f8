#include "host/exchange/membership.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "host/exchange/device_link.h"
#include "host/exchange/exchange_for_test.h"

namespace quorvane::host::exchange {

namespace {

using Taken = Membership::Taken;
using Names = std::set<std::string>;

constexpr char kFolder[] = "{F}";

class MembershipTest : public ::testing::Test {
protected:
    using Seen = std::set<EntryId>;

    static MembershipEntry Entry(MembershipChange change, const SigningKey& member, const Seen& seen,
                                 const std::string& name = {})
    {
        MembershipEntry entry;
        entry.change = change;
        entry.folder = kFolder;
        entry.member = member;
        entry.name = name;
        entry.seen = seen;
        return entry;
    }
    // What somebody signs who has seen these.
    static std::string Add(const DeviceKeys& by, const DeviceKeys& whom, const std::string& name,
                           const Seen& seen)
    {
        return WriteMembershipEntry(by, Entry(MembershipChange::kAdd, whom.Signing(), seen, name));
    }
    static std::string Remove(const DeviceKeys& by, const DeviceKeys& whom, const Seen& seen)
    {
        return WriteMembershipEntry(by, Entry(MembershipChange::kRemove, whom.Signing(), seen));
    }
    static std::string ShareFlags(const DeviceKeys& by, const DeviceKeys& whom, const Seen& seen)
    {
        return WriteMembershipEntry(by, Entry(MembershipChange::kFlags, whom.Signing(), seen));
    }
    static std::string Nest(const DeviceKeys& by, const DeviceKeys& whom, const EntryId& outer,
                            const Seen& seen)
    {
        MembershipEntry entry = Entry(MembershipChange::kNest, whom.Signing(), seen);
        entry.outer = outer;
        return WriteMembershipEntry(by, entry);
    }
    static std::string AddDevice(const DeviceKeys& by, const DeviceKeys& member, const DeviceKeys& device,
                                 const Seen& seen)
    {
        MembershipEntry entry = Entry(MembershipChange::kLink, member.Signing(), seen);
        entry.device = device.Signing();
        entry.agreement = AgreeToLink(device, by.Signing());
        return WriteMembershipEntry(by, entry);
    }
    static std::string Unlink(const DeviceKeys& by, const DeviceKeys& member, const DeviceKeys& device,
                              const Seen& seen)
    {
        MembershipEntry entry = Entry(MembershipChange::kUnlink, member.Signing(), seen);
        entry.device = device.Signing();
        return WriteMembershipEntry(by, entry);
    }
    bool IsIn(const DeviceKeys& device) const
    {
        return IsDeviceOfMember(membership.Members(), device.Signing());
    }

    Names NamesOf(const FolderMembers& members) const
    {
        Names names;
        for (const auto& [key, member] : members)
            names.insert(member.name);
        return names;
    }
    Names NamesNow() const { return NamesOf(membership.Members()); }

    // Takes an entry that is new; what its author saw last, for the next.
    Seen Take(const std::string& entry)
    {
        EXPECT_EQ(membership.Take(entry), Taken::kNew);
        return {IdOfEntry(entry)};
    }

    const DeviceKeys alice, bob, carol, dave;
    const std::string founding =
        WriteMembershipEntry(alice, Entry(MembershipChange::kFound, alice.Signing(), {}, "alice"));
    const Seen founded{IdOfEntry(founding)};
    Membership membership{kFolder, founding};
};

TEST_F(MembershipTest, FlagsAreSharedWhereTheFounderOrADeviceOfHisSaysSo)
{
    const Seen withBob = Take(Add(alice, bob, "bob", founded));
    Take(ShareFlags(bob, bob, withBob));
    Take(ShareFlags(bob, alice, withBob));
    EXPECT_TRUE(membership.FlagEntries().empty()) << "a member alone doesn't";
    const std::string early = ShareFlags(carol, alice, withBob);
    Take(early);
    const Seen withCarol = Take(AddDevice(alice, alice, carol, withBob));
    EXPECT_TRUE(membership.FlagEntries().empty());
    const std::string second = ShareFlags(carol, alice, withCarol);
    Take(second);
    EXPECT_EQ(membership.FlagEntries(), std::vector<std::string>{second});
    EXPECT_EQ(NamesNow(), (Names{"alice", "bob"}));
}

TEST_F(MembershipTest, AFolderLiesWhereItsFounderOrADeviceOfHisHasSaidLast)
{
    const EntryId here{1}, there{2};
    EXPECT_FALSE(membership.Outer());
    const Seen withBob = Take(Add(alice, bob, "bob", founded));
    Take(Nest(bob, bob, there, withBob));
    Take(Nest(bob, alice, there, withBob));
    EXPECT_FALSE(membership.Outer()) << "a member alone doesn't";
    const Seen withCarol = Take(AddDevice(alice, alice, carol, withBob));
    const Seen first = Take(Nest(carol, alice, there, withCarol));
    EXPECT_EQ(membership.Outer(), there);
    const Seen second = Take(Nest(alice, alice, here, first));
    EXPECT_EQ(membership.Outer(), here);
    const Seen gone = Take(Remove(alice, alice, second));
    EXPECT_EQ(membership.Outer(), here) << "what he said before he left stays";
    Take(Nest(alice, alice, there, second));
    Take(Nest(alice, alice, there, gone));
    EXPECT_EQ(membership.Outer(), here);
    EXPECT_EQ(NamesNow(), Names{"bob"});
}

// One form alone: where it means nothing, nothing stands.
TEST_F(MembershipTest, OnlyWhatSaysWhereAFolderLiesNamesAnother)
{
    EXPECT_THROW(Nest(alice, alice, {}, founded), Error);
    MembershipEntry entry = Entry(MembershipChange::kAdd, bob.Signing(), founded, "bob");
    entry.outer = {1};
    EXPECT_THROW(WriteMembershipEntry(alice, entry), Error);
    entry = Entry(MembershipChange::kNest, alice.Signing(), founded);
    entry.outer = {1};
    entry.device = bob.Signing();
    EXPECT_THROW(WriteMembershipEntry(alice, entry), Error);
    entry.device = {};
    EXPECT_EQ(ReadMembershipEntry(WriteMembershipEntry(alice, entry)).outer, entry.outer);
}

TEST_F(MembershipTest, AFounderWhoHasLeftSharesNoFlags)
{
    const Seen withBob = Take(Add(alice, bob, "bob", founded));
    Take(Remove(alice, alice, withBob));
    Take(ShareFlags(alice, alice, withBob));
    EXPECT_TRUE(membership.FlagEntries().empty());
}

TEST_F(MembershipTest, TheFounderIsItsFirstMemberAndMembersAddMembers)
{
    EXPECT_EQ(NamesNow(), Names{"alice"});
    const Seen withBob = Take(Add(alice, bob, "bob", founded));
    Take(Add(bob, carol, "carol", withBob));

    EXPECT_EQ(NamesNow(), (Names{"alice", "bob", "carol"}));
    EXPECT_TRUE(IsDeviceOfMember(membership.Members(), carol.Signing()));
    EXPECT_FALSE(IsDeviceOfMember(membership.Members(), dave.Signing()));
}

TEST_F(MembershipTest, WhoIsntAMemberAddsNobody)
{
    Take(Add(dave, carol, "carol", founded));
    Take(Add(dave, dave, "dave", founded));
    EXPECT_EQ(NamesNow(), Names{"alice"});
}

// Bob's addition is known to the others, but he signed without having seen it.
TEST_F(MembershipTest, WhatIsSignedBeforeItsAuthorKnewThatHeIsAMemberDoesntCount)
{
    Take(Add(alice, bob, "bob", founded));
    Take(Add(bob, carol, "carol", founded));
    EXPECT_EQ(NamesNow(), (Names{"alice", "bob"}));
}

TEST_F(MembershipTest, TheFounderAndTheMemberHimselfRemoveAndNobodyElse)
{
    Seen seen = Take(Add(alice, bob, "bob", founded));
    seen = Take(Add(alice, carol, "carol", seen));
    seen = Take(Add(alice, dave, "dave", seen));
    seen = Take(Remove(bob, carol, seen));
    EXPECT_EQ(NamesNow(), (Names{"alice", "bob", "carol", "dave"}));
    seen = Take(Remove(alice, carol, seen));
    EXPECT_EQ(NamesNow(), (Names{"alice", "bob", "dave"}));
    Take(Remove(dave, dave, seen));
    EXPECT_EQ(NamesNow(), (Names{"alice", "bob"}));
}

TEST_F(MembershipTest, WhoWasRemovedBringsNobodyInByDatingBack)
{
    const Seen withBob = Take(Add(alice, bob, "bob", founded));
    const Seen without = Take(Remove(alice, bob, withBob));
    Take(Add(bob, carol, "carol", withBob));
    Take(Add(bob, dave, "dave", without));
    EXPECT_EQ(NamesNow(), Names{"alice"});
}

TEST_F(MembershipTest, WhatTheRemovedOneDidBeforeStaysAsFarAsTheRemovalHadSeenIt)
{
    const Seen withBob = Take(Add(alice, bob, "bob", founded));
    const Seen withCarol = Take(Add(bob, carol, "carol", withBob));
    Take(Remove(alice, bob, withCarol));
    EXPECT_EQ(NamesNow(), (Names{"alice", "carol"}));
}

TEST_F(MembershipTest, WhomAVoidedEntryBroughtInAddsNobodyEither)
{
    const Seen withBob = Take(Add(alice, bob, "bob", founded));
    const Seen withCarol = Take(Add(bob, carol, "carol", withBob));
    Take(Add(carol, dave, "dave", withCarol));
    EXPECT_EQ(NamesNow(), (Names{"alice", "bob", "carol", "dave"}));
    Take(Remove(alice, bob, withBob));
    EXPECT_EQ(NamesNow(), Names{"alice"});
}

TEST_F(MembershipTest, WhoWasRemovedIsInAgainWhenAddedAgain)
{
    const Seen withBob = Take(Add(alice, bob, "bob", founded));
    const Seen without = Take(Remove(alice, bob, withBob));
    const Seen again = Take(Add(alice, bob, "bob", without));
    EXPECT_EQ(NamesNow(), (Names{"alice", "bob"}));
    Take(Add(bob, carol, "carol", again));
    EXPECT_EQ(NamesNow(), (Names{"alice", "bob", "carol"}));
}

// An addition that its author made without having seen the removal doesn't undo it.
TEST_F(MembershipTest, ARemovalOutlastsAnAdditionBesideIt)
{
    Seen seen = Take(Add(alice, bob, "bob", founded));
    seen = Take(Add(alice, carol, "carol", seen));
    Take(Remove(alice, bob, seen));
    Take(Add(carol, bob, "bob", seen));
    EXPECT_EQ(NamesNow(), (Names{"alice", "carol"}));
}

TEST_F(MembershipTest, AFounderWhoHasLeftRemovesNobody)
{
    const Seen withBob = Take(Add(alice, bob, "bob", founded));
    const Seen withCarol = Take(Add(alice, carol, "carol", withBob));
    Take(Remove(alice, alice, withCarol));
    Take(Remove(alice, bob, withCarol));
    EXPECT_EQ(NamesNow(), (Names{"bob", "carol"}));
}

TEST_F(MembershipTest, AFoundersRemovalBeforeHeLeftStands)
{
    const Seen withBob = Take(Add(alice, bob, "bob", founded));
    const Seen without = Take(Remove(alice, bob, withBob));
    Take(Remove(alice, alice, without));
    EXPECT_EQ(NamesNow(), Names{});
}

TEST_F(MembershipTest, ADeviceIsTheMembersWhenOneOfHisSaysSo)
{
    const Seen withBob = Take(Add(alice, bob, "bob", founded));
    const Seen withPhone = Take(AddDevice(bob, bob, carol, withBob));
    Take(AddDevice(alice, bob, dave, withPhone));

    const FolderMembers members = membership.Members();
    ASSERT_TRUE(members.contains(bob.Signing()));
    EXPECT_EQ(members.at(bob.Signing()).devices, (std::set<SigningKey>{bob.Signing(), carol.Signing()}));
    EXPECT_FALSE(IsDeviceOfMember(members, dave.Signing()));

    const DeviceKeys erin;
    const Seen withErin = Take(Add(carol, erin, "erin", withPhone));
    EXPECT_EQ(NamesNow(), (Names{"alice", "bob", "erin"}));
    Take(Remove(carol, bob, withErin));
    EXPECT_EQ(NamesNow(), (Names{"alice", "erin"}));
    EXPECT_FALSE(IsDeviceOfMember(membership.Members(), carol.Signing()));
}

TEST_F(MembershipTest, ADeviceThatItsAuthorHadntSeenDoesntSpeakForTheMember)
{
    const Seen withBob = Take(Add(alice, bob, "bob", founded));
    Take(AddDevice(bob, bob, carol, withBob));
    Take(Add(carol, dave, "dave", withBob));
    EXPECT_EQ(NamesNow(), (Names{"alice", "bob"}));
}

TEST_F(MembershipTest, ADeviceIsLinkedByNobodyWhomItDidntAgreeToBeLinkedBy)
{
    const Seen withBob = Take(Add(alice, bob, "bob", founded));
    MembershipEntry entry = Entry(MembershipChange::kLink, bob.Signing(), withBob);
    entry.device = dave.Signing();
    for (const Signature& agreement : {AgreeToLink(dave, alice.Signing()), AgreeToLink(bob, bob.Signing()),
                                       AgreeToLink(bob, dave.Signing()), Signature{}}) {
        entry.agreement = agreement;
        EXPECT_NE(RefusalOf([&] { WriteMembershipEntry(bob, entry); }), "");
    }
    std::string stolen = AddDevice(bob, bob, dave, withBob);
    const std::string agreed(reinterpret_cast<const char*>(AgreeToLink(dave, bob.Signing()).data()), 64);
    const std::string other(reinterpret_cast<const char*>(AgreeToLink(dave, carol.Signing()).data()), 64);
    stolen.replace(stolen.find(agreed), 64, other);
    const Signature signature =
        bob.Sign("quorvane3 membership", std::string_view(stolen).substr(0, stolen.size() - 64));
    std::copy(signature.begin(), signature.end(), stolen.end() - 64);
    EXPECT_NE(RefusalOf([&] { membership.Take(stolen); }).find("doesn't agree"), std::string::npos);
    EXPECT_FALSE(IsIn(dave));
}

TEST_F(MembershipTest, WhoIsntAMemberLinksNothingIntoTheFolder)
{
    Take(AddDevice(carol, carol, dave, founded));
    Take(AddDevice(carol, alice, dave, founded));
    EXPECT_FALSE(IsIn(dave));
    EXPECT_EQ(membership.Members().size(), 1U);
}

TEST_F(MembershipTest, ADeviceThatIsUnlinkedIsOutAndTheMemberStays)
{
    const Seen withBob = Take(Add(alice, bob, "bob", founded));
    const Seen linked = Take(AddDevice(bob, bob, carol, withBob));
    Take(Unlink(alice, bob, carol, linked));
    EXPECT_TRUE(IsIn(carol)) << "alice has no say in that, though she founded the folder";

    // The first device is the lost one.
    const Seen unlinked = Take(Unlink(carol, bob, bob, linked));
    EXPECT_FALSE(IsIn(bob));
    EXPECT_TRUE(IsIn(carol));
    EXPECT_EQ(NamesNow(), (Names{"alice", "bob"}));
    Take(AddDevice(bob, bob, dave, unlinked));
    Take(Unlink(bob, bob, carol, unlinked));
    Take(Remove(bob, bob, unlinked));
    EXPECT_FALSE(IsIn(dave));
    EXPECT_TRUE(IsIn(carol));
}

TEST_F(MembershipTest, WithItsLastDeviceAMemberIsOut)
{
    const Seen withBob = Take(Add(alice, bob, "bob", founded));
    Take(Unlink(bob, bob, bob, withBob));
    EXPECT_EQ(NamesNow(), Names{"alice"});
}

TEST_F(MembershipTest, WhatAnUnlinkedDeviceSignedCountsAsFarAsThatHadSeenIt)
{
    const DeviceKeys phone, early, late;
    const Seen withBob = Take(Add(alice, bob, "bob", founded));
    const Seen linked = Take(AddDevice(bob, bob, phone, withBob));
    const Seen seen = Take(AddDevice(phone, bob, early, linked));
    Take(Unlink(bob, bob, phone, seen));
    Take(AddDevice(phone, bob, late, linked));
    Take(Add(phone, dave, "dave", linked));
    Take(Remove(phone, bob, linked));
    EXPECT_TRUE(IsIn(early));
    EXPECT_FALSE(IsIn(phone));
    EXPECT_FALSE(IsIn(late));
    EXPECT_EQ(NamesNow(), (Names{"alice", "bob"}));
}

// Nobody else can tell which of them was stolen. Who knows the member adds him again by the one that wasn't.
TEST_F(MembershipTest, TwoThatUnlinkEachOtherAreBothOutUntilOneIsAddedAgain)
{
    const Seen withBob = Take(Add(alice, bob, "bob", founded));
    const Seen linked = Take(AddDevice(bob, bob, carol, withBob));
    const Seen first = Take(Unlink(bob, bob, carol, linked));
    const Seen second = Take(Unlink(carol, bob, bob, linked));
    EXPECT_FALSE(IsIn(bob));
    EXPECT_FALSE(IsIn(carol));
    EXPECT_EQ(NamesNow(), Names{"alice"});
    Take(Add(carol, carol, "bob", second));
    EXPECT_FALSE(IsIn(carol)) << "who is out adds nobody";

    Seen both = first;
    both.insert(second.begin(), second.end());
    const Seen again = Take(Add(alice, bob, "bob", both));
    EXPECT_TRUE(IsIn(bob));
    EXPECT_FALSE(IsIn(carol));
    Take(AddDevice(bob, bob, dave, again));
    EXPECT_TRUE(IsIn(dave));
}

TEST_F(MembershipTest, ADeviceMayBeLinkedTwiceAndOnceMoreWhenItWasUnlinked)
{
    const Seen withBob = Take(Add(alice, bob, "bob", founded));
    const Seen one = Take(AddDevice(bob, bob, carol, withBob));
    Take(AddDevice(bob, bob, dave, withBob));
    Seen both = Take(AddDevice(bob, bob, carol, one));
    EXPECT_EQ(membership.Members().at(bob.Signing()).devices.size(), 3U);
    const Seen out = Take(Unlink(bob, bob, carol, one));
    EXPECT_FALSE(IsIn(carol)) << "the second link hadn't seen that";
    both.insert(out.begin(), out.end());
    Take(AddDevice(bob, bob, carol, both));
    EXPECT_TRUE(IsIn(carol));
}

TEST_F(MembershipTest, ALinkBesideTheMembersLeavingBringsNobodyBackUntilHeIsAddedAgain)
{
    const Seen withBob = Take(Add(alice, bob, "bob", founded));
    Take(AddDevice(bob, bob, carol, withBob));
    const Seen left = Take(Remove(bob, bob, withBob));
    EXPECT_FALSE(IsIn(bob));
    EXPECT_FALSE(IsIn(carol));
    Take(Add(alice, bob, "bob", left));
    EXPECT_TRUE(IsIn(bob));
    EXPECT_TRUE(IsIn(carol));
}

// By one of two that are members of their own.
TEST_F(MembershipTest, ADeviceThatIsAMemberOfItsOwnIsInAsLongAsEitherIs)
{
    Seen seen = Take(Add(alice, bob, "bob", founded));
    seen = Take(Add(alice, carol, "carol", seen));
    seen = Take(AddDevice(bob, bob, carol, seen));
    Take(Remove(alice, carol, seen));
    EXPECT_TRUE(IsIn(carol));
    Take(Unlink(bob, bob, carol, seen));
    EXPECT_FALSE(IsIn(carol));
}

// A name is what is shown; who a member is, his key tells.
TEST_F(MembershipTest, AMemberUnderAnothersNameHasNoneOfHisRights)
{
    Seen seen = Take(Add(alice, bob, "bob", founded));
    seen = Take(Add(bob, carol, "alice", seen));
    Take(Remove(carol, alice, seen));
    Take(Remove(carol, bob, seen));
    EXPECT_EQ(membership.Members().size(), 3U);
}

TEST_F(MembershipTest, OfTwoNamesThatAMemberWasBroughtInUnderAllShowTheSame)
{
    const Seen withBob = Take(Add(alice, bob, "bob", founded));
    const std::string one = Add(alice, carol, "carol", withBob), two = Add(bob, carol, "caroline", withBob);
    Membership other(kFolder, founding);
    other.Take(Add(alice, bob, "bob", founded));
    for (const std::string& entry : {one, two})
        EXPECT_EQ(membership.Take(entry), Taken::kNew);
    for (const std::string& entry : {two, one})
        EXPECT_EQ(other.Take(entry), Taken::kNew);

    EXPECT_EQ(NamesNow(), (Names{"alice", "bob", "carol"}));
    EXPECT_EQ(other.Members(), membership.Members());
}

TEST_F(MembershipTest, AtAnEarlierPointTheMembersOfThenAreTold)
{
    const Seen withBob = Take(Add(alice, bob, "bob", founded));
    const Seen without = Take(Remove(alice, bob, withBob));
    EXPECT_EQ(NamesOf(membership.MembersAt(founded)), Names{"alice"});
    EXPECT_EQ(NamesOf(membership.MembersAt(withBob)), (Names{"alice", "bob"}));
    EXPECT_EQ(NamesOf(membership.MembersAt(without)), Names{"alice"});
    EXPECT_NE(RefusalOf([&] { membership.MembersAt({EntryId{}}); }), "");
}

TEST_F(MembershipTest, WhatHasSeenMoreThanIsHereWaits)
{
    const std::string first = Add(alice, bob, "bob", founded);
    const std::string second = Add(bob, carol, "carol", {IdOfEntry(first)});
    EXPECT_EQ(membership.Take(second), Taken::kWaiting);
    EXPECT_EQ(NamesNow(), Names{"alice"});
    EXPECT_EQ(membership.Take(first), Taken::kNew);
    EXPECT_EQ(membership.Latest(), Seen{IdOfEntry(first)});
    EXPECT_EQ(membership.Take(second), Taken::kNew);
    EXPECT_EQ(membership.Take(second), Taken::kKnown);
    EXPECT_EQ(NamesNow(), (Names{"alice", "bob", "carol"}));
    EXPECT_EQ(membership.Latest(), Seen{IdOfEntry(second)});
    EXPECT_EQ(membership.Entries(), (std::vector<std::string>{founding, first, second}));
}

TEST_F(MembershipTest, OtherFoldersEntriesAndASecondFoundingAreRefused)
{
    MembershipEntry other = Entry(MembershipChange::kAdd, bob.Signing(), founded, "bob");
    other.folder = "{G}";
    EXPECT_NE(RefusalOf([&] { membership.Take(WriteMembershipEntry(alice, other)); }).find("another folder"),
              std::string::npos);
    const std::string second =
        WriteMembershipEntry(bob, Entry(MembershipChange::kFound, bob.Signing(), {}, "bob"));
    EXPECT_NE(RefusalOf([&] { membership.Take(second); }).find("second time"), std::string::npos);
    EXPECT_NE(RefusalOf([&] { Membership("{G}", founding); }), "");
    EXPECT_NE(RefusalOf([&] { Membership(kFolder, Add(alice, bob, "bob", founded)); }), "");
}

TEST_F(MembershipTest, AnEntryWithAnyBitChangedOrCutIsRefused)
{
    const std::string entry = Add(alice, bob, "bob", founded);
    for (std::size_t at = 0; at < entry.size(); ++at) {
        std::string changed = entry;
        changed[at] = static_cast<char>(changed[at] ^ 1 << at % 8);
        EXPECT_NE(RefusalOf([&] { membership.Take(changed); }), "") << at;
        EXPECT_NE(RefusalOf([&] { membership.Take(entry.substr(0, at)); }), "") << at;
    }
    EXPECT_NE(RefusalOf([&] { membership.Take(entry + 'x'); }), "");
    EXPECT_NE(RefusalOf([&] { membership.Take(std::string(kLongestEntry + 1, 'x')); }), "");
}

TEST_F(MembershipTest, AnEntryHasEachFieldWhereItMeansSomethingAlone)
{
    const auto refused = [&](MembershipEntry entry, const DeviceKeys& by) {
        EXPECT_NE(RefusalOf([&] { WriteMembershipEntry(by, entry); }), "");
    };
    const MembershipEntry add = Entry(MembershipChange::kAdd, bob.Signing(), founded, "bob");
    MembershipEntry wrong = add;
    wrong.name = "";
    refused(wrong, alice);
    wrong = add;
    wrong.name = "../bob";
    refused(wrong, alice);
    wrong = add;
    wrong.device = carol.Signing();
    refused(wrong, alice);
    wrong = add;
    wrong.seen.clear();
    refused(wrong, alice);
    wrong = add;
    wrong.folder = "";
    refused(wrong, alice);
    wrong = Entry(MembershipChange::kRemove, bob.Signing(), founded, "bob");
    refused(wrong, alice);
    refused(Entry(MembershipChange::kLink, bob.Signing(), founded), bob);
    refused(Entry(MembershipChange::kUnlink, bob.Signing(), founded), bob);
    wrong = Entry(MembershipChange::kUnlink, bob.Signing(), founded);
    wrong.device = carol.Signing();
    wrong.agreement = AgreeToLink(carol, bob.Signing());
    refused(wrong, bob);
    wrong.change = MembershipChange::kLink;
    wrong.name = "bob";
    refused(wrong, bob);
    refused(Entry(MembershipChange::kFound, alice.Signing(), founded, "alice"), alice);
    refused(Entry(MembershipChange::kFound, alice.Signing(), {}, "alice"), bob);
}

// Devices that get the same entries in different orders come to the same members, at every seed.
TEST_F(MembershipTest, TheOrderInWhichEntriesComeMakesNoDifference)
{
    std::set<Names> ends;
    for (unsigned seed = 0; seed < 20; ++seed) {
        std::mt19937 random(seed);
        const DeviceKeys* const people[] = {&alice, &bob, &carol, &dave};
        const char* const names[] = {"alice", "bob", "carol", "dave"};
        Membership here(kFolder, founding);
        std::vector<EntryId> ids{IdOfEntry(founding)};
        for (int step = 0; step < 25; ++step) {
            Seen seen{ids[random() % ids.size()]};
            if (random() % 2)
                seen = here.Latest();
            const DeviceKeys& by = *people[random() % 4];
            const std::size_t whom = random() % 4;
            const DeviceKeys &member = *people[random() % 4], &device = *people[whom];
            const unsigned kind = random() % 6;
            const std::string entry = kind < 3    ? Add(by, device, names[whom], seen)
                                      : kind == 3 ? Remove(by, device, seen)
                                      : kind == 4 ? AddDevice(by, member, device, seen)
                                                  : Unlink(by, member, device, seen);
            if (here.Take(entry) == Taken::kNew)
                ids.push_back(IdOfEntry(entry));
        }
        Membership there(kFolder, founding);
        std::vector<std::string> entries = here.Entries();
        std::shuffle(entries.begin(), entries.end(), random);
        for (bool waits = true; waits;) {
            waits = false;
            for (const std::string& entry : entries)
                waits |= there.Take(entry) == Taken::kWaiting;
        }
        ASSERT_EQ(there.Entries().size(), here.Entries().size()) << seed;
        EXPECT_EQ(there.Members(), here.Members()) << seed;
        EXPECT_EQ(there.Latest(), here.Latest()) << seed;
        ends.insert(NamesOf(here.Members()));
    }
    EXPECT_GT(ends.size(), 4U);
}

TEST_F(MembershipTest, ThereAreNoMoreEntriesThanMayBe)
{
    Seen seen = founded;
    for (std::size_t count = 1; count < Membership::kMostEntries; ++count)
        seen = Take(Remove(bob, carol, seen));
    EXPECT_NE(RefusalOf([&] { membership.Take(Remove(bob, carol, seen)); }).find("than may be"),
              std::string::npos);
    EXPECT_EQ(NamesNow(), Names{"alice"});
}

}  // namespace

}  // namespace quorvane::host::exchange
