// The road of a change between two mailboxes, run by hosts that bind late.
#include <gtest/gtest.h>

#include <future>
#include <optional>

#include "tests/late_bound/engine_module.h"
#include "tests/late_bound/script_logon.h"
#include "tests/support/registered_library.h"

#ifdef QUORVANE3_OBJECT_MODEL_H_
#error "this host has no types of the engine"
#endif

namespace quorvane::test {
namespace {

constexpr char kFolderId[] = "{0F6B3D52-7A0C-4E53-9C0B-5D7C2A4E9B31}";
constexpr long kAdded = 10;
constexpr long kModified = 20;
constexpr long kDeleted = 30;

using Strings = std::vector<std::string>;

MailContents Read(const TestFolder& folder, const std::string& subject)
{
    const auto id = folder.Find(subject);
    return id ? ContentsOf(*folder.Open(*id).Get()) : MailContents();
}

class LateBoundSharingTest : public testing::Test {
protected:
    LateBoundSharingTest()
    {
        a.Host().SendTo("bob");
        b.Host().SendTo("alice");
    }
    void TearDown() override
    {
        EXPECT_EQ(a.Host().Complaint(), "");
        EXPECT_EQ(b.Host().Complaint(), "");
    }

    // Carries what waits for the recipients to the other side, and waits until it is applied.
    static void Carry(const ScriptLogon& from, const std::string& recipients, const ScriptLogon& to,
                      const TestMailbox& mailbox)
    {
        const auto package = from.TakePackage(recipients);
        const auto delivered = mailbox.InboxPath() / package.filename();
        std::filesystem::rename(package, delivered);
        to.Process(delivered, "tag");
    }

