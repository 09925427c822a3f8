#include "host/profile.h"

#include "host/errors.h"
#include "host/properties.h"
#include "quorvane3/message_store.h"

namespace quorvane::host {

namespace {

constexpr char kProfileName[] = "Quorvane";

// MAPI of the process, until the end of a scope.
class MapiScope {
public:
    explicit MapiScope(const std::string& object)
    {
        MAPIINIT_0 init{MAPI_INIT_VERSION, MAPI_MULTITHREAD_NOTIFICATIONS};
        Check(MAPIInitialize(&init), "start MAPI for", object);
    }
    MapiScope(const MapiScope&) = delete;
    MapiScope& operator=(const MapiScope&) = delete;
    ~MapiScope()
    {
        if (!kept_)
            MAPIUninitialize();
    }
    void Keep() noexcept { kept_ = true; }

private:
    bool kept_ = false;
};

// MAPI's older signatures take texts that they don't write to.
LPTSTR Unconst(const char* text)
{
    return const_cast<LPTSTR>(text);
}

MAPIUID FirstService(IMsgServiceAdmin& admin, const std::string& object)
{
    ComPtr<IMAPITable> table;
    Check(admin.GetMsgServiceTable(0, table.Put()), "read the services of the profile for", object);
    SizedSPropTagArray(1, columns) = {1, {PR_SERVICE_UID}};
    Rows rows;
    Check(HrQueryAllRows(table.Get(), reinterpret_cast<LPSPropTagArray>(&columns), nullptr, nullptr, 0,
                         rows.Put()),
          "read the services of the profile for", object);
    MAPIUID uid{};
    const SPropValue* const value = rows.Count() ? FindValue(rows[0], PR_SERVICE_UID) : nullptr;
    if (!value || value->Value.bin.cb != sizeof uid)
        Fail("configure the profile for", object, "the message service is missing from it");
    std::memcpy(&uid, value->Value.bin.lpb, sizeof uid);
    return uid;
}

ComPtr<IMsgStore> OpenDefaultStore(IMAPISession& session, const std::string& mailbox, std::string& storeId)
{
    ComPtr<IMAPITable> table;
    Check(session.GetMsgStoresTable(0, table.Put()), "list the message stores of", mailbox);
    SizedSPropTagArray(2, columns) = {2, {PR_ENTRYID, PR_DEFAULT_STORE}};
    Rows rows;
    Check(HrQueryAllRows(table.Get(), reinterpret_cast<LPSPropTagArray>(&columns), nullptr, nullptr, 0,
                         rows.Put()),
          "list the message stores of", mailbox);
    const SPropValue* const id = rows.Count() ? FindValue(rows[0], PR_ENTRYID) : nullptr;
    if (!id)
        Fail("open the message store of", mailbox, "its profile names none");
    ComPtr<IMsgStore> store;
    Check(session.OpenMsgStore(0, id->Value.bin.cb, reinterpret_cast<LPENTRYID>(id->Value.bin.lpb), nullptr,
                               MDB_NO_DIALOG | MDB_NO_MAIL | MDB_WRITE, store.Put()),
          "open the message store of", mailbox);
    storeId = Hex(id->Value.bin);
    return store;
}

}  // namespace

void CreateProfile(const std::string& storePath, const std::string& displayName)
{
    const MapiScope mapi(storePath);
    ComPtr<IProfAdmin> profiles;
    Check(MAPIAdminProfiles(0, profiles.Put()), "make a profile for", storePath);
    Check(profiles->CreateProfile(Unconst(kProfileName), nullptr, 0, 0), "make a profile for", storePath);
    ComPtr<IMsgServiceAdmin> services;
    Check(profiles->AdminServices(Unconst(kProfileName), nullptr, 0, 0, services.Put()), "make a profile for",
          storePath);
    Check(services->CreateMsgService(Unconst(kMessageStoreService), Unconst(displayName.c_str()), 0, 0),
          "make a profile for", storePath);
    MAPIUID uid = FirstService(*services, storePath);
    SPropValue path{};
    path.ulPropTag = kPrMessageStorePath;
    path.Value.lpszA = Unconst(storePath.c_str());
    Check(services->ConfigureMsgService(&uid, 0, 0, 1, &path), "make the message store", storePath);
    Check(profiles->SetDefaultProfile(Unconst(kProfileName), 0), "make a profile for", storePath);
}

MailSession::MailSession(const std::string& mailbox)
{
    MapiScope mapi(mailbox);
    Check(
        MAPILogonEx(0, nullptr, nullptr, MAPI_EXTENDED | MAPI_USE_DEFAULT | MAPI_NEW_SESSION, session_.Put()),
        "log on to", mailbox);
    store_ = OpenDefaultStore(*session_, mailbox, storeId_);
    mapi.Keep();
}

MailSession::~MailSession()
{
    store_.Reset();
    session_.Reset();
    MAPIUninitialize();
}

}  // namespace quorvane::host
