#include "engine/folders/folders.h"

#include <algorithm>
#include <thread>

#include "engine/folders/folder.h"
#include "engine/items/testing/mail_test.h"
#include "platform/com/error_text.h"

namespace quorvane {
namespace {

using testing::Number;
using testing::TestMailbox;
using testing::Text;

std::string Lower(const Bstr& text)
{
    std::string result = Narrow(text.View());
    std::transform(result.begin(), result.end(), result.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return result;
}

class FoldersTest : public ::testing::Test {
protected:
    FoldersTest()
    {
        session.mapiSession = mailbox.Session();
        session.folders = ComPtr<IFolders>(folders.Get());
        const ComPtr<COptions> options = MakeComObject<COptions>();
        EXPECT_EQ(options->Add(kNoListeners, Number(0)), S_OK);
        session.options = ComPtr<IOptions>(options.Get());
        ids.push_back(TestMailbox::IdOf(*mailbox.MakeFolder("One")));
        ids.push_back(TestMailbox::IdOf(*mailbox.MakeFolder("Two")));
        ids.push_back(TestMailbox::IdOf(*mailbox.MakeFolder("Three")));
        std::sort(ids.begin(), ids.end(), BstrLess());
    }

    ~FoldersTest() override
    {
        session.folders.Reset();
        folders.Reset();
    }

    HRESULT Add(const Bstr& entryId, const VARIANT& id, ComPtr<IFolder>& added)
    {
        return folders->Add(entryId.Get(), mailbox.StoreId().Get(), id, Variant::Missing().Raw(),
                            added.Put());
    }
    ComPtr<IFolder> Add(const Bstr& entryId, OleStringView id)
    {
        ComPtr<IFolder> added;
        const Bstr text(id);
        EXPECT_EQ(Add(entryId, Text(text), added), S_OK);
        return added;
    }

    HRESULT Find(const VARIANT& id, const VARIANT& entryId, const VARIANT& storeId, ComPtr<IFolder>& found)
    {
        return folders->Find(id, entryId, storeId, found.Put());
    }

    LONG Count()
    {
        LONG count = -1;
        EXPECT_EQ(folders->get_Count(&count), S_OK);
        return count;
    }

    static Bstr EntryIdOf(IFolder& folder)
    {
        Bstr id;
        EXPECT_EQ(folder.get_EntryID(id.Put()), S_OK);
        return id;
    }

    TestMailbox mailbox;
    testing::TestSession session;
    ComPtr<CFolders> folders = MakeComObject<CFolders>(&session);
    std::vector<Bstr> ids;  // of three folders, in the collection's order
};

TEST_F(FoldersTest, AnAddedFolderHasItsIdentifiers)
{
    const ComPtr<IFolder> added = Add(ids[0], OLESTR("{F}"));

    Bstr text;
    ASSERT_EQ(added->get_ID(text.Put()), S_OK);
    EXPECT_EQ(text.View(), OLESTR("{F}"));
    EXPECT_EQ(EntryIdOf(*added).View(), ids[0].View());
    ASSERT_EQ(added->get_StoreID(text.Put()), S_OK);
    EXPECT_EQ(text.View(), mailbox.StoreId().View());
    EXPECT_EQ(Count(), 1);
}

TEST_F(FoldersTest, AFolderAddedWithoutAnIdGetsAGuid)
{
    ComPtr<IFolder> added;

    ASSERT_EQ(Add(ids[0], Variant::Missing().Raw(), added), S_OK);

    Bstr id;
    ASSERT_EQ(added->get_ID(id.Put()), S_OK);
    EXPECT_EQ(id.Length(), 38u);
}

TEST_F(FoldersTest, AnEntryIdentifierIsAddedOnce)
{
    Add(ids[0], OLESTR("{F}"));
    ComPtr<IFolder> added;

    EXPECT_EQ(Add(ids[0], Text(Bstr(OLESTR("{G}"))), added), E_FAIL);

    EXPECT_FALSE(added);
    EXPECT_EQ(Count(), 1);
}

TEST_F(FoldersTest, AnIdIsAddedOnceAndTheRefusalSaysWhy)
{
    Add(ids[0], OLESTR("{F}"));
    ComPtr<IFolder> added;

    EXPECT_EQ(Add(ids[1], Text(Bstr(OLESTR("{F}"))), added), DISP_E_EXCEPTION);

    EXPECT_EQ(TakeErrorDescription().View(), OLESTR("Folder already exists"));
    EXPECT_EQ(Count(), 1);
}

TEST_F(FoldersTest, AFolderThatDoesntOpenIsntAdded)
{
    ComPtr<IFolder> added;

    EXPECT_LT(Add(Bstr(OLESTR("00AB")), Variant::Missing().Raw(), added), 0);
    EXPECT_LT(folders->Add(ids[0].Get(), Bstr(OLESTR("xy")).Get(), Variant::Missing().Raw(),
                           Variant::Missing().Raw(), added.Put()),
              0);
    EXPECT_EQ(
        folders->Add(ids[0].Get(), nullptr, Variant::Missing().Raw(), Variant::Missing().Raw(), added.Put()),
        E_POINTER);

    EXPECT_FALSE(added);
    EXPECT_EQ(Count(), 0);
}

TEST_F(FoldersTest, TheSameFolderInAnotherLetterCaseIsAnotherEntry)
{
    Add(ids[0], OLESTR("{F}"));
    ComPtr<IFolder> added;

    ASSERT_EQ(Add(Bstr(Widen(Lower(ids[0]))), Text(Bstr(OLESTR("{G}"))), added), S_OK);

    EXPECT_EQ(Count(), 2);
}

TEST_F(FoldersTest, FindMatchesAnIdOrAnEntryIdentifier)
{
    const ComPtr<IFolder> first = Add(ids[0], OLESTR("{F}"));
    const ComPtr<IFolder> second = Add(ids[1], OLESTR("{G}"));
    const Variant nothing;
    ComPtr<IFolder> found;

    EXPECT_EQ(Find(Text(Bstr(OLESTR("{G}"))), nothing.Raw(), nothing.Raw(), found), S_OK);
    EXPECT_EQ(found, second);
    EXPECT_EQ(Find(nothing.Raw(), Text(ids[0]), nothing.Raw(), found), S_OK);
    EXPECT_EQ(found, first);
    // Either is enough.
    EXPECT_EQ(Find(Text(Bstr(OLESTR("{none}"))), Text(ids[1]), nothing.Raw(), found), S_OK);
    EXPECT_EQ(found, second);
}

TEST_F(FoldersTest, FindIgnoresTheStoreAndWhatIsNoText)
{
    Add(ids[0], OLESTR("{F}"));
    const Variant nothing;
    const Bstr store = mailbox.StoreId();
    ComPtr<IFolder> found;

    EXPECT_EQ(Find(nothing.Raw(), nothing.Raw(), Text(store), found), DISP_E_MEMBERNOTFOUND);
    EXPECT_EQ(Find(Number(1), Number(1), nothing.Raw(), found), DISP_E_MEMBERNOTFOUND);
    EXPECT_FALSE(found);
}

TEST_F(FoldersTest, ItemFindsTheSameObjectUnderAnotherText)
{
    const ComPtr<IFolder> added = Add(ids[0], OLESTR("{F}"));
    const Bstr lower(Widen(Lower(ids[0])));
    Variant item;

    ASSERT_EQ(folders->get_Item(Text(lower), item.Put()), S_OK);

    ASSERT_TRUE(item.Is(VT_DISPATCH));
    ComPtr<IFolder> found;
    ASSERT_EQ(QueryFor(item.Raw().pdispVal, found), S_OK);
    EXPECT_EQ(found, added);
}

TEST_F(FoldersTest, ItemByNumberGivesTheFolderAndFailsAllTheSame)
{
    Add(ids[0], OLESTR("{F}"));
    Variant item;

    EXPECT_EQ(folders->get_Item(Number(1), item.Put()), E_FAIL);
    EXPECT_TRUE(item.Is(VT_DISPATCH));
}

TEST_F(FoldersTest, ItemOfNothingKnownFails)
{
    Add(ids[0], OLESTR("{F}"));
    Variant item;

    EXPECT_EQ(folders->get_Item(Text(ids[1]), item.Put()), E_FAIL);
    EXPECT_EQ(folders->get_Item(Text(Bstr(OLESTR("no hex"))), item.Put()), E_FAIL);
    EXPECT_EQ(folders->get_Item(Text(Bstr()), item.Put()), E_INVALIDARG);
    EXPECT_TRUE(item.Is(VT_EMPTY));
}

TEST_F(FoldersTest, ThePositionalItemCountsFromOne)
{
    const ComPtr<IFolder> added = Add(ids[0], OLESTR("{F}"));
    Variant item;

    EXPECT_EQ(folders->get_Item(LONG{1}, item.Put()), S_OK);
    EXPECT_TRUE(item.Is(VT_DISPATCH));
    EXPECT_EQ(folders->get_Item(LONG{0}, item.Put()), E_INVALIDARG);
    EXPECT_EQ(folders->get_Item(LONG{2}, item.Put()), E_FAIL);
    EXPECT_EQ(folders->get_Item(LONG{1}, nullptr), E_POINTER);
}

TEST_F(FoldersTest, EnumerationFollowsTheOrderOfTheKeys)
{
    Add(ids[2], OLESTR("{3}"));
    Add(ids[0], OLESTR("{1}"));
    Add(ids[1], OLESTR("{2}"));
    ComPtr<IUnknown> unknown;
    ASSERT_EQ(folders->get__NewEnum(unknown.Put()), S_OK);
    ComPtr<IEnumVARIANT> enumerator;
    ASSERT_EQ(unknown.As(enumerator), S_OK);

    for (const Bstr& id : ids) {
        Variant element;
        ASSERT_EQ(enumerator->Next(1, element.Put(), nullptr), S_OK);
        ComPtr<IFolder> folder;
        ASSERT_EQ(QueryFor(element.Raw().pdispVal, folder), S_OK);
        EXPECT_EQ(EntryIdOf(*folder).View(), id.View());
    }
    Variant element;
    EXPECT_EQ(enumerator->Next(1, element.Put(), nullptr), S_FALSE);
}

TEST_F(FoldersTest, RemoveTakesANumberOrTheExactKey)
{
    Add(ids[0], OLESTR("{1}"));
    Add(ids[1], OLESTR("{2}"));
    Add(ids[2], OLESTR("{3}"));
    const Bstr lower(Widen(Lower(ids[1])));

    EXPECT_EQ(folders->Remove(Text(lower)), E_FAIL);
    EXPECT_EQ(folders->Remove(Text(ids[1])), S_OK);
    EXPECT_EQ(folders->Remove(Text(ids[1])), E_FAIL);
    EXPECT_EQ(folders->Remove(Number(2)), S_OK);

    EXPECT_EQ(Count(), 1);
    ComPtr<IFolder> found;
    EXPECT_EQ(Find(Text(Bstr(OLESTR("{1}"))), Number(0), Number(0), found), S_OK);
}

TEST_F(FoldersTest, APlaceThatIsntThereCantBeRemoved)
{
    EXPECT_EQ(folders->Remove(Number(1)), E_INVALIDARG);
    Add(ids[0], OLESTR("{F}"));
    EXPECT_EQ(folders->Remove(Number(0)), E_INVALIDARG);
    EXPECT_EQ(folders->Remove(Number(2)), E_INVALIDARG);
    EXPECT_EQ(Count(), 1);
}

TEST_F(FoldersTest, AnEmptyCollectionFindsNothing)
{
    Variant item;
    ComPtr<IFolder> found;

    EXPECT_EQ(Find(Text(ids[0]), Text(ids[0]), Text(ids[0]), found), DISP_E_MEMBERNOTFOUND);
    EXPECT_EQ(folders->get_Item(Text(ids[0]), item.Put()), E_FAIL);
    EXPECT_EQ(folders->RemoveByIndex(1), E_INVALIDARG);
}

TEST_F(FoldersTest, TheSameFolderAddedByManyThreadsEntersOnce)
{
    std::atomic<int> added = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&] {
            ComPtr<IFolder> folder;
            added += SUCCEEDED(Add(ids[0], Variant::Missing().Raw(), folder)) ? 1 : 0;
        });
    }
    for (std::thread& thread : threads)
        thread.join();

    EXPECT_EQ(added, 1);
    EXPECT_EQ(Count(), 1);
}

}  // namespace
}  // namespace quorvane
