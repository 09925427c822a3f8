// persist/testing/scripted_provider_win.h: a provider of OLE DB for tests, which notes what it is asked,
// gives one row, and breaks the rules where it is told to. On Windows alone.
#ifndef QUORVANE_ENGINE_PERSIST_TESTING_SCRIPTED_PROVIDER_WIN_H_
#define QUORVANE_ENGINE_PERSIST_TESTING_SCRIPTED_PROVIDER_WIN_H_

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "engine/persist/oledb_win.h"
#include "platform/com/bstr.h"
#include "platform/com/com_object.h"

namespace quorvane::testing {

using Calls = std::vector<std::string>;

// What the provider does. The functions stand in for what it does by itself.
struct Script {
    Calls calls;
    ULONG columns = 0;
    DBSTATUS lastStatus = DBSTATUS_S_OK;  // of the last column
    bool fails = false;

    std::function<void(const DBBINDING& binding, BYTE* block)> putValue;
    std::function<HRESULT()> dataResult;
    std::function<HRESULT(DBCOUNTITEM& count, HROW*& rows)> nextRows;
    std::function<HRESULT(HACCESSOR& accessor)> createAccessor;
    std::function<HRESULT(DBORDINAL& count, DBCOLUMNINFO*& info)> columnInfo;
    std::function<void()> leaveErrorInfo;
    // Asked for this interface, or for an object with it, a success gives nothing.
    IID nothingFor = IID_NULL;

    bool GivesNothing(REFIID riid) const noexcept
    {
        return IsEqualIID(riid, nothingFor) && !IsEqualIID(riid, IID_NULL);
    }
};

// How it fails.
inline constexpr HRESULT kScriptedFailure = static_cast<HRESULT>(0x80040E37u);

inline std::string TypeName(DBTYPE type)
{
    return type == DBTYPE_STR ? "STR" : type == DBTYPE_R8 ? "R8" : type == DBTYPE_UI1 ? "UI1" : "I2";
}

// What stands in a block at a binding.
inline std::string ValueAt(const BYTE* block, const DBBINDING& binding)
{
    const BYTE* const from = block + binding.obValue;
    double real = 0;
    SHORT number = 0;
    switch (binding.wType) {
        case DBTYPE_STR:
            return reinterpret_cast<const char*>(from);
        case DBTYPE_R8:
            std::memcpy(&real, from, sizeof(real));
            return std::to_string(real);
        case DBTYPE_UI1:
            return std::to_string(*from);
        default:
            std::memcpy(&number, from, sizeof(number));
            return std::to_string(number);
    }
}

// Two records of what went wrong.
class FakeRecords final : public ComObject<FakeRecords, IErrorRecords, IErrorInfo> {
public:
    explicit FakeRecords(std::string text) : text_(std::move(text)) {}

