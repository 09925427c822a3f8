#include "engine/transfer/storage_files.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <thread>

#include "engine/folders/folder.h"
#include "engine/items/arguments.h"
#include "engine/items/item.h"
#include "engine/items/message_storage.h"
#include "engine/items/package.h"
#include "engine/items/testing/test_folders.h"
#include "engine/items/testing/test_session.h"
#include "engine/session/trace/testing/traced_lines.h"
#include "engine/transfer/package_layout.h"
#include "engine/transfer/storage_path.h"
#include "platform/cfb/stg.h"

namespace quorvane {
namespace {

// The storages of a package's part, by name.
std::vector<std::string> Elements(const std::string& path, const OLECHAR* part)
{
    std::vector<std::string> names;
    ComPtr<IStorage> root;
    ComPtr<IStorage> version;
    ComPtr<IStorage> storage;
    EXPECT_EQ(StgOpenStorage(Widen(path).c_str(), nullptr, kOpenMode, nullptr, 0, root.Put()), S_OK) << path;
    EXPECT_EQ(root->OpenStorage(kVersionName, nullptr, kOpenMode, nullptr, 0, version.Put()), S_OK);
    EXPECT_EQ(version->OpenStorage(part, nullptr, kOpenMode, nullptr, 0, storage.Put()), S_OK);
    ComPtr<IEnumSTATSTG> elements;
    EXPECT_EQ(storage->EnumElements(0, nullptr, 0, elements.Put()), S_OK);
    STATSTG stat{};
    while (elements->Next(1, &stat, nullptr) == S_OK) {
        names.push_back(Narrow(stat.pwcsName));
        CoTaskMemFree(stat.pwcsName);
    }
    return names;
}

// The names that the elements of these IDs have, in the order of an enumeration.
std::vector<std::string> NamesOf(std::initializer_list<OleStringView> ids)
{
    std::vector<std::string> names;
    for (const OleStringView id : ids)
        names.push_back(Narrow(ElementName(Bstr(id).Get())));
    std::sort(names.begin(), names.end());
    return names;
}

class StorageFilesTest : public ::testing::Test {
protected:
    StorageFilesTest()
    {
        files = MakeComObject<CStorageFiles>(&session);
        session.storageFiles = ComPtr<IStorageFiles>(files.Get());
    }

    ~StorageFilesTest() override
    {
        session.storageFiles.Reset();
        for (const std::string& path : paths)
            std::filesystem::remove(path);
    }

    ComPtr<IStorageFile> Add(OleStringView recipients)
    {
        ComPtr<IStorageFile> made;
        EXPECT_EQ(files->Add(Bstr(recipients).Get(), made.Put()), S_OK);
        if (made)
            paths.push_back(PathOf(*made));
        return made;
    }

    static std::string PathOf(IStorageFile& file)
    {
        Bstr path;
        EXPECT_EQ(file.get_Path(path.Put()), S_OK);
        return Narrow(path.View());
    }

    static Bstr RecipientsOf(IStorageFile& file)
    {
        Bstr recipients;
        EXPECT_EQ(file.get_Recipients(recipients.Put()), S_OK);
        return recipients;
    }

    // Writes an item without a message.
    HRESULT Send(OleStringView id, OleStringView recipients, OleStringView customInfo = OLESTR("info"))
    {
        const ComPtr<CItem> item = MakeComObject<CItem>(&session);
        item->m_bstrID = Bstr(id);
        item->m_bstrCustomInfo = Bstr(customInfo);
        return item->Send(Bstr(recipients).Get());
    }

