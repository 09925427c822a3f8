#include <algorithm>
#include <cstring>

#include "msgstore/message/message_object.h"
#include "msgstore/props/little_endian.h"
#include "msgstore/props/property_codec.h"
#include "msgstore/store/contents_columns.h"
#include "msgstore/store/contents_query.h"
#include "msgstore/store/identity.h"
#include "msgstore/store/message_source.h"
#include "msgstore/store/property_rows.h"
#include "msgstore/store/search_criteria.h"
#include "msgstore/store/table_functions.h"
#include "msgstore/store/table_source.h"
#include "msgstore/table/restriction_codec.h"
#include "platform/clock/clock.h"
#include "platform/com/bstr.h"

namespace quorvane {
namespace {

// The columns of the statement begin with the row's number and its GUID, and then are those of
// kContentsColumns.
constexpr int kFirstColumn = 2;
constexpr int kFlagsColumn = kFirstColumn + 2;
static_assert(kContentsColumns[kFlagsColumn - kFirstColumn].tag == PR_MESSAGE_FLAGS);

constexpr std::string_view kSelectRow =
    "SELECT id, guid, created, modified, flags, size, status, message_class, subject, subject_prefix, "
    "normal_subject,"
    " sender_name, sent_for_name, display_to, display_cc, display_bcc, submitted, delivered, importance, "
    "search_key, folder_id"
    " FROM message WHERE id=? AND associated=?";
constexpr int kFolderColumn = kFirstColumn + static_cast<int>(kContentsColumns.size());

const std::vector<ULONG> kDefaultColumns = {
    PR_ENTRYID,
    PR_INSTANCE_KEY,
    PR_RECORD_KEY,
    PR_MESSAGE_CLASS_W,
    PR_MESSAGE_FLAGS,
    PR_MESSAGE_SIZE,
    PR_LAST_MODIFICATION_TIME,
    PR_CREATION_TIME,
    PR_SUBJECT_W,
    PR_NORMALIZED_SUBJECT_W,
    PR_SENDER_NAME_W,
    PR_SENT_REPRESENTING_NAME_W,
    PR_DISPLAY_TO_W,
    PR_DISPLAY_CC_W,
    PR_CLIENT_SUBMIT_TIME,
    PR_MESSAGE_DELIVERY_TIME,
    PR_HASATTACH,
    PR_IMPORTANCE,
    PR_SEARCH_KEY,
    PR_PARENT_ENTRYID,
    PR_STORE_ENTRYID,
    PR_OBJECT_TYPE,
};

// A folder that a contents table shows.
struct Contents {
    ObjectGuid store{};
    std::int64_t folderId = 0;
    bool isSearch = false;
    bool associated = false;
    bool shortTermIds = false;
};

// Where the table's messages lie at a moment, and what they meet.
struct Scope {
    std::vector<std::int64_t> folders;            // ascending
    std::shared_ptr<const Restriction> criteria;  // null: every one
};

// A folder that hasn't been told yet what to look for finds nothing.
HRESULT ReadScope(SqliteConnection& connection, const Contents& contents, Scope& scope)
{
    if (!contents.isSearch) {
        scope.folders = {contents.folderId};
        return S_OK;
    }
    SearchCriteria criteria;
    const HRESULT read = ReadSearchCriteria(connection, contents.folderId, criteria);
    if (read == MAPI_E_NOT_INITIALIZED || read == MAPI_E_OBJECT_DELETED)
        return S_OK;
    QV_RETURN_IF_FAILED(read);
    QV_RETURN_IF_FAILED(ListSearchedFolders(connection, criteria, scope.folders));
    MapiBuffer<SRestriction> restriction;
    QV_RETURN_IF_FAILED(DecodeRestriction(criteria.restriction, true, restriction));
    return Restriction::Make(restriction.Get(), scope.criteria);
}

class ContentsReader final : public RowReader {
public:
    ContentsReader(SqliteConnection& connection, const Contents& contents)
        : connection_(connection), contents_(contents), row_(connection.Query(kSelectRow))
    {
        scoped_ = ReadScope(connection, contents, scope_);
    }

