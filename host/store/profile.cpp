#include "host/store/profile.h"

#include <cstring>
#include <optional>

#include "host/base/errors.h"
#include "host/base/path_text.h"
#include "host/store/properties.h"
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

// The profile's message service.
struct Service {
    MAPIUID uid{};
    std::string path;  // of its store; empty as long as it isn't configured
};

ComPtr<IProfAdmin> AdminProfiles(const std::string& object)
{
    ComPtr<IProfAdmin> profiles;
    Check(MAPIAdminProfiles(0, profiles.Put()), "administer the profiles for", object);
    return profiles;
}

// Empty when there is no such profile.
ComPtr<IMsgServiceAdmin> AdminServices(IProfAdmin& profiles, const std::string& object)
{
    ComPtr<IMsgServiceAdmin> services;
    const HRESULT hr = profiles.AdminServices(Unconst(kProfileName), nullptr, 0, 0, services.Put());
    if (hr != MAPI_E_NOT_FOUND)
        Check(hr, "open the profile for", object);
    return services;
}

std::optional<Service> FindService(IMsgServiceAdmin& services, const std::string& object)
{
    ComPtr<IMAPITable> table;
    Check(services.GetMsgServiceTable(0, table.Put()), "read the services of the profile for", object);
    SizedSPropTagArray(2, columns) = {2, {PR_SERVICE_UID, kPrMessageStorePath}};
    Rows rows;
    Check(HrQueryAllRows(table.Get(), reinterpret_cast<LPSPropTagArray>(&columns), nullptr, nullptr, 0,
                         rows.Put()),
          "read the services of the profile for", object);
    const SPropValue* const uid = rows.Count() ? FindValue(rows[0], PR_SERVICE_UID) : nullptr;
    Service service;
    if (!uid || uid->Value.bin.cb != sizeof service.uid)
        return std::nullopt;
    std::memcpy(&service.uid, uid->Value.bin.lpb, sizeof service.uid);
    service.path = TextOf(rows[0], kPrMessageStorePath);
    return service;
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

bool HasProfile(const std::filesystem::path& storePath)
{
    const std::string shown = storePath.string();
    const MapiScope mapi(shown);
    const ComPtr<IMsgServiceAdmin> services = AdminServices(*AdminProfiles(shown), shown);
    const auto service = services ? FindService(*services, shown) : std::nullopt;
    std::error_code error;
    return service && !service->path.empty() &&
           std::filesystem::equivalent(PathOf(service->path), storePath, error);
}

// The path comes last: with it the profile counts as made.
void MakeProfile(const std::filesystem::path& storePath, const std::string& displayName)
{
    const std::string shown = storePath.string();
    const MapiScope mapi(shown);
    const ComPtr<IProfAdmin> profiles = AdminProfiles(shown);
    ComPtr<IMsgServiceAdmin> services = AdminServices(*profiles, shown);
    if (!services) {
        Check(profiles->CreateProfile(Unconst(kProfileName), nullptr, 0, 0), "make a profile for", shown);
        services = AdminServices(*profiles, shown);
    }
    if (!services)
        Fail("make a profile for", shown, "it is gone again");
    Check(profiles->SetDefaultProfile(Unconst(kProfileName), 0), "make a profile for", shown);
    auto service = FindService(*services, shown);
    if (!service) {
        Check(services->CreateMsgService(Unconst(kMessageStoreService), Unconst(displayName.c_str()), 0, 0),
              "make a profile for", shown);
        service = FindService(*services, shown);
    }
    if (!service)
        Fail("make a profile for", shown, "the message service is missing from it");
    std::string ansi = AnsiTextOf(storePath);
    SPropValue path{};
    path.ulPropTag = kPrMessageStorePath;
    path.Value.lpszA = ansi.data();
    Check(services->ConfigureMsgService(&service->uid, 0, 0, 1, &path), "make the message store", shown);
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
