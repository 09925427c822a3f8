#include "msgstore/store/message_source.h"

#include "msgstore/store/property_rows.h"

namespace quorvane {
namespace {

HRESULT ReadAttachmentList(SqliteConnection& connection, std::int64_t messageId, PartImage& part)
{
    SqliteRows rows = connection.Query(
        "SELECT number, id FROM part WHERE message_id=? AND parent_id=? ORDER BY number", messageId, part.id);
    while (rows.Next())
        part.attachments.emplace_back(static_cast<ULONG>(rows.Int64(0)), rows.Int64(1));
    return rows.Result();
}

// Reads a message's part from a row of id, message_id, properties, recipients.
HRESULT ReadMessagePart(SqliteConnection& connection, const PartReader& reader, SqliteRows rows,
                        HRESULT missing, PartImage& part)
{
    if (!rows.Next())
        return FAILED(rows.Result()) ? rows.Result() : missing;
    part.id = rows.Int64(0);
    const std::int64_t messageId = rows.Int64(1);
    part.properties.assign(rows.Bytes(2).begin(), rows.Bytes(2).end());
    part.recipients.assign(rows.Bytes(3).begin(), rows.Bytes(3).end());
    QV_RETURN_IF_FAILED(reader.ReadLargeValues(connection, part.id, part.largeValues));
    return ReadAttachmentList(connection, messageId, part);
}

}  // namespace

HRESULT PartReader::Read(const StoreCore::Work& work) const noexcept
{
    return connection_ ? Guarded([&] { return work(*connection_); }) : core_->Read(work);
}

HRESULT PartReader::ReadLargeValues(SqliteConnection& connection, std::int64_t partId, PropertyBag& bag) const
{
    return core_ ? quorvane::ReadLargeValues(connection, core_, partId, bag)
                 : quorvane::ReadLargeValues(connection, partId, bag);
}

HRESULT ReadRootPart(SqliteConnection& connection, const PartReader& reader, std::int64_t messageId,
                     PartImage& part)
{
    part = {};
    return ReadMessagePart(
        connection, reader,
        connection.Query(
            "SELECT id, message_id, properties, recipients FROM part WHERE message_id=? AND parent_id=0",
            messageId),
        MAPI_E_OBJECT_CHANGED, part);
}

HRESULT PropertiesOf(const PartImage& part, PropertyBag& properties)
{
    properties.Clear();
    QV_RETURN_IF_FAILED(DecodePacked(part.properties.data(), part.properties.size(), properties));
    for (const PropertyValue& value : part.largeValues)
        properties.Put(value);
    return S_OK;
}

void AttachmentsOf(const PartImage& part, const PartReader& reader, std::vector<AttachmentSlot>& attachments)
{
    attachments.clear();
    for (const auto& [number, id] : part.attachments)
        attachments.push_back({number, std::make_shared<StoredAttachment>(reader, id)});
}

HRESULT StoredAttachment::ReadProperties(PropertyBag& properties) noexcept
{
    return reader_.Read([&](SqliteConnection& connection) {
        properties.Clear();
        SqliteRows rows = connection.Query("SELECT properties FROM part WHERE id=?", partId_);
        if (!rows.Next())
            return FAILED(rows.Result()) ? rows.Result() : MAPI_E_OBJECT_CHANGED;
        QV_RETURN_IF_FAILED(DecodePacked(rows.Bytes(0).data(), rows.Bytes(0).size(), properties));
        return reader_.ReadLargeValues(connection, partId_, properties);
    });
}

HRESULT StoredAttachment::OpenMessage(std::shared_ptr<MessageSource>& message) noexcept
{
    return reader_.Read([&](SqliteConnection& connection) {
        PartImage part;
        SqliteRows rows = connection.Query(
            "SELECT id, message_id, properties, recipients FROM part"
            " WHERE message_id=(SELECT message_id FROM part WHERE id=?1) AND parent_id=?1",
            partId_);
        QV_RETURN_IF_FAILED(ReadMessagePart(connection, reader_, std::move(rows), MAPI_E_NOT_FOUND, part));
        message = std::make_shared<StoredEmbedded>(reader_, std::move(part));
        return S_OK;
    });
}

HRESULT StoredEmbedded::ReadProperties(PropertyBag& properties) noexcept
{
    return Guarded([&] { return PropertiesOf(part_, properties); });
}

HRESULT StoredEmbedded::ReadRecipients(std::vector<PropertyBag>& recipients) noexcept
{
    return Guarded([&] { return DecodeRecipients(part_.recipients, recipients); });
}

HRESULT StoredEmbedded::ReadAttachments(std::vector<AttachmentSlot>& attachments) noexcept
{
    return Guarded([&] {
        AttachmentsOf(part_, reader_, attachments);
        return S_OK;
    });
}

}  // namespace quorvane