    HRESULT MoveTo(std::int64_t id) override
    {
        QV_RETURN_IF_FAILED(scoped_);
        haveProperties_ = false;
        haveLargeValues_ = false;
        haveRootPart_ = false;
        row_.Rewind();
        row_.Bind(id);
        row_.Bind(static_cast<std::int64_t>(contents_.associated));
        if (!row_.Next())
            return FAILED(row_.Result()) ? row_.Result() : S_FALSE;
        const bool isHere =
            std::binary_search(scope_.folders.begin(), scope_.folders.end(), row_.Int64(kFolderColumn));
        return isHere && (!scope_.criteria || scope_.criteria->Matches(*this)) ? S_OK : S_FALSE;
    }

    HRESULT TakeFailure() noexcept override { return std::exchange(failure_, S_OK); }

    const PropertyValue* Find(ULONG tag) const override
    {
        if (const ContentsColumn* const column = FindContentsColumn(tag))
            return FindColumn(*column, kFirstColumn + static_cast<int>(column - kContentsColumns.data()),
                              tag);
        if (FindComputed(tag))
            return TypeFits(PROP_TYPE(tag), value_.type()) ? &value_ : nullptr;
        return FindStored(tag);
    }

    const std::vector<PropertyBag>* SubRows(ULONG tag) const override
    {
        subRows_.clear();
        const HRESULT result =
            PROP_ID(tag) == PROP_ID(PR_MESSAGE_RECIPIENTS) ? ReadRecipientRows() : ReadAttachmentRows();
        // Of a message that is damaged there the others are judged all the same.
        if (result == MAPI_E_CORRUPT_DATA || result == MAPI_E_OBJECT_CHANGED)
            subRows_.clear();
        else if (FAILED(result))
            failure_ = result;
        return &subRows_;
    }

private:
    HRESULT NeedRootPart() const
    {
        if (haveRootPart_)
            return S_OK;
        QV_RETURN_IF_FAILED(ReadRootPart(connection_, connection_, row_.Int64(0), rootPart_));
        haveRootPart_ = true;
        return S_OK;
    }

    HRESULT ReadRecipientRows() const
    {
        QV_RETURN_IF_FAILED(NeedRootPart());
        return DecodeRecipients(rootPart_.recipients, subRows_);
    }

    HRESULT ReadAttachmentRows() const
    {
        QV_RETURN_IF_FAILED(NeedRootPart());
        std::vector<AttachmentSlot> slots;
        AttachmentsOf(rootPart_, connection_, slots);
        for (const AttachmentSlot& slot : slots)
            QV_RETURN_IF_FAILED(ReadAttachmentRow(*slot.source, slot.number, 0, subRows_.emplace_back()));
        return S_OK;
    }

    const PropertyValue* FindColumn(const ContentsColumn& column, int index, ULONG tag) const
    {
        if (!TypeFits(PROP_TYPE(tag), PROP_TYPE(column.tag)) || row_.IsNull(index))
            return nullptr;
        value_.tag = column.tag;
        switch (column.kind) {
            case ColumnKind::Text:
                SetText(row_.Text(index));
                break;
            case ColumnKind::Long:
                SetNumber(row_.Int64(index), sizeof(LONG));
                break;
            case ColumnKind::Time:
                SetNumber(row_.Int64(index), sizeof(FILETIME));
                break;
            case ColumnKind::Binary:
                value_.data.assign(row_.Bytes(index).begin(), row_.Bytes(index).end());
                break;
        }
        return &value_;
    }

