// Providers that break the rules: one error each, and nothing is read or kept that isn't theirs to give.
#include <gtest/gtest.h>

#include <algorithm>

#include "engine/persist/access_database_win.h"
#include "engine/persist/statements.h"
#include "engine/persist/testing/scripted_provider_win.h"
#include "platform/com/error_text.h"

namespace quorvane {
namespace {

using testing::FakeSource;
using testing::kScriptedFailure;
using testing::Script;

using Records = std::vector<std::string>;

template <class Value>
void Put(BYTE* block, DBBYTEOFFSET at, Value value)
{
    std::memcpy(block + at, &value, sizeof(value));
}

// "text", well told.
void PutGoodText(const DBBINDING& binding, BYTE* block)
{
    std::memcpy(block + binding.obValue, "text", 5);
    Put(block, binding.obLength, DBLENGTH{4});
    Put(block, binding.obStatus, DBSTATUS{DBSTATUS_S_OK});
}

class OledbRulesTest : public ::testing::Test {
protected:
    OledbRulesTest()
    {
        script.columns = 2;
        ClearErrorRecords();
    }

    HRESULT Connect() { return backend->Connect(connection); }
    // Runs the query of two texts.
    HRESULT Query()
    {
        if (const HRESULT hr = Connect(); FAILED(hr))
            return hr;
        return connection->Run(statements::kReadReceiveJobs, {}, columns::kReadReceiveJobs, cursor);
    }
    // The result of the first row, whose last value is put so.
    HRESULT StepWith(std::function<void(const DBBINDING&, BYTE*)> putLast)
    {
        script.putValue = [this, put = std::move(putLast)](const DBBINDING& binding, BYTE* block) {
            PutGoodText(binding, block);
            if (binding.iOrdinal == script.columns)
                put(binding, block);
        };
        EXPECT_EQ(Query(), S_OK);
        return cursor->Step();
    }
    // The result of a query of one number, whose status and length are these.
    HRESULT StepNumber(DBSTATUS status, DBLENGTH length)
    {
        script.columns = 1;
        script.putValue = [=](const DBBINDING& binding, BYTE* block) {
            Put(block, binding.obStatus, status);
            Put(block, binding.obLength, length);
        };
        EXPECT_EQ(Connect(), S_OK);
        EXPECT_EQ(connection->Run(statements::kReadLastModified, {}, columns::kReadLastModified, cursor),
                  S_OK);
        return cursor->Step();
    }
    unsigned ReleasedRows() const
    {
        return static_cast<unsigned>(std::count(script.calls.begin(), script.calls.end(), "release row"));
    }

