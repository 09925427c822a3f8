#include "engine/transfer/storage_processor.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <thread>

#include "engine/folders/folder.h"
#include "engine/items/arguments.h"
#include "engine/items/testing/mail_test.h"
#include "engine/transfer/package_layout.h"
#include "engine/transfer/storage_file.h"
#include "engine/transfer/storage_path.h"
#include "platform/cfb/stg.h"

namespace quorvane {
namespace {

using testing::MakeDetachedMessage;
using testing::TestMail;
using testing::TestMailbox;

// A package to be received: what another member's engine has made.
class Package {
public:
    explicit Package(SessionContext& session) : file_(MakeComObject<CStorageFile>(&session))
    {
        EXPECT_EQ(file_->put_Recipients(Bstr(OLESTR("us")).Get()), S_OK);
    }
    ~Package() { std::filesystem::remove(Path()); }

    std::string Path()
    {
        Bstr path;
        EXPECT_EQ(file_->get_Path(path.Put()), S_OK);
        return Narrow(path.View());
    }

    void Put(CItem& item) { Write(item, &CStorageFile::OpenItem, item.m_bstrID); }
    void Put(CFolder& folder)
    {
        Bstr id;
        EXPECT_EQ(folder.get_ID(id.Put()), S_OK);
        Write(folder, &CStorageFile::OpenFolder, id);
    }

    // A storage among the items that holds nothing.
    void PutGarbage(OleStringView id)
    {
        Variant element;
        EXPECT_EQ(file_->OpenItem(Bstr(id).Get(), element.Put()), S_OK);
        element = Variant();
        EXPECT_EQ(file_->Unlock(), S_OK);
    }

    // How many elements are left; -1 when the file is gone.
    int ItemsLeft()
    {
        if (!std::filesystem::exists(Path()))
            return -1;
        ComPtr<IStorage> root;
        ComPtr<IStorage> version;
        ComPtr<IStorage> items;
        EXPECT_EQ(StgOpenStorage(Widen(Path()).c_str(), nullptr, kOpenMode, nullptr, 0, root.Put()), S_OK);
        EXPECT_EQ(root->OpenStorage(kVersionName, nullptr, kOpenMode, nullptr, 0, version.Put()), S_OK);
        EXPECT_EQ(version->OpenStorage(kItemsName, nullptr, kOpenMode, nullptr, 0, items.Put()), S_OK);
        ComPtr<IEnumSTATSTG> elements;
        EXPECT_EQ(items->EnumElements(0, nullptr, 0, elements.Put()), S_OK);
        int count = 0;
        STATSTG stat{};
        for (; elements->Next(1, &stat, nullptr) == S_OK; ++count)
            CoTaskMemFree(stat.pwcsName);
        return count;
    }

private:
    template <class Persistent>
    void Write(Persistent& object, HRESULT (STDMETHODCALLTYPE CStorageFile::*open)(BSTR, VARIANT*),
               const Bstr& id)
    {
        Variant element;
        EXPECT_EQ((file_.Get()->*open)(id.Get(), element.Put()), S_OK);
        ComPtr<IStorage> storage;
        EXPECT_EQ(QueryFor(element.Raw().punkVal, storage), S_OK);
        EXPECT_EQ(object.Save(storage.Get(), TRUE), S_OK);
        storage.Reset();
        element = Variant();
        EXPECT_EQ(file_->Unlock(), S_OK);
    }

    ComPtr<CStorageFile> file_;
};

class StorageProcessorTest : public testing::MailTest {
protected:
    StorageProcessorTest()
    {
        EXPECT_EQ(stop.Create(false), S_OK);
        session.Execute("INSERT INTO tblUnfinishedReceiveJob VALUES ('" + package.Path() + "', 'tag')");
    }

    void PutMessage(OleStringView id, const std::string& subject)
    {
        package.Put(*MakeItem(id, *MakeDetachedMessage({subject, "Body", {"ann"}, {"a.txt"}})));
    }

    DWORD Run()
    {
        CStorageProcessor processor(Bstr(Widen(package.Path())), Bstr(OLESTR("tag")), &session);
        return processor.ThreadProc(stop);
    }

    std::string Jobs() { return session.Ask("SELECT COUNT(*) FROM tblUnfinishedReceiveJob"); }

