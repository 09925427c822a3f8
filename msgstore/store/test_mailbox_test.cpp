#include "msgstore/store/test_mailbox.h"

#include <gtest/gtest.h>

#include "msgstore/store/mapi_session.h"
#include "msgstore/store/profile_admin.h"
#include "msgstore/store/store_core.h"
#include "platform/testing/surroundings.h"
#include "quorvane3/message_store.h"

namespace quorvane::testing {
namespace {

LPSTR Mutable(const std::string& text)
{
    return const_cast<LPSTR>(text.c_str());
}

HRESULT ConfigureService(IMsgServiceAdmin& services, const std::string& path, bool shortTermIds)
{
    ComPtr<IMAPITable> table;
    QV_RETURN_IF_FAILED(services.GetMsgServiceTable(0, table.Put()));
    RowSet rows;
    QV_RETURN_IF_FAILED(table->QueryRows(1, 0, rows.Put()));
    const BinaryValue uid = BinaryOf(rows[0], PR_SERVICE_UID);
    MAPIUID itsUid;
    std::copy_n(uid.begin(), sizeof(itsUid.ab), itsUid.ab);
    SPropValue values[2] = {};
    values[0].ulPropTag = kPrMessageStorePath;
    values[0].Value.lpszA = Mutable(path);
    values[1].ulPropTag = kPrMessageStoreShortTermIds;
    values[1].Value.b = shortTermIds;
    return services.ConfigureMsgService(&itsUid, 0, 0, 2, values);
}

const SPropValue* FindIn(const SRow& row, ULONG tag)
{
    return PpropFindProp(row.lpProps, row.cValues, tag);
}

OleString Units(LPCWSTR text)
{
    return OleString(reinterpret_cast<const OLECHAR*>(text));
}

BinaryValue BytesAt(const void* bytes, std::size_t size)
{
    const auto* const at = static_cast<const BYTE*>(bytes);
    return BinaryValue(at, at + size);
}

BinaryValue BytesOf(const SPropValue* value)
{
    return value ? BytesAt(value->Value.bin.lpb, value->Value.bin.cb) : BinaryValue();
}

}  // namespace

RegistryScope::RegistryScope(const std::filesystem::path& directory) : before_(test::SettingsAreKeptIn())
{
    test::KeepSettingsIn(directory);
}

RegistryScope::~RegistryScope()
{
    test::KeepSettingsIn(before_);
}

HRESULT MakeProfile(const std::string& name, const std::string& storePath, bool shortTermIds)
{
    ComPtr<IProfAdmin> profiles;
    QV_RETURN_IF_FAILED(GiveProfileAdmin(profiles.Put()));
    QV_RETURN_IF_FAILED(profiles->CreateProfile(Mutable(name), nullptr, 0, 0));
    ComPtr<IMsgServiceAdmin> services;
    QV_RETURN_IF_FAILED(profiles->AdminServices(Mutable(name), nullptr, 0, 0, services.Put()));
    QV_RETURN_IF_FAILED(services->CreateMsgService(Mutable(kMessageStoreService), Mutable("Mail"), 0, 0));
    QV_RETURN_IF_FAILED(ConfigureService(*services, storePath, shortTermIds));
    return profiles->SetDefaultProfile(Mutable(name), 0);
}

BinaryValue BinaryOf(IMAPIProp& object, ULONG tag)
{
    MapiBuffer<SPropValue> value;
    return SUCCEEDED(HrGetOneProp(&object, tag, value.Put())) ? BytesOf(value.Get()) : BinaryValue();
}

BinaryValue BinaryOf(const SRow& row, ULONG tag)
{
    return BytesOf(FindIn(row, tag));
}

LONG LongOf(IMAPIProp& object, ULONG tag)
{
    MapiBuffer<SPropValue> value;
    return SUCCEEDED(HrGetOneProp(&object, tag, value.Put())) ? value->Value.l : -1;
}

OleString TextOf(IMAPIProp& object, ULONG tag)
{
    MapiBuffer<SPropValue> value;
    return SUCCEEDED(HrGetOneProp(&object, tag, value.Put())) ? Units(value->Value.lpszW) : OLESTR("(none)");
}

OleString TextOf(const SRow& row, ULONG tag)
{
    const SPropValue* const value = FindIn(row, tag);
    return value ? Units(value->Value.lpszW) : OLESTR("(none)");
}

std::uint64_t TimeOf(IMAPIProp& object, ULONG tag)
{
    MapiBuffer<SPropValue> value;
    if (FAILED(HrGetOneProp(&object, tag, value.Put())))
        return 0;
    const FILETIME time = value->Value.ft;
    return (std::uint64_t{time.dwHighDateTime} << 32) | time.dwLowDateTime;
}

TestMailbox::TestMailbox(bool shortTermIds) : registry_(directory_.Path())
{
    EXPECT_EQ(MakeProfile("test", StorePath(), shortTermIds), S_OK);
    LogOn();
}

void TestMailbox::LogOn()
{
    ASSERT_EQ(Logon(nullptr, MAPI_EXTENDED | MAPI_USE_DEFAULT, session_.Put()), S_OK);
    store_ = OpenStore();
    ASSERT_TRUE(store_);
    ULONG size = 0;
    MapiBuffer<ENTRYID> id;
    ASSERT_EQ(store_->GetReceiveFolder(nullptr, 0, &size, id.Put(), nullptr), S_OK);
    inbox_ = OpenFolder(BytesAt(id.Get(), size));
}

void TestMailbox::LogOff()
{
    inbox_.Reset();
    store_.Reset();
    session_.Reset();
}

BinaryValue TestMailbox::StoreId()
{
    ComPtr<IMAPITable> table;
    EXPECT_EQ(session_->GetMsgStoresTable(0, table.Put()), S_OK);
    RowSet rows;
    EXPECT_EQ(table->QueryRows(1, 0, rows.Put()), S_OK);
    return rows.size() == 1 ? BinaryOf(rows[0], PR_ENTRYID) : BinaryValue();
}

ComPtr<IMsgStore> TestMailbox::OpenStore(ULONG flags)
{
    BinaryValue id = StoreId();
    ComPtr<IMsgStore> store;
    EXPECT_EQ(session_->OpenMsgStore(0, static_cast<ULONG>(id.size()), reinterpret_cast<LPENTRYID>(id.data()),
                                     nullptr, flags, store.Put()),
              S_OK);
    return store;
}

ComPtr<IMAPIFolder> TestMailbox::OpenFolder(const BinaryValue& id, ULONG flags)
{
    BinaryValue copy = id;
    ULONG type = 0;
    ComPtr<IMAPIFolder> folder;
    EXPECT_EQ(store_->OpenEntry(static_cast<ULONG>(copy.size()), reinterpret_cast<LPENTRYID>(copy.data()),
                                nullptr, flags, &type, folder.PutUnknown()),
              S_OK);
    EXPECT_EQ(type, MAPI_FOLDER);
    return folder;
}

ComPtr<IMessage> TestMailbox::OpenMessage(const BinaryValue& id, ULONG flags)
{
    BinaryValue copy = id;
    ULONG type = 0;
    ComPtr<IMessage> message;
    EXPECT_EQ(store_->OpenEntry(static_cast<ULONG>(copy.size()), reinterpret_cast<LPENTRYID>(copy.data()),
                                nullptr, flags, &type, message.PutUnknown()),
              S_OK);
    EXPECT_EQ(type, MAPI_MESSAGE);
    return message;
}

ComPtr<IMAPIFolder> TestMailbox::MakeFolder(IMAPIFolder& parent, const char* name)
{
    ComPtr<IMAPIFolder> folder;
    EXPECT_EQ(parent.CreateFolder(FOLDER_GENERIC, const_cast<LPSTR>(name), nullptr, nullptr, 0, folder.Put()),
              S_OK);
    return folder;
}

BinaryValue TestMailbox::AddMessage(IMAPIFolder& folder, const OleString& subject, ULONG saveFlags)
{
    ComPtr<IMessage> message;
    EXPECT_EQ(folder.CreateMessage(nullptr, 0, message.Put()), S_OK);
    EXPECT_EQ(SetText(*message, PR_SUBJECT_W, subject), S_OK);
    EXPECT_EQ(SetText(*message, PR_MESSAGE_CLASS_W, OLESTR("IPM.Note")), S_OK);
    EXPECT_EQ(message->SaveChanges(KEEP_OPEN_READWRITE | saveFlags), S_OK);
    return BinaryOf(*message, PR_ENTRYID);
}

void TestMailbox::ChangeSubject(const BinaryValue& id, const OleString& subject)
{
    const ComPtr<IMessage> message = OpenMessage(id);
    ASSERT_TRUE(message);
    EXPECT_EQ(SetText(*message, PR_SUBJECT_W, subject), S_OK);
    EXPECT_EQ(message->SaveChanges(0), S_OK);
}

HRESULT TestMailbox::Delete(IMAPIFolder& folder, const BinaryValue& id)
{
    BinaryValue copy = id;
    SBinary one{static_cast<ULONG>(copy.size()), copy.data()};
    ENTRYLIST list{1, &one};
    return folder.DeleteMessages(&list, 0, nullptr, 0);
}

void TestMailbox::Damage(const char* subject, const std::string& become)
{
    const std::string update =
        "UPDATE part SET properties=" + become +
        " WHERE parent_id=0 AND message_id IN (SELECT id FROM message WHERE subject=?)";
    std::shared_ptr<StoreCore> core;
    ASSERT_EQ(StoreCore::Open(StorePath(), false, core), S_OK);
    ASSERT_EQ(core->Write(Durability::AtReturn,
                          [&](SqliteConnection& connection) {
                              QV_RETURN_IF_FAILED(connection.Run(update, std::string_view(subject)));
                              return connection.Changes() > 0 ? S_OK : MAPI_E_NOT_FOUND;
                          }),
              S_OK);
}

HRESULT SetText(IMAPIProp& object, ULONG tag, const OleString& text)
{
    SPropValue value{};
    value.ulPropTag = tag;
    value.Value.lpszW = const_cast<LPWSTR>(text.c_str());
    return object.SetProps(1, &value, nullptr);
}

HRESULT SetLong(IMAPIProp& object, ULONG tag, LONG number)
{
    SPropValue value{};
    value.ulPropTag = tag;
    value.Value.l = number;
    return object.SetProps(1, &value, nullptr);
}

HRESULT SetBinary(IMAPIProp& object, ULONG tag, const BinaryValue& bytes)
{
    SPropValue value{};
    value.ulPropTag = tag;
    value.Value.bin = {static_cast<ULONG>(bytes.size()), const_cast<BYTE*>(bytes.data())};
    return object.SetProps(1, &value, nullptr);
}

ComPtr<IMAPITable> ContentsOf(IMAPIFolder& folder, ULONG flags)
{
    ComPtr<IMAPITable> table;
    EXPECT_EQ(folder.GetContentsTable(flags, table.Put()), S_OK);
    return table;
}

std::vector<OleString> SubjectsOf(IMAPITable& table)
{
    SizedSPropTagArray(1, columns) = {1, {PR_SUBJECT_W}};
    EXPECT_EQ(table.SetColumns(reinterpret_cast<LPSPropTagArray>(&columns), 0), S_OK);
    EXPECT_EQ(table.SeekRow(BOOKMARK_BEGINNING, 0, nullptr), S_OK);
    RowSet rows;
    EXPECT_EQ(table.QueryRows(1000000, 0, rows.Put()), S_OK);
    std::vector<OleString> subjects;
    for (const SRow& row : rows)
        subjects.push_back(TextOf(row, PR_SUBJECT_W));
    return subjects;
}

ULONG CTestSink::OnNotify(ULONG count, LPNOTIFICATION notifications)
{
    const std::lock_guard lock(m_lock);
    ++m_calls;
    for (ULONG i = 0; i < count; ++i) {
        Event& event = m_events.emplace_back();
        event.type = notifications[i].ulEventType;
        if (event.type == fnevTableModified) {
            const TABLE_NOTIFICATION& table = notifications[i].info.tab;
            event.tableEvent = table.ulTableEvent;
            if (table.propIndex.ulPropTag == PR_INSTANCE_KEY)
                event.key = BytesOf(&table.propIndex);
            event.columns = table.row.cValues;
            event.entryId = BinaryOf(table.row, PR_ENTRYID);
        } else {
            const OBJECT_NOTIFICATION& object = notifications[i].info.obj;
            event.key = BytesAt(object.lpEntryID, object.cbEntryID);
            event.parent = BytesAt(object.lpParentID, object.cbParentID);
            event.oldParent = BytesAt(object.lpOldParentID, object.cbOldParentID);
        }
    }
    m_changed.notify_all();
    return S_OK;
}

std::vector<CTestSink::Event> CTestSink::Events()
{
    const std::lock_guard lock(m_lock);
    return m_events;
}

std::size_t CTestSink::Calls()
{
    const std::lock_guard lock(m_lock);
    return m_calls;
}

}  // namespace quorvane::testing
