#include "msgstore/store/mapi_session.h"

#include "msgstore/store/identity.h"
#include "msgstore/store/msg_store.h"
#include "msgstore/store/profile_admin.h"
#include "msgstore/store/profile_registry.h"
#include "msgstore/store/text_argument.h"
#include "msgstore/table/rows_table.h"

namespace quorvane {
namespace {

constexpr char kProviderName[] = "Quorvane Message Store";

const std::vector<ULONG> kStoreColumns = {
    PR_ENTRYID,     PR_INSTANCE_KEY,   PR_RECORD_KEY,   PR_DISPLAY_NAME_W,     PR_DEFAULT_STORE,
    PR_OBJECT_TYPE, PR_RESOURCE_FLAGS, PR_MDB_PROVIDER, PR_PROVIDER_DISPLAY_W,
};

PropertyBag StoreRow(const StoreService& service, bool isDefault)
{
    PropertyBag row;
    row.Put(BinaryProperty(PR_ENTRYID, StoreEntryId(service.store)));
    row.Put(GuidProperty(PR_INSTANCE_KEY, service.uid));
    row.Put(GuidProperty(PR_RECORD_KEY, service.store));
    row.Put(PropertyValue::Unicode(PR_DISPLAY_NAME_W, FromUtf8(service.displayName)));
    row.Put(PropertyValue::Boolean(PR_DEFAULT_STORE, isDefault));
    row.Put(PropertyValue::Long(PR_OBJECT_TYPE, MAPI_STORE));
    row.Put(PropertyValue::Long(PR_RESOURCE_FLAGS, isDefault ? STATUS_DEFAULT_STORE : 0));
    row.Put(GuidProperty(PR_MDB_PROVIDER, kStoreProvider));
    row.Put(PropertyValue::Unicode(PR_PROVIDER_DISPLAY_W, FromUtf8(kProviderName)));
    return row;
}

HRESULT ParseStoreOf(ULONG idSize, const ENTRYID* id, EntryId& parsed) noexcept
{
    return idSize != 0 && id ? ParseEntryId(id, idSize, parsed) : MAPI_E_INVALID_ENTRYID;
}

HRESULT ChooseProfile(LPTSTR profile, ULONG flags, std::string& name)
{
    name = TextArgument(profile, flags);
    if (!name.empty())
        return S_OK;
    return (flags & MAPI_USE_DEFAULT) != 0 ? ReadDefaultProfile(name) : MAPI_E_NOT_FOUND;
}

}  // namespace

HRESULT CMapiSession::GetLastError(HRESULT, ULONG, LPMAPIERROR* error)
{
    if (!error)
        return MAPI_E_INVALID_PARAMETER;
    *error = nullptr;
    return S_OK;
}

HRESULT CMapiSession::GetMsgStoresTable(ULONG flags, LPMAPITABLE* table)
{
    if (!table)
        return MAPI_E_INVALID_PARAMETER;
    return Guarded([&] {
        std::vector<PropertyBag> rows;
        for (const StoreService& service : m_state->Services()) {
            if (!service.path.empty())
                rows.push_back(StoreRow(service, rows.empty()));
        }
        RowsTableOptions options;
        options.columns = kStoreColumns;
        options.unicode = (flags & MAPI_UNICODE) != 0;
        return MakeRowsTable(std::move(rows), std::move(options), table);
    });
}

HRESULT CMapiSession::OpenMsgStore(ULONG_PTR, ULONG idSize, LPENTRYID id, LPCIID iid, ULONG flags,
                                   LPMDB* store)
{
    if (!store)
        return MAPI_E_INVALID_PARAMETER;
    *store = nullptr;
    return Guarded([&] {
        EntryId parsed;
        QV_RETURN_IF_FAILED(ParseStoreOf(idSize, id, parsed));
        if (parsed.kind != MAPI_STORE)
            return MAPI_E_INVALID_ENTRYID;
        return GiveStore(m_state, parsed.store, iid, flags, reinterpret_cast<LPUNKNOWN*>(store));
    });
}

HRESULT CMapiSession::OpenAddressBook(ULONG_PTR, LPCIID, ULONG, LPADRBOOK*)
{
    return MAPI_E_NO_SUPPORT;
}

HRESULT CMapiSession::OpenProfileSection(LPMAPIUID, LPCIID, ULONG, LPPROFSECT*)
{
    return MAPI_E_NO_SUPPORT;
}

HRESULT CMapiSession::GetStatusTable(ULONG, LPMAPITABLE*)
{
    return MAPI_E_NO_SUPPORT;
}

HRESULT CMapiSession::OpenEntry(ULONG idSize, LPENTRYID id, LPCIID iid, ULONG flags, ULONG* type,
                                LPUNKNOWN* object)
{
    if (!object)
        return MAPI_E_INVALID_PARAMETER;
    *object = nullptr;
    return Guarded([&] {
        EntryId parsed;
        QV_RETURN_IF_FAILED(ParseStoreOf(idSize, id, parsed));
        if (parsed.kind == MAPI_STORE) {
            const ULONG storeFlags = IsWritable(flags) ? MDB_WRITE : 0;
            QV_RETURN_IF_FAILED(GiveStore(m_state, parsed.store, iid, storeFlags, object));
            if (type)
                *type = MAPI_STORE;
            return S_OK;
        }
        OpenedStore store{m_state, nullptr};
        QV_RETURN_IF_FAILED(m_state->OpenStore(parsed.store, store.core));
        return OpenObject(store, idSize, id, iid, flags, type, object);
    });
}

HRESULT CMapiSession::CompareEntryIDs(ULONG size1, LPENTRYID id1, ULONG size2, LPENTRYID id2, ULONG,
                                      ULONG* result)
{
    if (!result || (size1 != 0 && !id1) || (size2 != 0 && !id2))
        return MAPI_E_INVALID_PARAMETER;
    return Guarded([&] {
        const ByteView first(reinterpret_cast<const BYTE*>(id1), size1);
        const ByteView second(reinterpret_cast<const BYTE*>(id2), size2);
        bool same = false;
        QV_RETURN_IF_FAILED(CompareIds(*m_state, first, second, same));
        *result = same;
        return S_OK;
    });
}

HRESULT CMapiSession::Advise(ULONG idSize, LPENTRYID id, ULONG eventMask, LPMAPIADVISESINK sink,
                             ULONG* connection)
{
    return Guarded([&] {
        EntryId parsed;
        QV_RETURN_IF_FAILED(ParseStoreOf(idSize, id, parsed));
        OpenedStore store{m_state, nullptr};
        QV_RETURN_IF_FAILED(m_state->OpenStore(parsed.store, store.core));
        return AdviseObjects(store, idSize, id, eventMask, sink, connection);
    });
}

HRESULT CMapiSession::Unadvise(ULONG connection)
{
    return m_state->Hub().Unadvise(connection);
}

HRESULT CMapiSession::MessageOptions(ULONG_PTR, ULONG, LPTSTR, LPMESSAGE)
{
    return MAPI_E_NO_SUPPORT;
}

HRESULT CMapiSession::QueryDefaultMessageOpt(LPTSTR, ULONG, ULONG*, LPSPropValue*)
{
    return MAPI_E_NO_SUPPORT;
}

HRESULT CMapiSession::EnumAdrTypes(ULONG, ULONG*, LPTSTR**)
{
    return MAPI_E_NO_SUPPORT;
}

HRESULT CMapiSession::QueryIdentity(ULONG* idSize, LPENTRYID* id)
{
    if (!idSize || !id)
        return MAPI_E_INVALID_PARAMETER;
    *idSize = 0;
    *id = nullptr;
    return MAPI_W_NO_SERVICE;
}

HRESULT CMapiSession::Logoff(ULONG_PTR, ULONG, ULONG)
{
    m_state->Hub().Stop();
    return S_OK;
}

HRESULT CMapiSession::SetDefaultStore(ULONG, ULONG, LPENTRYID)
{
    return MAPI_E_NO_SUPPORT;
}

HRESULT CMapiSession::AdminServices(ULONG, LPSERVICEADMIN* admin)
{
    if (!admin)
        return MAPI_E_INVALID_PARAMETER;
    return GiveServiceAdmin(m_state->Profile(), admin);
}

HRESULT CMapiSession::ShowForm(ULONG_PTR, LPMDB, LPMAPIFOLDER, LPCIID, ULONG, LPMESSAGE, ULONG, ULONG, ULONG,
                               ULONG, LPSTR)
{
    return MAPI_E_NO_SUPPORT;
}

HRESULT CMapiSession::PrepareForm(LPCIID, LPMESSAGE, ULONG*)
{
    return MAPI_E_NO_SUPPORT;
}

HRESULT Logon(LPTSTR profile, ULONG flags, LPMAPISESSION* session) noexcept
{
    if (!session)
        return MAPI_E_INVALID_PARAMETER;
    *session = nullptr;
    return Guarded([&] {
        std::string name;
        std::vector<StoreService> services;
        HRESULT found = ChooseProfile(profile, flags, name);
        if (SUCCEEDED(found))
            found = ReadServices(name, services);
        if (found == MAPI_E_NOT_FOUND)
            return MAPI_E_LOGON_FAILED;
        QV_RETURN_IF_FAILED(found);
        *session =
            MakeComObject<CMapiSession>(std::make_shared<SessionState>(name, std::move(services))).Detach();
        return *session ? S_OK : E_OUTOFMEMORY;
    });
}

}  // namespace quorvane