    // What the host was told of items and folders.
    std::vector<std::string> Calls()
    {
        std::vector<std::string> calls;
        for (const std::string& call : session.host.Calls()) {
            if (call.rfind("postprocess", 0) != 0)
                calls.push_back(call);
        }
        std::sort(calls.begin(), calls.end());
        return calls;
    }

    Package package{session};
    Event stop;
};

TEST_F(StorageProcessorTest, EveryItemIsShownAndApplied)
{
    PutMessage(OLESTR("{A}"), "One");
    PutMessage(OLESTR("{B}"), "Two");

    EXPECT_EQ(Run(), 0u);

    EXPECT_EQ(Calls(), (std::vector<std::string>{"received {A} tag", "received {B} tag"}));
    EXPECT_EQ(TestMailbox::Subjects(*inbox), (std::vector<std::string>{"One", "Two"}));
    EXPECT_EQ(session.Ask("SELECT COUNT(*) FROM tblItem"), "2");
    EXPECT_EQ(package.ItemsLeft(), -1);
    EXPECT_EQ(Jobs(), "0");
}

TEST_F(StorageProcessorTest, OneThreadAsksTheHostOfAllItems)
{
    PutMessage(OLESTR("{A}"), "One");
    PutMessage(OLESTR("{B}"), "Two");
    std::vector<std::thread::id> threads;
    session.host.whenItemReceived = [&](IItem*, bool&) {
        threads.push_back(std::this_thread::get_id());
        return S_OK;
    };

    EXPECT_EQ(Run(), 0u);

    ASSERT_EQ(threads.size(), 2u);
    EXPECT_EQ(threads[0], threads[1]);
    EXPECT_NE(threads[0], std::this_thread::get_id());
}

TEST_F(StorageProcessorTest, AFolderIsShownAndEntersNoCollection)
{
    const ComPtr<CFolder> announced = MakeComObject<CFolder>(&session);
    ASSERT_EQ(announced->put_ID(Bstr(OLESTR("{new}")).Get()), S_OK);
    package.Put(*announced);

    EXPECT_EQ(Run(), 0u);

    EXPECT_EQ(Calls(), std::vector<std::string>{"folder {new} tag"});
    EXPECT_EQ(package.ItemsLeft(), -1);
}

TEST_F(StorageProcessorTest, AnEmptyPackageIsDeletedWithItsRow)
{
    EXPECT_EQ(Run(), 0u);

    EXPECT_EQ(package.ItemsLeft(), -1);
    EXPECT_EQ(Jobs(), "0");
}

TEST_F(StorageProcessorTest, AnItemThatTheHostIgnoresIsntApplied)
{
    PutMessage(OLESTR("{A}"), "One");
    session.host.whenItemReceived = [](IItem*, bool& ignore) {
        ignore = true;
        return S_OK;
    };

    EXPECT_EQ(Run(), 0u);

    EXPECT_TRUE(TestMailbox::Subjects(*inbox).empty());
    EXPECT_EQ(package.ItemsLeft(), -1);
}

TEST_F(StorageProcessorTest, AnItemOfAFolderThatIsntSharedGoesWithoutACall)
{
    const ComPtr<CItem> item = MakeItem(OLESTR("{A}"), *MakeDetachedMessage({"One", "", {}, {}}));
    item->m_bstrFolderID = Bstr(OLESTR("{unknown}"));
    package.Put(*item);

    EXPECT_EQ(Run(), 0u);

    EXPECT_TRUE(Calls().empty());
    EXPECT_TRUE(TestMailbox::Subjects(*inbox).empty());
    EXPECT_EQ(package.ItemsLeft(), -1);
}

TEST_F(StorageProcessorTest, AHostThatFailsLeavesTheItemUndoneAndTheOthersGoOn)
{
    PutMessage(OLESTR("{A}"), "One");
    PutMessage(OLESTR("{B}"), "Two");
    session.host.whenItemReceived = [](IItem* item, bool&) {
        Bstr id;
        item->get_ID(id.Put());
        return id.View() == OLESTR("{A}") ? E_FAIL : S_OK;
    };

    EXPECT_EQ(Run(), CStorageProcessor::kUndone);

    EXPECT_EQ(TestMailbox::Subjects(*inbox), std::vector<std::string>{"Two"});
    EXPECT_EQ(package.ItemsLeft(), -1);
    EXPECT_EQ(Jobs(), "0");
}

TEST_F(StorageProcessorTest, AFolderThatTheHostRefusesIsUndone)
{
    const ComPtr<CFolder> announced = MakeComObject<CFolder>(&session);
    package.Put(*announced);
    PutMessage(OLESTR("{A}"), "One");
    session.host.whenFolderReceived = [](IFolder*) { return E_FAIL; };

    EXPECT_EQ(Run(), CStorageProcessor::kUndone);

    EXPECT_EQ(TestMailbox::Subjects(*inbox), std::vector<std::string>{"One"});
}

TEST_F(StorageProcessorTest, ADamagedElementIsUndoneAndTheOthersGoOn)
{
    package.PutGarbage(OLESTR("{G}"));
    PutMessage(OLESTR("{A}"), "One");

    EXPECT_EQ(Run(), CStorageProcessor::kUndone);

    EXPECT_EQ(TestMailbox::Subjects(*inbox), std::vector<std::string>{"One"});
}

// Seen on a mail that was applied again at each delivery: it was saved before its row was refused.
TEST_F(StorageProcessorTest, AnItemWhoseIdFitsNoRowIsNeverSaved)
{
    const OleString id(50, OLESTR('x'));
    PutMessage(id, "One");
    const std::string copy = session.directory.File("copy.qvt");
    std::filesystem::copy_file(package.Path(), copy);

    EXPECT_EQ(Run(), CStorageProcessor::kUndone);
    std::filesystem::rename(copy, package.Path());
    EXPECT_EQ(Run(), CStorageProcessor::kUndone);

    EXPECT_TRUE(TestMailbox::Subjects(*inbox).empty());
}

TEST_F(StorageProcessorTest, AFileThatIsNoPackageIsDeletedWithItsRow)
{
    std::ofstream(package.Path(), std::ios::binary) << "not a package";

    EXPECT_EQ(Run(), 0u);

    EXPECT_FALSE(std::filesystem::exists(package.Path()));
    EXPECT_EQ(Jobs(), "0");
}

TEST_F(StorageProcessorTest, AFileThatIsGoneLosesItsRow)
{
    std::filesystem::remove(package.Path());

    EXPECT_EQ(Run(), 0u);

    EXPECT_EQ(Jobs(), "0");
}

TEST_F(StorageProcessorTest, AFileThatSomebodyHasOpenStaysWithItsRow)
{
    PutMessage(OLESTR("{A}"), "One");
    ComPtr<IStorage> other;
    ASSERT_EQ(StgOpenStorage(Widen(package.Path()).c_str(), nullptr, kOpenMode, nullptr, 0, other.Put()),
              S_OK);

    EXPECT_EQ(Run(), 0u);

    other.Reset();
    EXPECT_EQ(package.ItemsLeft(), 1);
    EXPECT_EQ(Jobs(), "1");
}

TEST_F(StorageProcessorTest, ARowThatCantBeDeletedStays)
{
    session.host.whenItemReceived = [this](IItem*, bool&) {
        session.Execute("ALTER TABLE tblUnfinishedReceiveJob RENAME TO away");
        return S_OK;
    };
    PutMessage(OLESTR("{A}"), "One");

    EXPECT_EQ(Run(), 0u);

    EXPECT_EQ(session.Ask("SELECT COUNT(*) FROM away"), "1");
    EXPECT_EQ(package.ItemsLeft(), -1);
}

TEST_F(StorageProcessorTest, WithoutTheHostNothingIsApplied)
{
    PutMessage(OLESTR("{A}"), "One");
    session.hostIsThere = false;

    EXPECT_EQ(Run(), 0u);

    EXPECT_TRUE(TestMailbox::Subjects(*inbox).empty());
}

TEST_F(StorageProcessorTest, AStopBeforeTheFirstItemKeepsFileAndRow)
{
    PutMessage(OLESTR("{A}"), "One");
    ASSERT_EQ(stop.Set(), S_OK);

    Run();

    EXPECT_TRUE(Calls().empty());
    EXPECT_EQ(package.ItemsLeft(), 1);
    EXPECT_EQ(Jobs(), "1");
}

TEST_F(StorageProcessorTest, AStopBetweenTwoItemsLeavesTheSecondForTheNextRun)
{
    PutMessage(OLESTR("{A}"), "One");
    PutMessage(OLESTR("{B}"), "Two");
    session.host.whenPostprocessed = [this] { return stop.Set(); };

    Run();

    EXPECT_EQ(package.ItemsLeft(), 1);
    EXPECT_EQ(Jobs(), "1");

    session.host.whenPostprocessed = nullptr;
    ASSERT_EQ(stop.Reset(), S_OK);
    EXPECT_EQ(Run(), 0u);
    EXPECT_EQ(Calls(), (std::vector<std::string>{"received {A} tag", "received {B} tag"}));
    EXPECT_EQ(TestMailbox::Subjects(*inbox), (std::vector<std::string>{"One", "Two"}));
    EXPECT_EQ(Jobs(), "0");
}

// A host that answers only when it is let go.
class SlowHost {
public:
    explicit SlowHost(testing::TestHost& host)
    {
        EXPECT_EQ(asked_.Create(false), S_OK);
        EXPECT_EQ(mayAnswer_.Create(false), S_OK);
        EXPECT_EQ(answered_.Create(false), S_OK);
        host.whenItemReceived = [this](IItem* item, bool&) {
            asked_.Set();
            mayAnswer_.Wait();
            Bstr id;
            item->get_ID(id.Put());
            answered_.Set();
            return S_OK;
        };
    }
    void WaitUntilAsked() { EXPECT_TRUE(asked_.Wait(Timeout(60000))); }
    void Answer()
    {
        mayAnswer_.Set();
        EXPECT_TRUE(answered_.Wait(Timeout(60000)));
    }

private:
    Event asked_;
    Event mayAnswer_;
    Event answered_;
};

TEST_F(StorageProcessorTest, AStopDoesntWaitForTheHostAndALateAnswerDoesNoHarm)
{
    PutMessage(OLESTR("{A}"), "One");
    PutMessage(OLESTR("{B}"), "Two");
    SlowHost slow(session.host);
    std::thread job([this] { Run(); });
    slow.WaitUntilAsked();

    ASSERT_EQ(stop.Set(), S_OK);
    job.join();

    EXPECT_EQ(Jobs(), "1");
    EXPECT_TRUE(TestMailbox::Subjects(*inbox).empty());
    slow.Answer();
    EXPECT_EQ(package.ItemsLeft(), 2);
}

TEST_F(StorageProcessorTest, AStopDuringTheLastItemDeletesTheFile)
{
    PutMessage(OLESTR("{A}"), "One");
    SlowHost slow(session.host);
    std::thread job([this] { Run(); });
    slow.WaitUntilAsked();

    ASSERT_EQ(stop.Set(), S_OK);
    job.join();

    EXPECT_EQ(Jobs(), "0");
    slow.Answer();
    EXPECT_FALSE(std::filesystem::exists(package.Path()));
}

TEST_F(StorageProcessorTest, ADeletionRemovesTheMessage)
{
    const ComPtr<CItem> known = MakeItem(OLESTR("{A}"), *mailbox.AddMessage(*inbox, {"One", "", {}, {}}));
    ASSERT_EQ(known->DBAppend(), S_OK);
    package.Put(*MakeItem(OLESTR("{A}")));

    EXPECT_EQ(Run(), 0u);

    EXPECT_TRUE(TestMailbox::Subjects(*inbox).empty());
    EXPECT_EQ(session.Ask("SELECT COUNT(*) FROM tblItem"), "0");
}

TEST_F(StorageProcessorTest, AHostThatKeepsAnIgnoredItemDoesntKeepTheFile)
{
    PutMessage(OLESTR("{A}"), "One");
    ComPtr<IItem> kept;
    session.host.whenItemReceived = [&kept](IItem* item, bool& ignore) {
        kept = ComPtr<IItem>(item);
        ignore = true;
        return S_OK;
    };

    EXPECT_EQ(Run(), 0u);

    EXPECT_FALSE(std::filesystem::exists(package.Path()));
    Variant subject;
    kept->GetProperty(TagArgument(PR_SUBJECT_A), subject.Put());  // whatever it gives, it doesn't crash
}

TEST_F(StorageProcessorTest, TheSamePackageAgainChangesNothing)
{
    PutMessage(OLESTR("{A}"), "One");
    const std::string copy = session.directory.File("copy.qvt");
    std::filesystem::copy_file(package.Path(), copy);
    EXPECT_EQ(Run(), 0u);
    std::filesystem::rename(copy, package.Path());

    EXPECT_EQ(Run(), 0u);

    EXPECT_EQ(TestMailbox::Subjects(*inbox), std::vector<std::string>{"One"});
    EXPECT_EQ(session.Ask("SELECT COUNT(*) FROM tblItem"), "1");
}

// What is left of a part's elements, told by the part itself.
class ElementsLeftTest : public StorageProcessorTest {
protected:
    ElementsLeftTest() { EXPECT_EQ(part.Create(), S_OK); }

