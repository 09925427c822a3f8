#include "msgstore/message/message.h"

#include <algorithm>

#include "msgstore/message/message_object.h"
#include "msgstore/props/spool_value.h"
#include "msgstore/table/rows_table.h"
#include "msgstore/util/guarded.h"

namespace quorvane {
namespace {

using Guard = std::lock_guard<std::recursive_mutex>;

// The columns that every recipient table has, whatever its rows hold.
constexpr ULONG kRecipientColumns[] = {PR_ROWID,           PR_RECIPIENT_TYPE, PR_DISPLAY_NAME_W,
                                       PR_EMAIL_ADDRESS_W, PR_ADDRTYPE_W,     PR_ENTRYID,
                                       PR_SEARCH_KEY,      PR_OBJECT_TYPE,    PR_DISPLAY_TYPE};
constexpr ULONG kAttachmentColumns[] = {
    PR_ATTACH_NUM,         PR_INSTANCE_KEY,      PR_RECORD_KEY,
    PR_RENDERING_POSITION, PR_ATTACH_FILENAME_W, PR_ATTACH_LONG_FILENAME_W,
    PR_ATTACH_METHOD,      PR_ATTACH_SIZE,       PR_OBJECT_TYPE};

ULONG KindOfText(ULONG tag, bool unicode) noexcept
{
    const ULONG type = PROP_TYPE(tag);
    if (!IsTextType(type))
        return tag;
    return CHANGE_PROP_TYPE(tag, (type & MV_FLAG) | (unicode ? PT_UNICODE : PT_STRING8));
}

// A table's fixed columns first, then all others of its rows in ascending order.
template <std::size_t Count>
std::vector<ULONG> ColumnsOf(const ULONG (&fixed)[Count], const std::vector<PropertyBag>& rows, bool unicode)
{
    std::map<ULONG, ULONG> more;
    for (const PropertyBag& row : rows) {
        for (const PropertyValue& value : row)
            more.emplace(value.id(), value.tag);
    }
    std::vector<ULONG> columns;
    for (const ULONG tag : fixed) {
        more.erase(PROP_ID(tag));
        columns.push_back(KindOfText(tag, unicode));
    }
    for (const auto& [id, tag] : more)
        columns.push_back(KindOfText(tag, unicode));
    return columns;
}

bool IsMessageInterface(LPCIID iid) noexcept
{
    return !iid || IsEqualIID(*iid, IID_IAttachment) || IsEqualIID(*iid, IID_IMAPIProp) ||
           IsEqualIID(*iid, IID_IUnknown);
}

}  // namespace

CMessage::CMessage(std::shared_ptr<MessageBackend> backend, bool writable, MessageLock lock, ULONG depth,
                   std::function<void()> released)
    : m_backend(std::move(backend)),
      m_lock(std::move(lock)),
      m_depth(depth),
      m_released(std::move(released)),
      m_writable(writable)
{}

CMessage::~CMessage()
{
    if (m_released)
        m_released();
}

HRESULT CMessage::Stored(PropertyBag*& bag) noexcept
{
    if (!m_hasBag) {
        QV_RETURN_IF_FAILED(m_backend->ReadProperties(m_bag));
        m_hasBag = true;
        m_identity.reset();  // goes with what was read now
    }
    bag = &m_bag;
    return S_OK;
}

HRESULT CMessage::NeedIdentity()
{
    if (m_identity)
        return S_OK;
    PropertyBag identity;
    QV_RETURN_IF_FAILED(m_backend->Identity(identity));
    m_identity = std::move(identity);
    return S_OK;
}

HRESULT CMessage::NeedRecipients()
{
    if (m_recipients)
        return S_OK;
    std::vector<PropertyBag> rows;
    QV_RETURN_IF_FAILED(m_backend->ReadRecipients(rows));
    m_recipients.emplace();
    m_recipients->Assign(std::move(rows));
    return S_OK;
}

HRESULT CMessage::NeedAttachments()
{
    if (m_attachments)
        return S_OK;
    std::vector<AttachmentSlot> slots;
    QV_RETURN_IF_FAILED(m_backend->ReadAttachments(slots));
    std::vector<HeldAttachment> held;
    for (AttachmentSlot& slot : slots) {
        m_nextNumber = std::max(m_nextNumber, slot.number + 1);
        held.push_back({std::move(slot), std::nullopt});
    }
    // Those of a damaged store may stand in any order.
    std::sort(held.begin(), held.end(), [](const HeldAttachment& one, const HeldAttachment& other) {
        return one.slot.number < other.slot.number;
    });
    m_attachments = std::move(held);
    return S_OK;
}

HRESULT CMessage::NeedRow(HeldAttachment& attachment)
{
    if (attachment.row)
        return S_OK;
    PropertyBag row;
    QV_RETURN_IF_FAILED(ReadAttachmentRow(*attachment.slot.source, attachment.slot.number, m_depth, row));
    attachment.row = std::move(row);
    return S_OK;
}

HRESULT CMessage::AttachmentRows(std::vector<PropertyBag>& rows)
{
    const Guard lock(Lock());
    QV_RETURN_IF_FAILED(NeedAttachments());
    for (HeldAttachment& attachment : *m_attachments) {
        QV_RETURN_IF_FAILED(NeedRow(attachment));
        rows.push_back(*attachment.row);
    }
    return S_OK;
}

HRESULT CMessage::RecipientRows(std::vector<PropertyBag>& rows)
{
    const Guard lock(Lock());
    QV_RETURN_IF_FAILED(NeedRecipients());
    rows = m_recipients->rows();
    return S_OK;
}

std::vector<CMessage::HeldAttachment>::iterator CMessage::PlaceOf(ULONG number) noexcept
{
    return std::lower_bound(
        m_attachments->begin(), m_attachments->end(), number,
        [](const HeldAttachment& held, ULONG sought) { return held.slot.number < sought; });
}

std::vector<CMessage::HeldAttachment>::iterator CMessage::FindAttachment(ULONG number) noexcept
{
    const auto place = PlaceOf(number);
    return place != m_attachments->end() && place->slot.number == number ? place : m_attachments->end();
}

HRESULT CMessage::GetAttachmentTable(ULONG flags, LPMAPITABLE* table)
{
    if (!table)
        return MAPI_E_INVALID_PARAMETER;
    *table = nullptr;
    return Guarded([&]() -> HRESULT {
        std::vector<PropertyBag> rows;
        QV_RETURN_IF_FAILED(AttachmentRows(rows));
        RowsTableOptions options;
        options.unicode = (flags & MAPI_UNICODE) != 0;
        options.columns = ColumnsOf(kAttachmentColumns, rows, options.unicode);
        options.allocator = Allocator();
        options.refresh = [self = ComPtr<CMessage>(this)](std::vector<PropertyBag>& fresh) {
            return self->AttachmentRows(fresh);
        };
        return MakeRowsTable(std::move(rows), std::move(options), table);
    });
}

HRESULT CMessage::GetRecipientTable(ULONG flags, LPMAPITABLE* table)
{
    if (!table)
        return MAPI_E_INVALID_PARAMETER;
    *table = nullptr;
    return Guarded([&]() -> HRESULT {
        std::vector<PropertyBag> rows;
        QV_RETURN_IF_FAILED(RecipientRows(rows));
        RowsTableOptions options;
        options.unicode = (flags & MAPI_UNICODE) != 0;
        options.columns = ColumnsOf(kRecipientColumns, rows, options.unicode);
        options.allocator = Allocator();
        // Nothing but the table gives a recipient's values.
        options.valueLimit = kNoValueLimit;
        options.refresh = [self = ComPtr<CMessage>(this)](std::vector<PropertyBag>& fresh) {
            return self->RecipientRows(fresh);
        };
        return MakeRowsTable(std::move(rows), std::move(options), table);
    });
}

HRESULT CMessage::OpenAttach(ULONG number, LPCIID iid, ULONG flags, LPATTACH* attachment)
{
    if (!attachment)
        return MAPI_E_INVALID_PARAMETER;
    *attachment = nullptr;
    if (!IsMessageInterface(iid))
        return MAPI_E_INTERFACE_NOT_SUPPORTED;
    return Guarded([&]() -> HRESULT {
        const Guard lock(Lock());
        if ((flags & MAPI_MODIFY) != 0)
            QV_RETURN_IF_FAILED(CheckWritable());
        QV_RETURN_IF_FAILED(NeedAttachments());
        const auto found = FindAttachment(number);
        if (found == m_attachments->end())
            return MAPI_E_NOT_FOUND;
        const bool writable = m_writable && (flags & (MAPI_MODIFY | MAPI_BEST_ACCESS)) != 0;
        auto opened = MakeComObject<CAttach>(ComPtr<CMessage>(this), number, found->slot.source, writable);
        *attachment = opened.Detach();
        return *attachment ? S_OK : E_OUTOFMEMORY;
    });
}

HRESULT CMessage::CreateAttach(LPCIID iid, ULONG, ULONG* number, LPATTACH* attachment)
{
    if (!attachment || !number)
        return MAPI_E_INVALID_PARAMETER;
    *attachment = nullptr;
    if (!IsMessageInterface(iid))
        return MAPI_E_INTERFACE_NOT_SUPPORTED;
    return Guarded([&]() -> HRESULT {
        const Guard lock(Lock());
        QV_RETURN_IF_FAILED(CheckWritable());
        QV_RETURN_IF_FAILED(NeedAttachments());
        auto made = MakeComObject<CAttach>(ComPtr<CMessage>(this), m_nextNumber, nullptr, true);
        if (!made)
            return E_OUTOFMEMORY;
        *number = m_nextNumber++;
        *attachment = made.Detach();
        return S_OK;
    });
}

HRESULT CMessage::DeleteAttach(ULONG number, ULONG, LPMAPIPROGRESS, ULONG)
{
    return Guarded([&]() -> HRESULT {
        const Guard lock(Lock());
        QV_RETURN_IF_FAILED(CheckWritable());
        QV_RETURN_IF_FAILED(NeedAttachments());
        const auto found = FindAttachment(number);
        if (found == m_attachments->end())
            return MAPI_E_NOT_FOUND;
        m_attachments->erase(found);
        m_attachmentsChanged = true;
        m_changed = true;
        return S_OK;
    });
}

HRESULT CMessage::PublishAttachment(ULONG number, bool isNew, std::shared_ptr<AttachmentSource> source)
{
    QV_RETURN_IF_FAILED(CheckWritable());
    QV_RETURN_IF_FAILED(NeedAttachments());
    const auto found = FindAttachment(number);
    if (found == m_attachments->end() && !isNew)
        return MAPI_E_OBJECT_DELETED;
    HeldAttachment published{{number, std::move(source)}, std::nullopt};
    if (found != m_attachments->end())
        *found = std::move(published);
    else
        m_attachments->insert(PlaceOf(number), std::move(published));
    m_attachmentsChanged = true;
    m_changed = true;
    return S_OK;
}

HRESULT CMessage::ModifyRecipients(ULONG flags, LPADRLIST changes)
{
    if (!changes)
        return MAPI_E_INVALID_PARAMETER;
    return Guarded([&]() -> HRESULT {
        const Guard lock(Lock());
        QV_RETURN_IF_FAILED(CheckWritable());
        QV_RETURN_IF_FAILED(NeedRecipients());
        PropertyBag* bag = nullptr;
        QV_RETURN_IF_FAILED(Stored(bag));
        QV_RETURN_IF_FAILED(m_recipients->Modify(flags, *changes));
        // Lists of names that came with the message stood in for recipients that it hadn't.
        for (const ULONG tag : {PR_DISPLAY_TO, PR_DISPLAY_CC, PR_DISPLAY_BCC})
            bag->Erase(PROP_ID(tag));
        m_recipientsChanged = true;
        m_changed = true;
        return S_OK;
    });
}

HRESULT CMessage::SetReadFlag(ULONG flags)
{
    constexpr ULONG kKnown = SUPPRESS_RECEIPT | CLEAR_READ_FLAG | GENERATE_RECEIPT_ONLY | CLEAR_RN_PENDING |
                             CLEAR_NRN_PENDING | MAPI_DEFERRED_ERRORS;
    if ((flags & ~kKnown) != 0)
        return MAPI_E_UNKNOWN_FLAGS;
    if ((flags & CLEAR_READ_FLAG) != 0 && (flags & (SUPPRESS_RECEIPT | GENERATE_RECEIPT_ONLY)) != 0)
        return MAPI_E_INVALID_PARAMETER;
    return Guarded([&]() -> HRESULT {
        const Guard lock(Lock());
        QV_RETURN_IF_FAILED(CheckWritable());
        PropertyBag* bag = nullptr;
        QV_RETURN_IF_FAILED(Stored(bag));
        ULONG state = Flags(*bag);
        if ((flags & CLEAR_RN_PENDING) != 0)
            state &= ~MSGFLAG_RN_PENDING;
        if ((flags & CLEAR_NRN_PENDING) != 0)
            state &= ~MSGFLAG_NRN_PENDING;
        if ((flags & CLEAR_READ_FLAG) != 0)
            state &= ~MSGFLAG_READ;
        else if ((flags & (GENERATE_RECEIPT_ONLY | CLEAR_RN_PENDING | CLEAR_NRN_PENDING)) == 0)
            state |= MSGFLAG_READ;
        bag->Put(PropertyValue::Long(PR_MESSAGE_FLAGS, static_cast<LONG>(state)));
        m_changed = true;
        return S_OK;
    });
}

HRESULT CMessage::SubmitMessage(ULONG flags)
{
    if ((flags & ~ULONG{FORCE_SUBMIT}) != 0)
        return MAPI_E_UNKNOWN_FLAGS;
    return Guarded([&]() -> HRESULT {
        const Guard lock(Lock());
        QV_RETURN_IF_FAILED(CheckWritable());
        if (!m_backend->CanSubmit())
            return MAPI_E_NO_SUPPORT;
        PropertyBag* bag = nullptr;
        QV_RETURN_IF_FAILED(Stored(bag));
        const PropertyBag before = *bag;
        const HRESULT hr = SubmitLocked(*bag);
        if (FAILED(hr))
            m_bag = before;
        return hr;
    });
}

HRESULT CMessage::SubmitLocked(PropertyBag& bag)
{
    const ULONG state = Flags(bag);
    if ((state & MSGFLAG_SUBMIT) != 0)
        return MAPI_E_SUBMITTED;
    QV_RETURN_IF_FAILED(NeedRecipients());
    if (m_recipients->rows().empty())
        return MAPI_E_NO_RECIPIENTS;
    bag.Put(PropertyValue::Long(PR_MESSAGE_FLAGS, static_cast<LONG>(state | MSGFLAG_SUBMIT)));
    bag.Put(PropertyValue::Time(PR_CLIENT_SUBMIT_TIME, TimeNow()));
    MessageImage image;
    QV_RETURN_IF_FAILED(AddKeys());
    QV_RETURN_IF_FAILED(MakeImage(image));
    QV_RETURN_IF_FAILED(m_backend->Submit(image, 0));
    Forget();
    return S_OK;
}

ULONG CMessage::Flags(const PropertyBag& bag) const noexcept
{
    const PropertyValue* const held = bag.Find(PR_MESSAGE_FLAGS);
    return held ? static_cast<ULONG>(held->AsInteger()) : MSGFLAG_UNSENT;
}

HRESULT CMessage::OpenObject(ULONG tag, REFIID iid, ULONG, ULONG flags, LPUNKNOWN* object) noexcept
{
    if (!IsEqualIID(iid, IID_IMAPITable))
        return MAPI_E_INTERFACE_NOT_SUPPORTED;
    const ULONG kind = flags & MAPI_UNICODE;
    auto* const table = reinterpret_cast<LPMAPITABLE*>(object);
    if (PROP_ID(tag) == PROP_ID(PR_MESSAGE_RECIPIENTS))
        return GetRecipientTable(kind, table);
    if (PROP_ID(tag) == PROP_ID(PR_MESSAGE_ATTACHMENTS))
        return GetAttachmentTable(kind, table);
    return MAPI_E_NOT_FOUND;
}

HRESULT CMessage::SaveChanges(ULONG flags)
{
    constexpr ULONG kKnown = KEEP_OPEN_READONLY | KEEP_OPEN_READWRITE | FORCE_SAVE | MAPI_DEFERRED_ERRORS;
    if ((flags & ~kKnown) != 0)
        return MAPI_E_UNKNOWN_FLAGS;
    return Guarded([&]() -> HRESULT {
        const Guard lock(Lock());
        QV_RETURN_IF_FAILED(CheckWritable());
        if (m_changed || !m_backend->Exists() || (flags & FORCE_SAVE) != 0)
            QV_RETURN_IF_FAILED(SaveLocked(flags));
        if ((flags & KEEP_OPEN_READONLY) != 0)
            m_writable = false;
        return S_OK;
    });
}

HRESULT CMessage::SaveLocked(ULONG flags)
{
    MessageImage image;
    QV_RETURN_IF_FAILED(AddKeys());
    QV_RETURN_IF_FAILED(MakeImage(image));
    QV_RETURN_IF_FAILED(m_backend->Save(image, flags));
    Forget();
    return S_OK;
}

HRESULT CMessage::AddKeys()
{
    if (!m_backend->GivesKeys())
        return S_OK;
    PropertyBag* bag = nullptr;
    QV_RETURN_IF_FAILED(Stored(bag));
    if (!bag->FindId(PROP_ID(PR_SEARCH_KEY))) {
        GUID key{};
        QV_RETURN_IF_FAILED(CoCreateGuid(&key));
        bag->Put(PropertyValue::Binary(PR_SEARCH_KEY, &key, sizeof(key)));
    }
    if (!bag->FindId(PROP_ID(PR_CREATION_TIME)))
        bag->Put(PropertyValue::Time(PR_CREATION_TIME, TimeNow()));
    return S_OK;
}

HRESULT CMessage::MakeImage(MessageImage& image)
{
    PropertyBag* bag = nullptr;
    QV_RETURN_IF_FAILED(Stored(bag));
    QV_RETURN_IF_FAILED(NeedRecipients());
    QV_RETURN_IF_FAILED(NeedAttachments());
    QV_RETURN_IF_FAILED(TakeSmallValuesIn(*bag));
    image.properties = *bag;
    image.recipients = m_recipients->rows();
    for (const HeldAttachment& held : *m_attachments)
        image.attachments.push_back(held.slot);
    image.recipientsChanged = m_recipientsChanged;
    image.attachmentsChanged = m_attachmentsChanged;
    for (const ULONG tag :
         {PR_DISPLAY_TO_W, PR_DISPLAY_CC_W, PR_DISPLAY_BCC_W, PR_HASATTACH, PR_SUBJECT_PREFIX_W,
          PR_NORMALIZED_SUBJECT_W, PR_MESSAGE_SIZE, PR_MESSAGE_FLAGS}) {
        PropertyValue value;
        const HRESULT hr = Compute(PROP_ID(tag), value);
        if (SUCCEEDED(hr))
            image.computed.Put(std::move(value));
        else if (hr != MAPI_E_NOT_FOUND)
            return hr;
        else if (const PropertyValue* const held = bag->Find(tag))
            image.computed.Put(*held);
    }
    return S_OK;
}

void CMessage::Forget() noexcept
{
    m_changed = false;
    m_recipientsChanged = false;
    m_attachmentsChanged = false;
    m_bag.Clear();
    m_hasBag = false;
    m_identity.reset();
    m_recipients.reset();
    m_attachments.reset();
}

HRESULT MakeMessage(std::shared_ptr<MessageBackend> backend, bool writable, std::function<void()> released,
                    IMessage** message) noexcept
{
    *message = nullptr;
    return Guarded([&] {
        auto made = MakeComObject<CMessage>(std::move(backend), writable,
                                            std::make_shared<std::recursive_mutex>(), 0, std::move(released));
        *message = made.Detach();
        return *message ? S_OK : E_OUTOFMEMORY;
    });
}

}  // namespace quorvane
