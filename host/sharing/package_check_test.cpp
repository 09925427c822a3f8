#include "host/sharing/package_check.h"

#include <gtest/gtest.h>

#include "host/base/path_text.h"
#include "host/sharing/outbox.h"
#include "host/sharing/sender.h"
#include "host/sharing/test_mailbox.h"

namespace quorvane::host {

namespace {

constexpr DWORD kWrite = STGM_READWRITE | STGM_SHARE_EXCLUSIVE;

class PackageCheckTest : public ::testing::Test {
protected:
    // Puts a message into the package for all members; its sharing ID.
    std::string Send(const std::string& entryId)
    {
        EXPECT_TRUE(sender.SendItem(here.share, entryId, here.share.entryId));
        return here.state.RowOfEntry(entryId)->id;
    }
    std::string Send(const char* subject) { return Send(here.AddMessage(subject)); }

    std::filesystem::path PackagePath() const
    {
        return PathOf(ReadText(*here.PackageFor(here.share.entryId), &IStorageFile::get_Path));
    }

    // Does something to the element of an item in the package.
    template <class Damage>
    void Change(const std::string& id, Damage damage)
    {
        const CheckedPackage before = CheckPackage(*OpenCompoundFile(PackagePath()), "the package");
        for (const PackageRecord& item : before.sound.items)
            if (item.id == id) {
                const ComPtr<IStorage> root = OpenToWrite(), version = Child(*root, OLESTR("1.0")),
                                       items = Child(*version, OLESTR("Items"));
                damage(*Child(*items, item.element.c_str()));
                return;
            }
        FAIL() << id << " isn't in the package";
    }
    // The same to its message.
    template <class Damage>
    void ChangeMessage(const std::string& id, Damage damage)
    {
        Change(id, [&](IStorage& item) { damage(*Child(item, OLESTR("MAPI_DATA"))); });
    }

    ComPtr<IStorage> OpenToWrite() const
    {
        ComPtr<IStorage> root;
        Check(StgOpenStorage(OleTextOf(PackagePath()).c_str(), nullptr, kWrite, nullptr, 0, root.Put()),
              "open", "the package");
        return root;
    }
    static ComPtr<IStorage> Child(IStorage& parent, const OLECHAR* name)
    {
        ComPtr<IStorage> child;
        Check(parent.OpenStorage(name, nullptr, kWrite, nullptr, 0, child.Put()), "open", "a storage");
        return child;
    }

    // What is wrong with the items of the package, by ID.
    std::map<std::string, std::string> Damage() const
    {
        std::map<std::string, std::string> damage;
        for (const DamagedElement& element :
             CheckPackage(*OpenCompoundFile(PackagePath()), "the package").damaged)
            damage[element.id] = element.reason;
        return damage;
    }

    // A message with two recipients, a file and a message attached.
    std::string AddRichMessage() const
    {
        const ComPtr<IMessage> message = OpenMessage(here.mail, here.AddMessage("rich"), true);
        AddRecipients(*message, {"ann", "ben"});
        Attach(*message, [](IMessage& attached) { AddRecipients(attached, {"cid"}); });
        Check(message->SaveChanges(0), "save", "the message");
        return HexOf(*message, PR_ENTRYID);
    }

    static void AddRecipients(IMessage& message, const std::vector<std::string>& names)
    {
        for (const std::string& name : names) {
            OleString text = FromUtf8(name);
            SPropValue values[2]{};
            values[0].ulPropTag = PR_RECIPIENT_TYPE;
            values[0].Value.l = MAPI_TO;
            values[1].ulPropTag = PR_DISPLAY_NAME_W;
            values[1].Value.lpszW = text.data();
            ADRLIST list{1, {{0, 2, values}}};
            Check(message.ModifyRecipients(MODRECIP_ADD, &list), "add a recipient", name);
        }
    }
    template <class Fill>
    static void Attach(IMessage& message, Fill fill)
    {
        ComPtr<IAttach> attachment;
        ULONG number = 0;
        Check(message.CreateAttach(nullptr, 0, &number, attachment.Put()), "attach", "a message");
        Check(SetLong(*attachment, PR_ATTACH_METHOD, ATTACH_EMBEDDED_MSG), "attach", "a message");
        ComPtr<IMessage> attached;
        Check(attachment->OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IMessage, 0, MAPI_CREATE | MAPI_MODIFY,
                                       attached.PutUnknown()),
              "attach", "a message");
        fill(*attached.Get());
        Check(attached->SaveChanges(0), "attach", "a message");
        Check(attachment->SaveChanges(0), "attach", "a message");
    }