    template <class Persistent>
    void PutElement(OleStringView id, Persistent& object)
    {
        ComPtr<IStorage> element;
        const OleString name = ElementName(Bstr(id).Get());
        ASSERT_EQ(part.storage->CreateStorage(name.c_str(), kCreateMode, 0, 0, element.Put()), S_OK);
        EXPECT_EQ(object.Save(element.Get(), TRUE), S_OK);
    }
    void PutItem(OleStringView id, OleStringView folderId = testing::kFolderId)
    {
        const ComPtr<CItem> item = MakeItem(id, *MakeDetachedMessage({"Mail", "Body", {}, {}}));
        item->m_bstrFolderID = Bstr(folderId);
        PutElement(id, *item.Get());
    }
    void PutFolder(OleStringView id)
    {
        const ComPtr<CFolder> announced = MakeComObject<CFolder>(&session);
        EXPECT_EQ(announced->put_ID(Bstr(id).Get()), S_OK);
        PutElement(id, *announced.Get());
    }

    HRESULT DoItems() { return processor.DoItems(part.storage.Get(), stop); }
    HRESULT DoFolders() { return processor.DoFolders(part.storage.Get()); }

    std::vector<std::string> Left()
    {
        std::vector<std::string> names;
        ComPtr<IEnumSTATSTG> elements;
        EXPECT_EQ(part.storage->EnumElements(0, nullptr, 0, elements.Put()), S_OK);
        STATSTG stat{};
        while (elements->Next(1, &stat, nullptr) == S_OK) {
            names.push_back(Narrow(stat.pwcsName));
            CoTaskMemFree(stat.pwcsName);
        }
        return names;
    }
    static std::vector<std::string> Only(OleStringView id) { return {Narrow(ElementName(Bstr(id).Get()))}; }

