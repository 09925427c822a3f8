// tests/support/test_folder.h: a folder of a message store, and its mails, in a few words.
#ifndef QUORVANE_TESTS_SUPPORT_TEST_FOLDER_H_
#define QUORVANE_TESTS_SUPPORT_TEST_FOLDER_H_

#include <optional>
#include <string>
#include <vector>

#include "quorvane3/com.h"
#include "quorvane3/mapi.h"

namespace quorvane::test {

// The text of an entry identifier, two uppercase digits a byte.
std::string HexOf(const SBinary& id);

// Throws std::runtime_error. Identifiers are hexadecimal text.
class TestFolder {
public:
    TestFolder(ComPtr<IMsgStore> store, ComPtr<IMAPIFolder> folder);

    const std::string& EntryId() const noexcept { return entryId_; }
    const std::string& StoreId() const noexcept { return storeId_; }
    IMAPIFolder& Folder() const noexcept { return *folder_; }

    // Makes a mail with a subject, a body, a recipient and an attachment; gives its identifier.
    std::string Add(const std::string& subject, const std::string& body) const;
    void SetSubject(const std::string& id, const std::string& subject) const;
    void Delete(const std::string& id) const { Delete(std::vector<std::string>{id}); }
    void Delete(const std::vector<std::string>& ids) const;
    // In one transaction of the store, however many they are.
    void Move(const std::vector<std::string>& ids, const TestFolder& to) const;

    ComPtr<IMessage> Open(const std::string& id, ULONG flags = 0) const;
    // The identifier of the mail with that subject, if there is one.
    std::optional<std::string> Find(const std::string& subject) const;
    // Of all mails, sorted.
    std::vector<std::string> Subjects() const;
    ULONG Count() const;

private:
    ComPtr<IMsgStore> store_;
    ComPtr<IMAPIFolder> folder_;
    std::string entryId_;
    std::string storeId_;
};

// What a mail says of itself, for comparing two of them: subject, body, class, recipients, attachments.
struct MailContents {
    std::string subject;
    std::string body;
    std::string messageClass;
    std::vector<std::string> recipients;
    std::vector<std::string> attachments;  // name and data

    bool operator==(const MailContents&) const = default;
};
MailContents ContentsOf(IMessage& message);

}  // namespace quorvane::test

#endif  // QUORVANE_TESTS_SUPPORT_TEST_FOLDER_H_
