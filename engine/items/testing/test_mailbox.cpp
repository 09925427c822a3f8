#include "engine/items/testing/test_mailbox.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

#include "engine/items/entry.h"
#include "engine/items/message_storage.h"
#include "engine/storeaccess/hex.h"
#include "engine/storeaccess/mapi_binding.h"
#include "engine/storeaccess/mapi_functions.h"
#include "engine/storeaccess/mapi_memory.h"
#include "platform/testing/surroundings.h"
#include "quorvane3/message_store.h"

namespace quorvane::testing {

namespace {

void Check(HRESULT hr, const char* what)
{
    if (SUCCEEDED(hr))
        return;
    char code[16];
    std::snprintf(code, sizeof(code), "0x%X", static_cast<unsigned>(hr));
    throw std::runtime_error(std::string(what) + ": " + code);
}

LPTSTR Unconst(const std::string& text)
{
    return const_cast<LPTSTR>(text.c_str());
}

// Borrows the text.
SPropValue TextValue(ULONG tag, const char* text)
{
    SPropValue value{};
    value.ulPropTag = tag;
    value.Value.lpszA = const_cast<LPSTR>(text);
    return value;
}

SPropValue LongValue(ULONG tag, LONG number)
{
    SPropValue value{};
    value.ulPropTag = tag;
    value.Value.l = number;
    return value;
}

// Profiles lie under the user's configuration; the tests of a process have one of their own.
void UseOwnConfiguration()
{
    static const test::TestDirectory configuration;
    test::KeepSettingsIn(configuration.Path());
}

ComPtr<IProfAdmin> OpenProfiles()
{
    using AdminProfiles = HRESULT(STDMETHODCALLTYPE*)(ULONG, LPPROFADMIN*);
    BindMapiLibrary();
    const auto open = reinterpret_cast<AdminProfiles>(BoundMapiFunction(MapiFunction::MAPIAdminProfiles));
    if (!open)
        throw std::runtime_error("no MAPI library");
    ComPtr<IProfAdmin> profiles;
    Check(open(0, profiles.Put()), "MAPIAdminProfiles");
    return profiles;
}

RowSet AllRows(IMAPITable& table, ULONG tag)
{
    SPropTagArray columns{1, {tag}};
    RowSet rows;
    Check(mapi::HrQueryAllRows(&table, &columns, nullptr, nullptr, 0, rows.Put()), "HrQueryAllRows");
    return rows;
}

std::string TextOf(IMAPIProp& object, ULONG tag)
{
    PropValue value;
    if (FAILED(mapi::HrGetOneProp(&object, tag, value.Put())) || value->ulPropTag != tag)
        return {};
    return value->Value.lpszA;
}

std::vector<std::string> TextsOf(IMAPITable& table, ULONG tag)
{
    std::vector<std::string> texts;
    const RowSet rows = AllRows(table, tag);
    for (const SRow& row : rows) {
        const SPropValue* const value = FindProp(row, tag);
        texts.push_back(value ? value->Value.lpszA : "");
    }
    std::sort(texts.begin(), texts.end());
    return texts;
}

void AddRecipient(IMessage& message, const std::string& name)
{
    SPropValue values[] = {TextValue(PR_DISPLAY_NAME_A, name.c_str()),
                           TextValue(PR_EMAIL_ADDRESS_A, name.c_str()), TextValue(PR_ADDRTYPE_A, "SMTP"),
                           LongValue(PR_RECIPIENT_TYPE, MAPI_TO)};
    ADRLIST list{1, {{0, 4, values}}};
    Check(message.ModifyRecipients(MODRECIP_ADD, &list), "ModifyRecipients");
}

void AddAttachment(IMessage& message, const std::string& name)
{
    ULONG number = 0;
    ComPtr<IAttach> attachment;
    Check(message.CreateAttach(nullptr, 0, &number, attachment.Put()), "CreateAttach");
    std::string bytes = "content of " + name;
    SPropValue data{};
    data.ulPropTag = PR_ATTACH_DATA_BIN;
    data.Value.bin = {static_cast<ULONG>(bytes.size()), reinterpret_cast<LPBYTE>(bytes.data())};
    SPropValue values[] = {LongValue(PR_ATTACH_METHOD, ATTACH_BY_VALUE), data,
                           TextValue(PR_ATTACH_FILENAME_A, name.c_str())};
    Check(attachment->SetProps(3, values, nullptr), "IAttach::SetProps");
    Check(attachment->SaveChanges(0), "IAttach::SaveChanges");
}

}  // namespace

TestMailbox::TestMailbox()
{
    UseOwnConfiguration();
    MAPIINIT_0 init{0, MAPI_MULTITHREAD_NOTIFICATIONS};
    Check(mapi::MAPIInitialize(&init), "MAPIInitialize");
    MakeProfile();
    OpenStore();
}

TestMailbox::~TestMailbox()
{
    root_.Reset();
    store_.Reset();
    session_.Reset();
    mapi::MAPIUninitialize();
}

void TestMailbox::MakeProfile()
{
    static int number = 0;
    profileName_ = "Test" + std::to_string(++number);
    const ComPtr<IProfAdmin> profiles = OpenProfiles();
    Check(profiles->CreateProfile(Unconst(profileName_), nullptr, 0, 0), "CreateProfile");
    ComPtr<IMsgServiceAdmin> services;
    Check(profiles->AdminServices(Unconst(profileName_), nullptr, 0, 0, services.Put()), "AdminServices");
    Check(services->CreateMsgService(Unconst(kMessageStoreService), Unconst(profileName_), 0, 0),
          "CreateMsgService");
    ComPtr<IMAPITable> table;
    Check(services->GetMsgServiceTable(0, table.Put()), "GetMsgServiceTable");
    const RowSet rows = AllRows(*table, PR_SERVICE_UID);
    MAPIUID uid{};
    if (rows.Count() != 1)
        throw std::runtime_error("no message service");
    std::memcpy(&uid, rows.begin()->lpProps[0].Value.bin.lpb, sizeof(uid));
    const std::string storePath = directory_.File("mail.store");
    SPropValue path = TextValue(kPrMessageStorePath, storePath.c_str());
    Check(services->ConfigureMsgService(&uid, 0, 0, 1, &path), "ConfigureMsgService");
}

void TestMailbox::OpenStore()
{
    Check(mapi::MAPILogonEx(0, Unconst(profileName_), nullptr, MAPI_EXTENDED | MAPI_NEW_SESSION,
                            session_.Put()),
          "MAPILogonEx");
    ComPtr<IMAPITable> table;
    Check(session_->GetMsgStoresTable(0, table.Put()), "GetMsgStoresTable");
    const RowSet rows = AllRows(*table, PR_ENTRYID);
    if (rows.Count() != 1)
        throw std::runtime_error("no message store");
    const SBinary id = rows.begin()->lpProps[0].Value.bin;
    Check(session_->OpenMsgStore(0, id.cb, reinterpret_cast<LPENTRYID>(id.lpb), nullptr,
                                 MDB_NO_MAIL | MDB_WRITE, store_.Put()),
          "OpenMsgStore");
    ULONG type = 0;
    ComPtr<IUnknown> root;
    Check(store_->OpenEntry(0, nullptr, nullptr, MAPI_MODIFY, &type, root.Put()), "OpenEntry of the root");
    Check(root.As(root_), "QueryInterface of the root");
}

ComPtr<IMAPIFolder> TestMailbox::MakeFolder(const std::string& name)
{
    ComPtr<IMAPIFolder> folder;
    Check(root_->CreateFolder(FOLDER_GENERIC, Unconst(name), nullptr, nullptr, 0, folder.Put()),
          "CreateFolder");
    return folder;
}

ComPtr<IMessage> TestMailbox::AddMessage(IMAPIFolder& folder, const TestMail& mail)
{
    ComPtr<IMessage> message;
    Check(folder.CreateMessage(nullptr, 0, message.Put()), "CreateMessage");
    Fill(*message, mail);
    Check(message->SaveChanges(KEEP_OPEN_READWRITE), "SaveChanges");
    return message;
}

void TestMailbox::Fill(IMessage& message, const TestMail& mail)
{
    SPropValue values[] = {TextValue(PR_SUBJECT_A, mail.subject.c_str()),
                           TextValue(PR_BODY_A, mail.body.c_str()),
                           TextValue(PR_MESSAGE_CLASS_A, "IPM.Note")};
    Check(message.SetProps(3, values, nullptr), "SetProps");
    for (const std::string& recipient : mail.recipients)
        AddRecipient(message, recipient);
    for (const std::string& attachment : mail.attachments)
        AddAttachment(message, attachment);
}

TestMail TestMailbox::Read(IMessage& message)
{
    TestMail mail;
    mail.subject = TextOf(message, PR_SUBJECT_A);
    mail.body = TextOf(message, PR_BODY_A);
    ComPtr<IMAPITable> table;
    Check(message.GetRecipientTable(0, table.Put()), "GetRecipientTable");
    mail.recipients = TextsOf(*table, PR_DISPLAY_NAME_A);
    Check(message.GetAttachmentTable(0, table.Put()), "GetAttachmentTable");
    mail.attachments = TextsOf(*table, PR_ATTACH_FILENAME_A);
    return mail;
}

bool TestMailbox::IsRead(IMessage& message)
{
    PropValue flags;
    Check(mapi::HrGetOneProp(&message, PR_MESSAGE_FLAGS, flags.Put()), "PR_MESSAGE_FLAGS");
    return (flags->Value.l & static_cast<LONG>(MSGFLAG_READ)) != 0;
}

std::vector<std::string> TestMailbox::Subjects(IMAPIFolder& folder)
{
    ComPtr<IMAPITable> table;
    Check(folder.GetContentsTable(0, table.Put()), "GetContentsTable");
    return TextsOf(*table, PR_SUBJECT_A);
}

std::vector<Bstr> TestMailbox::MailsIn(IMAPIFolder& folder)
{
    ComPtr<IMAPITable> table;
    Check(folder.GetContentsTable(0, table.Put()), "the contents table");
    SPropTagArray columns{1, {PR_ENTRYID}};
    RowSet rows;
    Check(mapi::HrQueryAllRows(table.Get(), &columns, nullptr, nullptr, 0, rows.Put()), "the contents table");
    std::vector<Bstr> mails;
    for (const SRow& row : rows) {
        mails.emplace_back();
        Check(HexFromBinary(row.lpProps[0].Value.bin, mails.back()), "name a message");
    }
    return mails;
}

Bstr TestMailbox::IdOf(IMAPIProp& object)
{
    PropValue value;
    Check(mapi::HrGetOneProp(&object, PR_ENTRYID, value.Put()), "PR_ENTRYID");
    Bstr text;
    Check(HexFromBinary(value->Value.bin, text), "HexFromBinary");
    return text;
}

ComPtr<IMessage> TestMailbox::Open(const Bstr& entryId, ULONG flags)
{
    ComPtr<IMessage> message;
    if (FAILED(OpenEntryById(*store_, entryId.Get(), flags, message)))
        message.Reset();
    return message;
}

void TestMailbox::Delete(IMAPIFolder& folder, const Bstr& entryId)
{
    BinaryId id;
    Check(BinaryFromHex(entryId.Get(), id), "BinaryFromHex");
    SBinary binary = id.Binary();
    ENTRYLIST list{1, &binary};
    Check(folder.DeleteMessages(&list, 0, nullptr, 0), "DeleteMessages");
}

ComPtr<IMessage> MakeDetachedMessage(const TestMail& mail)
{
    MemoryStorage memory;
    Check(memory.Create(), "a compound file in memory");
    ComPtr<IMessage> message;
    Check(OpenMessageOnStorage(nullptr, *memory.storage, message), "OpenIMsgOnIStg");
    TestMailbox::Fill(*message, mail);
    Check(message->SaveChanges(KEEP_OPEN_READWRITE), "SaveChanges");
    return message;
}

}  // namespace quorvane::testing