    // Sets value_ to a property that the row has by what it is; false when it's none of those.
    bool FindComputed(ULONG tag) const
    {
        switch (PROP_ID(tag)) {
            case PROP_ID(PR_ENTRYID):
                SetBinary(PR_ENTRYID, EntryIdOfRow());
                return true;
            case PROP_ID(PR_INSTANCE_KEY):
                SetBinary(PR_INSTANCE_KEY, InstanceKey(row_.Int64(0)));
                return true;
            case PROP_ID(PR_RECORD_KEY):
                SetBinary(PR_RECORD_KEY, Bytes(row_.Bytes(1).begin(), row_.Bytes(1).end()));
                return true;
            case PROP_ID(PR_HASATTACH):
                value_ =
                    PropertyValue::Boolean(PR_HASATTACH, (row_.Int64(kFlagsColumn) & MSGFLAG_HASATTACH) != 0);
                return true;
            case PROP_ID(PR_OBJECT_TYPE):
                value_ = PropertyValue::Long(PR_OBJECT_TYPE, MAPI_MESSAGE);
                return true;
            case PROP_ID(PR_ACCESS):
                value_ = PropertyValue::Long(PR_ACCESS,
                                             MAPI_ACCESS_MODIFY | MAPI_ACCESS_READ | MAPI_ACCESS_DELETE);
                return true;
            case PROP_ID(PR_ROW_TYPE):
                value_ = PropertyValue::Long(PR_ROW_TYPE, TBL_LEAF_ROW);
                return true;
            default:
                return FindStoreIdentity(tag);
        }
    }

    bool FindStoreIdentity(ULONG tag) const
    {
        const std::int64_t folderId = row_.Int64(kFolderColumn);
        if (identityOf_ != folderId) {
            storeIdentity_.Clear();
            PutStoreIdentity(contents_.store, storeIdentity_);
            FolderRow folder;
            if (SUCCEEDED(FindFolder(connection_, folderId, folder)))
                storeIdentity_.Put(
                    BinaryProperty(PR_PARENT_ENTRYID, LongTermId(contents_.store, MAPI_FOLDER, folder.guid)));
            identityOf_ = folderId;
        }
        const PropertyValue* const found = storeIdentity_.FindId(PROP_ID(tag));
        if (found)
            value_ = *found;
        return found != nullptr;
    }

    const PropertyValue* FindStored(ULONG tag) const
    {
        if (!haveProperties_) {
            haveProperties_ = true;
            NoteStored(ReadStored(false));
        }
        if (IsPacked(tag))
            Unpack();
        if (const PropertyValue* const found = properties_.Find(tag))
            return found;
        return FindLarge(tag);
    }

    // Those that aren't with the others have rows of their own.
    const PropertyValue* FindLarge(ULONG tag) const
    {
        if (!haveLargeValues_) {
            haveLargeValues_ = true;
            largeValues_.Clear();
            const HRESULT result = partId_ == 0 ? S_OK : ReadLargeValues(connection_, partId_, largeValues_);
            if (FAILED(result))
                failure_ = result;
        }
        return largeValues_.Find(tag);
    }

    // Of a message whose properties are damaged the row has its columns, and the other rows have theirs.
    void NoteStored(HRESULT result) const
    {
        if (result == MAPI_E_CORRUPT_DATA)
            properties_.Clear();
        else if (FAILED(result))
            failure_ = result;
    }

    bool IsPacked(ULONG tag) const
    {
        return std::any_of(packed_.begin(), packed_.end(),
                           [&](ULONG packed) { return PROP_ID(packed) == PROP_ID(tag); });
    }

    // Long values, which few tables show.
    void Unpack() const
    {
        packed_.clear();
        NoteStored(ReadStored(true));
    }

    HRESULT ReadStored(bool alsoPacked) const
    {
        properties_.Clear();
        packed_.clear();
        partId_ = 0;
        SqliteRows rows = connection_.Query(
            "SELECT properties, id FROM part WHERE message_id=? AND parent_id=0", row_.Int64(0));
        if (!rows.Next())
            return rows.Result();
        partId_ = rows.Int64(1);
        const ByteView run = rows.Bytes(0);
        return alsoPacked ? DecodePacked(run.data(), run.size(), properties_)
                          : DecodeBesidePacked(run.data(), run.size(), properties_, packed_);
    }

