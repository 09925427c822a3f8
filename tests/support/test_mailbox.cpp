#include "tests/support/test_mailbox.h"

#include <sqlite3.h>

#include <cstring>
#include <fstream>
#include <iterator>

#include "platform/testing/surroundings.h"
#include "quorvane3/message_store.h"

namespace quorvane::test {

namespace {

constexpr char kProfile[] = "Test";
constexpr char kSettings[] = "Software\\Brindlemoor\\Quorvane\\1.0\\Tests\\Settings";

LPTSTR Unconst(const char* text)
{
    return const_cast<LPTSTR>(text);
}

std::string ReadFile(const std::filesystem::path& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

// One connection to a database file.
class Sqlite {
public:
    explicit Sqlite(const std::filesystem::path& path)
    {
        if (sqlite3_open_v2(path.string().c_str(), &db_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE,
                            sharingDatabaseVfs) != SQLITE_OK)
            throw std::runtime_error("open " + path.string());
        sqlite3_busy_timeout(db_, 10000);
    }
    Sqlite(const Sqlite&) = delete;
    Sqlite& operator=(const Sqlite&) = delete;
    ~Sqlite() { sqlite3_close(db_); }

    void Run(const std::string& sql)
    {
        if (sqlite3_exec(db_, sql.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK)
            throw std::runtime_error(sql + ": " + sqlite3_errmsg(db_));
    }

    long Number(const std::string& sql)
    {
        sqlite3_stmt* statement = nullptr;
        if (sqlite3_prepare_v2(db_, sql.c_str(), -1, &statement, nullptr) != SQLITE_OK)
            throw std::runtime_error(sql + ": " + sqlite3_errmsg(db_));
        const long number = sqlite3_step(statement) == SQLITE_ROW ? sqlite3_column_int(statement, 0) : -1;
        sqlite3_finalize(statement);
        return number;
    }

private:
    sqlite3* db_ = nullptr;
};

// The first value of a table's first row, copied.
SBinary FirstBinary(IMAPITable& table, ULONG tag, std::vector<BYTE>& place)
{
    SizedSPropTagArray(1, columns) = {1, {tag}};
    SRowSet* rows = nullptr;
    Check(HrQueryAllRows(&table, reinterpret_cast<LPSPropTagArray>(&columns), nullptr, nullptr, 0, &rows),
          "read a table");
    if (rows->cRows > 0) {
        const SBinary& value = rows->aRow[0].lpProps[0].Value.bin;
        place.assign(value.lpb, value.lpb + value.cb);
    }
    FreeProws(rows);
    return {static_cast<ULONG>(place.size()), place.data()};
}

void ConfigureStore(IMsgServiceAdmin& services, const std::string& path)
{
    ComPtr<IMAPITable> table;
    Check(services.GetMsgServiceTable(0, table.Put()), "list the services");
    std::vector<BYTE> place;
    const SBinary found = FirstBinary(*table.Get(), PR_SERVICE_UID, place);
    MAPIUID uid{};
    if (found.cb != sizeof uid)
        throw std::runtime_error("the profile has no service");
    std::memcpy(&uid, found.lpb, sizeof uid);
    SPropValue value{};
    value.ulPropTag = kPrMessageStorePath;
    value.Value.lpszA = Unconst(path.c_str());
    Check(services.ConfigureMsgService(&uid, 0, 0, 1, &value), "configure the message store");
}

}  // namespace

TestMailbox::TestMailbox()
{
    std::filesystem::create_directories(InboxPath());
    Select();
    PutUserSetting(kSettings, "Logs", LogPath().string());
    logBefore_ = ReadFile(LogPath()).size();
    Execute(ReadFile(QUORVANE_SHARING_SCHEMA));
    MAPIINIT_0 init{0, MAPI_MULTITHREAD_NOTIFICATIONS};
    Check(MAPIInitialize(&init), "start MAPI");
    MakeProfile();
    LogOn();
}

TestMailbox::~TestMailbox()
{
    LogOff();
    MAPIUninitialize();
}

void TestMailbox::LogOff()
{
    store_.Reset();
    session_.Reset();
}

void TestMailbox::Select() const
{
    KeepSettingsIn(Directory() / "config");
    KeepDataIn(Directory() / "data");
    KeepTemporaryFilesIn(Directory() / "temp");
}

void TestMailbox::MakeProfile() const
{
    ComPtr<IProfAdmin> profiles;
    Check(MAPIAdminProfiles(0, profiles.Put()), "administer profiles");
    Check(profiles->CreateProfile(Unconst(kProfile), nullptr, 0, 0), "make a profile");
    ComPtr<IMsgServiceAdmin> services;
    Check(profiles->AdminServices(Unconst(kProfile), nullptr, 0, 0, services.Put()), "administer services");
    Check(services->CreateMsgService(Unconst(kMessageStoreService), Unconst("Store"), 0, 0),
          "make a service");
    ConfigureStore(*services.Get(), StorePath().string());
    Check(profiles->SetDefaultProfile(Unconst(kProfile), 0), "set the default profile");
}

void TestMailbox::DeleteProfile() const
{
    ComPtr<IProfAdmin> profiles;
    Check(MAPIAdminProfiles(0, profiles.Put()), "administer profiles");
    Check(profiles->DeleteProfile(Unconst(kProfile), 0), "delete the profile");
}

void TestMailbox::LogOn()
{
    Check(
        MAPILogonEx(0, nullptr, nullptr, MAPI_EXTENDED | MAPI_USE_DEFAULT | MAPI_NEW_SESSION, session_.Put()),
        "log on to MAPI");
    ComPtr<IMAPITable> table;
    Check(session_->GetMsgStoresTable(0, table.Put()), "list the stores");
    std::vector<BYTE> place;
    const SBinary id = FirstBinary(*table.Get(), PR_ENTRYID, place);
    Check(session_->OpenMsgStore(0, id.cb, reinterpret_cast<LPENTRYID>(id.lpb), nullptr,
                                 MDB_NO_MAIL | MDB_WRITE, store_.Put()),
          "open the store");
}

const std::filesystem::path& TestMailbox::LogPath()
{
    static const TestDirectory directory;
    static const std::filesystem::path path = directory.Path() / "engine.log";
    return path;
}

ComPtr<IStoreTestSwitches> TestMailbox::StoreSwitches() const
{
    ComPtr<IStoreTestSwitches> switches;
    Check(store_->OpenProperty(kPrTestSwitches, &IID_IStoreTestSwitches, 0, 0,
                               reinterpret_cast<LPUNKNOWN*>(switches.PutVoid())),
          "get the store's switches");
    return switches;
}

TestFolder TestMailbox::MakeFolder(const std::string& name) const
{
    ULONG type = 0;
    ComPtr<IUnknown> object;
    Check(store_->OpenEntry(0, nullptr, nullptr, MAPI_MODIFY, &type, object.Put()), "open the root folder");
    ComPtr<IMAPIFolder> root;
    Check(object.As(root), "open the root folder");
    ComPtr<IMAPIFolder> folder;
    Check(root->CreateFolder(FOLDER_GENERIC, Unconst(name.c_str()), nullptr, nullptr, 0, folder.Put()),
          "make a folder");
    return {store_, folder};
}

TestFolder TestMailbox::OpenFolder(const std::string& entryId) const
{
    std::vector<BYTE> id(entryId.size() / 2 + 1);
    if (!FBinFromHex(const_cast<LPTSTR>(entryId.c_str()), id.data()))
        throw std::runtime_error("no entry identifier: " + entryId);
    ULONG type = 0;
    ComPtr<IMAPIFolder> folder;
    Check(store_->OpenEntry(static_cast<ULONG>(entryId.size() / 2), reinterpret_cast<LPENTRYID>(id.data()),
                            &IID_IMAPIFolder, MAPI_MODIFY, &type, folder.PutUnknown()),
          "open a folder");
    return {store_, folder};
}

long TestMailbox::Query(const std::string& sql) const
{
    return Sqlite(DatabasePath()).Number(sql);
}

void TestMailbox::Execute(const std::string& sql) const
{
    Sqlite(DatabasePath()).Run(sql);
}

std::string TestMailbox::Log() const
{
    return ReadFile(LogPath()).substr(logBefore_);
}

}  // namespace quorvane::test
