// Texts of code pages, and values that an object refuses.
#include "host/mime/mapi_read.h"

#include <gtest/gtest.h>

#include "host/mime/property_list.h"
#include "host/mime/test_store.h"

namespace quorvane {
namespace {

class MapiReadTest : public StoreTest {
protected:
    // The code page of a message's 8-bit texts, when it says so of itself.
    static ULONG CodePageSaid(LONG codePage, ULONG tag = kPrMessageCodepage)
    {
        const ComPtr<IMessage> message = store->NewMessage();
        PropertyList properties;
        properties.AddLong(tag, codePage);
        EXPECT_EQ(properties.SetOn(*message), S_OK);
        return NarrowCodePage(*message);
    }
};

// A row with one 8-bit text.
std::string TextOfRow(const char* bytes, ULONG codePage)
{
    SPropValue value{};
    value.ulPropTag = PR_DISPLAY_NAME_A;
    value.Value.lpszA = const_cast<LPSTR>(bytes);
    const SRow row{0, 1, &value};
    return RowText(row, PR_DISPLAY_NAME_W, codePage);
}

TEST_F(MapiReadTest, TheCodePageIsWhatTheMessageSays)
{
    EXPECT_EQ(CodePageSaid(1251), 1251u);
    EXPECT_EQ(CodePageSaid(28592, kPrInternetCpid), 28592u);
}

TEST_F(MapiReadTest, CodePagesOfWideCharactersAndUnknownOnesAreNoneOfAn8BitText)
{
    for (const LONG codePage : {1200, 1201, 12000, 4711, 0, -1})
        EXPECT_EQ(CodePageSaid(codePage), 1252u) << codePage;
    EXPECT_EQ(NarrowCodePage(*store->NewMessage()), 1252u);
}

TEST_F(MapiReadTest, An8BitTextOfARowIsReadInItsCodePage)
{
    EXPECT_EQ(TextOfRow("\xC4\xE0", 1251), "Да");
    EXPECT_EQ(TextOfRow("\xC3\xA4", 65001), "ä");
}

TEST_F(MapiReadTest, ATextOfACodePageThatNobodyKnowsIsWesternEuropean)
{
    EXPECT_EQ(TextOfRow("\xE4\x80", 4711), "ä€");
}

TEST_F(MapiReadTest, AValueThatIsntThereLeavesNothingOfAnEarlierOne)
{
    const ComPtr<IMessage> message = store->NewMessage();
    std::optional<std::string> found = "of another message";

    EXPECT_EQ(ReadBinary(*message, kPrHtml, found), S_OK);
    EXPECT_EQ(found, std::nullopt);
    found = "of another message";
    EXPECT_EQ(ReadText(*message, PR_BODY_W, 1252, found), S_OK);
    EXPECT_EQ(found, std::nullopt);
}

TEST_F(MapiReadTest, AValueThatTheObjectMakesItselfIsPassedOver)
{
    const ComPtr<IMessage> message = store->NewMessage();
    PropertyList properties;
    properties.AddLong(PR_ACCESS_LEVEL, 1);
    properties.AddText(PR_SUBJECT_W, "taken");

    EXPECT_EQ(properties.SetOn(*message), S_OK);
    EXPECT_EQ(Text(*message, PR_SUBJECT_W), "taken");
}

TEST_F(MapiReadTest, AValueThatTheObjectRefusesIsTold)
{
    const ComPtr<IMessage> message = store->NewMessage();
    PropertyList properties;
    properties.AddText(PR_SUBJECT_W, "taken");
    properties.AddLong(PROP_TAG(PT_OBJECT, 0x6001), 1);

    EXPECT_TRUE(FAILED(properties.SetOn(*message)));
}

}  // namespace
}  // namespace quorvane