    Bytes EntryIdOfRow() const
    {
        if (contents_.shortTermIds)
            return ShortTermId(contents_.store, MAPI_MESSAGE, row_.Int64(0));
        ObjectGuid guid{};
        const ByteView bytes = row_.Bytes(1);
        std::copy_n(bytes.begin(), std::min(bytes.size(), guid.size()), guid.begin());
        return LongTermId(contents_.store, MAPI_MESSAGE, guid);
    }

    void SetBinary(ULONG tag, Bytes bytes) const
    {
        value_.tag = tag;
        value_.data = std::move(bytes);
    }
    void SetNumber(std::int64_t number, std::size_t size) const
    {
        value_.data.resize(size);
        for (std::size_t i = 0; i < size; ++i)
            value_.data[i] = static_cast<BYTE>(static_cast<std::uint64_t>(number) >> (8 * i));
    }
    void SetText(std::string_view text) const
    {
        const OleString units = FromUtf8(text);
        value_.data.resize(units.size() * sizeof(OLECHAR));
        if (!units.empty())
            std::memcpy(value_.data.data(), units.data(), value_.data.size());
    }

    SqliteConnection& connection_;
    const Contents& contents_;
    SqliteRows row_;
    Scope scope_;
    HRESULT scoped_ = S_OK;
    // What Find hands out points into these.
    mutable PropertyValue value_;
    mutable PropertyBag storeIdentity_;
    mutable std::int64_t identityOf_ = 0;
    mutable PropertyBag properties_;  // of the part, read when a property that isn't a column is asked for
    mutable bool haveProperties_ = false;
    mutable std::vector<ULONG> packed_;  // tags of those that were left packed
    mutable std::int64_t partId_ = 0;
    mutable PropertyBag largeValues_;  // likewise, of those that aren't in the part's row
    mutable bool haveLargeValues_ = false;
    mutable PartImage rootPart_;  // likewise, when recipients or attachments are asked for
    mutable bool haveRootPart_ = false;
    mutable std::vector<PropertyBag> subRows_;
    mutable HRESULT failure_ = S_OK;
};

class ContentsSource final : public TableSource {
public:
    explicit ContentsSource(const Contents& contents) noexcept : contents_(contents) {}

    HRESULT ListRows(SqliteConnection& connection, const TableQuery& query,
                     std::vector<std::int64_t>& ids) const override
    {
        Scope scope;
        QV_RETURN_IF_FAILED(ReadScope(connection, contents_, scope));
        SqlCondition condition;
        const bool asSql = Translate(scope, query.restriction.get(), condition);
        ContentsReader keyReader(connection, contents_);
        SortKeyReader keys(keyReader);
        std::size_t keysBound = 0;
        const std::string order = OrderBy(query.sort, keysBound);
        SqliteRows rows = Select(connection, scope, condition, order);
        for (std::size_t i = 0; i < keysBound; ++i)
            keys.BindTo(rows);
        const HRESULT listed =
            asSql ? TakeIds(rows, ids) : TakeMatching(rows, connection, query.restriction.get(), ids);
        return FAILED(keys.Failure()) ? keys.Failure() : listed;
    }

    HRESULT ListMatches(SqliteConnection& connection, const Restriction& restriction, std::size_t limit,
                        std::vector<std::int64_t>& ids) const override
    {
        Scope scope;
        QV_RETURN_IF_FAILED(ReadScope(connection, contents_, scope));
        SqlCondition condition;
        if (!Translate(scope, &restriction, condition))
            return S_FALSE;
        SqliteRows rows = Select(connection, scope, condition, " LIMIT ?");
        rows.Bind(static_cast<std::int64_t>(std::min<std::size_t>(limit, INT32_MAX)));
        return TakeIds(rows, ids);
    }

    std::unique_ptr<RowReader> MakeReader(SqliteConnection& connection) const override
    {
        return std::make_unique<ContentsReader>(connection, contents_);
    }

    void AppendAffected(const Change& change, std::vector<std::int64_t>& ids) const override
    {
        const bool isHere = contents_.isSearch || change.parentId == contents_.folderId ||
                            change.oldParentId == contents_.folderId;
        if (change.kind == MAPI_MESSAGE && change.isAssociated == contents_.associated && isHere)
            ids.push_back(change.objectId);
    }

