#include "msgstore/store/profile_admin.h"

#include "msgstore/store/profile_registry.h"
#include "msgstore/store/text_argument.h"
#include "msgstore/table/rows_table.h"
#include "platform/com/com_object.h"

namespace quorvane {
namespace {

class CProfileAdmin final : public ComObject<CProfileAdmin, IProfAdmin, FreeThreaded> {
public:
    HRESULT STDMETHODCALLTYPE GetLastError(HRESULT, ULONG, LPMAPIERROR* error) override
    {
        if (!error)
            return MAPI_E_INVALID_PARAMETER;
        *error = nullptr;
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE GetProfileTable(ULONG flags, LPMAPITABLE* table) override
    {
        if (!table)
            return MAPI_E_INVALID_PARAMETER;
        return Guarded([&] {
            std::vector<std::string> names;
            QV_RETURN_IF_FAILED(ListProfiles(names));
            std::string standard;
            (void)ReadDefaultProfile(standard);  // without one no row is marked
            std::vector<PropertyBag> rows;
            for (const std::string& name : names) {
                PropertyBag& row = rows.emplace_back();
                row.Put(PropertyValue::Unicode(PR_DISPLAY_NAME_W, FromUtf8(name)));
                row.Put(PropertyValue::Boolean(PR_DEFAULT_PROFILE, name == standard));
            }
            RowsTableOptions options;
            options.columns = {PR_DISPLAY_NAME_W, PR_DEFAULT_PROFILE};
            options.unicode = (flags & MAPI_UNICODE) != 0;
            return MakeRowsTable(std::move(rows), std::move(options), table);
        });
    }

    HRESULT STDMETHODCALLTYPE CreateProfile(LPTSTR name, LPTSTR, ULONG_PTR, ULONG flags) override
    {
        return Guarded([&] { return CreateProfileKey(TextArgument(name, flags)); });
    }

    HRESULT STDMETHODCALLTYPE DeleteProfile(LPTSTR name, ULONG flags) override
    {
        return Guarded([&] { return DeleteProfileKey(TextArgument(name, flags)); });
    }

    HRESULT STDMETHODCALLTYPE ChangeProfilePassword(LPTSTR, LPTSTR, LPTSTR, ULONG) override
    {
        return MAPI_E_NO_SUPPORT;
    }

    HRESULT STDMETHODCALLTYPE CopyProfile(LPTSTR, LPTSTR, LPTSTR, ULONG_PTR, ULONG) override
    {
        return MAPI_E_NO_SUPPORT;
    }

    HRESULT STDMETHODCALLTYPE RenameProfile(LPTSTR, LPTSTR, LPTSTR, ULONG_PTR, ULONG) override
    {
        return MAPI_E_NO_SUPPORT;
    }

    HRESULT STDMETHODCALLTYPE SetDefaultProfile(LPTSTR name, ULONG flags) override
    {
        return Guarded([&] { return WriteDefaultProfile(TextArgument(name, flags)); });
    }

    HRESULT STDMETHODCALLTYPE AdminServices(LPTSTR name, LPTSTR, ULONG_PTR, ULONG flags,
                                            LPSERVICEADMIN* admin) override
    {
        if (!admin)
            return MAPI_E_INVALID_PARAMETER;
        *admin = nullptr;
        return Guarded([&] {
            const std::string profile = TextArgument(name, flags);
            std::vector<StoreService> services;
            QV_RETURN_IF_FAILED(ReadServices(profile, services));
            return GiveServiceAdmin(profile, admin);
        });
    }
};

}  // namespace

HRESULT GiveProfileAdmin(LPPROFADMIN* admin) noexcept
{
    *admin = MakeComObject<CProfileAdmin>().Detach();
    return *admin ? S_OK : E_OUTOFMEMORY;
}

}  // namespace quorvane
