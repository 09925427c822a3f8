// What a provider of OLE DB is asked for. Access's own isn't everywhere: this one notes what it is asked, and
// gives one row.
#include "engine/persist/access_database_win.h"

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "engine/persist/oledb_win.h"
#include "engine/persist/statements.h"
#include "platform/com/bstr.h"
#include "platform/com/com_object.h"

namespace quorvane {
namespace {

using Calls = std::vector<std::string>;

constexpr HRESULT kFailure = static_cast<HRESULT>(0x80040E37u);

std::string TypeName(DBTYPE type)
{
    return type == DBTYPE_STR ? "STR" : type == DBTYPE_R8 ? "R8" : type == DBTYPE_UI1 ? "UI1" : "I2";
}

// What stands in a block at a binding.
std::string ValueAt(const BYTE* block, const DBBINDING& binding)
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
    explicit WithAccessors(Calls& noted) : calls(noted) {}

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
        return S_OK;
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

    Calls& calls;
    std::vector<DBBINDING> bindings;
};

// One row: "text", 2.5 or 255 in each column by its type; the last column is null, or as `lastStatus` says.
class FakeRows final : public WithAccessors<FakeRows, IRowset, IColumnsInfo> {
public:
    FakeRows(Calls& noted, ULONG columns, DBSTATUS lastStatus)
        : WithAccessors(noted), columns_(columns), lastStatus_(lastStatus)
    {}