    MemoryStorage part;
    CStorageProcessor processor{Bstr(), Bstr(OLESTR("tag")), &session};
};

TEST_F(ElementsLeftTest, AnItemThatIsAppliedIgnoredOrOfNoFolderHereGoes)
{
    PutItem(OLESTR("{applied}"));
    PutItem(OLESTR("{ignored}"));
    PutItem(OLESTR("{foreign}"), OLESTR("{unknown}"));
    session.host.whenItemReceived = [](IItem* item, bool& ignore) {
        Bstr id;
        item->get_ID(id.Put());
        ignore = id.View() == OLESTR("{ignored}");
        return S_OK;
    };

    EXPECT_EQ(DoItems(), S_OK);

    EXPECT_EQ(Left(), std::vector<std::string>());
    EXPECT_EQ(TestMailbox::Subjects(*inbox).size(), 1u);
}

TEST_F(ElementsLeftTest, AnItemThatTheHostFailsStays)
{
    PutItem(OLESTR("{A}"));
    PutItem(OLESTR("{B}"));
    session.host.whenItemReceived = [](IItem* item, bool&) {
        Bstr id;
        item->get_ID(id.Put());
        return id.View() == OLESTR("{A}") ? E_FAIL : S_OK;
    };

    EXPECT_EQ(DoItems(), S_FALSE);

    EXPECT_EQ(Left(), Only(OLESTR("{A}")));
}

TEST_F(ElementsLeftTest, AnItemThatCantBeAppliedStays)
{
    PutItem(OLESTR("{A}"));
    session.Execute("DROP TABLE tblItem");

    EXPECT_EQ(DoItems(), S_FALSE);

    EXPECT_EQ(Left(), Only(OLESTR("{A}")));
}

TEST_F(ElementsLeftTest, AFolderThatWasShownGoesAndOneThatTheHostFailsStays)
{
    PutFolder(OLESTR("{F1}"));
    PutFolder(OLESTR("{F2}"));
    session.host.whenFolderReceived = [](IFolder* shown) {
        Bstr id;
        shown->get_ID(id.Put());
        return id.View() == OLESTR("{F1}") ? E_FAIL : S_OK;
    };

    EXPECT_EQ(DoFolders(), S_FALSE);
    EXPECT_EQ(Left(), Only(OLESTR("{F1}")));

    session.host.whenFolderReceived = nullptr;
    EXPECT_EQ(DoFolders(), S_OK);
    EXPECT_EQ(Left(), std::vector<std::string>());
}

}  // namespace
}  // namespace quorvane