    Script script;
    const ComPtr<FakeSource> source = MakeComObject<FakeSource>(script);
    const std::unique_ptr<DatabaseBackend> backend = MakeOledbBackend(source.Get());
    std::unique_ptr<DatabaseConnection> connection;
    std::unique_ptr<DatabaseCursor> cursor;
};

// Values

TEST_F(OledbRulesTest, AGoodRowIsTaken)
{
    EXPECT_EQ(StepWith([](const DBBINDING&, BYTE*) {}), S_OK);
    std::string text;
    EXPECT_TRUE(cursor->Text(2, width::kTag, text));
    EXPECT_EQ(text, "text");
}

TEST_F(OledbRulesTest, ALengthBeyondTheRoomIsRefused)
{
    for (const DBLENGTH length : {DBLENGTH{width::kTag}, DBLENGTH{0x7FFFFFFF}, ~DBLENGTH{0}}) {
        ClearErrorRecords();
        EXPECT_EQ(
            StepWith([=](const DBBINDING& binding, BYTE* block) { Put(block, binding.obLength, length); }),
            E_UNEXPECTED);
        EXPECT_EQ(DatabaseErrorRecords(),
                  Records{"The provider told a length that a value has no room for."});
    }
    EXPECT_EQ(StepNumber(DBSTATUS_S_OK, sizeof(double) + 1), E_UNEXPECTED);
    EXPECT_EQ(StepNumber(DBSTATUS_S_OK, sizeof(double)), S_OK);
}

TEST_F(OledbRulesTest, ATextWithoutATerminatorIsNotReadBeyondItsRoom)
{
    ASSERT_EQ(StepWith([](const DBBINDING& binding, BYTE* block) {
                  std::fill_n(block + binding.obValue, binding.cbMaxLen, BYTE{'x'});
                  Put(block, binding.obLength, DBLENGTH{binding.cbMaxLen - 1});
              }),
              S_OK);
    std::string text = "untouched";
    EXPECT_FALSE(cursor->Text(2, width::kTag, text));
    EXPECT_EQ(text, "untouched");
}

TEST_F(OledbRulesTest, AValueWrittenBeyondItsRoomIsRefused)
{
    for (const size_t excess : {1, 16}) {
        ClearErrorRecords();
        EXPECT_EQ(StepWith([=](const DBBINDING& binding, BYTE* block) {
                      std::fill_n(block + binding.obValue, binding.cbMaxLen + excess, BYTE{0});
                  }),
                  E_UNEXPECTED);
        EXPECT_EQ(DatabaseErrorRecords(), Records{"The provider wrote behind a value's room."});
    }
}

TEST_F(OledbRulesTest, AValueWithoutAStatusIsMissing)
{
    script.putValue = [](const DBBINDING& binding, BYTE* block) {
        std::memcpy(block + binding.obValue, "text", 5);
    };
    ASSERT_EQ(Query(), S_OK);
    EXPECT_EQ(cursor->Step(), E_INVALIDARG);
    EXPECT_EQ(DatabaseErrorRecords(), Records{"The provider gave no value for a column."});
}

TEST_F(OledbRulesTest, ANullIsNotReadWhateverItsPlaceHolds)
{
    ASSERT_EQ(StepWith([](const DBBINDING& binding, BYTE* block) {
                  Put(block, binding.obStatus, DBSTATUS{DBSTATUS_S_ISNULL});
                  Put(block, binding.obLength, ~DBLENGTH{0});
              }),
              S_OK);
    EXPECT_TRUE(cursor->HasValue(1));
    EXPECT_FALSE(cursor->HasValue(2));
}

TEST_F(OledbRulesTest, AValueOfAnotherTypeIsRefused)
{
    for (const DBSTATUS status : {DBSTATUS_E_CANTCONVERTVALUE, DBSTATUS_E_SCHEMAVIOLATION}) {
        ClearErrorRecords();
        EXPECT_EQ(StepNumber(status, 0), E_INVALIDARG);
        EXPECT_EQ(DatabaseErrorRecords(), Records{"A value isn't of its column's type."});
    }
}

TEST_F(OledbRulesTest, ANumberThatWasCutIsRefused)
{
    EXPECT_EQ(StepNumber(DBSTATUS_S_TRUNCATED, sizeof(double)), E_INVALIDARG);
    EXPECT_EQ(DatabaseErrorRecords(), Records{"A value has no room in its column."});
}

TEST_F(OledbRulesTest, AStatusThatDoesntExistIsRefused)
{
    EXPECT_EQ(StepNumber(0xFFFFFFFF, 0), E_INVALIDARG);
    EXPECT_EQ(DatabaseErrorRecords(), Records{"The provider gave no value for a column."});
}

TEST_F(OledbRulesTest, AFailureOfEveryValueIsOneEvenIfEachIsWellTold)
{
    script.dataResult = [] { return DB_E_ERRORSOCCURRED; };
    EXPECT_EQ(StepWith([](const DBBINDING&, BYTE*) {}), DB_E_ERRORSOCCURRED);
    EXPECT_EQ(ReleasedRows(), 1u);
}

TEST_F(OledbRulesTest, ARowWhoseDataCannotBeReadIsReleased)
{
    script.dataResult = [] { return kScriptedFailure; };
    ASSERT_EQ(Query(), S_OK);
    EXPECT_EQ(cursor->Step(), kScriptedFailure);
    EXPECT_EQ(ReleasedRows(), 1u);
}

// Rows

TEST_F(OledbRulesTest, MoreRowsThanWereAskedForAreRefused)
{
    script.nextRows = [](DBCOUNTITEM& count, HROW*&) {
        count = 2;
        return S_OK;
    };
    ASSERT_EQ(Query(), S_OK);
    EXPECT_EQ(cursor->Step(), E_UNEXPECTED);
    EXPECT_EQ(DatabaseErrorRecords(), Records{"The provider gave rows that it wasn't asked for."});
}

TEST_F(OledbRulesTest, RowsInAnotherPlaceAreRefused)
{
    HROW other = 9;
    script.nextRows = [&](DBCOUNTITEM& count, HROW*& rows) {
        count = 1;
        rows = &other;
        return S_OK;
    };
    ASSERT_EQ(Query(), S_OK);
    EXPECT_EQ(cursor->Step(), E_UNEXPECTED);
    EXPECT_EQ(DatabaseErrorRecords().size(), 1u);
}

TEST_F(OledbRulesTest, NoRowIsTheEndEvenIfItIsASuccess)
{
    script.nextRows = [](DBCOUNTITEM& count, HROW*&) {
        count = 0;
        return S_OK;
    };
    ASSERT_EQ(Query(), S_OK);
    EXPECT_EQ(cursor->Step(), kEndOfRowset);
}

// Columns

TEST_F(OledbRulesTest, AnotherNumberOfColumnsThanIsBoundIsRefused)
{
    for (const ULONG columns : {0u, 1u, 3u}) {
        ClearErrorRecords();
        script.columns = columns;
        EXPECT_EQ(Query(), E_INVALIDARG);
        EXPECT_EQ(DatabaseErrorRecords(), Records{"The statement gives another number of columns."});
    }
}

TEST_F(OledbRulesTest, ColumnsThatAreCountedAndNotDescribedAreCounted)
{
    script.columnInfo = [this](DBORDINAL& count, DBCOLUMNINFO*& info) {
        count = script.columns;
        info = nullptr;
        return S_OK;
    };
    EXPECT_EQ(Query(), S_OK);
    script.columns = 0;
    EXPECT_EQ(Query(), E_INVALIDARG);
}

TEST_F(OledbRulesTest, AFailureToDescribeTheColumnsFailsTheQuery)
{
    script.columnInfo = [](DBORDINAL&, DBCOLUMNINFO*&) { return kScriptedFailure; };
    EXPECT_EQ(Query(), kScriptedFailure);
}

TEST_F(OledbRulesTest, ABindingThatIsRefusedFailsTheQuery)
{
    script.createAccessor = [](HACCESSOR& accessor) {
        accessor = DB_INVALID_HACCESSOR;
        return DB_E_ERRORSOCCURRED;
    };
    EXPECT_EQ(Query(), DB_E_ERRORSOCCURRED);
}

// Successes without a result

TEST_F(OledbRulesTest, AnAccessorThatIsNoneIsRefused)
{
    script.createAccessor = [](HACCESSOR& accessor) {
        accessor = DB_INVALID_HACCESSOR;
        return S_OK;
    };
    EXPECT_EQ(Query(), E_UNEXPECTED);
    EXPECT_EQ(DatabaseErrorRecords(), Records{"The provider succeeded and gave no accessor."});
}

TEST_F(OledbRulesTest, ASuccessThatGivesNoObjectIsRefused)
{
    for (const IID& iid : {IID_IDBCreateCommand, IID_ICommandText, IID_IColumnsInfo, IID_IAccessor}) {
        ClearErrorRecords();
        script.nothingFor = iid;
        EXPECT_EQ(Query(), E_UNEXPECTED);
        EXPECT_EQ(DatabaseErrorRecords(), Records{"The provider succeeded and gave nothing."});
    }
}

TEST_F(OledbRulesTest, AStatementThatGivesNoRowsIsNoQuery)
{
    script.nothingFor = IID_IRowset;
    EXPECT_EQ(Query(), E_INVALIDARG);
    EXPECT_EQ(DatabaseErrorRecords(), Records{"The statement gives another number of columns."});
}

// Records

// Error info whose records break the rules.
class BadRecords final : public ComObject<BadRecords, IErrorInfo, IErrorRecords> {
public:
    enum class Rule { NoCount, NoRecord, NoDescription, NullDescription, Endless };
    BadRecords(Rule rule, unsigned& asked) noexcept : rule_(rule), asked_(asked) {}

