#include "msgstore/store/message_rows.h"

#include <algorithm>

#include "msgstore/store/change_log.h"
#include "msgstore/store/message_copy.h"
#include "msgstore/table/text_fold.h"
#include "platform/clock/clock.h"
#include "platform/com/bstr.h"

namespace quorvane {
namespace {

constexpr std::string_view kSelectMessage =
    "SELECT m.id, m.guid, m.folder_id, f.guid, m.associated, m.version, m.created, m.modified, m.flags, "
    "m.status,"
    " m.size FROM message AS m JOIN folder AS f ON f.id = m.folder_id WHERE ";

// What tables show of a message's properties, in the order of ColumnBinder.
constexpr std::string_view kShown =
    "message_class, subject, subject_prefix, normal_subject, sender_name, sent_for_name, display_to, "
    "display_cc,"
    " display_bcc, submitted, delivered, importance, search_key, subject_key";

// Text in a table is cut there, as stores do.
constexpr std::size_t kColumnTextLimit = 255;

// A modification time that isn't later than the one before, as the clock went back, moves on by so much:
// still visible to callers that keep milliseconds.
constexpr std::int64_t kLeastStep = 10000;

HRESULT ReadOne(SqliteRows rows, MessageRow& row)
{
    if (!rows.Next())
        return FAILED(rows.Result()) ? rows.Result() : MAPI_E_NOT_FOUND;
    row.id = rows.Int64(0);
    row.guid = ObjectGuidOf(rows.Bytes(1));
    row.folderId = rows.Int64(2);
    row.folderGuid = ObjectGuidOf(rows.Bytes(3));
    row.isAssociated = rows.Int64(4) != 0;
    row.version = rows.Int64(5);
    row.created = rows.Int64(6);
    row.modified = rows.Int64(7);
    row.flags = rows.Int64(8);
    row.status = rows.Int64(9);
    row.size = rows.Int64(10);
    return S_OK;
}

std::int64_t Now() noexcept
{
    return static_cast<std::int64_t>(ToTicks(FileTimeNow()));
}

std::int64_t TimeAfter(std::int64_t before) noexcept
{
    return std::max(Now(), before + kLeastStep);
}

HRESULT LogMessage(SqliteConnection& connection, ULONG event, const MessageRow& row,
                   std::int64_t oldFolder = 0)
{
    Change change;
    change.event = event;
    change.kind = MAPI_MESSAGE;
    change.objectId = row.id;
    change.objectGuid = row.guid;
    change.parentId = row.folderId;
    change.oldParentId = oldFolder;
    change.isAssociated = row.isAssociated;
    return AppendChange(connection, change);
}

// Binds a message's table columns to a statement, each as null when the message lacks the property.
class ColumnBinder {
public:
    ColumnBinder(SqliteRows& rows, const PropertyBag& properties, const PropertyBag& computed) noexcept
        : rows_(rows), properties_(properties), computed_(computed)
    {}

    void BindAll()
    {
        Text(PR_MESSAGE_CLASS_W);
        Text(PR_SUBJECT_W);
        Text(PR_SUBJECT_PREFIX_W);
        Text(PR_NORMALIZED_SUBJECT_W);
        Text(PR_SENDER_NAME_W);
        Text(PR_SENT_REPRESENTING_NAME_W);
        Text(PR_DISPLAY_TO_W);
        Text(PR_DISPLAY_CC_W);
        Text(PR_DISPLAY_BCC_W);
        Time(PR_CLIENT_SUBMIT_TIME);
        Time(PR_MESSAGE_DELIVERY_TIME);
        Number(PR_IMPORTANCE);
        Binary(PR_SEARCH_KEY);
        FoldedText(PR_SUBJECT_W);
    }

private:
    const PropertyValue* Find(ULONG tag) const
    {
        const PropertyValue* const value = computed_.Find(tag);
        return value ? value : properties_.Find(tag);
    }

    void Text(ULONG tag)
    {
        const PropertyValue* const value = Find(tag);
        if (!value)
            return rows_.Bind(nullptr);
        const OleString text = value->AsText();
        rows_.Bind(ToUtf8(OleStringView(text).substr(0, kColumnTextLimit)));
    }
    void FoldedText(ULONG tag)
    {
        const PropertyValue* const value = Find(tag);
        if (!value)
            return rows_.Bind(nullptr);
        const OleString text = value->AsText();
        rows_.Bind(FoldUtf8(ToUtf8(OleStringView(text).substr(0, kColumnTextLimit))));
    }
    void Time(ULONG tag)
    {
        const PropertyValue* const value = Find(tag);
        if (!value)
            return rows_.Bind(nullptr);
        rows_.Bind(static_cast<std::int64_t>(ToTicks(value->AsTime())));
    }
    void Number(ULONG tag)
    {
        const PropertyValue* const value = Find(tag);
        if (!value)
            return rows_.Bind(nullptr);
        rows_.Bind(static_cast<std::int64_t>(value->AsInteger()));
    }
    void Binary(ULONG tag)
    {
        const PropertyValue* const value = Find(tag);
        if (!value || value->large)
            return rows_.Bind(nullptr);
        rows_.Bind(value->data);
    }

