// items/testing/test_mailbox.h: a mailbox in the message store that the MAPI binding finds.
#ifndef QUORVANE_ENGINE_ITEMS_TESTING_TEST_MAILBOX_H_
#define QUORVANE_ENGINE_ITEMS_TESTING_TEST_MAILBOX_H_

#include <string>
#include <vector>

#include "platform/com/bstr.h"
#include "platform/com/com_ptr.h"
#include "platform/mapi/mapi.h"
#include "platform/testing/test_directory.h"

namespace quorvane::testing {

// What a test puts into a message.
struct TestMail {
    std::string subject;
    std::string body;
    std::vector<std::string> recipients;
    std::vector<std::string> attachments;
};

// A profile with one store, logged on. A failure on the way throws std::runtime_error.
class TestMailbox {
public:
    TestMailbox();
    TestMailbox(const TestMailbox&) = delete;
    TestMailbox& operator=(const TestMailbox&) = delete;
    ~TestMailbox();

    const ComPtr<IMAPISession>& Session() const { return session_; }
    IMsgStore& Store() const { return *store_; }
    Bstr StoreId() const { return IdOf(*store_); }

    ComPtr<IMAPIFolder> MakeFolder(const std::string& name);
    // Makes and saves a message.
    ComPtr<IMessage> AddMessage(IMAPIFolder& folder, const TestMail& mail);
    // Fills a message; doesn't save it.
    static void Fill(IMessage& message, const TestMail& mail);

    // What is in a message now.
    static TestMail Read(IMessage& message);
    static bool IsRead(IMessage& message);
    // The subjects in a folder, sorted.
    static std::vector<std::string> Subjects(IMAPIFolder& folder);

    // The entry identifiers of a folder's messages, in the order of its table.
    static std::vector<Bstr> MailsIn(IMAPIFolder& folder);

    // An object's PR_ENTRYID in hexadecimal text.
    static Bstr IdOf(IMAPIProp& object);
    // Opens a message again; empty when it is gone.
    ComPtr<IMessage> Open(const Bstr& entryId, ULONG flags = MAPI_MODIFY);
    void Delete(IMAPIFolder& folder, const Bstr& entryId);

private:
    void MakeProfile();
    void OpenStore();

    const test::TestDirectory directory_;
    std::string profileName_;
    ComPtr<IMAPISession> session_;
    ComPtr<IMsgStore> store_;
    ComPtr<IMAPIFolder> root_;
};

// An empty message on a compound file in memory.
ComPtr<IMessage> MakeDetachedMessage(const TestMail& mail);

}  // namespace quorvane::testing

#endif  // QUORVANE_ENGINE_ITEMS_TESTING_TEST_MAILBOX_H_