    TestMailbox mailboxA;
    TestMailbox mailboxB;
    TestFolder folderA = mailboxA.MakeFolder("Shared");
    TestFolder folderB = mailboxB.MakeFolder("Shared too");
    const ScriptLogon a{mailboxA};
    const ScriptLogon b{mailboxB};
    const Automation sharedA = a.Share(folderA, kFolderId);
    const Automation sharedB = b.Share(folderB, kFolderId);
};

TEST_F(LateBoundSharingTest, ANewMailAppearsOnTheOtherSideAndItsChangeAndDeletionFollow)
{
    const std::string inA = folderA.Add("Hello", "How are you?");
    ASSERT_TRUE(a.Host().Heard("onItemAdded"));
    const ScriptEvent added = a.Host().Events("onItemAdded").front();
    EXPECT_EQ(added.entryId, inA);
    EXPECT_EQ(added.action, kAdded);
    Carry(a, "bob", b, mailboxB);
    ASSERT_TRUE(b.Host().Heard("onItemReceived"));
    EXPECT_EQ(b.Host().Events("onItemReceived").front().id, added.id);
    EXPECT_EQ(b.Host().Events("onItemReceived").front().text, "tag");
    EXPECT_EQ(folderB.Subjects(), Strings{"Hello"});
    EXPECT_EQ(Read(folderB, "Hello"), Read(folderA, "Hello"));

    folderA.SetSubject(inA, "Hello again");
    ASSERT_TRUE(a.Host().Heard("onItemChanged"));
    EXPECT_EQ(a.Host().Events("onItemChanged").front().id, added.id);
    EXPECT_EQ(a.Host().Events("onItemChanged").front().action, kModified);
    Carry(a, "bob", b, mailboxB);
    EXPECT_EQ(folderB.Subjects(), Strings{"Hello again"});

    folderA.Delete(inA);
    ASSERT_TRUE(a.Host().Heard("onItemDeleted"));
    EXPECT_EQ(a.Host().Events("onItemDeleted").front().id, added.id);
    EXPECT_EQ(a.Host().Events("onItemDeleted").front().action, kDeleted);
    Carry(a, "bob", b, mailboxB);
    EXPECT_EQ(folderB.Count(), 0u);

    EXPECT_TRUE(b.Host().Heard("onPostprocess"));
    EXPECT_TRUE(b.Host().Events("onItemAdded").empty()) << "what is applied isn't offered back";
    EXPECT_TRUE(b.Host().Events("onItemChanged").empty());
    EXPECT_TRUE(b.Host().Events("onItemDeleted").empty());
}

TEST_F(LateBoundSharingTest, AChangeAndADeletionComeBack)
{
    const std::string inA = folderA.Add("Hello", "How are you?");
    ASSERT_TRUE(a.Host().Heard("onItemAdded"));
    Carry(a, "bob", b, mailboxB);
    const auto inB = folderB.Find("Hello");
    ASSERT_TRUE(inB);
    // The store has told of the applied mail, as it was then, when it tells of a later one.
    folderB.Add("fence", "body");
    ASSERT_TRUE(b.Host().Heard("onItemAdded"));

    folderB.SetSubject(*inB, "Hello back");
    ASSERT_TRUE(b.Host().Heard("onItemChanged"));
    Carry(b, "alice", a, mailboxA);
    EXPECT_EQ(folderA.Find("Hello back"), inA);

    folderB.Delete(*inB);
    ASSERT_TRUE(b.Host().Heard("onItemDeleted"));
    Carry(b, "alice", a, mailboxA);
    EXPECT_EQ(folderA.Subjects(), std::vector<std::string>{"fence"});
}

TEST_F(LateBoundSharingTest, AnAnnouncedFolderIsShownToTheOtherSide)
{
    sharedA.Call("Send", Pack(TextValue("bob")));
    Carry(a, "bob", b, mailboxB);

    ASSERT_TRUE(b.Host().Heard("onFolderReceived"));
    EXPECT_EQ(b.Host().Events("onFolderReceived").front().id, kFolderId);
    EXPECT_EQ(b.Host().Events("onFolderReceived").front().text, "tag");
}

TEST_F(LateBoundSharingTest, WithoutTheHostsHandTheEngineSendsUnderTheFoldersOwnIdentifier)
{
    a.Host().SendTo("");
    folderA.Add("Hello", "How are you?");

    const Automation files(a.Session().Get("StorageFiles"));
    EXPECT_TRUE(
        Eventually([&] { return SUCCEEDED(files.TryGet("Item", Pack(TextValue(folderA.EntryId()))).hr); }));
    EXPECT_TRUE(a.Host().Heard("onItemAdded"));
}

TEST_F(LateBoundSharingTest, AFolderThatIgnoresEventsIsSilent)
{
    const TestFolder other = mailboxA.MakeFolder("Shared as well");
    const Automation sharedOther = a.Share(other, "other");
    sharedA.Put("IgnoreEvents", Variant::Bool(true));
    EXPECT_EQ(sharedA.Get("IgnoreEvents").Raw().boolVal, VARIANT_TRUE);

    folderA.Add("unseen", "body");
    // Next in the queue of the mailbox's notifications.
    const std::string fence = other.Add("fence", "body");
    ASSERT_TRUE(a.Host().Heard("onItemAdded"));

    EXPECT_EQ(a.Host().Events("onItemAdded").front().entryId, fence);
}

TEST(LateBoundLogoffTest, AScriptThatAnswersAfterTheLogoffFindsTheItemWithoutItsSession)
{
    const TestMailbox mailboxA;
    const TestMailbox mailboxB;
    const TestFolder folderA = mailboxA.MakeFolder("Shared");
    const TestFolder folderB = mailboxB.MakeFolder("Shared too");
    const ScriptLogon a(mailboxA);
    a.Share(folderA, kFolderId);
    a.Host().SendTo("bob");
    folderA.Add("Hello", "body");
    ASSERT_TRUE(a.Host().Heard("onItemAdded"));
    const auto package = a.TakePackage("bob");

    struct Late {
        std::promise<void> asked, loggedOff;
        std::promise<std::pair<Outcome, Outcome>> answers;
    };
    const auto late = std::make_shared<Late>();
    std::optional<ScriptLogon> b(std::in_place, mailboxB);
    b->Share(folderB, kFolderId);
    b->Host().WhenAsked([late](const std::string&, const Automation& item) {
        late->asked.set_value();
        late->loggedOff.get_future().wait();
        Outcome folder = item.TryGet("Folder");
        late->answers.set_value({std::move(folder), item.TryCall("Send", Pack(TextValue("bob")))});
    });
    b->Session().Call("ProcessStorageFile", Pack(TextValue(package.string()), TextValue("tag")));
    late->asked.get_future().wait();
    b.reset();
    late->loggedOff.set_value();
    const auto [folder, sent] = late->answers.get_future().get();

    EXPECT_EQ(folder.scode, E_UNEXPECTED);
    EXPECT_EQ(sent.scode, E_UNEXPECTED);
}

// Locks, whose third argument may be left out.
class LateBoundLockTest : public LateBoundSharingTest {
protected:
    void SetUp() override
    {
        item = folderA.Add("Hello", "body");
        ASSERT_TRUE(a.Host().Heard("onItemAdded"));
    }

