// Messages drawn at random, with properties of every type and at every size that something is decided by:
// what a store takes, a storage takes as well, and gives back. QUORVANE_SEED names one message to be drawn
// alone.
#include <cstdlib>
#include <random>

#include "msgstore/message/message_fixture.h"
#include "msgstore/store/stored_file.h"
#include "msgstore/store/test_mailbox.h"
#include "platform/mapi/more_tags.h"

namespace quorvane {
namespace {

using testing::StoredFile;

constexpr std::uint32_t kMessages = 40;

// Sizes in bytes at which a value's place changes: short streams, values in line, listed values, spools.
constexpr std::uint32_t kTurns[] = {64, 255, 4096, 8192, 32 * 1024, 64 * 1024, 256 * 1024, 1024 * 1024};

class MessageDrawer {
public:
    explicit MessageDrawer(std::uint32_t seed) : random_(seed) {}

    void Fill(IMessage& message, int depth = 0)
    {
        FillProperties(message, 0x6600, Below(25));
        for (const ULONG tag : {PR_SUBJECT_W, PR_BODY_W, PR_SENDER_NAME_W, PR_MESSAGE_CLASS_W}) {
            if (OneIn(2))
                SetText(message, tag);
        }
        for (std::uint32_t count = Below(6); count > 0; --count)
            SetNamed(message);
        for (std::uint32_t count = Below(8); count > 0; --count)
            AddRecipient(message);
        for (std::uint32_t count = Below(4); count > 0; --count)
            AddAttachment(message, depth);
    }

private:
    std::uint32_t Below(std::uint32_t limit) { return random_() % limit; }
    bool OneIn(std::uint32_t count) { return Below(count) == 0; }

    // Mostly small, else around one of the turns.
    std::size_t Size()
    {
        if (!OneIn(4))
            return Below(40);
        const std::uint32_t turn = kTurns[Below(OneIn(8) ? std::size(kTurns) : std::size(kTurns) - 2)];
        return turn - 4 + Below(9);
    }
    // Of one of several values.
    std::size_t ItemSize() { return Size() % (40 * 1024); }

    OleString Text(std::size_t bytes)
    {
        // Letters that take one, two and three bytes in UTF-8, and pairs of two units.
        static constexpr OLECHAR kLetters[] = OLESTR("aZ7 ;\u00E4\u00DF\u0416\u4E2D");
        OleString text;
        while (text.size() < bytes / 2) {
            if (OneIn(50) && text.size() + 2 <= bytes / 2)
                text += OleString{0xD83D, 0xDE00};
            else
                text += kLetters[Below(std::size(kLetters) - 1)];
        }
        return text;
    }
    std::string Bytes(std::size_t size)
    {
        std::string bytes(size, '\0');
        for (char& byte : bytes)
            byte = static_cast<char>(random_());
        return bytes;
    }
    std::string Narrow(std::size_t size)
    {
        std::string text = Bytes(size);
        for (char& unit : text)
            unit = unit == '\0' ? '0' : unit;
        return text;
    }

    // A value and what it points at.
    struct Drawn {
        SPropValue value{};
        std::vector<OleString> wide;
        std::vector<std::string> narrow;
        std::vector<LPWSTR> widePlaces;
        std::vector<LPSTR> narrowPlaces;
        std::vector<SBinary> binaries;
        std::string fixed;
        GUID guid{};
    };

    void DrawSeveral(ULONG type, Drawn& drawn)
    {
        const std::uint32_t count = 1 + Below(OneIn(6) ? 300 : 4);
        for (std::uint32_t i = 0; i < count; ++i) {
            if (type == PT_MV_UNICODE)
                drawn.wide.push_back(Text(count > 4 ? Below(50) : ItemSize()));
            else
                drawn.narrow.push_back(type == PT_MV_STRING8 ? Narrow(count > 4 ? Below(50) : ItemSize())
                                                             : Bytes(count > 4 ? Below(50) : ItemSize()));
        }
        for (OleString& text : drawn.wide)
            drawn.widePlaces.push_back(text.data());
        for (std::string& text : drawn.narrow) {
            drawn.narrowPlaces.push_back(text.data());
            drawn.binaries.push_back(
                {static_cast<ULONG>(text.size()), reinterpret_cast<LPBYTE>(text.data())});
        }
        if (type == PT_MV_UNICODE)
            drawn.value.Value.MVszW = {count, drawn.widePlaces.data()};
        else if (type == PT_MV_STRING8)
            drawn.value.Value.MVszA = {count, drawn.narrowPlaces.data()};
        else
            drawn.value.Value.MVbin = {count, drawn.binaries.data()};
    }

