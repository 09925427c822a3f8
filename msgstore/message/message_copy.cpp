// Copies of what properties don't carry: recipients, attachments, embedded messages and storages.
#include "msgstore/message/message_object.h"
#include "msgstore/props/property_copy.h"
#include "msgstore/util/guarded.h"

namespace quorvane {
namespace {

HRESULT AllRows(IMAPITable& table, ULONG tag, RowSet& rows) noexcept
{
    SPropTagArray column{1, {tag}};
    return HrQueryAllRows(&table, &column, nullptr, nullptr, 0, rows.Put());
}

HRESULT AttachmentNumbers(IMessage& message, std::vector<ULONG>& numbers)
{
    ComPtr<IMAPITable> table;
    RowSet rows;
    QV_RETURN_IF_FAILED(message.GetAttachmentTable(0, table.Put()));
    QV_RETURN_IF_FAILED(AllRows(*table, PR_ATTACH_NUM, rows));
    for (const SRow& row : rows) {
        if (row.cValues == 1 && row.lpProps[0].ulPropTag == PR_ATTACH_NUM)
            numbers.push_back(row.lpProps[0].Value.ul);
    }
    return S_OK;
}

HRESULT HasRecipients(IMessage& message, bool& has) noexcept
{
    ComPtr<IMAPITable> table;
    QV_RETURN_IF_FAILED(message.GetRecipientTable(0, table.Put()));
    ULONG count = 0;
    QV_RETURN_IF_FAILED(table->GetRowCount(0, &count));
    has = count > 0;
    return S_OK;
}

// Rows with the identifiers that the target knows its named properties by; those without a name go.
HRESULT ExchangeIds(IMAPIProp& source, IMAPIProp& target, std::vector<PropertyBag>& rows)
{
    std::vector<ULONG> tags;
    for (const PropertyBag& row : rows) {
        for (const PropertyValue& value : row)
            tags.push_back(value.tag);
    }
    IdExchange exchange;
    QV_RETURN_IF_FAILED(exchange.Prepare(source, tags, target));
    for (PropertyBag& row : rows) {
        PropertyBag renamed;
        for (const PropertyValue& value : row) {
            PropertyValue copy = value;
            copy.tag = exchange.TagFor(value.tag);
            if (copy.tag != 0)
                renamed.Put(std::move(copy));
        }
        row = std::move(renamed);
    }
    return S_OK;
}

}  // namespace

HRESULT CMessage::CopyObject(ULONG tag, IMAPIProp& target, ULONG flags) noexcept
{
    return Guarded([&]() -> HRESULT {
        ComPtr<IMessage> message;
        if (FAILED(QueryFor(&target, message)))
            return S_OK;
        if (PROP_ID(tag) == PROP_ID(PR_MESSAGE_RECIPIENTS))
            return CopyRecipients(*message, flags);
        return PROP_ID(tag) == PROP_ID(PR_MESSAGE_ATTACHMENTS) ? CopyAttachments(*message, flags) : S_OK;
    });
}

HRESULT CMessage::CopyRecipients(IMessage& target, ULONG flags)
{
    bool has = false;
    QV_RETURN_IF_FAILED(HasRecipients(target, has));
    std::vector<PropertyBag> rows;
    QV_RETURN_IF_FAILED(RecipientRows(rows));
    if ((rows.empty() && !has) || (has && (flags & MAPI_NOREPLACE) != 0))
        return S_OK;
    QV_RETURN_IF_FAILED(ExchangeIds(*this, target, rows));
    AddressList list;
    QV_RETURN_IF_FAILED(list.Make(rows));
    return target.ModifyRecipients(0, list.Get());
}

HRESULT CMessage::CopyAttachments(IMessage& target, ULONG flags)
{
    std::vector<ULONG> replaced;
    QV_RETURN_IF_FAILED(AttachmentNumbers(target, replaced));
    if (!replaced.empty() && (flags & MAPI_NOREPLACE) != 0)
        return S_OK;
    for (const ULONG number : replaced)
        QV_RETURN_IF_FAILED(target.DeleteAttach(number, 0, nullptr, 0));
    std::vector<ULONG> numbers;
    {
        const std::lock_guard lock(Lock());
        QV_RETURN_IF_FAILED(NeedAttachments());
        for (const HeldAttachment& held : *m_attachments)
            numbers.push_back(held.slot.number);
    }
    for (const ULONG number : numbers)
        QV_RETURN_IF_FAILED(CopyAttachment(number, target));
    return S_OK;
}

HRESULT CMessage::CopyAttachment(ULONG number, IMessage& target)
{
    ComPtr<IAttach> from;
    ComPtr<IAttach> to;
    ULONG given = 0;
    QV_RETURN_IF_FAILED(OpenAttach(number, nullptr, 0, from.Put()));
    QV_RETURN_IF_FAILED(target.CreateAttach(nullptr, 0, &given, to.Put()));
    QV_RETURN_IF_FAILED(
        from->CopyTo(0, nullptr, nullptr, 0, nullptr, &IID_IAttachment, to.Get(), 0, nullptr));
    return to->SaveChanges(KEEP_OPEN_READWRITE);
}

HRESULT CAttach::CopyObject(ULONG tag, IMAPIProp& target, ULONG) noexcept
{
    if (PROP_ID(tag) != PROP_ID(PR_ATTACH_DATA_OBJ))
        return S_OK;
    return Guarded([&]() -> HRESULT {
        bool embedded = false;
        {
            const std::lock_guard lock(Lock());
            QV_RETURN_IF_FAILED(Load());
            embedded = m_embedded != nullptr;
        }
        return embedded ? CopyEmbedded(target) : CopyStorage(target);
    });
}

HRESULT CAttach::CopyEmbedded(IMAPIProp& target)
{
    ComPtr<IMessage> from;
    ComPtr<IMessage> to;
    QV_RETURN_IF_FAILED(OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IMessage, 0, 0, from.PutUnknown()));
    QV_RETURN_IF_FAILED(target.OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IMessage, 0, MAPI_CREATE | MAPI_MODIFY,
                                            to.PutUnknown()));
    QV_RETURN_IF_FAILED(from->CopyTo(0, nullptr, nullptr, 0, nullptr, &IID_IMessage, to.Get(), 0, nullptr));
    return to->SaveChanges(KEEP_OPEN_READWRITE);
}

HRESULT CAttach::CopyStorage(IMAPIProp& target)
{
    ComPtr<IStorage> from;
    ComPtr<IStorage> to;
    QV_RETURN_IF_FAILED(OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IStorage, 0, 0, from.PutUnknown()));
    QV_RETURN_IF_FAILED(target.OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IStorage, 0, MAPI_CREATE | MAPI_MODIFY,
                                            to.PutUnknown()));
    QV_RETURN_IF_FAILED(from->CopyTo(0, nullptr, nullptr, to.Get()));
    return to->Commit(STGC_DEFAULT);
}

}  // namespace quorvane
