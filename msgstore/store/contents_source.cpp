#include <algorithm>
#include <array>
#include <cstring>

#include "msgstore/props/property_codec.h"
#include "msgstore/store/identity.h"
#include "msgstore/store/table_source.h"
#include "platform/clock/clock.h"
#include "platform/com/bstr.h"

namespace quorvane {
namespace {

enum class ColumnKind { Text, Long, Time, Binary };

struct Column {
    ULONG tag;
    ColumnKind kind;
};

// In the order of the statement's columns, which begins with the row's number and its GUID.
constexpr int kFirstColumn = 2;
constexpr std::array kColumns = {
    Column{PR_CREATION_TIME, ColumnKind::Time},
    Column{PR_LAST_MODIFICATION_TIME, ColumnKind::Time},
    Column{PR_MESSAGE_FLAGS, ColumnKind::Long},
    Column{PR_MESSAGE_SIZE, ColumnKind::Long},
    Column{kPrMessageStatus, ColumnKind::Long},
    Column{PR_MESSAGE_CLASS_W, ColumnKind::Text},
    Column{PR_SUBJECT_W, ColumnKind::Text},
    Column{PR_SUBJECT_PREFIX_W, ColumnKind::Text},
    Column{PR_NORMALIZED_SUBJECT_W, ColumnKind::Text},
    Column{PR_SENDER_NAME_W, ColumnKind::Text},
    Column{PR_SENT_REPRESENTING_NAME_W, ColumnKind::Text},
    Column{PR_DISPLAY_TO_W, ColumnKind::Text},
    Column{PR_DISPLAY_CC_W, ColumnKind::Text},
    Column{PR_DISPLAY_BCC_W, ColumnKind::Text},
    Column{PR_CLIENT_SUBMIT_TIME, ColumnKind::Time},
    Column{PR_MESSAGE_DELIVERY_TIME, ColumnKind::Time},
    Column{PR_IMPORTANCE, ColumnKind::Long},
    Column{PR_SEARCH_KEY, ColumnKind::Binary},
};
constexpr int kFlagsColumn = kFirstColumn + 2;

constexpr std::string_view kSelectRow =
    "SELECT id, guid, created, modified, flags, size, status, message_class, subject, subject_prefix, "
    "normal_subject,"
    " sender_name, sent_for_name, display_to, display_cc, display_bcc, submitted, delivered, importance, "
    "search_key"
    " FROM message WHERE id=? AND folder_id=? AND associated=?";

const std::vector<ULONG> kContentsColumns = {
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

bool TypeFits(ULONG wanted, ULONG type) noexcept
{
    return wanted == type || wanted == PT_UNSPECIFIED || (wanted == PT_STRING8 && type == PT_UNICODE);
}

// A folder that a contents table shows.
struct Contents {
    ObjectGuid store{};
    std::int64_t folderId = 0;
    bool associated = false;
    bool shortTermIds = false;
};

class ContentsReader final : public RowReader {
public:
    ContentsReader(SqliteConnection& connection, const Contents& contents)
        : connection_(connection), contents_(contents), row_(connection.Query(kSelectRow))
    {}

    HRESULT MoveTo(std::int64_t id) override
    {
        haveProperties_ = false;
        row_.Rewind();
        row_.Bind(id);
        row_.Bind(contents_.folderId);
        row_.Bind(static_cast<std::int64_t>(contents_.associated));
        if (row_.Next())
            return S_OK;
        return FAILED(row_.Result()) ? row_.Result() : S_FALSE;
    }

    HRESULT TakeFailure() noexcept override { return std::exchange(failure_, S_OK); }

    const PropertyValue* Find(ULONG tag) const override
    {
        const auto isWanted = [tag](const Column& column) { return PROP_ID(column.tag) == PROP_ID(tag); };
        const auto column = std::find_if(kColumns.begin(), kColumns.end(), isWanted);
        if (column != kColumns.end())
            return FindColumn(*column, kFirstColumn + static_cast<int>(column - kColumns.begin()), tag);
        if (FindComputed(tag))
            return TypeFits(PROP_TYPE(tag), value_.type()) ? &value_ : nullptr;
        return FindStored(tag);
    }

private:
    const PropertyValue* FindColumn(const Column& column, int index, ULONG tag) const
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
        if (storeIdentity_.empty()) {
            PutStoreIdentity(contents_.store, storeIdentity_);
            FolderRow folder;
            if (SUCCEEDED(FindFolder(connection_, contents_.folderId, folder)))
                storeIdentity_.Put(
                    BinaryProperty(PR_PARENT_ENTRYID, LongTermId(contents_.store, MAPI_FOLDER, folder.guid)));
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
            const HRESULT result = ReadStored();
            // Of a message whose properties are damaged the row has its columns, and the other rows have
            // theirs.
            if (result == MAPI_E_CORRUPT_DATA)
                properties_.Clear();
            else if (FAILED(result))
                failure_ = result;
        }
        return properties_.Find(tag);
    }

    HRESULT ReadStored() const
    {
        properties_.Clear();
        SqliteRows rows = connection_.Query("SELECT properties FROM part WHERE message_id=? AND parent_id=0",
                                            row_.Int64(0));
        if (!rows.Next())
            return rows.Result();
        return DecodeProperties(rows.Bytes(0).data(), rows.Bytes(0).size(), properties_);
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
    // What Find hands out points into these.
    mutable PropertyValue value_;
    mutable PropertyBag storeIdentity_;
    mutable PropertyBag properties_;  // of the part, read when a property that isn't a column is asked for
    mutable bool haveProperties_ = false;
    mutable HRESULT failure_ = S_OK;
};

class ContentsSource final : public TableSource {
public:
    explicit ContentsSource(const Contents& contents) noexcept : contents_(contents) {}

    HRESULT ListRows(SqliteConnection& connection, std::vector<std::int64_t>& ids) const override
    {
        SqliteRows rows =
            connection.Query("SELECT id FROM message WHERE folder_id=? AND associated=? ORDER BY id",
                             contents_.folderId, contents_.associated);
        while (rows.Next())
            ids.push_back(rows.Int64(0));
        return rows.Result();
    }

    std::unique_ptr<RowReader> MakeReader(SqliteConnection& connection) const override
    {
        return std::make_unique<ContentsReader>(connection, contents_);
    }

    void AppendAffected(const Change& change, std::vector<std::int64_t>& ids) const override
    {
        const bool isHere = change.parentId == contents_.folderId || change.oldParentId == contents_.folderId;
        if (change.kind == MAPI_MESSAGE && change.isAssociated == contents_.associated && isHere)
            ids.push_back(change.objectId);
    }

    const std::vector<ULONG>& DefaultColumns() const noexcept override { return kContentsColumns; }

private:
    const Contents contents_;
};

}  // namespace

std::unique_ptr<TableSource> MakeContentsSource(const StoreCore& core, std::int64_t folderId, bool associated,
                                                bool shortTermIds)
{
    return std::make_unique<ContentsSource>(Contents{core.Guid(), folderId, associated, shortTermIds});
}

Bytes InstanceKey(std::int64_t id)
{
    Bytes key(sizeof(id));
    for (std::size_t i = 0; i < key.size(); ++i)
        key[i] = static_cast<BYTE>(static_cast<std::uint64_t>(id) >> (8 * i));
    return key;
}

}  // namespace quorvane