    void DrawFixedArray(std::size_t width, Drawn& drawn)
    {
        const std::uint32_t count = Below(OneIn(6) ? 20000 : 5);
        drawn.fixed = Bytes(std::max<std::size_t>(count * width, 1));
        drawn.value.Value.MVl = {count, reinterpret_cast<LONG*>(drawn.fixed.data())};
    }

    void Draw(ULONG id, Drawn& drawn)
    {
        static constexpr ULONG kTypes[] = {
            PT_SHORT,   PT_LONG,      PT_BOOLEAN,    PT_LONGLONG, PT_DOUBLE,  PT_SYSTIME,    PT_STRING8,
            PT_UNICODE, PT_BINARY,    PT_CLSID,      PT_UNICODE,  PT_BINARY,  PT_MV_UNICODE, PT_MV_STRING8,
            PT_MV_LONG, PT_MV_BINARY, PT_MV_SYSTIME, PT_MV_I2,    PT_MV_CLSID};
        DrawAs(PROP_TAG(kTypes[Below(std::size(kTypes))], id), drawn);
    }

    void DrawAs(ULONG tag, Drawn& drawn)
    {
        drawn.value.ulPropTag = tag;
        switch (PROP_TYPE(tag)) {
            case PT_STRING8:
                drawn.narrow.push_back(Narrow(Size()));
                drawn.value.Value.lpszA = drawn.narrow[0].data();
                break;
            case PT_UNICODE:
                drawn.wide.push_back(Text(Size()));
                drawn.value.Value.lpszW = drawn.wide[0].data();
                break;
            case PT_BINARY:
                drawn.narrow.push_back(Bytes(Size()));
                drawn.value.Value.bin = {static_cast<ULONG>(drawn.narrow[0].size()),
                                         reinterpret_cast<LPBYTE>(drawn.narrow[0].data())};
                break;
            case PT_CLSID:
                drawn.guid = {static_cast<std::uint32_t>(random_()), 2, 3, {4}};
                drawn.value.Value.lpguid = &drawn.guid;
                break;
            case PT_BOOLEAN:
                drawn.value.Value.b = static_cast<USHORT>(Below(2));
                break;
            case PT_DOUBLE:
                drawn.value.Value.dbl = Below(1000) / 8.0;
                break;
            case PT_MV_UNICODE:
            case PT_MV_STRING8:
            case PT_MV_BINARY:
                DrawSeveral(PROP_TYPE(tag), drawn);
                break;
            case PT_MV_I2:
                DrawFixedArray(2, drawn);
                break;
            case PT_MV_LONG:
                DrawFixedArray(4, drawn);
                break;
            case PT_MV_SYSTIME:
                DrawFixedArray(8, drawn);
                break;
            case PT_MV_CLSID:
                DrawFixedArray(16, drawn);
                break;
            default:
                drawn.value.Value.li.QuadPart = static_cast<LONGLONG>(random_()) << 20;
                break;
        }
    }

    static void Set(IMAPIProp& object, Drawn& drawn)
    {
        MapiBuffer<SPropProblemArray> problems;
        EXPECT_EQ(object.SetProps(1, &drawn.value, problems.Put()), S_OK);
        EXPECT_FALSE(problems) << "tag " << std::hex << drawn.value.ulPropTag;
    }

    void FillProperties(IMAPIProp& object, ULONG firstId, std::uint32_t count)
    {
        for (std::uint32_t i = 0; i < count; ++i) {
            Drawn drawn;
            Draw(firstId + i, drawn);
            Set(object, drawn);
        }
    }

    void SetText(IMAPIProp& object, ULONG tag)
    {
        Drawn drawn;
        DrawAs(tag, drawn);
        Set(object, drawn);
    }

    // The identifier of a name in one of a few sets.
    ULONG NamedId(IMAPIProp& object)
    {
        const GUID sets[] = {PS_PUBLIC_STRINGS, {0x00062004, 0, 0, {0xC0}}, {Below(9), 1, 2, {3}}};
        const GUID& set = sets[Below(std::size(sets))];
        const ULONG tag =
            OneIn(2) ? say::NamedId(object, set, static_cast<LONG>(random_()))
                     : say::NamedId(object, set, OLESTR("n") + Text(OneIn(9) ? 2000 : 2 * Below(40)));
        return PROP_ID(tag);
    }

    void SetNamed(IMAPIProp& object)
    {
        Drawn drawn;
        Draw(NamedId(object), drawn);
        Set(object, drawn);
    }

