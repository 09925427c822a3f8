// Every object of the store may be used from any thread, and crosses from an apartment as itself.
#include <gtest/gtest.h>

#include <thread>

#include "msgstore/store/profile_admin.h"
#include "msgstore/store/test_mailbox.h"
#include "platform/com/apartment.h"
#include "platform/com/marshaled_interface.h"

namespace quorvane {
namespace {

using testing::ContentsOf;
using testing::TestMailbox;

class FreeThreadingTest : public ::testing::Test {
protected:
    // As the system's own free-threaded marshaler tells it.
    static CLSID FreeMarshalersClass()
    {
        ComPtr<IUnknown> free;
        EXPECT_EQ(CoCreateFreeThreadedMarshaler(nullptr, free.Put()), S_OK);
        ComPtr<IMarshal> marshal;
        EXPECT_EQ(free.As(marshal), S_OK);
        CLSID clsid{};
        EXPECT_EQ(marshal->GetUnmarshalClass(IID_IUnknown, free.Get(), MSHCTX_INPROC, nullptr,
                                             MSHLFLAGS_NORMAL, &clsid),
                  S_OK);
        return clsid;
    }

    // Sends an interface of this apartment's to another thread.
    template <class Interface>
    static void ExpectCrossesAsItself(const ComPtr<Interface>& object, const char* what)
    {
        SCOPED_TRACE(what);
        ComPtr<IMarshal> marshal;
        CLSID clsid{};
        ASSERT_EQ(object->QueryInterface(IID_IMarshal, marshal.PutVoid()), S_OK);
        ASSERT_EQ(marshal->GetUnmarshalClass(Iid<Interface>(), object.Get(), MSHCTX_INPROC, nullptr,
                                             MSHLFLAGS_NORMAL, &clsid),
                  S_OK);
        EXPECT_TRUE(IsEqualCLSID(clsid, FreeMarshalersClass()));
        MarshaledInterface marshaled;
        ASSERT_EQ(marshaled.Put<Interface>(object.Get()), S_OK);
        std::thread([&] {
            const FreeThreadScope free;
            ComPtr<Interface> arrived;
            EXPECT_EQ(marshaled.Take(arrived), S_OK);
            EXPECT_EQ(arrived, object);
        }).join();
    }

    ComPtr<IMessage> MessageWithAttachment(ComPtr<IAttach>& attachment)
    {
        ComPtr<IMessage> message;
        EXPECT_EQ(mailbox.Inbox().CreateMessage(nullptr, 0, message.Put()), S_OK);
        EXPECT_EQ(testing::SetText(*message, PR_BODY_W, OLESTR("body")), S_OK);
        ULONG number = 0;
        EXPECT_EQ(message->CreateAttach(nullptr, 0, &number, attachment.Put()), S_OK);
        return message;
    }

    const ApartmentScope apartment;
    TestMailbox mailbox;
};

TEST_F(FreeThreadingTest, SessionStoreFolderAndTablesCrossAsThemselves)
{
    ExpectCrossesAsItself(ComPtr<IMAPISession>(&mailbox.Session()), "session");
    ExpectCrossesAsItself(ComPtr<IMsgStore>(&mailbox.Store()), "store");
    ExpectCrossesAsItself(ComPtr<IMAPIFolder>(&mailbox.Inbox()), "folder");
    ExpectCrossesAsItself(ContentsOf(mailbox.Inbox()), "contents table");
    ComPtr<IMAPITable> stores;
    ASSERT_EQ(mailbox.Session().GetMsgStoresTable(0, stores.Put()), S_OK);
    ExpectCrossesAsItself(stores, "table of stores");
    ComPtr<IProfAdmin> profiles;
    ASSERT_EQ(GiveProfileAdmin(profiles.Put()), S_OK);
    ExpectCrossesAsItself(profiles, "profiles");
    ComPtr<IMsgServiceAdmin> services;
    ASSERT_EQ(mailbox.Session().AdminServices(0, services.Put()), S_OK);
    ExpectCrossesAsItself(services, "services");
}

TEST_F(FreeThreadingTest, AMessageAndWhatIsInItCrossAsThemselves)
{
    ComPtr<IAttach> attachment;
    const ComPtr<IMessage> message = MessageWithAttachment(attachment);
    ExpectCrossesAsItself(message, "message");
    ExpectCrossesAsItself(attachment, "attachment");
    ComPtr<IStream> body;
    ASSERT_EQ(message->OpenProperty(PR_BODY_W, &IID_IStream, 0, 0, body.PutUnknown()), S_OK);
    ExpectCrossesAsItself(body, "stream");
}

}  // namespace
}  // namespace quorvane
