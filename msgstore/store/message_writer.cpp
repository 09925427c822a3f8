#include "msgstore/store/message_writer.h"

#include "msgstore/message/message_object.h"
#include "msgstore/store/message_copy.h"
#include "msgstore/store/property_rows.h"

namespace quorvane {
namespace {

// Values above it get rows of their own.
constexpr std::uint64_t kInlineLimit = 32 * 1024;

HRESULT CollectIds(SqliteRows rows, std::set<std::int64_t>& ids)
{
    while (rows.Next())
        ids.insert(rows.Int64(0));
    return rows.Result();
}

}  // namespace

HRESULT MessageWriter::Write(const PropertyBag& properties, const MessageImage& image)
{
    QV_RETURN_IF_FAILED(FindRoot());
    if (root_ != 0) {
        if (image.attachmentsChanged)
            QV_RETURN_IF_FAILED(ListSpareParts(image));
        QV_RETURN_IF_FAILED(ListSpareValues());
    }
    const bool isNew = root_ == 0;
    QV_RETURN_IF_FAILED(WriteRoot(properties, image));
    if (isNew || image.attachmentsChanged)
        QV_RETURN_IF_FAILED(WriteRootAttachments(image));
    return DropSpare();
}

HRESULT MessageWriter::FindRoot()
{
    SqliteRows rows = connection_.Query("SELECT id FROM part WHERE message_id=? AND parent_id=0", messageId_);
    if (rows.Next())
        root_ = rows.Int64(0);
    QV_RETURN_IF_FAILED(rows.Result());
    if (root_ == 0)
        return S_OK;
    return CollectIds(
        connection_.Query("SELECT id FROM part WHERE message_id=? AND parent_id=?", messageId_, root_),
        attachmentParts_);
}

std::int64_t MessageWriter::OwnPart(const AttachmentSlot& slot) const
{
    const auto* const stored = dynamic_cast<const StoredAttachment*>(slot.source.get());
    if (!stored || stored->Core() != &core_ || !attachmentParts_.contains(stored->PartId()))
        return 0;
    return stored->PartId();
}

HRESULT MessageWriter::ListSpareParts(const MessageImage& image)
{
    spareParts_ = attachmentParts_;
    for (const AttachmentSlot& slot : image.attachments)
        spareParts_.erase(OwnPart(slot));
    // New parts may want the numbers of those that go.
    for (const std::int64_t part : spareParts_)
        QV_RETURN_IF_FAILED(connection_.Run("UPDATE part SET number=-id WHERE id=?", part));
    return S_OK;
}

HRESULT MessageWriter::ListSpareValues()
{
    constexpr std::string_view inTree =
        "WITH RECURSIVE below (id) AS (VALUES (?1) UNION ALL"
        " SELECT p.id FROM below AS b, part AS p WHERE p.message_id=?2 AND p.parent_id = b.id)"
        " SELECT v.id FROM large_value AS v WHERE v.part_id IN (SELECT id FROM below)";
    QV_RETURN_IF_FAILED(
        CollectIds(connection_.Query("SELECT id FROM large_value WHERE part_id=?", root_), spareValues_));
    for (const std::int64_t part : spareParts_)
        QV_RETURN_IF_FAILED(CollectIds(connection_.Query(inTree, part, messageId_), spareValues_));
    return S_OK;
}

HRESULT MessageWriter::WriteRoot(const PropertyBag& properties, const MessageImage& image)
{
    Bytes bytes;
    std::vector<const PropertyValue*> large;
    EncodeProperties(properties, RunForm::Packed, kInlineLimit, bytes, large);
    Bytes recipients;
    const bool writeRecipients = root_ == 0 || image.recipientsChanged;
    if (writeRecipients)
        QV_RETURN_IF_FAILED(EncodeRecipients(image.recipients, recipients));
    if (root_ == 0) {
        QV_RETURN_IF_FAILED(InsertPart(0, 0, bytes, &recipients, root_));
    } else {
        QV_RETURN_IF_FAILED(connection_.Run("UPDATE part SET properties=? WHERE id=?", bytes, root_));
        if (writeRecipients)
            QV_RETURN_IF_FAILED(
                connection_.Run("UPDATE part SET recipients=? WHERE id=?", recipients, root_));
    }
    return WriteLargeValues(root_, large);
}

HRESULT MessageWriter::WriteRootAttachments(const MessageImage& image)
{
    for (const AttachmentSlot& slot : image.attachments) {
        if (OwnPart(slot) == 0)
            QV_RETURN_IF_FAILED(WriteAttachment(root_, slot, 0));
    }
    return S_OK;
}

HRESULT MessageWriter::DropSpare()
{
    for (const std::int64_t value : spareValues_) {
        QV_RETURN_IF_FAILED(connection_.Run("DELETE FROM chunk WHERE value_id=?", value));
        QV_RETURN_IF_FAILED(connection_.Run("DELETE FROM large_value WHERE id=?", value));
    }
    for (const std::int64_t part : spareParts_)
        QV_RETURN_IF_FAILED(DeletePart(connection_, part));
    return S_OK;
}

HRESULT MessageWriter::WriteAttachment(std::int64_t parent, const AttachmentSlot& slot, ULONG depth)
{
    PropertyBag properties;
    QV_RETURN_IF_FAILED(slot.source->ReadProperties(properties));
    Bytes bytes;
    std::vector<const PropertyValue*> large;
    EncodeProperties(properties, RunForm::Packed, kInlineLimit, bytes, large);
    std::int64_t part = 0;
    QV_RETURN_IF_FAILED(InsertPart(parent, slot.number, bytes, nullptr, part));
    QV_RETURN_IF_FAILED(WriteLargeValues(part, large));
    std::shared_ptr<MessageSource> embedded;
    const HRESULT opened = slot.source->OpenMessage(embedded);
    if (opened == MAPI_E_NOT_FOUND)
        return S_OK;
    QV_RETURN_IF_FAILED(opened);
    return WriteEmbedded(part, *embedded, depth + 1);
}

HRESULT MessageWriter::WriteEmbedded(std::int64_t parent, MessageSource& message, ULONG depth)
{
    if (depth > kDeepestEmbedding)
        return MAPI_E_TOO_COMPLEX;
    PropertyBag properties;
    std::vector<PropertyBag> recipients;
    std::vector<AttachmentSlot> attachments;
    QV_RETURN_IF_FAILED(message.ReadProperties(properties));
    QV_RETURN_IF_FAILED(message.ReadRecipients(recipients));
    QV_RETURN_IF_FAILED(message.ReadAttachments(attachments));
    Bytes bytes;
    Bytes recipientBytes;
    std::vector<const PropertyValue*> large;
    EncodeProperties(properties, RunForm::Packed, kInlineLimit, bytes, large);
    QV_RETURN_IF_FAILED(EncodeRecipients(recipients, recipientBytes));
    std::int64_t part = 0;
    QV_RETURN_IF_FAILED(InsertPart(parent, 0, bytes, &recipientBytes, part));
    QV_RETURN_IF_FAILED(WriteLargeValues(part, large));
    for (const AttachmentSlot& slot : attachments)
        QV_RETURN_IF_FAILED(WriteAttachment(part, slot, depth));
    return S_OK;
}

HRESULT MessageWriter::InsertPart(std::int64_t parent, std::int64_t number, const Bytes& properties,
                                  const Bytes* recipients, std::int64_t& id)
{
    constexpr std::string_view sql =
        "INSERT INTO part (message_id, parent_id, number, properties, recipients) VALUES (?, ?, ?, ?, ?)";
    QV_RETURN_IF_FAILED(recipients ? connection_.Run(sql, messageId_, parent, number, properties, *recipients)
                                   : connection_.Run(sql, messageId_, parent, number, properties, nullptr));
    id = connection_.LastInsertId();
    return S_OK;
}

HRESULT MessageWriter::WriteLargeValues(std::int64_t part, const std::vector<const PropertyValue*>& values)
{
    for (const PropertyValue* value : values)
        QV_RETURN_IF_FAILED(WriteLargeValue(part, *value));
    return S_OK;
}

HRESULT MessageWriter::WriteLargeValue(std::int64_t part, const PropertyValue& value)
{
    if (!value.large)
        return InsertLargeValue(connection_, part, value.tag, value.data);
    const auto* const stored = dynamic_cast<const StoredValue*>(value.large.get());
    if (!stored || stored->Core() != &core_)
        return InsertLargeValue(connection_, part, value.tag, *value.large);
    if (spareValues_.erase(stored->Id()) != 0) {
        return connection_.Run("UPDATE large_value SET part_id=?, tag=? WHERE id=?", part, value.tag,
                               stored->Id());
    }
    return CopyLargeValue(connection_, stored->Id(), part, value.tag);
}

}  // namespace quorvane