    void AddRecipient(IMessage& message)
    {
        std::vector<Drawn> drawn(4 + Below(6));
        drawn[0].value.ulPropTag = PR_RECIPIENT_TYPE;
        drawn[0].value.Value.l = static_cast<LONG>(1 + Below(3));
        DrawAs(PR_DISPLAY_NAME_W, drawn[1]);
        DrawAs(PR_EMAIL_ADDRESS_W, drawn[2]);
        DrawAs(PR_ENTRYID, drawn[3]);
        for (std::size_t i = 4; i < drawn.size(); ++i)
            Draw(OneIn(4) ? NamedId(message) : 0x6600 + static_cast<ULONG>(i), drawn[i]);
        std::vector<SPropValue> values;
        for (const Drawn& one : drawn)
            values.push_back(one.value);
        ADRLIST list{1, {{0, static_cast<ULONG>(values.size()), values.data()}}};
        EXPECT_EQ(message.ModifyRecipients(MODRECIP_ADD, &list), S_OK);
    }

    void AddAttachment(IMessage& message, int depth)
    {
        ULONG number = 0;
        ComPtr<IAttach> attachment;
        ASSERT_EQ(message.CreateAttach(nullptr, 0, &number, attachment.Put()), S_OK);
        FillProperties(*attachment, 0x6600, Below(6));
        if (OneIn(3))
            SetNamed(*attachment);
        SetText(*attachment, PR_ATTACH_LONG_FILENAME_W);
        if (depth < 2 && OneIn(4)) {
            EXPECT_EQ(say::Number(*attachment, PR_ATTACH_METHOD, ATTACH_EMBEDDED_MSG), S_OK);
            ComPtr<IMessage> inner;
            ASSERT_EQ(attachment->OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IMessage, 0,
                                               MAPI_CREATE | MAPI_MODIFY, inner.PutUnknown()),
                      S_OK);
            Fill(*inner, depth + 1);
            EXPECT_EQ(inner->SaveChanges(0), S_OK);
        } else {
            EXPECT_EQ(say::Number(*attachment, PR_ATTACH_METHOD, ATTACH_BY_VALUE), S_OK);
            say::Write(*attachment, PR_ATTACH_DATA_BIN, Bytes(Size()));
        }
        EXPECT_EQ(attachment->SaveChanges(0), S_OK);
    }

    std::mt19937 random_;
};

class RandomMessageTest : public ::testing::Test {
protected:
    ComPtr<IMessage> NewMessage()
    {
        ComPtr<IMessage> made;
        EXPECT_EQ(mailbox.Inbox().CreateMessage(nullptr, 0, made.Put()), S_OK);
        return made;
    }
    ComPtr<IMessage> Saved(IMessage& unsaved)
    {
        EXPECT_EQ(unsaved.SaveChanges(KEEP_OPEN_READWRITE), S_OK);
        return mailbox.OpenMessage(testing::BinaryOf(unsaved, PR_ENTRYID));
    }

    // Store to storage, and back into the store.
    void Travel(std::uint32_t seed)
    {
        const ComPtr<IMessage> drawn = NewMessage();
        MessageDrawer(seed).Fill(*drawn);
        const ComPtr<IMessage> sent = Saved(*drawn);
        StoredFile file;
        ASSERT_EQ(say::CopyAll(*sent, *file.message), S_OK);
        file.Reopen(STGM_READ | STGM_SHARE_EXCLUSIVE);
        EXPECT_EQ(say::Differences(*sent, *file.message), std::vector<std::string>());
        const ComPtr<IMessage> back = NewMessage();
        ASSERT_EQ(say::CopyAll(*file.message, *back), S_OK);
        CompareOptions options;
        options.ignored = {PROP_ID(PR_CREATION_TIME), PROP_ID(kPrChangeKey)};
        EXPECT_EQ(say::Differences(*sent, *Saved(*back), options), std::vector<std::string>());
    }

    testing::TestMailbox mailbox;
};

TEST_F(RandomMessageTest, WhatAStoreTakesAStorageTakesAndGivesBack)
{
    const char* const given = std::getenv("QUORVANE_SEED");
    const auto first = given ? static_cast<std::uint32_t>(std::strtoul(given, nullptr, 10)) : 1;
    const std::uint32_t last = given ? first : kMessages;
    for (std::uint32_t seed = first; seed <= last && !HasFailure(); ++seed) {
        SCOPED_TRACE("QUORVANE_SEED=" + std::to_string(seed));
        Travel(seed);
    }
}

}  // namespace
}  // namespace quorvane
