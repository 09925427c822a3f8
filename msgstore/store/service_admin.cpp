#include <algorithm>
#include <cstring>

#include "msgstore/store/identity.h"
#include "msgstore/store/profile_admin.h"
#include "msgstore/store/profile_registry.h"
#include "msgstore/store/store_rows.h"
#include "msgstore/store/text_argument.h"
#include "msgstore/table/rows_table.h"
#include "platform/com/com_object.h"
#include "quorvane3/message_store.h"

namespace quorvane {
namespace {

ObjectGuid UidOf(const MAPIUID& uid) noexcept
{
    ObjectGuid guid;
    std::memcpy(guid.data(), uid.ab, guid.size());
    return guid;
}

// What ConfigureMsgService was given.
struct Configuration {
    std::string path;
    bool hasShortTermIds = false;
    bool shortTermIds = false;
    std::string displayName;
};

HRESULT ReadConfiguration(ULONG count, const SPropValue* values, Configuration& configuration)
{
    for (ULONG i = 0; i < count; ++i) {
        PropertyValue value;
        QV_RETURN_IF_FAILED(FromSPropValue(values[i], value));
        if (value.id() == PROP_ID(kPrMessageStorePath)) {
            configuration.path = ToUtf8(value.AsText());
        } else if (value.id() == PROP_ID(kPrMessageStoreShortTermIds)) {
            configuration.hasShortTermIds = true;
            configuration.shortTermIds = value.AsInteger() != 0;
        } else if (value.id() == PROP_ID(PR_DISPLAY_NAME)) {
            configuration.displayName = ToUtf8(value.AsText());
        }
    }
    return configuration.path.empty() ? MAPI_E_UNCONFIGURED : S_OK;
}

HRESULT OpenConfiguredStore(const Configuration& configuration, StoreService& service)
{
    std::shared_ptr<StoreCore> core;
    QV_RETURN_IF_FAILED(StoreCore::Open(configuration.path, true, core));
    // The true path, so that the profile serves from any current directory.
    service.path = core->Path();
    service.store = core->Guid();
    if (!configuration.hasShortTermIds)
        return S_OK;
    return core->Write(Durability::AtReturn, [&](SqliteConnection& connection) {
        return WriteShortTermIds(connection, configuration.shortTermIds);
    });
}

PropertyBag ServiceRow(const StoreService& service)
{
    PropertyBag row;
    row.Put(GuidProperty(PR_SERVICE_UID, service.uid));
    row.Put(GuidProperty(PR_INSTANCE_KEY, service.uid));
    row.Put(PropertyValue::Unicode(PR_SERVICE_NAME_W, FromUtf8(kMessageStoreService)));
    row.Put(PropertyValue::Unicode(PR_DISPLAY_NAME_W, FromUtf8(service.displayName)));
    if (service.path.empty())
        return row;
    row.Put(PropertyValue::String8(kPrMessageStorePath, service.path));
    row.Put(BinaryProperty(PR_ENTRYID, StoreEntryId(service.store)));
    return row;
}

class CServiceAdmin final : public ComObject<CServiceAdmin, IMsgServiceAdmin, FreeThreaded> {
public:
    explicit CServiceAdmin(const std::string& profile) : m_profile(profile) {}