    HRESULT STDMETHODCALLTYPE GetRecordCount(ULONG* count) override
    {
        *count = rule_ == Rule::Endless ? ~ULONG{0} : 1;
        return rule_ == Rule::NoCount ? E_FAIL : S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetErrorInfo(ULONG, LCID, IErrorInfo** info) override
    {
        ++asked_;
        *info = nullptr;
        return rule_ == Rule::NoRecord ? S_OK
                                       : QueryInterface(IID_IErrorInfo, reinterpret_cast<void**>(info));
    }
    HRESULT STDMETHODCALLTYPE GetDescription(BSTR* description) override
    {
        *description = rule_ == Rule::Endless ? SysAllocString(OLESTR("again")) : nullptr;
        return rule_ == Rule::NoDescription ? E_FAIL : S_OK;
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
    const Rule rule_;
    unsigned& asked_;
};

class OledbRecordsTest : public OledbRulesTest {
protected:
    // How many records a failure left that are described, when its provider leaves these.
    size_t RecordsLeftBy(std::function<void()> leave)
    {
        ClearErrorRecords();
        script.fails = true;
        script.leaveErrorInfo = std::move(leave);
        EXPECT_EQ(Query(), kScriptedFailure);
        return DatabaseErrorRecords().size();
    }
    std::function<void()> Bad(BadRecords::Rule rule)
    {
        return [this, rule] { SetErrorInfo(0, MakeComObject<BadRecords>(rule, asked).Get()); };
    }

    unsigned asked = 0;
};

TEST_F(OledbRecordsTest, AFailureWithoutRecordsIsItsResultAlone)
{
    EXPECT_EQ(RecordsLeftBy([] {}), 0u);
}

TEST_F(OledbRecordsTest, WhatAnEarlierCallLeftIsNotTakenForThisFailures)
{
    SetErrorInfo(0, MakeComObject<testing::FakeRecords>("earlier").Get());
    EXPECT_EQ(RecordsLeftBy([] {}), 0u);
}

TEST_F(OledbRecordsTest, ErrorInfoThatHasNoRecordsDescribesNothing)
{
    EXPECT_EQ(RecordsLeftBy([] {
                  static_cast<void>(RaiseError(IID_ICommandText, OLESTR(""), OLESTR("no record"), E_FAIL));
              }),
              0u);
}

TEST_F(OledbRecordsTest, RecordsThatCannotBeReadAreLeftOut)
{
    using Rule = BadRecords::Rule;
    for (const Rule rule : {Rule::NoCount, Rule::NoRecord, Rule::NoDescription, Rule::NullDescription})
        EXPECT_EQ(RecordsLeftBy(Bad(rule)), 0u) << static_cast<int>(rule);
    EXPECT_EQ(asked, 3u);
}

TEST_F(OledbRecordsTest, ACountWithoutEndIsReadSoFar)
{
    EXPECT_EQ(RecordsLeftBy(Bad(BadRecords::Rule::Endless)), 64u);
    EXPECT_EQ(asked, 64u);
}

}  // namespace
}  // namespace quorvane