    Arguments Key() const { return Pack(TextValue(item), TextValue(folderA.StoreId())); }
    bool IsLocked() const { return a.Session().Call("IsItemLocked", Key()).Raw().boolVal == VARIANT_TRUE; }

    std::string item;
};

TEST_F(LateBoundLockTest, WithTwoArgumentsOneChangePassesSilentlyAndTheLockIsGone)
{
    a.Session().Call("LockItem", Key());
    EXPECT_TRUE(IsLocked());

    folderA.SetSubject(item, "the host's own change");
    EXPECT_TRUE(Eventually([&] { return !IsLocked(); }));
    folderA.SetSubject(item, "somebody's change");
    ASSERT_TRUE(a.Host().Heard("onItemChanged"));

    EXPECT_EQ(a.Host().Events("onItemChanged").size(), 1u);
}

TEST_F(LateBoundLockTest, WithAutoUnlockFalseTheLockStaysUntilItIsTakenOff)
{
    Arguments arguments = Key();
    arguments.push_back(Variant::Bool(false));
    a.Session().Call("LockItem", std::move(arguments));

    folderA.SetSubject(item, "the host's own change");
    folderA.Add("fence", "body");
    ASSERT_TRUE(a.Host().Heard("onItemAdded", 2));

    EXPECT_TRUE(a.Host().Events("onItemChanged").empty());
    EXPECT_TRUE(IsLocked());
    EXPECT_EQ(a.Session().TryCall("UnlockItem", Key()).hr, S_OK);
    EXPECT_FALSE(IsLocked());
    EXPECT_EQ(a.Session().TryCall("UnlockItem", Key()).scode, E_FAIL);
}

TEST_F(LateBoundLockTest, ALockIsNamedInAnyOrder)
{
    a.Session().Call("LockItem", {},
                     Name(As("AutoUnlock", Variant::Bool(false)), As("StoreID", TextValue(folderA.StoreId())),
                          As("EntryID", TextValue(item))));
    EXPECT_TRUE(IsLocked());

    a.Session().Call("DropLock", Key());
    EXPECT_TRUE(IsLocked()) << "it isn't one that goes by itself";
    EXPECT_EQ(a.Session().TryCall("UnlockItem", Key()).hr, S_OK);
}

// A host that lives on one thread, as scripts do: the engine's calls wait until it pumps.
TEST(LateBoundApartmentTest, AScriptIsCalledOnItsOwnThread)
{
    const RegisteredLibrary registered;
    const ApartmentScope apartment;
    TestMailbox mailboxA;
    TestMailbox mailboxB;
    const TestFolder folderA = mailboxA.MakeFolder("Shared");
    const TestFolder folderB = mailboxB.MakeFolder("Shared too");
    const ScriptLogon a(mailboxA);
    const ScriptLogon b(mailboxB);
    a.Share(folderA, kFolderId);
    b.Share(folderB, kFolderId);
    a.Host().SendTo("bob");

    folderA.Add("Hello", "body");
    ASSERT_TRUE(a.Host().Heard("onItemAdded", 1, true));
    const auto package = a.TakePackage("bob");
    b.Process(package, "tag", true);

    ASSERT_TRUE(b.Host().Heard("onItemReceived", 1, true));
    EXPECT_EQ(folderB.Subjects(), Strings{"Hello"});
    EXPECT_EQ(a.Host().Events("onItemAdded").front().thread, std::this_thread::get_id());
    EXPECT_EQ(b.Host().Events("onItemReceived").front().thread, std::this_thread::get_id());
    EXPECT_EQ(a.Host().Complaint() + b.Host().Complaint(), "");
}

}  // namespace
}  // namespace quorvane::test