    // "<ID> <CustomInfo>" of each element in a package, sorted.
    std::vector<std::string> Items(const std::string& path)
    {
        std::vector<std::string> items;
        for (const std::string& name : Elements(path, kItemsName)) {
            ComPtr<IStorage> root;
            ComPtr<IStorage> version;
            ComPtr<IStorage> storage;
            ComPtr<IStorage> element;
            EXPECT_EQ(StgOpenStorage(Widen(path).c_str(), nullptr, kOpenMode, nullptr, 0, root.Put()), S_OK);
            EXPECT_EQ(root->OpenStorage(kVersionName, nullptr, kOpenMode, nullptr, 0, version.Put()), S_OK);
            EXPECT_EQ(version->OpenStorage(kItemsName, nullptr, kOpenMode, nullptr, 0, storage.Put()), S_OK);
            EXPECT_EQ(
                storage->OpenStorage(Widen(name).c_str(), nullptr, kOpenMode, nullptr, 0, element.Put()),
                S_OK);
            const ComPtr<CItem> item = MakeComObject<CItem>(&session);
            EXPECT_EQ(item->Load(element.Get()), S_OK);
            items.push_back(Narrow(item->m_bstrID.View()) + " " + Narrow(item->m_bstrCustomInfo.View()));
        }
        std::sort(items.begin(), items.end());
        return items;
    }

    static bool IsLocked(IStorageFile& file)
    {
        VARIANT_BOOL locked = VARIANT_FALSE;
        EXPECT_EQ(file.get_isLocked(&locked), S_OK);
        return locked != VARIANT_FALSE;
    }

    static bool IsOpen(IStorageFile& file)
    {
        ComPtr<IStorage> root;
        return StgOpenStorage(Widen(PathOf(file)).c_str(), nullptr, kOpenMode, nullptr, 0, root.Put()) ==
               STG_E_SHAREVIOLATION;
    }

    ComPtr<IStorageFile> Item(const VARIANT& index, HRESULT expected = S_OK)
    {
        Variant value;
        EXPECT_EQ(files->get_Item(index, value.Put()), expected);
        ComPtr<IStorageFile> file;
        if (value.Is(VT_DISPATCH) && FAILED(QueryFor(value.Raw().pdispVal, file)))
            ADD_FAILURE() << "an element that is no storage file";
        return file;
    }

    LONG Count()
    {
        LONG count = -1;
        EXPECT_EQ(files->get_Count(&count), S_OK);
        return count;
    }

    std::string Rows() { return session.Ask("SELECT COUNT(*) FROM tblStorageFiles"); }

