// host/mime/test_store.h: for tests: messages in a real message store, and what they hold as text.
#ifndef QUORVANE_HOST_MIME_TEST_STORE_H_
#define QUORVANE_HOST_MIME_TEST_STORE_H_

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

#include "host/mime/export_mail.h"
#include "host/mime/export_mime.h"
#include "host/mime/import_mime.h"
#include "host/mime/mapi_read.h"
#include "host/mime/property_list.h"
#include "quorvane3/com.h"
#include "quorvane3/message_store.h"

namespace quorvane {

// A message store of its own, in a directory that goes with it. One at a time in a process.
class TestStore {
public:
    TestStore()
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "qv-mime-XXXXXX").string();
        directory_ = mkdtemp(pattern.data());
        setenv("XDG_CONFIG_HOME", directory_.c_str(), 1);
        setenv("XDG_DATA_HOME", directory_.c_str(), 1);
        EXPECT_EQ(MAPIInitialize(nullptr), S_OK);
        MakeProfile();
        EXPECT_EQ(MAPILogonEx(0, nullptr, nullptr, MAPI_EXTENDED | MAPI_USE_DEFAULT | MAPI_NEW_SESSION,
                              session_.Put()),
                  S_OK);
        OpenStore();
        OpenFolder();
    }
    ~TestStore()
    {
        folder_.Reset();
        store_.Reset();
        session_.Reset();
        MAPIUninitialize();
        std::filesystem::remove_all(directory_);
    }
    TestStore(const TestStore&) = delete;
    TestStore& operator=(const TestStore&) = delete;

    // A new message, unsaved.
    ComPtr<IMessage> NewMessage()
    {
        ComPtr<IMessage> message;
        EXPECT_EQ(folder_->CreateMessage(nullptr, 0, message.Put()), S_OK);
        return message;
    }

    // A mail as a saved message.
    ComPtr<IMessage> Import(const MailBytes& mail, const ImportOptions& options = {})
    {
        ComPtr<IMessage> message = NewMessage();
        EXPECT_EQ(ImportMime(mail, options, *message), S_OK);
        EXPECT_EQ(message->SaveChanges(KEEP_OPEN_READWRITE | MAPI_DEFERRED_ERRORS), S_OK);
        return message;
    }

private:
    static char* Text(const char* text) { return const_cast<char*>(text); }

    void MakeProfile()
    {
        ComPtr<IProfAdmin> profiles;
        ASSERT_EQ(MAPIAdminProfiles(0, profiles.Put()), S_OK);
        ASSERT_EQ(profiles->CreateProfile(Text("Test"), nullptr, 0, 0), S_OK);
        ComPtr<IMsgServiceAdmin> services;
        ASSERT_EQ(profiles->AdminServices(Text("Test"), nullptr, 0, 0, services.Put()), S_OK);
        ASSERT_EQ(services->CreateMsgService(Text(kMessageStoreService), Text("Test"), 0, 0), S_OK);
        MAPIUID uid = {};
        ComPtr<IMAPITable> table;
        ASSERT_EQ(services->GetMsgServiceTable(0, table.Put()), S_OK);
        SPropTagArray column = {1, {PR_SERVICE_UID}};
        ASSERT_EQ(ForEachRow(*table, &column,
                             [&](const SRow& row) {
                                 std::memcpy(&uid, row.lpProps[0].Value.bin.lpb, sizeof uid);
                                 return S_OK;
                             }),
                  S_OK);
        const std::string path = directory_ + "/store.db";
        SPropValue value = {};
        value.ulPropTag = kPrMessageStorePath;
        value.Value.lpszA = Text(path.c_str());
        ASSERT_EQ(services->ConfigureMsgService(&uid, 0, 0, 1, &value), S_OK);
        ASSERT_EQ(profiles->SetDefaultProfile(Text("Test"), 0), S_OK);
    }

    void OpenStore()
    {
        ComPtr<IMAPITable> table;
        ASSERT_EQ(session_->GetMsgStoresTable(0, table.Put()), S_OK);
        SPropTagArray column = {1, {PR_ENTRYID}};
        ASSERT_EQ(ForEachRow(*table, &column,
                             [&](const SRow& row) {
                                 const SBinary& id = row.lpProps[0].Value.bin;
                                 return session_->OpenMsgStore(
                                     0, id.cb, reinterpret_cast<ENTRYID*>(id.lpb), nullptr,
                                     MDB_NO_DIALOG | MDB_NO_MAIL | MDB_WRITE, store_.Put());
                             }),
                  S_OK);
        ASSERT_TRUE(store_);
    }

    void OpenFolder()
    {
        std::optional<std::string> id;
        ASSERT_EQ(ReadBinary(*store_, PR_IPM_SUBTREE_ENTRYID, id), S_OK);
        ASSERT_TRUE(id);
        ComPtr<IUnknown> object;
        ULONG type = 0;
        ASSERT_EQ(store_->OpenEntry(static_cast<ULONG>(id->size()), reinterpret_cast<ENTRYID*>(id->data()),
                                    nullptr, MAPI_MODIFY, &type, object.Put()),
                  S_OK);
        ComPtr<IMAPIFolder> root;
        ASSERT_EQ(object.As(root), S_OK);
        ASSERT_EQ(root->CreateFolder(1, Text("Mail"), nullptr, nullptr, 0, folder_.Put()), S_OK);
    }

    std::string directory_;
    ComPtr<IMAPISession> session_;
    ComPtr<IMsgStore> store_;
    ComPtr<IMAPIFolder> folder_;
};

