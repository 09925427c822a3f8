#include "host/sharing/engine.h"

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <thread>
#include <utility>

#include "host/sharing/test_mailbox.h"

namespace quorvane::host {
namespace {

// Tells of the first item that is added.
class FirstItem final : public ExtHandler {
public:
    explicit FirstItem(const Mailbox& mailbox) : mailbox_(mailbox) {}

    HRESULT OnItemAdded(IItem*, bool& ignore) override
    {
        ignore = true;
        if (!std::exchange(told_, true))
            added.set_value(std::this_thread::get_id());
        return S_OK;
    }
    HRESULT DatabasePath(Bstr& path) override
    {
        path = BstrOf(mailbox_.SharingDatabasePath().string());
        return S_OK;
    }
    HRESULT ProductCode(Bstr& code) override
    {
        code = Bstr(kProductCode);
        return S_OK;
    }

    std::promise<std::thread::id> added;

private:
    const Mailbox& mailbox_;
    bool told_ = false;
};

// MAPI may make the thread that starts it an apartment. The engine works in that, and its calls don't wait
// for the thread, which answers none.
TEST(EngineSessionTest, TheEngineStartsInAnApartmentOfMapisAndCallsTheProgramOnItsOwnThreads)
{
    std::thread([] {
        const ApartmentScope madeByMapi;
        const test::TestDirectory directory;
        const std::string path = (directory / "bob").string();
        Mailbox::Create(path, "bob");
        const Mailbox mailbox = Mailbox::Open(path);
        const MailSession mail(path);
        const ComPtr<IMAPIFolder> folder = EnsureFolder(mail, "Shared");
        FirstItem handler(mailbox);
        const EngineSession engine(handler, path);
        const ComPtr<IFolder> shared =
            AddEngineFolder(engine, {"{F}", HexOf(*folder, PR_ENTRYID), mail.StoreId(), "Shared"});
        ComPtr<IMessage> message;
        ASSERT_EQ(folder->CreateMessage(nullptr, 0, message.Put()), S_OK);
        ASSERT_EQ(message->SaveChanges(0), S_OK);

        std::future<std::thread::id> added = handler.added.get_future();
        ASSERT_EQ(added.wait_for(std::chrono::seconds(60)), std::future_status::ready);
        EXPECT_NE(added.get(), std::this_thread::get_id());
    }).join();
}

}  // namespace
}  // namespace quorvane::host