    testing::TestSession session;
    ComPtr<CStorageFiles> files;
    std::vector<std::string> paths;
};

TEST_F(StorageFilesTest, ANewPackageIsAnEmptyCompoundFileWithARow)
{
    const ComPtr<IStorageFile> file = Add(OLESTR("ann;bob"));

    EXPECT_EQ(RecipientsOf(*file).View(), OLESTR("ann;bob"));
    EXPECT_TRUE(Elements(PathOf(*file), kFoldersName).empty());
    EXPECT_TRUE(Elements(PathOf(*file), kItemsName).empty());
    EXPECT_EQ(session.Ask("SELECT Recipients||' '||Path||' '||Status FROM tblStorageFiles"),
              "ann;bob " + PathOf(*file) + " 0");
}

TEST_F(StorageFilesTest, TheSameRecipientsAreAddedOnce)
{
    Add(OLESTR("ann"));
    ComPtr<IStorageFile> again;

    EXPECT_EQ(files->Add(Bstr(OLESTR("ann")).Get(), again.Put()), E_FAIL);

    EXPECT_FALSE(again);
    EXPECT_EQ(Rows(), "1");
}

TEST_F(StorageFilesTest, APackageWithoutARowIsntAdded)
{
    session.Execute("DROP TABLE tblStorageFiles");
    ComPtr<IStorageFile> made;

    EXPECT_EQ(files->Add(Bstr(OLESTR("ann")).Get(), made.Put()), kNoTable);

    EXPECT_FALSE(made);
    EXPECT_EQ(Count(), 0);
}

TEST_F(StorageFilesTest, ItemTakesAKeyOrANumber)
{
    const ComPtr<IStorageFile> bob = Add(OLESTR("bob"));
    const ComPtr<IStorageFile> ann = Add(OLESTR("ann"));
    VARIANT number = NoArgument();
    number.vt = VT_I4;

    EXPECT_EQ(Item(TextArgument(Bstr(OLESTR("bob")).Get())), bob);
    number.lVal = 1;
    EXPECT_EQ(Item(number), ann);
    number.lVal = 2;
    EXPECT_EQ(Item(number), bob);
    number.lVal = 0;
    EXPECT_FALSE(Item(number, E_INVALIDARG));
    number.lVal = 3;
    EXPECT_FALSE(Item(number, E_FAIL));
    EXPECT_FALSE(Item(TextArgument(Bstr(OLESTR("zed")).Get()), E_FAIL));
}

TEST_F(StorageFilesTest, EnumerationFollowsTheOrderOfTheRecipients)
{
    const ComPtr<IStorageFile> bob = Add(OLESTR("bob"));
    const ComPtr<IStorageFile> ann = Add(OLESTR("ann"));
    ComPtr<IUnknown> unknown;
    ASSERT_EQ(files->get__NewEnum(unknown.Put()), S_OK);
    ComPtr<IEnumVARIANT> enumerator;
    ASSERT_EQ(unknown.As(enumerator), S_OK);

    Variant first;
    ASSERT_EQ(enumerator->Next(1, first.Put(), nullptr), S_OK);
    EXPECT_EQ(first.Raw().pdispVal, static_cast<IDispatch*>(ann.Get()));
    Variant second;
    ASSERT_EQ(enumerator->Next(1, second.Put(), nullptr), S_OK);
    EXPECT_EQ(second.Raw().pdispVal, static_cast<IDispatch*>(bob.Get()));
}

TEST_F(StorageFilesTest, RemoveForgetsThePackageAndLeavesItsFile)
{
    const ComPtr<IStorageFile> file = Add(OLESTR("ann"));
    const std::string path = PathOf(*file);

    ASSERT_EQ(files->Remove(TextArgument(Bstr(OLESTR("ann")).Get())), S_OK);

    EXPECT_EQ(Count(), 0);
    EXPECT_EQ(Rows(), "0");
    EXPECT_TRUE(std::filesystem::exists(path));
    EXPECT_EQ(PathOf(*file), "");
    EXPECT_EQ(files->Remove(TextArgument(Bstr(OLESTR("ann")).Get())), E_FAIL);
}

TEST_F(StorageFilesTest, RemoveByNumberCountsFromOne)
{
    Add(OLESTR("ann"));
    VARIANT number = NoArgument();
    number.vt = VT_I4;

    EXPECT_EQ(files->Remove(number), E_INVALIDARG);
    number.lVal = 2;
    EXPECT_EQ(files->Remove(number), E_INVALIDARG);
    number.lVal = 1;
    EXPECT_EQ(files->Remove(number), S_OK);
    EXPECT_EQ(Rows(), "0");
}

TEST_F(StorageFilesTest, TheListSurvivesARestart)
{
    const std::string path = PathOf(*Add(OLESTR("ann")));
    ASSERT_EQ(Item(TextArgument(Bstr(OLESTR("ann")).Get()))->put_isLocked(VARIANT_TRUE), S_OK);
    files = MakeComObject<CStorageFiles>(&session);

    ASSERT_EQ(files->Init(), S_OK);

    const ComPtr<IStorageFile> file = Item(TextArgument(Bstr(OLESTR("ann")).Get()));
    ASSERT_TRUE(file);
    EXPECT_EQ(PathOf(*file), path);
    Bstr recipients;
    ASSERT_EQ(file->get_Recipients(recipients.Put()), S_OK);
    EXPECT_EQ(recipients.View(), OLESTR("ann"));
    VARIANT_BOOL locked = VARIANT_FALSE;
    ASSERT_EQ(file->get_isLocked(&locked), S_OK);
    EXPECT_EQ(locked, VARIANT_TRUE);
}

TEST_F(StorageFilesTest, ARowWhoseFileIsGoneIsDroppedAtTheStart)
{
    Add(OLESTR("ann"));
    std::filesystem::remove(PathOf(*Add(OLESTR("bob"))));
    files = MakeComObject<CStorageFiles>(&session);

    const std::string lines = testing::TracedLines([this] { EXPECT_EQ(files->Init(), S_OK); });

    EXPECT_EQ(Count(), 1);
    EXPECT_EQ(session.Ask("SELECT Recipients FROM tblStorageFiles"), "ann");
    const size_t name = lines.find("CStorageFiles::Init(");
    ASSERT_NE(name, std::string::npos) << lines;
    EXPECT_NE(lines.find(") Warning: Storage Directory was deleted from Outbox without sending", name),
              std::string::npos)
        << lines;
}

TEST_F(StorageFilesTest, TheStartFailsWithoutItsTable)
{
    session.Execute("DROP TABLE tblStorageFiles");
    EXPECT_EQ(files->Init(), kNoTable);
    session.CloseDatabase();
    EXPECT_EQ(files->Init(), kNotOpen);
}

TEST_F(StorageFilesTest, AnItemGoesIntoThePackageOfItsRecipients)
{
    const ComPtr<IStorageFile> file = Add(OLESTR("ann"));

    ASSERT_EQ(Send(OLESTR("{A}"), OLESTR("ann")), S_OK);
    ASSERT_EQ(Send(OLESTR("{B}"), OLESTR("ann")), S_OK);

    EXPECT_EQ(Count(), 1);
    EXPECT_EQ(Items(PathOf(*file)), (std::vector<std::string>{"{A} info", "{B} info"}));
    std::vector<std::string> names = Elements(PathOf(*file), kItemsName);
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names, NamesOf({OLESTR("{A}"), OLESTR("{B}")}));
}

TEST_F(StorageFilesTest, SendingMakesAPackageWhereThereIsNone)
{
    ASSERT_EQ(Send(OLESTR("{A}"), OLESTR("ann")), S_OK);

    const ComPtr<IStorageFile> file = Item(TextArgument(Bstr(OLESTR("ann")).Get()));
    ASSERT_TRUE(file);
    paths.push_back(PathOf(*file));
    EXPECT_EQ(Elements(PathOf(*file), kItemsName),
              std::vector<std::string>{Narrow(ElementName(Bstr(OLESTR("{A}")).Get()))});
    VARIANT_BOOL locked = VARIANT_TRUE;
    ASSERT_EQ(file->get_isLocked(&locked), S_OK);
    EXPECT_EQ(locked, VARIANT_FALSE);
}

TEST_F(StorageFilesTest, SendingAnItemTwiceLeavesOneElementWithTheLaterContent)
{
    const ComPtr<IStorageFile> file = Add(OLESTR("ann"));

    ASSERT_EQ(Send(OLESTR("{A}"), OLESTR("ann"), OLESTR("first")), S_OK);
    ASSERT_EQ(Send(OLESTR("{A}"), OLESTR("ann"), OLESTR("second")), S_OK);

    EXPECT_EQ(Items(PathOf(*file)), std::vector<std::string>{"{A} second"});
}

TEST_F(StorageFilesTest, AFolderIsSentToItsEntryIdWhereNobodyIsNamed)
{
    session.folders = ComPtr<IFolders>(MakeComObject<testing::SharedFolders>().Get());
    const ComPtr<CFolder> folder = MakeComObject<CFolder>(&session);
    ASSERT_EQ(folder->put_ID(Bstr(OLESTR("{F}")).Get()), S_OK);
    // There is no such folder to listen to; its identifier stays.
    EXPECT_LT(folder->put_EntryID(Bstr(OLESTR("00AB")).Get()), 0);

    ASSERT_EQ(folder->Send(Variant::Missing().Raw()), S_OK);
    ASSERT_EQ(folder->Send(Variant::Missing().Raw()), S_OK);

    EXPECT_EQ(Count(), 1);
    const ComPtr<IStorageFile> file = Item(TextArgument(Bstr(OLESTR("00AB")).Get()));
    ASSERT_TRUE(file);
    paths.push_back(PathOf(*file));
    EXPECT_EQ(Elements(PathOf(*file), kFoldersName), NamesOf({OLESTR("{F}")}));
    EXPECT_FALSE(IsLocked(*file));
}

TEST_F(StorageFilesTest, AFolderIsSentToATextAlone)
{
    VARIANT number = NoArgument();
    number.vt = VT_I4;
    number.lVal = 5;

    EXPECT_EQ(MakeComObject<CFolder>(&session)->Send(number), E_INVALIDARG);

    EXPECT_EQ(Count(), 0);
}

TEST_F(StorageFilesTest, APackageIsClosedBetweenTwoWrites)
{
    const ComPtr<IStorageFile> file = Add(OLESTR("ann"));
    Variant element;
    ASSERT_EQ(file->Lock(), S_OK);
    ASSERT_EQ(file->OpenItem(Bstr(OLESTR("{A}")).Get(), element.Put()), S_OK);
    ComPtr<IStorage> root;
    const OleString path = Widen(PathOf(*file));
    EXPECT_EQ(StgOpenStorage(path.c_str(), nullptr, kOpenMode, nullptr, 0, root.Put()), STG_E_SHAREVIOLATION);

    element = Variant();
    ASSERT_EQ(file->Unlock(), S_OK);

    EXPECT_EQ(StgOpenStorage(path.c_str(), nullptr, kOpenMode, nullptr, 0, root.Put()), S_OK);
}

TEST_F(StorageFilesTest, KeptPackagesStayOpenBetweenTwoWrites)
{
    const ComPtr<IStorageFile> file = Add(OLESTR("ann"));
    ASSERT_EQ(files->KeepOpen(TRUE), S_OK);
    ASSERT_EQ(Send(OLESTR("{A}"), OLESTR("ann")), S_OK);
    EXPECT_FALSE(IsLocked(*file));
    EXPECT_TRUE(IsOpen(*file));
    ASSERT_EQ(Send(OLESTR("{B}"), OLESTR("ann")), S_OK);
    EXPECT_EQ(Send(OLESTR("{A}"), OLESTR("ann"), OLESTR("later")), S_OK);

    ASSERT_EQ(files->KeepOpen(FALSE), S_OK);

    EXPECT_FALSE(IsOpen(*file));
    EXPECT_EQ(Items(PathOf(*file)), (std::vector<std::string>{"{A} later", "{B} info"}));
    ASSERT_EQ(Send(OLESTR("{C}"), OLESTR("ann")), S_OK);
    EXPECT_FALSE(IsOpen(*file));
}

TEST_F(StorageFilesTest, AKeptPackageIsClosedWhenItIsRemoved)
{
    const std::string path = PathOf(*Add(OLESTR("ann")));
    const ComPtr<IStorageFile> file = Item(TextArgument(Bstr(OLESTR("ann")).Get()));
    ASSERT_EQ(files->KeepOpen(TRUE), S_OK);
    ASSERT_EQ(Send(OLESTR("{A}"), OLESTR("ann")), S_OK);

    ASSERT_EQ(files->Remove(TextArgument(Bstr(OLESTR("ann")).Get())), S_OK);

    EXPECT_EQ(Items(path), std::vector<std::string>{"{A} info"});
}

TEST_F(StorageFilesTest, AWriterClosesItsPackageWhereKeepingHasEndedMeanwhile)
{
    const ComPtr<IStorageFile> file = Add(OLESTR("ann"));
    ASSERT_EQ(files->KeepOpen(TRUE), S_OK);
    ASSERT_EQ(file->Lock(), S_OK);
    Variant element;
    ASSERT_EQ(file->OpenItem(Bstr(OLESTR("{A}")).Get(), element.Put()), S_OK);

    ASSERT_EQ(files->KeepOpen(FALSE), S_OK);

    element = Variant();
    EXPECT_TRUE(IsOpen(*file));
    ASSERT_EQ(file->Unlock(), S_OK);
    EXPECT_FALSE(IsOpen(*file));
}

TEST_F(StorageFilesTest, APackageThatSomebodyHasOpenIsLeftAlone)
{
    const ComPtr<IStorageFile> file = Add(OLESTR("ann"));
    ASSERT_EQ(Send(OLESTR("{A}"), OLESTR("ann")), S_OK);
    ComPtr<IStorage> root;
    const OleString path = Widen(PathOf(*file));
    ASSERT_EQ(StgOpenStorage(path.c_str(), nullptr, kOpenMode, nullptr, 0, root.Put()), S_OK);

    EXPECT_EQ(Send(OLESTR("{B}"), OLESTR("ann")), STG_E_SHAREVIOLATION);
    EXPECT_FALSE(IsLocked(*file));

    root.Reset();
    EXPECT_EQ(Items(PathOf(*file)), std::vector<std::string>{"{A} info"});
    EXPECT_EQ(Send(OLESTR("{B}"), OLESTR("ann")), S_OK);
    EXPECT_EQ(Items(PathOf(*file)), (std::vector<std::string>{"{A} info", "{B} info"}));
}

TEST_F(StorageFilesTest, ADamagedPackageIsRemovedFromTheDisk)
{
    const ComPtr<IStorageFile> file = Add(OLESTR("ann"));
    std::ofstream(PathOf(*file), std::ios::binary) << "no compound file";
    Variant element;

    EXPECT_LT(file->OpenItem(Bstr(OLESTR("{A}")).Get(), element.Put()), 0);

    EXPECT_FALSE(std::filesystem::exists(PathOf(*file)));
}

TEST_F(StorageFilesTest, AWriterWhosePackageWasRemovedWritesIntoANewOne)
{
    const ComPtr<IStorageFile> old = Add(OLESTR("ann"));
    ASSERT_EQ(old->Lock(), S_OK);
    std::atomic<HRESULT> sent = E_UNEXPECTED;
    std::thread writer([&] { sent = Send(OLESTR("{A}"), OLESTR("ann")); });
    std::thread host([&] { EXPECT_EQ(files->Remove(TextArgument(Bstr(OLESTR("ann")).Get())), S_OK); });
    ASSERT_EQ(old->Unlock(), S_OK);
    host.join();
    writer.join();

    EXPECT_EQ(sent, S_OK);
    // The item is in the old package, if the writer came first, or in a new one.
    const ComPtr<IStorageFile> made = Count() ? Item(TextArgument(Bstr(OLESTR("ann")).Get())) : nullptr;
    if (made)
        paths.push_back(PathOf(*made));
    EXPECT_EQ(Elements(made ? PathOf(*made) : paths.front(), kItemsName).size(), 1u);
}

TEST_F(StorageFilesTest, LockOfAFreePackageReturnsAtOnce)
{
    const ComPtr<IStorageFile> file = Add(OLESTR("ann"));
    const auto start = std::chrono::steady_clock::now();

    ASSERT_EQ(file->Lock(), S_OK);

    EXPECT_LT(std::chrono::steady_clock::now() - start, CStorageFile::kLockTimeout);
    VARIANT_BOOL locked = VARIANT_FALSE;
    ASSERT_EQ(file->get_isLocked(&locked), S_OK);
    EXPECT_EQ(locked, VARIANT_TRUE);
    EXPECT_EQ(session.Ask("SELECT Status FROM tblStorageFiles"), "0");
    ASSERT_EQ(file->Unlock(), S_OK);
}

TEST_F(StorageFilesTest, ASecondLockIsTakenAfterTenSeconds)
{
    const ComPtr<IStorageFile> file = Add(OLESTR("ann"));
    ASSERT_EQ(file->Lock(), S_OK);
    const auto start = std::chrono::steady_clock::now();

    Variant first;
    ASSERT_EQ(file->OpenItem(Bstr(OLESTR("{A}")).Get(), first.Put()), S_OK);

    EXPECT_EQ(file->Lock(), S_OK);

    EXPECT_GE(std::chrono::steady_clock::now() - start, CStorageFile::kLockTimeout);
    EXPECT_TRUE(IsLocked(*file));
    // The second writer works on what the first one has open.
    Variant second;
    EXPECT_EQ(file->OpenItem(Bstr(OLESTR("{B}")).Get(), second.Put()), S_OK);
    first = Variant();
    second = Variant();
    ASSERT_EQ(file->Unlock(), S_OK);
    EXPECT_EQ(Elements(PathOf(*file), kItemsName).size(), 2u);
    // The lock is the second one's, and with it the first one's: nobody waits for a writer twice.
    const auto next = std::chrono::steady_clock::now();
    ASSERT_EQ(file->Lock(), S_OK);
    EXPECT_LT(std::chrono::steady_clock::now() - next, CStorageFile::kLockTimeout);
    ASSERT_EQ(file->Unlock(), S_OK);
}

TEST_F(StorageFilesTest, IsLockedIsKeptInTheRow)
{
    const ComPtr<IStorageFile> file = Add(OLESTR("ann"));

    ASSERT_EQ(file->put_isLocked(VARIANT_TRUE), S_OK);
    EXPECT_EQ(session.Ask("SELECT Status<>0 FROM tblStorageFiles"), "1");

    session.Execute("DROP TABLE tblStorageFiles");
    EXPECT_EQ(file->put_isLocked(VARIANT_FALSE), S_OK);
    VARIANT_BOOL locked = VARIANT_TRUE;
    ASSERT_EQ(file->get_isLocked(&locked), S_OK);
    EXPECT_EQ(locked, VARIANT_FALSE);

    session.CloseDatabase();
    EXPECT_EQ(file->put_isLocked(VARIANT_TRUE), kNotOpen);
}

TEST_F(StorageFilesTest, ADeleteThatDoesntReachTheDatabaseKeepsTheFields)
{
    const ComPtr<IStorageFile> file = Add(OLESTR("ann"));
    session.CloseDatabase();

    EXPECT_EQ(file->Delete(), S_OK);

    EXPECT_EQ(RecipientsOf(*file).View(), OLESTR("ann"));
}

TEST_F(StorageFilesTest, ManyWritersForManyRecipientsLoseNothing)
{
    constexpr int kWriters = 6;
    constexpr int kItems = 12;
    std::vector<std::thread> writers;
    for (int writer = 0; writer < kWriters; ++writer) {
        writers.emplace_back([this, writer] {
            for (int i = 0; i < kItems; ++i) {
                const OleString id = Widen(std::to_string(writer) + "-" + std::to_string(i));
                EXPECT_EQ(Send(id, i % 2 ? OLESTR("ann") : OLESTR("bob")), S_OK);
            }
        });
    }
    for (std::thread& writer : writers)
        writer.join();

    EXPECT_EQ(Count(), 2);
    EXPECT_EQ(Rows(), "2");
    for (const OLECHAR* recipients : {OLESTR("ann"), OLESTR("bob")}) {
        const ComPtr<IStorageFile> file = Item(TextArgument(Bstr(recipients).Get()));
        ASSERT_TRUE(file);
        paths.push_back(PathOf(*file));
        EXPECT_EQ(Elements(PathOf(*file), kItemsName).size(), size_t{kWriters * kItems / 2});
    }
}

}  // namespace
}  // namespace quorvane