    HRESULT STDMETHODCALLTYPE GetColumnInfo(DBORDINAL* count, DBCOLUMNINFO** info, OLECHAR** texts) override
    {
        *count = columns_ + 1;
        *info = static_cast<DBCOLUMNINFO*>(CoTaskMemAlloc(sizeof(DBCOLUMNINFO) * *count));
        for (ULONG i = 0; i < *count; ++i)
            (*info)[i].iOrdinal = i;
        *texts = nullptr;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetNextRows(HCHAPTER, DBROWOFFSET, DBROWCOUNT count, DBCOUNTITEM* obtained,
                                          HROW** rows) override
    {
        EXPECT_EQ(count, 1);
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
            const double real = 2.5;
            if (binding.wType == DBTYPE_STR)
                std::memcpy(block + binding.obValue, "text", 5);
            else if (binding.wType == DBTYPE_R8)
                std::memcpy(block + binding.obValue, &real, sizeof(real));
            else
                block[binding.obValue] = 255;
            DBSTATUS status = DBSTATUS_S_OK;
            if (binding.iOrdinal == columns_)
                status = lastStatus_;
            std::memcpy(block + binding.obStatus, &status, sizeof(status));
        }
        return lastStatus_ == DBSTATUS_S_OK ? S_OK : DB_S_ERRORSOCCURRED;
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
    const ULONG columns_;
    const DBSTATUS lastStatus_;
    bool given_ = false;
};

// What the provider shall do.
struct Script {
    Calls calls;
    ULONG columns = 0;
    DBSTATUS lastStatus = DBSTATUS_S_OK;
    bool fails = false;
};

class FakeCommand final : public WithAccessors<FakeCommand, Answers<ICommandText>> {
public:
    explicit FakeCommand(Script& script) : WithAccessors(script.calls), script_(script) {}

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
        if (script_.fails) {
            const auto records = MakeComObject<FakeRecords>("both");
            SetErrorInfo(0, records.Get());
            return kFailure;
        }
        if (!rows)
            return S_OK;
        const auto made = MakeComObject<FakeRows>(calls, script_.columns, script_.lastStatus);
        return made->QueryInterface(riid, reinterpret_cast<void**>(rows));
    }
    HRESULT STDMETHODCALLTYPE Cancel() override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetDBSession(REFIID, IUnknown**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetCommandText(GUID*, LPOLESTR*) override { return E_NOTIMPL; }

private:
    Script& script_;
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
        return script_.fails ? kFailure : S_OK;
    }
    HRESULT STDMETHODCALLTYPE Uninitialize() override
    {
        script_.calls.push_back("uninitialize");
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE CreateSession(IUnknown*, REFIID riid, IUnknown** session) override
    {
        const auto made = MakeComObject<FakeSession>(script_);
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

class AccessDatabaseTest : public ::testing::Test {
protected:
    AccessDatabaseTest()
    {
        EXPECT_EQ(backend->Connect(connection), S_OK);
        ClearErrorRecords();
    }

    Script script;
    const ComPtr<FakeSource> source = MakeComObject<FakeSource>(script);
    std::unique_ptr<DatabaseBackend> backend = MakeOledbBackend(source.Get());
    std::unique_ptr<DatabaseConnection> connection;
    std::unique_ptr<DatabaseCursor> cursor;
};

TEST_F(AccessDatabaseTest, TheProviderMayAskForWhatTheConnectionStringLacks)
{
    EXPECT_EQ(InitializeOledbSource(source.Get()), S_OK);
    EXPECT_EQ(script.calls, (Calls{"property 64=3", "initialize"}));
}

TEST_F(AccessDatabaseTest, TheDataSourceEndsWithItsBackend)
{
    connection = nullptr;
    backend = nullptr;
    EXPECT_EQ(script.calls, Calls{"uninitialize"});
}

TEST_F(AccessDatabaseTest, AStatementRunsAsItStandsWithItsParametersInOneBlock)
{
    StatementParameters values;
    values.Text(width::kId, std::string("{1}"))
        .Text(width::kEntryId, std::string("E1"))
        .Text(width::kStoreId, std::string("S1"))
        .Double(1.5);
    ASSERT_EQ(connection->Run(statements::kAppendItem, values.Values(), {}, cursor), S_OK);
    EXPECT_EQ(cursor->Step(), kEndOfRowset);
    EXPECT_EQ(script.calls, (Calls{statements::kAppendItem, "parameters 1:STR50 2:STR255 3:STR1024 4:R8",
                                   "run {1} E1 S1 1.500000"}));
}

TEST_F(AccessDatabaseTest, AStatusIsInsertedAsAByteAndUpdatedAsAShort)
{
    StatementParameters inserted;
    inserted.Text(width::kRecipients, std::string("r")).Text(width::kInsertedPath, std::string("p")).Byte(0);
    ASSERT_EQ(connection->Run(statements::kAddStorageFile, inserted.Values(), {}, cursor), S_OK);
    StatementParameters updated;
    updated.Short(VARIANT_TRUE).Text(width::kStatusPath, std::string("p"));
    ASSERT_EQ(connection->Run(statements::kSetStorageFileStatus, updated.Values(), {}, cursor), S_OK);
    EXPECT_EQ(script.calls,
              (Calls{statements::kAddStorageFile, "parameters 1:STR1024 2:STR255 3:UI1", "run r p 0",
                     statements::kSetStorageFileStatus, "parameters 1:I2 2:STR260", "run -1 p"}));
}

TEST_F(AccessDatabaseTest, RowsAreBoundByTheirOrdinalsAndReleasedOneByOne)
{
    script.columns = 3;
    ASSERT_EQ(connection->Run(statements::kReadStorageFiles, {}, columns::kReadStorageFiles, cursor), S_OK);
    ASSERT_EQ(cursor->Step(), S_OK);
    std::string text;
    EXPECT_TRUE(cursor->Text(1, width::kRecipients, text));
    EXPECT_EQ(text, "text");
    EXPECT_EQ(cursor->Number(3), 255);
    EXPECT_EQ(cursor->Step(), kEndOfRowset);
    EXPECT_EQ(script.calls, (Calls{statements::kReadStorageFiles, "open", "columns 1:STR1024 2:STR256 3:UI1",
                                   "release row"}));
}

TEST_F(AccessDatabaseTest, AMissingValueIsTold)
{
    script.columns = 1;
    script.lastStatus = DBSTATUS_S_ISNULL;
    ASSERT_EQ(connection->Run(statements::kReadLastModified, {}, columns::kReadLastModified, cursor), S_OK);
    ASSERT_EQ(cursor->Step(), S_OK);
    EXPECT_FALSE(cursor->HasValue(1));
}

TEST_F(AccessDatabaseTest, ATextThatWasCutIsRefused)
{
    script.columns = 2;
    script.lastStatus = DBSTATUS_S_TRUNCATED;
    ASSERT_EQ(connection->Run(statements::kReadReceiveJobs, {}, columns::kReadReceiveJobs, cursor), S_OK);
    ASSERT_EQ(cursor->Step(), S_OK);
    std::string text;
    EXPECT_TRUE(cursor->Text(1, width::kReceivedPath, text));
    EXPECT_FALSE(cursor->Text(2, width::kTag, text));
}

TEST_F(AccessDatabaseTest, AValueThatHasNoRoomFailsItsRow)
{
    script.columns = 1;
    script.lastStatus = DBSTATUS_E_DATAOVERFLOW;
    ASSERT_EQ(connection->Run(statements::kReadLastModified, {}, columns::kReadLastModified, cursor), S_OK);
    EXPECT_EQ(cursor->Step(), E_INVALIDARG);
    EXPECT_EQ(DatabaseErrorRecords().size(), 1u);
}

TEST_F(AccessDatabaseTest, AWrongNumberOfColumnsIsRefused)
{
    script.columns = 1;
    EXPECT_EQ(connection->Run(statements::kReadReceiveJobs, {}, columns::kReadReceiveJobs, cursor),
              E_INVALIDARG);
}

TEST_F(AccessDatabaseTest, ATransactionIsReadCommittedAndCommittedSynchronously)
{
    EXPECT_EQ(connection->StartTransaction(), S_OK);
    EXPECT_EQ(connection->Commit(), S_OK);
    EXPECT_EQ(connection->StartTransaction(), S_OK);
    EXPECT_EQ(connection->Abort(), S_OK);
    EXPECT_EQ(script.calls, (Calls{"start 4096", "commit 0 2", "start 4096", "abort 0"}));
}

TEST_F(AccessDatabaseTest, EachRecordOfAFailureIsDescribedInItsOrder)
{
    script.fails = true;
    EXPECT_EQ(connection->Run(statements::kDeleteResendJobs, {}, {}, cursor), kFailure);
    EXPECT_EQ(DatabaseErrorRecords(), (std::vector<std::string>{"record 0", "record 1"}));
    EXPECT_EQ(InitializeOledbSource(source.Get()), kFailure);
}

TEST_F(AccessDatabaseTest, ASessionStaysWithTheThreadThatMadeIt)
{
    EXPECT_FALSE(backend->KeepsConnections());
}

TEST(AccessFileTest, OnlyAFileWithItsSignatureIsAccesss)
{
    const auto path = (std::filesystem::temp_directory_path() / "quorvane-access-test.mdb").string();
    std::unique_ptr<DatabaseBackend> backend;
    std::ofstream(path, std::ios::binary) << std::string("SQLite format 3\0 and more", 25);
    EXPECT_EQ(OpenAccessDatabase(OLESTR(""), path, backend), S_FALSE);
    std::ofstream(path, std::ios::binary) << "short";
    EXPECT_EQ(OpenAccessDatabase(OLESTR(""), path, backend), S_FALSE);

    // There is no such provider: the service says so, whatever else is on this machine.
    ASSERT_EQ(CoInitialize(nullptr), S_OK);
    for (const char* const kind : {"Jet", "ACE"}) {
        std::ofstream(path, std::ios::binary)
            << std::string("\0\1\0\0Standard ", 13) << kind << std::string(" DB\0 and more", 13);
        EXPECT_TRUE(FAILED(OpenAccessDatabase(OLESTR("Provider=Quorvane.NoSuchProvider;"), path, backend)));
    }
    EXPECT_EQ(backend, nullptr);
    CoUninitialize();
    std::filesystem::remove(path);
}

}  // namespace
}  // namespace quorvane