    // Whatever a folder's move takes with it, and another search, may change every row.
    bool ChangesAll(const Change& change) const override
    {
        return contents_.isSearch && change.kind == MAPI_FOLDER &&
               (change.event == fnevObjectMoved || change.objectId == contents_.folderId);
    }

    bool HasCategories() const noexcept override { return true; }
    const std::vector<ULONG>& DefaultColumns() const noexcept override { return kDefaultColumns; }

private:
    // False: what the rows meet is to be judged row by row, with `condition` empty.
    bool Translate(const Scope& scope, const Restriction* wanted, SqlCondition& condition) const
    {
        SqlCondition part;
        for (const Restriction* const restriction : {wanted, scope.criteria.get()}) {
            if (!restriction)
                continue;
            if (!TranslateRestriction(*restriction, contents_.shortTermIds ? nullptr : &contents_.store,
                                      part)) {
                condition = {};
                return false;
            }
            condition.text += " AND " + part.text;
            std::move(part.values.begin(), part.values.end(), std::back_inserter(condition.values));
        }
        return true;
    }

    SqliteRows Select(SqliteConnection& connection, const Scope& scope, const SqlCondition& condition,
                      const std::string& order) const
    {
        std::string sql = "SELECT id FROM message WHERE " + LiesIn(scope) + " AND associated=?";
        SqliteRows rows = connection.QueryOnce(sql + condition.text + order);
        rows.Bind(static_cast<std::int64_t>(contents_.associated));
        condition.BindTo(rows);
        return rows;
    }

    static std::string LiesIn(const Scope& scope)
    {
        std::string listed;
        for (const std::int64_t folder : scope.folders)
            listed += (listed.empty() ? "" : ",") + std::to_string(folder);
        return scope.folders.size() == 1 ? "folder_id=" + listed : "folder_id IN (" + listed + ")";
    }

    // keys  [out]  how many parameters want a SortKeyReader.
    static std::string OrderBy(const std::vector<SortColumn>& sort, std::size_t& keys)
    {
        std::string order = " ORDER BY ";
        for (const SortColumn& column : sort) {
            std::string term;
            if (!TranslateSortColumn(column, term)) {
                term = "qv_key(?, id, " + std::to_string(column.tag) + ")";
                ++keys;
            }
            if (!term.empty())
                order += term + (column.descending ? " DESC, " : ", ");
        }
        return order + "id";
    }

    static HRESULT TakeIds(SqliteRows& rows, std::vector<std::int64_t>& ids)
    {
        while (rows.Next())
            ids.push_back(rows.Int64(0));
        return rows.Result();
    }

    HRESULT TakeMatching(SqliteRows& rows, SqliteConnection& connection, const Restriction* restriction,
                         std::vector<std::int64_t>& ids) const
    {
        ContentsReader reader(connection, contents_);
        while (rows.Next()) {
            const std::int64_t id = rows.Int64(0);
            const HRESULT moved = reader.MoveTo(id);
            QV_RETURN_IF_FAILED(moved);
            if (moved == S_OK && (!restriction || restriction->Matches(reader)))
                ids.push_back(id);
            QV_RETURN_IF_FAILED(reader.TakeFailure());
        }
        return rows.Result();
    }

    const Contents contents_;
};

}  // namespace

std::unique_ptr<TableSource> MakeContentsSource(const ObjectGuid& store, const FolderRow& folder,
                                                bool associated, bool shortTermIds)
{
    return std::make_unique<ContentsSource>(
        Contents{store, folder.id, folder.isSearch, associated, shortTermIds});
}

Bytes InstanceKey(std::int64_t id)
{
    Bytes key;
    AppendLittle(key, static_cast<std::uint64_t>(id));
    return key;
}

std::int64_t RowOfInstanceKey(ByteView key) noexcept
{
    return static_cast<std::int64_t>(LoadLittle<std::uint64_t>(key.data()));
}

}  // namespace quorvane