// A fixture with one store for all its tests.
class StoreTest : public testing::Test {
protected:
    static void SetUpTestSuite() { store = new TestStore; }
    static void TearDownTestSuite()
    {
        delete store;
        store = nullptr;
    }

    // What ExportMail writes of a message.
    static std::string Mail(IMessage& message)
    {
        std::ostringstream out;
        const MakeScratch scratch = [](IMessage** made) {
            *made = store->NewMessage().Detach();
            return S_OK;
        };
        EXPECT_EQ(ExportMail(message, scratch, out), S_OK);
        return out.str();
    }

    static void SetText(IMAPIProp& object, ULONG tag, const std::string& text)
    {
        PropertyList value;
        value.AddText(tag, text);
        EXPECT_EQ(value.SetOn(object), S_OK);
    }
    // With the first `what`, which must be there, exchanged.
    static std::string Replaced(std::string text, const std::string& what, const std::string& by)
    {
        const std::size_t at = text.find(what);
        EXPECT_NE(at, std::string::npos) << what;
        return at == std::string::npos ? text : text.replace(at, what.size(), by);
    }

    static inline TestStore* store = nullptr;
};

inline std::string Text(IMAPIProp& object, ULONG tag)
{
    return ShortText(object, tag, 1252);
}

inline std::string Bytes(IMAPIProp& object, ULONG tag)
{
    std::optional<std::string> bytes;
    EXPECT_EQ(ReadBinary(object, tag, bytes), S_OK);
    return bytes.value_or("");
}

// "To: Name <address>", a line each.
inline std::string RecipientLines(IMessage& message)
{
    ComPtr<IMAPITable> table;
    EXPECT_EQ(message.GetRecipientTable(MAPI_UNICODE, table.Put()), S_OK);
    SizedSPropTagArray(3, columns) = {3, {PR_RECIPIENT_TYPE, PR_DISPLAY_NAME_W, PR_EMAIL_ADDRESS_W}};
    std::string lines;
    EXPECT_EQ(ForEachRow(*table, reinterpret_cast<SPropTagArray*>(&columns),
                         [&](const SRow& row) {
                             static constexpr const char* kKinds[] = {"Orig", "To", "Cc", "Bcc"};
                             lines += std::string(kKinds[row.lpProps[0].Value.l & 3]) + ": " +
                                      RowText(row, PR_DISPLAY_NAME_W, 1252) + " <" +
                                      RowText(row, PR_EMAIL_ADDRESS_W, 1252) + ">\n";
                             return S_OK;
                         }),
              S_OK);
    return lines;
}

inline std::vector<ComPtr<IAttach>> Attachments(IMessage& message)
{
    ComPtr<IMAPITable> table;
    EXPECT_EQ(message.GetAttachmentTable(MAPI_UNICODE, table.Put()), S_OK);
    SPropTagArray column = {1, {PR_ATTACH_NUM}};
    std::vector<ComPtr<IAttach>> attachments;
    EXPECT_EQ(ForEachRow(*table, &column,
                         [&](const SRow& row) {
                             const auto number = static_cast<ULONG>(row.lpProps[0].Value.l);
                             return message.OpenAttach(number, nullptr, 0, attachments.emplace_back().Put());
                         }),
              S_OK);
    return attachments;
}