    HRESULT STDMETHODCALLTYPE GetLastError(HRESULT, ULONG, LPMAPIERROR* error) override
    {
        if (!error)
            return MAPI_E_INVALID_PARAMETER;
        *error = nullptr;
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE GetMsgServiceTable(ULONG flags, LPMAPITABLE* table) override
    {
        if (!table)
            return MAPI_E_INVALID_PARAMETER;
        return Guarded([&] {
            std::vector<StoreService> services;
            QV_RETURN_IF_FAILED(ReadServices(m_profile, services));
            std::vector<PropertyBag> rows;
            std::transform(services.begin(), services.end(), std::back_inserter(rows), ServiceRow);
            RowsTableOptions options;
            options.columns = {PR_SERVICE_UID, PR_INSTANCE_KEY, PR_SERVICE_NAME_W, PR_DISPLAY_NAME_W};
            options.unicode = (flags & MAPI_UNICODE) != 0;
            return MakeRowsTable(std::move(rows), std::move(options), table);
        });
    }

    HRESULT STDMETHODCALLTYPE CreateMsgService(LPTSTR service, LPTSTR displayName, ULONG_PTR,
                                               ULONG flags) override
    {
        return Guarded([&] {
            if (TextArgument(service, flags) != kMessageStoreService)
                return MAPI_E_NOT_FOUND;
            StoreService made;
            made.uid = MakeObjectGuid();
            made.displayName = TextArgument(displayName, flags);
            if (made.displayName.empty())
                made.displayName = kMessageStoreService;
            return WriteService(m_profile, made);
        });
    }

    HRESULT STDMETHODCALLTYPE DeleteMsgService(LPMAPIUID uid) override
    {
        if (!uid)
            return MAPI_E_INVALID_PARAMETER;
        return Guarded([&] { return DeleteService(m_profile, UidOf(*uid)); });
    }

    HRESULT STDMETHODCALLTYPE CopyMsgService(LPMAPIUID, LPTSTR, LPCIID, LPCIID, LPVOID, ULONG_PTR,
                                             ULONG) override
    {
        return MAPI_E_NO_SUPPORT;
    }

    HRESULT STDMETHODCALLTYPE RenameMsgService(LPMAPIUID, ULONG, LPTSTR) override
    {
        return MAPI_E_NO_SUPPORT;
    }

    HRESULT STDMETHODCALLTYPE ConfigureMsgService(LPMAPIUID uid, ULONG_PTR, ULONG, ULONG count,
                                                  LPSPropValue properties) override
    {
        if (!uid || (count != 0 && !properties))
            return MAPI_E_INVALID_PARAMETER;
        return Guarded([&] {
            StoreService service;
            QV_RETURN_IF_FAILED(FindByUid(UidOf(*uid), service));
            Configuration configuration;
            QV_RETURN_IF_FAILED(ReadConfiguration(count, properties, configuration));
            QV_RETURN_IF_FAILED(OpenConfiguredStore(configuration, service));
            if (!configuration.displayName.empty())
                service.displayName = configuration.displayName;
            return WriteService(m_profile, service);
        });
    }

    HRESULT STDMETHODCALLTYPE OpenProfileSection(LPMAPIUID, LPCIID, ULONG, LPPROFSECT*) override
    {
        return MAPI_E_NO_SUPPORT;
    }

    HRESULT STDMETHODCALLTYPE MsgServiceTransportOrder(ULONG, LPMAPIUID, ULONG) override
    {
        return MAPI_E_NO_SUPPORT;
    }

    HRESULT STDMETHODCALLTYPE AdminProviders(LPMAPIUID, ULONG, LPPROVIDERADMIN*) override
    {
        return MAPI_E_NO_SUPPORT;
    }

    HRESULT STDMETHODCALLTYPE SetPrimaryIdentity(LPMAPIUID, ULONG) override { return MAPI_E_NO_SUPPORT; }

    HRESULT STDMETHODCALLTYPE GetProviderTable(ULONG, LPMAPITABLE*) override { return MAPI_E_NO_SUPPORT; }

private:
    HRESULT FindByUid(const ObjectGuid& uid, StoreService& service) const
    {
        std::vector<StoreService> services;
        QV_RETURN_IF_FAILED(ReadServices(m_profile, services));
        const auto found = std::find_if(services.begin(), services.end(),
                                        [&](const auto& known) { return known.uid == uid; });
        if (found == services.end())
            return MAPI_E_NOT_FOUND;
        service = *found;
        return S_OK;
    }

    const std::string m_profile;
};

}  // namespace

HRESULT GiveServiceAdmin(const std::string& profile, LPSERVICEADMIN* admin) noexcept
{
    *admin = MakeComObject<CServiceAdmin>(profile).Detach();
    return *admin ? S_OK : E_OUTOFMEMORY;
}

}  // namespace quorvane
