#include "tests/oledb_provider/failures.h"

#include <sqlite3.h>

#include <string_view>

#include "platform/com/bstr.h"
#include "platform/com/com_object.h"

namespace quorvane::test {
namespace {

struct Described {
    HRESULT result;
    std::vector<std::string> descriptions;
};

// The records of one failure, or one of them alone.
class ErrorRecords final : public ComObject<ErrorRecords, IErrorInfo, IErrorRecords> {
public:
    explicit ErrorRecords(Described failure) noexcept : failure_(std::move(failure)) {}

    HRESULT STDMETHODCALLTYPE GetRecordCount(ULONG* count) override
    {
        if (!count)
            return E_INVALIDARG;
        *count = static_cast<ULONG>(failure_.descriptions.size());
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetErrorInfo(ULONG record, LCID, IErrorInfo** info) override
    {
        if (!info)
            return E_INVALIDARG;
        *info = nullptr;
        if (record >= failure_.descriptions.size())
            return DB_E_BADRECORDNUM;
        try {
            const auto one =
                MakeComObject<ErrorRecords>(Described{failure_.result, {failure_.descriptions[record]}});
            return one ? one.As(info) : E_OUTOFMEMORY;
        } catch (...) {
            return E_OUTOFMEMORY;
        }
    }
    HRESULT STDMETHODCALLTYPE GetBasicErrorInfo(ULONG record, ERRORINFO* info) override
    {
        if (!info)
            return E_INVALIDARG;
        if (record >= failure_.descriptions.size())
            return DB_E_BADRECORDNUM;
        *info = {};
        info->hrError = failure_.result;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetDescription(BSTR* description) override
    {
        if (!description)
            return E_INVALIDARG;
        try {
            *description = Bstr(FromUtf8(failure_.descriptions[0])).Detach();
            return S_OK;
        } catch (...) {
            return E_OUTOFMEMORY;
        }
    }
    HRESULT STDMETHODCALLTYPE GetSource(BSTR* source) override
    {
        if (!source)
            return E_INVALIDARG;
        *source = SysAllocString(OLESTR("Database provider of the tests"));
        return *source ? S_OK : E_OUTOFMEMORY;
    }
    HRESULT STDMETHODCALLTYPE GetGUID(GUID* guid) override
    {
        if (!guid)
            return E_INVALIDARG;
        *guid = GUID_NULL;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetHelpFile(BSTR* file) override
    {
        if (!file)
            return E_INVALIDARG;
        *file = nullptr;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetHelpContext(DWORD* context) override
    {
        if (!context)
            return E_INVALIDARG;
        *context = 0;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetCustomErrorObject(ULONG, REFIID, IUnknown** object) override
    {
        if (!object)
            return E_INVALIDARG;
        *object = nullptr;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetErrorParameters(ULONG, DISPPARAMS* parameters) override
    {
        if (!parameters)
            return E_INVALIDARG;
        *parameters = {};
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE AddErrorRecord(ERRORINFO*, DWORD, DISPPARAMS*, IUnknown*, DWORD) override
    {
        return E_ACCESSDENIED;
    }

private:
    const Described failure_;
};

HRESULT ResultOf(int code, std::string_view message) noexcept
{
    switch (code & 0xFF) {
        case SQLITE_NOMEM:
            return E_OUTOFMEMORY;
        case SQLITE_CONSTRAINT:
            return DB_E_INTEGRITYVIOLATION;
        case SQLITE_READONLY:
            return DB_SEC_E_PERMISSIONDENIED;
        case SQLITE_ERROR:
            return message.starts_with("no such table") ? DB_E_NOTABLE : DB_E_ERRORSINCOMMAND;
        default:
            return E_FAIL;
    }
}

}  // namespace

HRESULT Fail(HRESULT hr, std::vector<std::string> descriptions) noexcept
{
    const auto records = MakeComObject<ErrorRecords>(Described{hr, std::move(descriptions)});
    SetErrorInfo(0, records.Get());
    return hr;
}

HRESULT FailAs(sqlite3* database, int code) noexcept
{
    const char* const message = database ? sqlite3_errmsg(database) : sqlite3_errstr(code);
    try {
        return Fail(ResultOf(code, message), {message});
    } catch (...) {
        return E_OUTOFMEMORY;
    }
}

}  // namespace quorvane::test