inline ComPtr<IMessage> Embedded(IAttach& attachment)
{
    ComPtr<IMessage> message;
    EXPECT_EQ(attachment.OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IMessage, 0, 0, message.PutUnknown()), S_OK);
    return message;
}

inline std::string AttachmentData(IAttach& attachment)
{
    return Bytes(attachment, PR_ATTACH_DATA_BIN);
}

// All that a mail gave a message, as text: for comparing two messages.
inline std::string Describe(IMessage& message, const std::string& indent = "")
{
    std::ostringstream out;
    for (const ULONG tag :
         {PR_MESSAGE_CLASS_W, PR_SUBJECT_W, PR_SUBJECT_PREFIX_W, PR_NORMALIZED_SUBJECT_W,
          PR_CONVERSATION_TOPIC_W, PR_SENDER_NAME_W, PR_SENDER_EMAIL_ADDRESS_W, PR_SENT_REPRESENTING_NAME_W,
          PR_SENT_REPRESENTING_EMAIL_ADDRESS_W, PR_REPLY_RECIPIENT_NAMES_W, kPrInternetMessageIdW,
          kPrInReplyToIdW, kPrInternetReferencesW, PR_BODY_W})
        out << indent << std::hex << tag << " " << Text(message, tag) << "\n";
    for (const ULONG tag : {PR_IMPORTANCE, PR_PRIORITY, PR_SENSITIVITY, kPrMessageEditorFormat})
        out << indent << tag << " " << ReadLong(message, tag).value_or(-99) << "\n";
    for (const ULONG tag : {PR_READ_RECEIPT_REQUESTED, PR_ORIGINATOR_DELIVERY_REPORT_REQUESTED})
        out << indent << tag << " " << ReadBoolean(message, tag).value_or(false) << "\n";
    for (const ULONG tag : {PR_CLIENT_SUBMIT_TIME, PR_MESSAGE_DELIVERY_TIME}) {
        const FILETIME time = ReadTime(message, tag).value_or(FILETIME{});
        out << indent << tag << " " << time.dwHighDateTime << " " << time.dwLowDateTime << "\n";
    }
    out << indent << "html " << Bytes(message, kPrHtml) << "\n" << RecipientLines(message);
    for (const ComPtr<IAttach>& attachment : Attachments(message)) {
        for (const ULONG tag :
             {PR_ATTACH_LONG_FILENAME_W, PR_ATTACH_FILENAME_W, PR_ATTACH_EXTENSION_W, PR_DISPLAY_NAME_W,
              PR_ATTACH_MIME_TAG_W, kPrAttachContentIdW, kPrAttachContentLocationW})
            out << indent << "  " << Text(*attachment, tag) << "\n";
        const LONG method = ReadLong(*attachment, PR_ATTACH_METHOD).value_or(0);
        out << indent << "  " << method << " " << ReadLong(*attachment, kPrAttachFlags).value_or(0) << "\n";
        if (method == static_cast<LONG>(ATTACH_EMBEDDED_MSG))
            out << Describe(*Embedded(*attachment), indent + "    ");
        else
            out << indent << "  data " << AttachmentData(*attachment) << "\n";
    }
    return out.str();
}

inline std::string Export(IMessage& message)
{
    std::ostringstream out;
    EXPECT_EQ(ExportMime(message, out), S_OK);
    return out.str();
}

inline std::filesystem::path SamplesFolder()
{
    return QUORVANE_SAMPLES;
}

inline std::string ReadFile(const std::filesystem::path& path)
{
    std::ifstream file(path, std::ios::binary);
    EXPECT_TRUE(file) << path;
    return {std::istreambuf_iterator<char>(file), {}};
}

// The sample whose name begins with a number.
inline std::string Sample(const std::string& number)
{
    for (const auto& entry : std::filesystem::directory_iterator(SamplesFolder())) {
        if (entry.path().filename().string().starts_with(number + "-"))
            return ReadFile(entry.path());
    }
    ADD_FAILURE() << "no sample " << number;
    return {};
}

}  // namespace quorvane

#endif  // QUORVANE_HOST_MIME_TEST_STORE_H_