    SqliteRows& rows_;
    const PropertyBag& properties_;
    const PropertyBag& computed_;
};

}  // namespace

HRESULT FindMessage(SqliteConnection& connection, const EntryId& id, MessageRow& row)
{
    if (id.isShortTerm)
        return FindMessage(connection, id.row, row);
    return ReadOne(connection.Query(std::string(kSelectMessage) + "m.guid=?", id.object), row);
}

HRESULT FindMessage(SqliteConnection& connection, std::int64_t id, MessageRow& row)
{
    return ReadOne(connection.Query(std::string(kSelectMessage) + "m.id=?", id), row);
}

HRESULT InsertMessageRow(SqliteConnection& connection, const PropertyBag& properties,
                         const PropertyBag& computed, MessageRow& row)
{
    row.version = 1;
    row.created = row.modified = Now();
    SqliteRows rows = connection.Query(
        std::string(
            "INSERT INTO message (guid, folder_id, associated, version, created, modified, flags, size, ")
            .append(kShown)
            .append(") VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)"),
        row.guid, row.folderId, row.isAssociated, row.version, row.created, row.modified, row.flags,
        row.size);
    ColumnBinder(rows, properties, computed).BindAll();
    rows.Next();
    QV_RETURN_IF_FAILED(rows.Result());
    row.id = connection.LastInsertId();
    return LogMessage(connection, fnevObjectCreated, row);
}

HRESULT UpdateMessageRow(SqliteConnection& connection, const PropertyBag& properties,
                         const PropertyBag& computed, MessageRow& row)
{
    ++row.version;
    row.modified = TimeAfter(row.modified);
    SqliteRows rows = connection.Query(std::string("UPDATE message SET (version, modified, flags, size, ")
                                           .append(kShown)
                                           .append(") = (?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9, ?10, ?11, ?12, ?13, "
                                                   "?14, ?15, ?16, ?17, ?18, ?19) WHERE id=?1"),
                                       row.id, row.version, row.modified, row.flags, row.size);
    ColumnBinder(rows, properties, computed).BindAll();
    rows.Next();
    QV_RETURN_IF_FAILED(rows.Result());
    return LogMessage(connection, fnevObjectModified, row);
}

HRESULT DeleteMessage(SqliteConnection& connection, std::int64_t id)
{
    MessageRow row;
    QV_RETURN_IF_FAILED(FindMessage(connection, id, row));
    QV_RETURN_IF_FAILED(DeleteParts(connection, id));
    QV_RETURN_IF_FAILED(connection.Run("DELETE FROM message WHERE id=?", id));
    return LogMessage(connection, fnevObjectDeleted, row);
}

HRESULT MoveMessage(SqliteConnection& connection, std::int64_t id, std::int64_t folderId)
{
    MessageRow row;
    QV_RETURN_IF_FAILED(FindMessage(connection, id, row));
    const std::int64_t oldFolder = row.folderId;
    if (oldFolder == folderId)
        return S_OK;
    QV_RETURN_IF_FAILED(connection.Run("UPDATE message SET folder_id=? WHERE id=?", folderId, id));
    row.folderId = folderId;
    return LogMessage(connection, fnevObjectMoved, row, oldFolder);
}

HRESULT CopyMessage(SqliteConnection& connection, std::int64_t id, std::int64_t folderId)
{
    QV_RETURN_IF_FAILED(connection.Run(
        std::string(
            "INSERT INTO message (guid, folder_id, associated, version, created, modified, flags, status,"
            " size, ")
            .append(kShown)
            .append(") SELECT ?2, ?3, associated, 1, ?4, ?4, flags, status, size, ")
            .append(kShown)
            .append(" FROM message WHERE id=?1"),
        id, MakeObjectGuid(), folderId, Now()));
    if (connection.Changes() == 0)
        return MAPI_E_NOT_FOUND;
    MessageRow copy;
    QV_RETURN_IF_FAILED(FindMessage(connection, connection.LastInsertId(), copy));
    QV_RETURN_IF_FAILED(CopyParts(connection, id, copy.id));
    MessageRow original;
    QV_RETURN_IF_FAILED(FindMessage(connection, id, original));
    return LogMessage(connection, fnevObjectCopied, copy, original.folderId);
}

HRESULT SetMessageRead(SqliteConnection& connection, std::int64_t id, bool read, MessageRow& row)
{
    QV_RETURN_IF_FAILED(FindMessage(connection, id, row));
    const std::int64_t flags = read ? row.flags | MSGFLAG_READ : row.flags & ~std::int64_t{MSGFLAG_READ};
    if (flags == row.flags)
        return S_OK;
    row.flags = flags;
    QV_RETURN_IF_FAILED(connection.Run("UPDATE message SET flags=? WHERE id=?", row.flags, id));
    return LogMessage(connection, fnevObjectModified, row);
}

HRESULT SetMessageStatus(SqliteConnection& connection, std::int64_t id, ULONG status, ULONG mask,
                         MessageRow& row)
{
    QV_RETURN_IF_FAILED(FindMessage(connection, id, row));
    const std::int64_t changed = (row.status & ~std::int64_t{mask}) | (status & mask);
    if (changed == row.status)
        return S_OK;
    QV_RETURN_IF_FAILED(connection.Run("UPDATE message SET status=? WHERE id=?", changed, id));
    return LogMessage(connection, fnevObjectModified, row);
}

}  // namespace quorvane
