// An item's row in tblItem.
#include "engine/items/item.h"
#include "engine/items/new_id.h"
#include "engine/items/row_change.h"
#include "engine/persist/database.h"
#include "engine/persist/statements.h"
#include "engine/session/trace/trace.h"

namespace quorvane {

namespace {

// Runs an operation with a session of its own; a failure to open that is traced under the operation's name.
template <class Operation>
HRESULT WithSession(const char* name, SessionContext& owner, Operation operation) noexcept
{
    DatabaseSession session;
    HR_TRY(Traced{name}, owner.Database().OpenSession(session));
    return operation(session);
}

// Reads the one row of an item: a text for `first`, then the fields that both lookups share.
HRESULT ReadRow(CItem& item, Rowset& rows, Bstr& first) noexcept
{
    if (const HRESULT hr = rows.Step(); hr != S_OK)
        return hr;
    HR_TRY_QUIET(rows.GetText(1, first));
    HR_TRY_QUIET(rows.GetText(2, item.m_bstrStoreID));
    HR_TRY_QUIET(rows.GetNumber(3, item.m_dblLastModified));
    return rows.GetNumber(4, item.m_dblVersion);
}

}  // namespace

HRESULT CItem::DBRead() noexcept
{
    return WithSession("CItem::DBRead", *m_pSession,
                       [this](DatabaseSession& session) { return DBRead(session); });
}

HRESULT CItem::DBRead(DatabaseSession& session) noexcept
{
    StatementParameters parameters;
    parameters.Text(width::kEntryId, m_bstrEntryID.Get());
    Rowset rows;
    HR_TRY_QUIET(session.Query(statements::kReadItem, parameters, columns::kReadItem, rows));
    return ReadRow(*this, rows, m_bstrID);
}

HRESULT CItem::DBReadByID() noexcept
{
    return WithSession("CItem::DBReadByID", *m_pSession,
                       [this](DatabaseSession& session) { return DBReadByID(session); });
}

HRESULT CItem::DBReadByID(DatabaseSession& session) noexcept
{
    StatementParameters parameters;
    parameters.Text(width::kId, m_bstrID.Get());
    Rowset rows;
    HR_TRY_QUIET(session.Query(statements::kReadItemById, parameters, columns::kReadItemById, rows));
    return ReadRow(*this, rows, m_bstrEntryID);
}

// The place that the item has here, for Load: a row overrides what the folder said.
void CItem::ReadPlace(DatabaseSession& session) noexcept
{
    StatementParameters parameters;
    parameters.Text(width::kId, m_bstrID.Get());
    Rowset rows;
    Bstr entryId;
    Bstr storeId;
    if (FAILED(session.Query(statements::kLoadItem, parameters, columns::kLoadItem, rows)) ||
        rows.Step() != S_OK || FAILED(rows.GetText(1, entryId)) || FAILED(rows.GetText(2, storeId)))
        return;
    m_bstrEntryID = std::move(entryId);
    m_bstrStoreID = std::move(storeId);
}

HRESULT CItem::DBDelete() noexcept
{
    return WithSession("CItem::DBDelete", *m_pSession,
                       [this](DatabaseSession& session) { return DBDelete(session); });
}

HRESULT CItem::DBDelete(DatabaseSession& session) noexcept
{
    const Traced traced{"CItem::DBDelete"};
    StatementParameters parameters;
    parameters.Text(width::kDeletedId, m_bstrID.Get());
    return TracedStatement(traced, session.Execute(statements::kDeleteItem, parameters));
}

HRESULT CItem::DBAppend() noexcept
{
    return WithSession("CItem::DBAppend", *m_pSession,
                       [this](DatabaseSession& session) { return DBAppend(session); });
}

HRESULT CItem::DBAppend(DatabaseSession& session) noexcept
{
    const Traced traced{"CItem::DBAppend"};
    if (m_bstrID.IsEmpty())
        HR_TRY(traced, MakeNewId(m_bstrID));
    StatementParameters parameters;
    parameters.Text(width::kId, m_bstrID.Get())
        .Text(width::kEntryId, m_bstrEntryID.Get())
        .Text(width::kStoreId, m_bstrStoreID.Get())
        .Double(m_dblLastModified);
    return TracedStatement(traced, session.Execute(statements::kAppendItem, parameters));
}

// The row that stands is lost only to the new one.
HRESULT CItem::RewriteRow(DatabaseSession& session) noexcept
{
    RowChange change(session);
    HR_IGNORE(DBDelete(session), "there may be no row yet");
    HR_TRY_QUIET(DBAppend(session));
    return TracedStatement(Traced{"CItem::DBAppend"}, change.Commit());
}

HRESULT CItem::RewriteRow() noexcept
{
    DatabaseSession session;
    if (SUCCEEDED(m_pSession->Database().OpenSession(session)))
        return RewriteRow(session);
    HR_IGNORE(DBDelete(), "there may be no row yet");
    return DBAppend();
}

HRESULT CItem::DBUpdate() noexcept
{
    const Traced traced{"CItem::DBUpdate"};
    DatabaseSession session;
    HR_TRY(traced, m_pSession->Database().OpenSession(session));
    const Bstr& key = m_bstrPreviousID.IsEmpty() ? m_bstrID : m_bstrPreviousID;
    StatementParameters parameters;
    parameters.Text(width::kId, m_bstrID.Get())
        .Text(width::kEntryId, m_bstrEntryID.Get())
        .Text(width::kStoreId, m_bstrStoreID.Get())
        .Double(m_dblLastModified)
        .Text(width::kId, key.Get());
    HR_TRY_QUIET(TracedStatement(traced, session.Execute(statements::kUpdateItem, parameters)));
    m_bstrPreviousID = Bstr();
    return S_OK;
}

HRESULT CItem::DBCheckModified() noexcept
{
    DatabaseSession session;
    HR_TRY(Traced{"CItem::DBCheckModified"}, m_pSession->Database().OpenSession(session));
    StatementParameters parameters;
    parameters.Text(width::kEntryId, m_bstrEntryID.Get());
    Rowset rows;
    HR_TRY_QUIET(session.Query(statements::kReadLastModified, parameters, columns::kReadLastModified, rows));
    if (const HRESULT hr = rows.Step(); hr != S_OK)
        return hr;
    double recorded = m_dblLastModified;
    if (rows.HasValue(1))
        HR_TRY_QUIET(rows.GetNumber(1, recorded));
    return recorded == m_dblLastModified ? E_FAIL : S_OK;
}

}  // namespace quorvane
