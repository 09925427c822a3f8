// The half of CMessage that makes properties.
#include <algorithm>
#include <chrono>

#include "msgstore/message/message_object.h"
#include "msgstore/message/subject.h"
#include "msgstore/props/spool_value.h"
#include "msgstore/props/text_encoding.h"
#include "msgstore/util/guarded.h"
#include "platform/mapi/more_tags.h"
#include "quorvane3/message_store.h"

namespace quorvane {
namespace {

bool IsDisplayList(ULONG id) noexcept
{
    return id == PROP_ID(PR_DISPLAY_TO) || id == PROP_ID(PR_DISPLAY_CC) || id == PROP_ID(PR_DISPLAY_BCC);
}

ULONG RecipientTypeOf(ULONG displayListId) noexcept
{
    if (displayListId == PROP_ID(PR_DISPLAY_TO))
        return MAPI_TO;
    return displayListId == PROP_ID(PR_DISPLAY_CC) ? MAPI_CC : MAPI_BCC;
}

bool IsSubjectPart(ULONG id) noexcept
{
    return id == PROP_ID(PR_SUBJECT_PREFIX) || id == PROP_ID(PR_NORMALIZED_SUBJECT);
}

bool IsOwnObject(ULONG id) noexcept
{
    return id == PROP_ID(PR_MESSAGE_RECIPIENTS) || id == PROP_ID(PR_MESSAGE_ATTACHMENTS);
}

LONG AsSize(std::uint64_t size) noexcept
{
    return static_cast<LONG>(std::min<std::uint64_t>(size, INT32_MAX));
}

HRESULT SizeOfMessage(MessageSource& source, ULONG depth, std::uint64_t& size);

}  // namespace

HRESULT SizeOfAttachment(AttachmentSource& source, ULONG depth, std::uint64_t& size)
{
    PropertyBag bag;
    QV_RETURN_IF_FAILED(source.ReadProperties(bag));
    size += bag.ByteSize();
    if (depth >= kDeepestEmbedding)
        return S_OK;
    std::shared_ptr<MessageSource> embedded;
    const HRESULT hr = source.OpenMessage(embedded);
    if (hr == MAPI_E_NOT_FOUND)
        return S_OK;
    return FAILED(hr) ? hr : SizeOfMessage(*embedded, depth + 1, size);
}

HRESULT ReadAttachmentRow(AttachmentSource& source, ULONG number, ULONG depth, PropertyBag& row)
{
    QV_RETURN_IF_FAILED(source.ReadProperties(row));
    std::uint64_t size = 0;
    QV_RETURN_IF_FAILED(SizeOfAttachment(source, depth, size));
    row.Erase(PROP_ID(PR_ATTACH_DATA_BIN));
    row.Put(PropertyValue::Long(PR_ATTACH_NUM, static_cast<LONG>(number)));
    row.Put(PropertyValue::Long(PR_ATTACH_SIZE, AsSize(size)));
    row.Put(PropertyValue::Long(PR_OBJECT_TYPE, MAPI_ATTACH));
    const PropertyValue key = PropertyValue::Long(PR_ATTACH_NUM, static_cast<LONG>(number));
    row.Put(PropertyValue::Binary(PR_RECORD_KEY, key.data.data(), key.data.size()));
    row.Put(PropertyValue::Binary(PR_INSTANCE_KEY, key.data.data(), key.data.size()));
    if (!row.FindId(PROP_ID(PR_RENDERING_POSITION)))
        row.Put(PropertyValue::Long(PR_RENDERING_POSITION, -1));
    return S_OK;
}

namespace {

HRESULT SizeOfMessage(MessageSource& source, ULONG depth, std::uint64_t& size)
{
    PropertyBag bag;
    QV_RETURN_IF_FAILED(source.ReadProperties(bag));
    size += bag.ByteSize();
    std::vector<PropertyBag> recipients;
    QV_RETURN_IF_FAILED(source.ReadRecipients(recipients));
    for (const PropertyBag& recipient : recipients)
        size += recipient.ByteSize();
    std::vector<AttachmentSlot> attachments;
    QV_RETURN_IF_FAILED(source.ReadAttachments(attachments));
    for (const AttachmentSlot& slot : attachments)
        QV_RETURN_IF_FAILED(SizeOfAttachment(*slot.source, depth, size));
    return S_OK;
}

}  // namespace

// A stored value shows where it says more than what could be made: a list of names on a message without
// recipients, a part of a subject that was set by itself.
bool CMessage::ShowsStored(ULONG id) noexcept
{
    if (!m_bag.FindId(id))
        return false;
    return IsSubjectPart(id) || (IsDisplayList(id) && m_recipients && m_recipients->rows().empty());
}

void CMessage::ListComputed(std::vector<ULONG>& tags)
{
    // A failure to read shows again, as this property's error, to whoever asks for the value.
    if (SUCCEEDED(NeedIdentity())) {
        for (const PropertyValue& value : *m_identity)
            tags.push_back(value.tag);
    }
    (void)NeedRecipients();
    for (const ULONG tag : {PR_ACCESS, PR_ACCESS_LEVEL, PR_OBJECT_TYPE, PR_MAPPING_SIGNATURE, PR_MESSAGE_SIZE,
                            PR_HASATTACH, PR_MESSAGE_FLAGS, PR_MESSAGE_RECIPIENTS, PR_MESSAGE_ATTACHMENTS})
        tags.push_back(tag);
    for (const ULONG tag : {PR_DISPLAY_TO_W, PR_DISPLAY_CC_W, PR_DISPLAY_BCC_W}) {
        if (!ShowsStored(PROP_ID(tag)))
            tags.push_back(tag);
    }
    for (const ULONG tag : {PR_SUBJECT_PREFIX_W, PR_NORMALIZED_SUBJECT_W}) {
        if (!ShowsStored(PROP_ID(tag)) && m_bag.Find(PR_SUBJECT_W))
            tags.push_back(tag);
    }
    std::sort(tags.begin(), tags.end());
    tags.erase(
        std::unique(tags.begin(), tags.end(), [](ULONG a, ULONG b) { return PROP_ID(a) == PROP_ID(b); }),
        tags.end());
}

bool CMessage::HasSavedFlags(LONG& flags) noexcept
{
    return !m_hasBag && !m_attachments && m_backend->SavedFlags(flags);
}

bool CMessage::IsKnownUnloaded(ULONG id)
{
    LONG flags = 0;
    if (id == PROP_ID(PR_MESSAGE_FLAGS))
        return HasSavedFlags(flags);
    return SUCCEEDED(NeedIdentity()) && m_identity->FindId(id);
}

HRESULT CMessage::Compute(ULONG id, PropertyValue& value)
{
    QV_RETURN_IF_FAILED(NeedIdentity());
    if (const PropertyValue* const own = m_identity->FindId(id)) {
        value = *own;
        return S_OK;
    }
    if (LONG flags = 0; id == PROP_ID(PR_MESSAGE_FLAGS) && HasSavedFlags(flags)) {
        value = PropertyValue::Long(PR_MESSAGE_FLAGS, flags);
        return S_OK;
    }
    PropertyBag* bag = nullptr;
    QV_RETURN_IF_FAILED(Stored(bag));
    if (IsDisplayList(id))
        return ComputeDisplayList(id, value);
    if (IsSubjectPart(id))
        return ComputeSubjectPart(id, value);
    if (IsOwnObject(id)) {
        value = PropertyValue();
        value.tag = PROP_TAG(PT_OBJECT, id);
        return S_OK;
    }
    switch (id) {
        case PROP_ID(PR_MESSAGE_SIZE): {
            std::uint64_t size = 0;
            QV_RETURN_IF_FAILED(TotalSize(size));
            value = PropertyValue::Long(PR_MESSAGE_SIZE, AsSize(size));
            return S_OK;
        }
        case PROP_ID(PR_HASATTACH): {
            bool has = false;
            QV_RETURN_IF_FAILED(HasVisibleAttachment(has));
            value = PropertyValue::Boolean(PR_HASATTACH, has);
            return S_OK;
        }
        case PROP_ID(PR_MESSAGE_FLAGS):
            return ComputeFlags(value);
        // Answered and not listed: it belongs to the place, and is no part of the message that copies take
        // along.
        case PROP_ID(kPrMessageStatus): {
            LONG status = 0;
            QV_RETURN_IF_FAILED(m_backend->Status(status));
            value = PropertyValue::Long(kPrMessageStatus, status);
            return S_OK;
        }
        default:
            return ComputeAccess(id, value);
    }
}

HRESULT CMessage::ComputeAccess(ULONG id, PropertyValue& value) noexcept
{
    return Guarded([&] {
        switch (id) {
            case PROP_ID(PR_ACCESS):
                value = PropertyValue::Long(PR_ACCESS, static_cast<LONG>(m_backend->Access()));
                return S_OK;
            case PROP_ID(PR_ACCESS_LEVEL):
                value = PropertyValue::Long(PR_ACCESS_LEVEL, m_writable ? MAPI_MODIFY : 0);
                return S_OK;
            case PROP_ID(PR_OBJECT_TYPE):
                value = PropertyValue::Long(PR_OBJECT_TYPE, MAPI_MESSAGE);
                return S_OK;
            case PROP_ID(PR_MAPPING_SIGNATURE): {
                const GUID signature = Names().Signature();
                value = PropertyValue::Binary(PR_MAPPING_SIGNATURE, &signature, sizeof(signature));
                return S_OK;
            }
            default:
                return MAPI_E_NOT_FOUND;
        }
    });
}

HRESULT CMessage::ComputeDisplayList(ULONG id, PropertyValue& value)
{
    QV_RETURN_IF_FAILED(NeedRecipients());
    if (ShowsStored(id))
        return MAPI_E_NOT_FOUND;
    const OleString list = m_recipients->DisplayList(RecipientTypeOf(id), StatedCodePage(m_bag));
    value = PropertyValue::Unicode(PROP_TAG(PT_UNICODE, id), list);
    return S_OK;
}

HRESULT CMessage::ComputeSubjectPart(ULONG id, PropertyValue& value)
{
    const PropertyValue* const subject = m_bag.Find(PR_SUBJECT_W);
    if (ShowsStored(id) || !subject)
        return MAPI_E_NOT_FOUND;
    const OleString text = subject->AsText(StatedCodePage(m_bag));
    const std::size_t length = SubjectPrefixLength(text);
    const bool prefix = id == PROP_ID(PR_SUBJECT_PREFIX);
    value = PropertyValue::Unicode(PROP_TAG(PT_UNICODE, id),
                                   prefix ? text.substr(0, length) : text.substr(length));
    return S_OK;
}

HRESULT CMessage::ComputeFlags(PropertyValue& value)
{
    bool hasAttachment = false;
    QV_RETURN_IF_FAILED(HasVisibleAttachment(hasAttachment));
    ULONG flags = Flags(m_bag);
    flags = hasAttachment ? flags | MSGFLAG_HASATTACH : flags & ~MSGFLAG_HASATTACH;
    value = PropertyValue::Long(PR_MESSAGE_FLAGS, static_cast<LONG>(flags));
    return S_OK;
}

HRESULT CMessage::HasVisibleAttachment(bool& has)
{
    QV_RETURN_IF_FAILED(NeedAttachments());
    for (HeldAttachment& held : *m_attachments) {
        QV_RETURN_IF_FAILED(NeedRow(held));
        const PropertyValue* const hidden = held.row->Find(kPrAttachmentHidden);
        has = has || !hidden || hidden->AsInteger() == 0;
    }
    return S_OK;
}

// Of kOriginalMailName, which PR_MESSAGE_SIZE leaves out.
std::uint64_t CMessage::SizeOfOriginal()
{
    for (const PropertyValue& value : m_bag) {
        PropertyName name;
        if (value.id() >= kFirstNamedId && PROP_TYPE(value.tag) == PT_BINARY &&
            SUCCEEDED(m_backend->Names().NameOf(value.id(), name)) && name.kind == MNID_STRING &&
            name.text == kOriginalMailName && name.set == kOriginalMailSet)
            return value.ByteSize();
    }
    return 0;
}

HRESULT CMessage::TotalSize(std::uint64_t& size)
{
    QV_RETURN_IF_FAILED(NeedRecipients());
    QV_RETURN_IF_FAILED(NeedAttachments());
    size = m_bag.ByteSize() - SizeOfOriginal();
    for (const PropertyBag& recipient : m_recipients->rows())
        size += recipient.ByteSize();
    for (HeldAttachment& held : *m_attachments) {
        QV_RETURN_IF_FAILED(NeedRow(held));
        size += static_cast<std::uint64_t>(held.row->Find(PR_ATTACH_SIZE)->AsInteger());
    }
    return S_OK;
}

HRESULT CMessage::CheckSettable(ULONG id) noexcept
{
    return Guarded([&]() -> HRESULT {
        QV_RETURN_IF_FAILED(NeedIdentity());
        if (IsOwnProperty(id) || IsOwnObject(id) || m_identity->FindId(id))
            return MAPI_E_COMPUTED;
        if (!IsDisplayList(id))
            return S_OK;
        QV_RETURN_IF_FAILED(NeedRecipients());
        return m_recipients->rows().empty() ? S_OK : MAPI_E_COMPUTED;
    });
}

void CMessage::Changed(ULONG id)
{
    m_changed = true;
    if (id != PROP_ID(PR_SUBJECT))
        return;
    // Parts of the old subject say nothing about the new one.
    m_bag.Erase(PROP_ID(PR_SUBJECT_PREFIX));
    m_bag.Erase(PROP_ID(PR_NORMALIZED_SUBJECT));
}

FILETIME TimeNow() noexcept
{
    constexpr LONGLONG kFrom1601To1970 = 116444736000000000;  // in steps of 100 nanoseconds
    using Ticks = std::chrono::duration<LONGLONG, std::ratio<1, 10000000>>;
    const auto since1970 = std::chrono::system_clock::now().time_since_epoch();
    const LONGLONG ticks = std::chrono::duration_cast<Ticks>(since1970).count() + kFrom1601To1970;
    FILETIME time{};
    time.dwLowDateTime = static_cast<DWORD>(ticks & 0xFFFFFFFF);
    time.dwHighDateTime = static_cast<DWORD>(ticks >> 32);
    return time;
}

HRESULT TakeSmallValuesIn(PropertyBag& bag)
{
    std::vector<PropertyValue> small;
    for (const PropertyValue& value : bag) {
        const bool written = dynamic_cast<const SpoolValue*>(value.large.get()) != nullptr;
        if (!written || value.type() == PT_OBJECT || value.large->Size() > kListedValueLimit)
            continue;
        PropertyValue taken;
        taken.tag = value.tag;
        QV_RETURN_IF_FAILED(ReadWhole(*value.large, kListedValueLimit, taken.data));
        small.push_back(std::move(taken));
    }
    for (PropertyValue& value : small)
        bag.Put(std::move(value));
    return S_OK;
}

}  // namespace quorvane
