// Items asked for by their identifiers.
#include <gtest/gtest.h>

#include <optional>

#include "tests/support/test_host.h"

namespace quorvane::test {
namespace {

constexpr char kFolderId[] = "{folder}";

// What an item's persisted form says of its folder: the size of the text with its terminator, and the text.
struct CarriedFolder {
    ULONG size = 0;
    std::string text;
    bool operator==(const CarriedFolder&) const = default;
};

CarriedFolder ReadText(IStream& stream)
{
    CarriedFolder read;
    Check(stream.Read(&read.size, sizeof read.size, nullptr), "read a size");
    OleString text(read.size / sizeof(OLECHAR), OLECHAR(0));
    Check(stream.Read(text.data(), read.size, nullptr), "read a text");
    read.text = ToUtf8(text.substr(0, text.empty() ? 0 : text.size() - 1));
    return read;
}

CarriedFolder FolderIdOf(IItem* item)
{
    ComPtr<IPersistStreamInit> persist;
    Check(QueryFor(item, persist), "persist an item");
    ComPtr<IStream> stream;
    Check(CreateStreamOnHGlobal(nullptr, TRUE, stream.Put()), "make a stream");
    Check(persist->Save(stream.Get(), FALSE), "persist an item");
    LARGE_INTEGER behindVersion{};
    behindVersion.QuadPart = 4;
    Check(stream->Seek(behindVersion, STREAM_SEEK_SET, nullptr), "go back in a stream");
    ReadText(*stream.Get());
    return ReadText(*stream.Get());
}

class FindItemTest : public testing::Test {
protected:
    static Variant Of(const std::string& text) { return Variant::Text(FromUtf8(text)); }

    HRESULT Find(const Variant& id, const Variant& entryId, const Variant& storeId = Variant::Missing())
    {
        return logon.Session().GetItemFromID(id.Raw(), entryId.Raw(), storeId.Raw(), item.Put());
    }
    void Import(const std::string& id, const std::string& entryId)
    {
        ASSERT_EQ(
            logon.Session().ImportItem(Text(id).Get(), Text(entryId).Get(), Text(shared.StoreId()).Get()),
            S_OK);
    }
    std::string FoundId() const
    {
        Bstr id;
        EXPECT_EQ(item->get_ID(id.Put()), S_OK);
        return Utf8(id);
    }
    std::string FoundEntryId() const
    {
        Bstr id;
        EXPECT_EQ(item->get_EntryID(id.Put()), S_OK);
        return Utf8(id);
    }

