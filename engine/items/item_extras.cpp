// What a message has beside its properties: attachments and recipients.
#include "engine/items/item.h"
#include "engine/session/trace/trace.h"
#include "engine/storeaccess/mapi_memory.h"

namespace quorvane {

namespace {

// All rows of a table, with one column.
HRESULT QueryColumn(IMAPITable& table, ULONG tag, RowSet& rows) noexcept
{
    SPropTagArray columns{1, {tag}};
    return mapi::HrQueryAllRows(&table, &columns, nullptr, nullptr, 0, rows.Put());
}

}  // namespace

HRESULT CItem::DeleteAtachments(IMessage* message) noexcept
{
    const Traced traced{"CItem::DeleteAtachments"};
    if (!message)
        return E_POINTER;
    ComPtr<IMAPITable> table;
    HR_TRY(traced, message->GetAttachmentTable(0, table.Put()));
    RowSet rows;
    HR_TRY(traced, QueryColumn(*table, PR_ATTACH_NUM, rows));
    for (const SRow& row : rows) {
        if (row.cValues > 0)
            HR_IGNORE(
                traced(message->DeleteAttach(static_cast<ULONG>(row.lpProps[0].Value.l), 0, nullptr, 0)),
                "the others go all the same");
    }
    return S_OK;
}

HRESULT CItem::DeleteRecipients(IMessage* message) noexcept
{
    const Traced traced{"CItem::DeleteRecipients"};
    if (!message)
        return E_POINTER;
    ComPtr<IMAPITable> table;
    HR_TRY(traced, message->GetRecipientTable(0, table.Put()));
    RowSet rows;
    HR_TRY(traced, QueryColumn(*table, PR_ROWID, rows));
    // The rows of a table have the layout of an address list.
    HR_IGNORE(message->ModifyRecipients(MODRECIP_REMOVE, reinterpret_cast<LPADRLIST>(rows.Get())),
              "those that stay are replaced by what is copied");
    return S_OK;
}

HRESULT CItem::ClearMessageExtras(IMessage* /*message*/) noexcept
{
    return S_OK;
}

}  // namespace quorvane
