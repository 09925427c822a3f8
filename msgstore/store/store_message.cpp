#include "msgstore/store/store_message.h"

#include "msgstore/store/identity.h"
#include "msgstore/store/message_writer.h"
#include "msgstore/store/property_rows.h"

namespace quorvane {
namespace {

LONGLONG NumberIn(const PropertyBag& bag, ULONG tag) noexcept
{
    const PropertyValue* const value = bag.Find(tag);
    return value ? value->AsInteger() : 0;
}

// What goes into the file: without the properties that the store makes itself, with those that every message
// has.
PropertyBag PropertiesToKeep(const MessageImage& image, const PropertyBag& identity, LONGLONG flags)
{
    PropertyBag properties = image.properties;
    for (const PropertyValue& value : identity)
        properties.Erase(value.id());
    if (!properties.Find(PR_SEARCH_KEY))
        properties.Put(GuidProperty(PR_SEARCH_KEY, MakeObjectGuid()));
    properties.Put(PropertyValue::Long(PR_MESSAGE_FLAGS, static_cast<LONG>(flags)));
    return properties;
}

}  // namespace

StoreMessage::StoreMessage(std::shared_ptr<StoreCore> core, std::int64_t folderId,
                           const ObjectGuid& folderGuid, bool isAssociated)
    : core_(std::move(core))
{
    row_.guid = MakeObjectGuid();
    row_.folderId = folderId;
    row_.folderGuid = folderGuid;
    row_.isAssociated = isAssociated;
}

HRESULT StoreMessage::Load()
{
    if (part_ || row_.id == 0)
        return S_OK;
    return core_->Read([&](SqliteConnection& connection) {
        MessageRow row;
        const HRESULT found = FindMessage(connection, row_.id, row);
        if (found == MAPI_E_NOT_FOUND)
            return MAPI_E_OBJECT_DELETED;
        QV_RETURN_IF_FAILED(found);
        PartImage part;
        QV_RETURN_IF_FAILED(ReadRootPart(connection, core_, row.id, part));
        row_ = row;
        part_ = std::move(part);
        return S_OK;
    });
}

HRESULT StoreMessage::ReadProperties(PropertyBag& properties) noexcept
{
    return Guarded([&] {
        properties.Clear();
        QV_RETURN_IF_FAILED(Load());
        if (!part_)
            return S_OK;
        QV_RETURN_IF_FAILED(PropertiesOf(*part_, properties));
        properties.Put(PropertyValue::Long(PR_MESSAGE_FLAGS, static_cast<LONG>(row_.flags)));
        return S_OK;
    });
}

HRESULT StoreMessage::ReadRecipients(std::vector<PropertyBag>& recipients) noexcept
{
    return Guarded([&] {
        recipients.clear();
        QV_RETURN_IF_FAILED(Load());
        return part_ ? DecodeRecipients(part_->recipients, recipients) : S_OK;
    });
}

HRESULT StoreMessage::ReadAttachments(std::vector<AttachmentSlot>& attachments) noexcept
{
    return Guarded([&] {
        attachments.clear();
        QV_RETURN_IF_FAILED(Load());
        if (part_)
            AttachmentsOf(*part_, core_, attachments);
        return S_OK;
    });
}

HRESULT StoreMessage::Identity(PropertyBag& identity) noexcept
{
    return Guarded([&] {
        identity.Clear();
        PutMessageIdentity(core_->Guid(), row_, identity);
        return S_OK;
    });
}

HRESULT StoreMessage::Save(const MessageImage& image, ULONG flags) noexcept
{
    MessageRow row = row_;
    const Durability durability =
        (flags & MAPI_DEFERRED_ERRORS) != 0 ? Durability::Deferred : core_->OfSaves();
    QV_RETURN_IF_FAILED(core_->Write(
        durability, [&](SqliteConnection& connection) { return SaveIn(connection, image, flags, row); }));
    row_ = row;
    part_.reset();
    return S_OK;
}

HRESULT StoreMessage::Submit(const MessageImage& image, ULONG flags) noexcept
{
    MessageRow row = row_;
    const HRESULT written = core_->Write(Durability::AtReturn, [&](SqliteConnection& connection) {
        FolderRow outbox;
        QV_RETURN_IF_FAILED(FindFolder(connection, static_cast<std::int64_t>(FolderRole::Outbox), outbox));
        if (row.id == 0) {
            row.folderId = outbox.id;
            row.folderGuid = outbox.guid;
        }
        QV_RETURN_IF_FAILED(SaveIn(connection, image, flags, row));
        QV_RETURN_IF_FAILED(MoveMessage(connection, row.id, outbox.id));
        return FindMessage(connection, row.id, row);
    });
    QV_RETURN_IF_FAILED(written);
    row_ = row;
    part_.reset();
    return S_OK;
}

HRESULT StoreMessage::Status(LONG& status) noexcept
{
    MessageRow row;
    if (row_.id != 0) {
        const HRESULT found =
            core_->Read([&](SqliteConnection& connection) { return FindMessage(connection, row_.id, row); });
        if (found == MAPI_E_NOT_FOUND)
            return MAPI_E_OBJECT_DELETED;
        QV_RETURN_IF_FAILED(found);
    }
    status = static_cast<LONG>(row.status);
    return S_OK;
}

HRESULT StoreMessage::SaveIn(SqliteConnection& connection, const MessageImage& image, ULONG flags,
                             MessageRow& row) const
{
    const bool isNew = row.id == 0;
    if (!isNew)
        QV_RETURN_IF_FAILED(CheckUnchanged(connection, flags, row));
    const LONGLONG wanted = NumberIn(image.computed, PR_MESSAGE_FLAGS);
    // The read state is whose that changed it last: this object or, since it was opened, someone else.
    const bool readIsOurs = isNew || ((wanted ^ row_.flags) & MSGFLAG_READ) != 0;
    const LONGLONG read = (readIsOurs ? wanted : row.flags) & MSGFLAG_READ;
    const LONGLONG hidden = row.isAssociated ? MSGFLAG_ASSOCIATED : 0;
    row.flags = (wanted & ~LONGLONG{MSGFLAG_READ | MSGFLAG_ASSOCIATED}) | read | hidden;
    PropertyBag identity;
    PutMessageIdentity(core_->Guid(), row, identity);
    const PropertyBag properties = PropertiesToKeep(image, identity, row.flags);
    // What was added here counts as well, so that the size stays when the message is read again.
    row.size = NumberIn(image.computed, PR_MESSAGE_SIZE) +
               static_cast<LONGLONG>(properties.ByteSize() - image.properties.ByteSize());
    if (isNew) {
        FolderRow folder;
        if (FindFolder(connection, row.folderId, folder) == MAPI_E_NOT_FOUND)
            return MAPI_E_OBJECT_DELETED;
        QV_RETURN_IF_FAILED(InsertMessageRow(connection, properties, image.computed, row));
    } else {
        QV_RETURN_IF_FAILED(UpdateMessageRow(connection, properties, image.computed, row));
    }
    return MessageWriter(connection, *core_, row.id).Write(properties, image);
}

HRESULT StoreMessage::CheckUnchanged(SqliteConnection& connection, ULONG flags, MessageRow& row) const
{
    const HRESULT found = FindMessage(connection, row_.id, row);
    if (found == MAPI_E_NOT_FOUND)
        return MAPI_E_OBJECT_DELETED;
    QV_RETURN_IF_FAILED(found);
    return row.version == row_.version || (flags & FORCE_SAVE) != 0 ? S_OK : MAPI_E_OBJECT_CHANGED;
}

HRESULT StoreMessage::SetReadState(bool read) noexcept
{
    MessageRow row;
    const HRESULT result = core_->Write(Durability::AtReturn, [&](SqliteConnection& connection) {
        return SetMessageRead(connection, row_.id, read, row);
    });
    if (result == MAPI_E_NOT_FOUND)
        return MAPI_E_OBJECT_DELETED;
    QV_RETURN_IF_FAILED(result);
    row_.flags = row.flags;
    return S_OK;
}

}  // namespace quorvane