    HRESULT STDMETHODCALLTYPE GetRecordCount(ULONG* count) override
    {
        *count = 2;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetErrorInfo(ULONG record, LCID, IErrorInfo** info) override
    {
        const auto one = MakeComObject<FakeRecords>("record " + std::to_string(record));
        return one.As(info);
    }
    HRESULT STDMETHODCALLTYPE GetDescription(BSTR* description) override
    {
        *description = Bstr(Widen(text_)).Detach();
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE AddErrorRecord(ERRORINFO*, DWORD, DISPPARAMS*, IUnknown*, DWORD) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE GetBasicErrorInfo(ULONG, ERRORINFO*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetCustomErrorObject(ULONG, REFIID, IUnknown**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetErrorParameters(ULONG, DISPPARAMS*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetGUID(GUID*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetSource(BSTR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetHelpFile(BSTR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetHelpContext(DWORD*) override { return E_NOTIMPL; }

private:
    const std::string text_;
};

// Notes accessors, for commands and rowsets.
template <class Derived, class... Interfaces>
class WithAccessors : public ComObject<Derived, Interfaces..., IAccessor> {
public:
    explicit WithAccessors(Script& told) : script(told), calls(told.calls) {}

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** object) override
    {
        if (script.GivesNothing(riid)) {
            *object = nullptr;
            return S_OK;
        }
        return ComObject<Derived, Interfaces..., IAccessor>::QueryInterface(riid, object);
    }

    HRESULT STDMETHODCALLTYPE CreateAccessor(DBACCESSORFLAGS flags, DBCOUNTITEM count, const DBBINDING* bound,
                                             DBLENGTH, HACCESSOR* accessor, DBBINDSTATUS*) override
    {
        bindings.assign(bound, bound + count);
        const bool areParameters = flags == DBACCESSOR_PARAMETERDATA;
        std::string call = areParameters ? "parameters" : "columns";
        for (const DBBINDING& binding : bindings) {
            call += " " + std::to_string(binding.iOrdinal) + ":" + TypeName(binding.wType);
            call += binding.wType == DBTYPE_STR ? std::to_string(binding.cbMaxLen) : "";
            EXPECT_EQ(binding.eParamIO == DBPARAMIO_INPUT, areParameters);
        }
        calls.push_back(call);
        *accessor = 7;
        return script.createAccessor ? script.createAccessor(*accessor) : S_OK;
    }
    HRESULT STDMETHODCALLTYPE ReleaseAccessor(HACCESSOR accessor, DBREFCOUNT*) override
    {
        EXPECT_EQ(accessor, 7u);
        bindings.clear();
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE AddRefAccessor(HACCESSOR, DBREFCOUNT*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetBindings(HACCESSOR, DBACCESSORFLAGS*, DBCOUNTITEM*, DBBINDING**) override
    {
        return E_NOTIMPL;
    }

    Script& script;
    Calls& calls;
    std::vector<DBBINDING> bindings;
};

// One row: "text", 2.5 or 255 in each column by its type; the last column is null, or as `lastStatus` says.
class FakeRows final : public WithAccessors<FakeRows, IRowset, IColumnsInfo> {
public:
    explicit FakeRows(Script& told) : WithAccessors(told) {}

    HRESULT STDMETHODCALLTYPE GetColumnInfo(DBORDINAL* count, DBCOLUMNINFO** info, OLECHAR** texts) override
    {
        *texts = nullptr;
        if (script.columnInfo)
            return script.columnInfo(*count, *info);
        *count = script.columns + 1;
        *info = static_cast<DBCOLUMNINFO*>(CoTaskMemAlloc(sizeof(DBCOLUMNINFO) * *count));
        for (ULONG i = 0; i < *count; ++i)
            (*info)[i].iOrdinal = i;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetNextRows(HCHAPTER, DBROWOFFSET, DBROWCOUNT count, DBCOUNTITEM* obtained,
                                          HROW** rows) override
    {
        EXPECT_EQ(count, 1);
        if (script.nextRows && !std::exchange(given_, true))
            return script.nextRows(*obtained, *rows);
        *obtained = given_ ? 0 : 1;
        (*rows)[0] = 9;
        return std::exchange(given_, true) ? DB_S_ENDOFROWSET : S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetData(HROW row, HACCESSOR accessor, void* data) override
    {
        EXPECT_EQ(row, 9u);
        EXPECT_EQ(accessor, 7u);
        auto* const block = static_cast<BYTE*>(data);
        for (const DBBINDING& binding : bindings) {
            if (script.putValue) {
                script.putValue(binding, block);
                continue;
            }
            const double real = 2.5;
            if (binding.wType == DBTYPE_STR)
                std::memcpy(block + binding.obValue, "text", 5);
            else if (binding.wType == DBTYPE_R8)
                std::memcpy(block + binding.obValue, &real, sizeof(real));
            else
                block[binding.obValue] = 255;
            DBSTATUS status = DBSTATUS_S_OK;
            if (binding.iOrdinal == script.columns)
                status = script.lastStatus;
            std::memcpy(block + binding.obStatus, &status, sizeof(status));
        }
        if (script.dataResult)
            return script.dataResult();
        return script.lastStatus == DBSTATUS_S_OK ? S_OK : DB_S_ERRORSOCCURRED;
    }
    HRESULT STDMETHODCALLTYPE ReleaseRows(DBCOUNTITEM count, const HROW* rows, DBROWOPTIONS*, DBREFCOUNT*,
                                          DBROWSTATUS*) override
    {
        EXPECT_EQ(count, 1u);
        EXPECT_EQ(rows[0], 9u);
        calls.push_back("release row");
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE MapColumnIDs(DBORDINAL, const DBID*, DBORDINAL*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE AddRefRows(DBCOUNTITEM, const HROW*, DBREFCOUNT*, DBROWSTATUS*) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE RestartPosition(HCHAPTER) override { return E_NOTIMPL; }

private:
    bool given_ = false;
};

class FakeCommand final : public WithAccessors<FakeCommand, Answers<ICommandText>> {
public:
    explicit FakeCommand(Script& told) : WithAccessors(told) {}

    HRESULT STDMETHODCALLTYPE SetCommandText(REFGUID dialect, LPCOLESTR text) override
    {
        EXPECT_TRUE(IsEqualGUID(dialect, kDefaultDialect));
        calls.push_back(Narrow(text));
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Execute(IUnknown*, REFIID riid, DBPARAMS* params, DBROWCOUNT*,
                                      IUnknown** rows) override
    {
        std::string call = IsEqualIID(riid, IID_NULL) ? "run" : "open";
        for (const DBBINDING& binding : bindings)
            call += " " + ValueAt(static_cast<const BYTE*>(params->pData), binding);
        calls.push_back(call);
        if (script.fails) {
            if (script.leaveErrorInfo) {
                script.leaveErrorInfo();
                return kScriptedFailure;
            }
            const auto records = MakeComObject<FakeRecords>("both");
            SetErrorInfo(0, records.Get());
            return kScriptedFailure;
        }
        if (!rows)
            return S_OK;
        const auto made = MakeComObject<FakeRows>(script);
        return made->QueryInterface(riid, reinterpret_cast<void**>(rows));
    }
    HRESULT STDMETHODCALLTYPE Cancel() override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetDBSession(REFIID, IUnknown**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetCommandText(GUID*, LPOLESTR*) override { return E_NOTIMPL; }
};

class FakeSession final : public ComObject<FakeSession, IDBCreateCommand, ITransactionLocal> {
public:
    explicit FakeSession(Script& script) : script_(script) {}

    HRESULT STDMETHODCALLTYPE CreateCommand(IUnknown*, REFIID riid, IUnknown** command) override
    {
        const auto made = MakeComObject<FakeCommand>(script_);
        return made->QueryInterface(riid, reinterpret_cast<void**>(command));
    }
    HRESULT STDMETHODCALLTYPE StartTransaction(ISOLEVEL level, ULONG, ITransactionOptions*, ULONG*) override
    {
        script_.calls.push_back("start " + std::to_string(level));
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Commit(WINBOOL retaining, DWORD when, DWORD) override
    {
        script_.calls.push_back("commit " + std::to_string(retaining) + " " + std::to_string(when));
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Abort(BOID*, WINBOOL retaining, WINBOOL) override
    {
        script_.calls.push_back("abort " + std::to_string(retaining));
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetTransactionInfo(XACTTRANSINFO*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetOptionsObject(ITransactionOptions**) override { return E_NOTIMPL; }

private:
    Script& script_;
};

class FakeSource final : public ComObject<FakeSource, IDBInitialize, IDBProperties, IDBCreateSession> {
public:
    explicit FakeSource(Script& script) : script_(script) {}

    HRESULT STDMETHODCALLTYPE SetProperties(ULONG count, DBPROPSET* sets) override
    {
        EXPECT_EQ(count, 1u);
        EXPECT_EQ(sets->cProperties, 1u);
        EXPECT_TRUE(IsEqualGUID(sets->guidPropertySet, kDbInitProperties));
        const DBPROP& property = sets->rgProperties[0];
        EXPECT_EQ(property.vValue.vt, VT_I2);
        script_.calls.push_back("property " + std::to_string(property.dwPropertyID) + "=" +
                                std::to_string(property.vValue.iVal));
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Initialize() override
    {
        script_.calls.push_back("initialize");
        return script_.fails ? kScriptedFailure : S_OK;
    }
    HRESULT STDMETHODCALLTYPE Uninitialize() override
    {
        script_.calls.push_back("uninitialize");
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE CreateSession(IUnknown*, REFIID riid, IUnknown** session) override
    {
        const auto made = MakeComObject<FakeSession>(script_);
        if (script_.GivesNothing(riid))
            return S_OK;
        return made->QueryInterface(riid, reinterpret_cast<void**>(session));
    }
    HRESULT STDMETHODCALLTYPE GetProperties(ULONG, const DBPROPIDSET*, ULONG*, DBPROPSET**) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE GetPropertyInfo(ULONG, const DBPROPIDSET*, ULONG*, DBPROPINFOSET**,
                                              OLECHAR**) override
    {
        return E_NOTIMPL;
    }

private:
    Script& script_;
};

}  // namespace quorvane::testing

#endif  // QUORVANE_ENGINE_PERSIST_TESTING_SCRIPTED_PROVIDER_WIN_H_