    TestMailbox mailbox;
    TestFolder shared = mailbox.MakeFolder("Shared");
    TestFolder other = mailbox.MakeFolder("Not shared");
    TestLogon logon{mailbox};
    ComPtr<IFolder> folder = logon.Share(shared, kFolderId);
    const Variant nothing = Variant::Missing();
    ComPtr<IItem> item;
};

TEST_F(FindItemTest, AnItemOfASharedFolderIsFoundWithItsMessageAndItsFolder)
{
    const std::string entryId = shared.Add("Hello", "text");
    ASSERT_TRUE(logon.Host().Heard("added"));
    const std::string id = logon.Host().Events("added").front().id;
    ASSERT_TRUE(Eventually([&] { return mailbox.Query("SELECT count(*) FROM tblItem") == 1; }));

    EXPECT_EQ(Find(Of(id), nothing), S_OK);
    EXPECT_EQ(FoundEntryId(), entryId);
    EXPECT_EQ(FolderIdOf(item.Get()).text, kFolderId);
    ComPtr<IUnknown> raw;
    EXPECT_EQ(item->get_Raw(raw.Put()), S_OK);
    EXPECT_EQ(Find(nothing, Of(entryId)), S_OK);
    EXPECT_EQ(FoundId(), id);
    EXPECT_EQ(FolderIdOf(item.Get()).text, kFolderId);
}

TEST_F(FindItemTest, AnItemOutsideOfSharedFoldersHasAnEmptyFolder)
{
    Import("{other}", other.Add("Hello", "text"));

    EXPECT_EQ(Find(Of("{other}"), nothing), S_OK);
    EXPECT_EQ(FolderIdOf(item.Get()), (CarriedFolder{sizeof(OLECHAR), ""}));
}

TEST_F(FindItemTest, AnItemWhoseMessageIsGoneHasAnEmptyFolder)
{
    const std::string entryId = other.Add("Hello", "text");
    Import("{gone}", entryId);
    other.Delete(entryId);

    EXPECT_EQ(Find(Of("{gone}"), nothing), S_OK);
    EXPECT_EQ(FoundEntryId(), entryId);
    Bstr storeId;
    EXPECT_EQ(item->get_StoreID(storeId.Put()), S_OK);
    EXPECT_EQ(Utf8(storeId), shared.StoreId());
    EXPECT_EQ(FolderIdOf(item.Get()), (CarriedFolder{sizeof(OLECHAR), ""}));
}

TEST_F(FindItemTest, TheEntryIdDecidesWhereBothAreGiven)
{
    Import("{a}", "AAAA");
    Import("{b}", "BBBB");
    const std::string longest(49, 'x');
    const std::string tooLong(50, 'x');
    Import(longest, "DDDD");
    const struct {
        std::optional<std::string> id;
        std::optional<std::string> entryId;
        HRESULT hr;
        const char* found;
    } cases[] = {
        {"{a}", {}, S_OK, "{a}"},
        {{}, "BBBB", S_OK, "{b}"},
        {longest, {}, S_OK, longest.c_str()},
        {"{a}", "AAAA", S_OK, "{a}"},
        {"{a}", "BBBB", S_OK, "{b}"},
        {"{?}", "BBBB", S_OK, "{b}"},
        {tooLong, "BBBB", S_OK, "{b}"},
        {"{a}", "CCCC", DISP_E_MEMBERNOTFOUND, nullptr},
        {"{?}", "CCCC", DISP_E_MEMBERNOTFOUND, nullptr},
        {"{?}", {}, DISP_E_MEMBERNOTFOUND, nullptr},
        {tooLong, {}, DISP_E_MEMBERNOTFOUND, nullptr},
        {"", {}, DISP_E_MEMBERNOTFOUND, nullptr},
        {{}, "", DISP_E_MEMBERNOTFOUND, nullptr},
        {{}, {}, E_INVALIDARG, nullptr},
    };
    for (const auto& [id, entryId, hr, found] : cases) {
        EXPECT_EQ(Find(id ? Of(*id) : Variant(), entryId ? Of(*entryId) : Variant::Long(1)), hr);
        EXPECT_EQ(static_cast<bool>(item), found != nullptr);
        if (item && found) {
            EXPECT_EQ(FoundId(), found);
        }
    }
}

TEST_F(FindItemTest, TheStoreIdIsNotLookedAt)
{
    Import("{a}", "AAAA");

    EXPECT_EQ(Find(Of("{a}"), nothing, Of("nonsense")), S_OK);
    EXPECT_EQ(Find(Of("{a}"), nothing, Variant::Long(7)), S_OK);
    EXPECT_EQ(Find(nothing, nothing, Of(shared.StoreId())), E_INVALIDARG);
}

TEST_F(FindItemTest, ALookupThatFailsFindsNothing)
{
    Import("{a}", "AAAA");
    mailbox.Execute("DROP TABLE tblItem");

    EXPECT_EQ(Find(Of("{a}"), nothing), DISP_E_MEMBERNOTFOUND);
    EXPECT_EQ(Find(nothing, Of("AAAA")), DISP_E_MEMBERNOTFOUND);
}

TEST_F(FindItemTest, WithoutAPlaceForTheItemNothingIsFound)
{
    EXPECT_EQ(logon.Session().GetItemFromID(Of("{a}").Raw(), nothing.Raw(), nothing.Raw(), nullptr),
              E_POINTER);
}

}  // namespace
}  // namespace quorvane::test