    SharedTestMailbox here;
    Sender sender{here.addin, here.parts, here.engine};
    std::vector<std::string> lines;
    Outbox outbox{here.parts, here.engine, [this](const std::string& line) { lines.push_back(line); }};
};

TEST_F(PackageCheckTest, ItemsAndDeletionsAsTheEngineSendsThemAreSound)
{
    Send("plain");
    Send(AddRichMessage());
    const std::string gone = here.AddMessage("gone");
    const std::string id = Send(gone);
    here.DeleteMessage(gone);
    sender.SendDeletion(here.share, id);

    const CheckedPackage checked = CheckPackage(*OpenCompoundFile(PackagePath()), "the package");

    EXPECT_TRUE(checked.damaged.empty());
    EXPECT_EQ(checked.sound.items.size(), 3U);
}

TEST_F(PackageCheckTest, AMessageWithoutPropertiesIsDamaged)
{
    const std::string id = Send("one");
    ChangeMessage(id, [](IStorage& message) {
        EXPECT_EQ(message.DestroyElement(OLESTR("__properties_version1.0")), S_OK);
    });

    EXPECT_EQ(Damage(), (std::map<std::string, std::string>{{id, "a message has no properties"}}));
}

TEST_F(PackageCheckTest, AMessageWithFewerPartsThanItCountsIsDamaged)
{
    const std::string recipients = Send(AddRichMessage()), attachments = Send(AddRichMessage());
    ChangeMessage(recipients, [](IStorage& message) {
        EXPECT_EQ(message.DestroyElement(OLESTR("__recip_version1.0_#00000001")), S_OK);
    });
    ChangeMessage(attachments, [](IStorage& message) {
        EXPECT_EQ(message.DestroyElement(OLESTR("__attach_version1.0_#00000000")), S_OK);
    });

    EXPECT_EQ(Damage(), (std::map<std::string, std::string>{{recipients, "recipients are missing"},
                                                            {attachments, "attachments are missing"}}));
}

TEST_F(PackageCheckTest, ADamagedPartMakesItsMessageDamaged)
{
    const std::string recipient = Send(AddRichMessage()), attachment = Send(AddRichMessage()),
                      attached = Send(AddRichMessage()), inside = Send(AddRichMessage());
    ChangeMessage(recipient, [](IStorage& message) {
        const ComPtr<IStorage> part = Child(message, OLESTR("__recip_version1.0_#00000000"));
        EXPECT_EQ(part->DestroyElement(OLESTR("__properties_version1.0")), S_OK);
    });
    const auto attachmentOf = [](IStorage& message) {
        return Child(message, OLESTR("__attach_version1.0_#00000000"));
    };
    ChangeMessage(attachment, [&](IStorage& message) {
        EXPECT_EQ(attachmentOf(message)->DestroyElement(OLESTR("__properties_version1.0")), S_OK);
    });
    ChangeMessage(attached, [&](IStorage& message) {
        EXPECT_EQ(attachmentOf(message)->DestroyElement(OLESTR("__substg1.0_3701000D")), S_OK);
    });
    ChangeMessage(inside, [&](IStorage& message) {
        const ComPtr<IStorage> part = attachmentOf(message);
        const ComPtr<IStorage> data = Child(*part, OLESTR("__substg1.0_3701000D"));
        EXPECT_EQ(data->DestroyElement(OLESTR("__recip_version1.0_#00000000")), S_OK);
    });

    EXPECT_EQ(Damage(), (std::map<std::string, std::string>{{recipient, "a recipient has no properties"},
                                                            {attachment, "an attachment has no properties"},
                                                            {attached, "an attached message is missing"},
                                                            {inside, "recipients are missing"}}));
}

TEST_F(PackageCheckTest, AnItemWithoutItsMessageIsDamagedUnlessItIsADeletion)
{
    const std::string id = Send("one");
    Change(id, [](IStorage& item) { EXPECT_EQ(item.DestroyElement(OLESTR("MAPI_DATA")), S_OK); });

    EXPECT_EQ(Damage(), (std::map<std::string, std::string>{{id, "its message is missing"}}));
}

TEST_F(PackageCheckTest, TheOutboxTakesADamagedItemOutAndNamesItAndSendsTheOthers)
{
    here.transport.folders.Invite("{F}", "carol");
    here.LetIn({"alice"});
    const std::string sound = Send("sound"), damaged = Send("damaged"), incomplete = Send("incomplete");
    Change(damaged, [](IStorage& item) { EXPECT_EQ(item.DestroyElement(OLESTR("MAPI_DATA")), S_OK); });
    Change(incomplete, [](IStorage& item) { EXPECT_EQ(item.DestroyElement(OLESTR("Contents")), S_OK); });

    outbox.TakeReady(true);
    outbox.Deliver(here.transport);

    const CheckedPackage checked =
        CheckPackage(*OpenCompoundFile(here.Delivered(1, here.alice)), "the delivered one");
    EXPECT_TRUE(checked.damaged.empty());
    ASSERT_EQ(checked.sound.items.size(), 1U);
    EXPECT_EQ(checked.sound.items[0].id, sound);
    ASSERT_EQ(here.records.Unsent().size(), 1U);
    EXPECT_EQ(here.records.Unsent()[0].id, damaged);
    EXPECT_EQ(here.records.Unsent()[0].subject, "damaged");
    EXPECT_EQ(here.records.Unsent()[0].reason, "its message is missing");
    EXPECT_EQ(lines.size(), 1U);
    EXPECT_THROW(here.Delivered(1, here.carol), exchange::Error);
}

TEST_F(PackageCheckTest, APackageThatCantBeReadAtAllIsPutAsideAndNotSent)
{
    here.LetIn({"alice"});
    Send("one");
    std::filesystem::resize_file(PackagePath(), 100);

    outbox.TakeReady(true);
    outbox.Deliver(here.transport);

    EXPECT_FALSE(outbox.HasWork());
    EXPECT_TRUE(std::filesystem::is_empty(here.directory / "exchange"));
    EXPECT_FALSE(std::filesystem::is_empty(here.mailbox.Directory() / "rejected"));
    EXPECT_EQ(lines.size(), 1U);
}

}  // namespace

}  // namespace quorvane::host
