#include "msgstore/store/schema.h"

#include <iterator>

#include "platform/clock/clock.h"

namespace quorvane {
namespace {

constexpr std::int64_t kApplicationId = 0x51564D53;  // "QVMS"
// Of a later version are those that this program doesn't know; those before it are brought up to it.
constexpr std::int64_t kSchemaVersion = 5;

constexpr char kTables[] = R"sql(
CREATE TABLE store (
    one             INTEGER PRIMARY KEY CHECK (one = 1),
    guid            BLOB NOT NULL,
    short_term_ids  INTEGER NOT NULL DEFAULT 0,
    flushes         INTEGER NOT NULL DEFAULT 0,
    properties      BLOB NOT NULL DEFAULT x''
);
CREATE TABLE folder (
    id              INTEGER PRIMARY KEY AUTOINCREMENT,
    guid            BLOB NOT NULL UNIQUE,
    parent_id       INTEGER REFERENCES folder (id),
    name            TEXT NOT NULL COLLATE NOCASE,
    role            INTEGER NOT NULL DEFAULT 0,
    created         INTEGER NOT NULL,
    modified        INTEGER NOT NULL,
    properties      BLOB NOT NULL DEFAULT x'',
    search          BLOB,
    UNIQUE (parent_id, name)
);
CREATE TABLE message (
    id              INTEGER PRIMARY KEY AUTOINCREMENT,
    guid            BLOB NOT NULL UNIQUE,
    folder_id       INTEGER NOT NULL REFERENCES folder (id),
    associated      INTEGER NOT NULL,
    version         INTEGER NOT NULL,
    created         INTEGER NOT NULL,
    modified        INTEGER NOT NULL,
    flags           INTEGER NOT NULL,
    status          INTEGER NOT NULL DEFAULT 0,
    size            INTEGER NOT NULL,
    message_class   TEXT,
    subject         TEXT,
    subject_prefix  TEXT,
    normal_subject  TEXT,
    sender_name     TEXT,
    sent_for_name   TEXT,
    display_to      TEXT,
    display_cc      TEXT,
    display_bcc     TEXT,
    submitted       INTEGER,
    delivered       INTEGER,
    importance      INTEGER,
    search_key      BLOB,
    subject_key     TEXT
);
CREATE INDEX message_of_folder ON message (folder_id, associated, id, flags);
CREATE INDEX message_by_delivery ON message (folder_id, associated, delivered);
CREATE INDEX message_by_subject ON message (folder_id, associated, subject_key);
CREATE TABLE part (
    id              INTEGER PRIMARY KEY AUTOINCREMENT,
    message_id      INTEGER NOT NULL REFERENCES message (id),
    parent_id       INTEGER NOT NULL,
    number          INTEGER NOT NULL,
    properties      BLOB NOT NULL,
    recipients      BLOB,
    UNIQUE (message_id, parent_id, number)
);
CREATE TABLE large_value (
    id              INTEGER PRIMARY KEY AUTOINCREMENT,
    part_id         INTEGER NOT NULL REFERENCES part (id),
    tag             INTEGER NOT NULL,
    size            INTEGER NOT NULL
);
CREATE INDEX large_value_of_part ON large_value (part_id);
CREATE TABLE chunk (
    value_id        INTEGER NOT NULL REFERENCES large_value (id),
    number          INTEGER NOT NULL,
    data            BLOB NOT NULL,
    UNIQUE (value_id, number)
);
CREATE TABLE property_name (
    id              INTEGER PRIMARY KEY,
    property_set    BLOB NOT NULL,
    number          INTEGER,
    text            BLOB,
    UNIQUE (property_set, number),
    UNIQUE (property_set, text)
);
CREATE TABLE change (
    number          INTEGER PRIMARY KEY AUTOINCREMENT,
    event           INTEGER NOT NULL,
    kind            INTEGER NOT NULL,
    object_id       INTEGER NOT NULL,
    object_guid     BLOB NOT NULL,
    parent_id       INTEGER NOT NULL,
    old_parent_id   INTEGER NOT NULL,
    associated      INTEGER NOT NULL
);
)sql";

HRESULT ReadNumber(SqliteConnection& connection, std::string_view sql, std::int64_t& number)
{
    SqliteRows rows = connection.Query(sql);
    if (rows.Next())
        number = rows.Int64(0);
    return rows.Result();
}

HRESULT AddFolder(SqliteConnection& connection, FolderRole role, FolderRole parent, std::string_view name)
{
    const auto now = static_cast<std::int64_t>(ToTicks(FileTimeNow()));
    // The first folders' rows carry the numbers of their roles.
    constexpr std::string_view sql =
        "INSERT INTO folder (id, guid, parent_id, name, role, created, modified)"
        " VALUES (?1, ?2, nullif(?3, 0), ?4, ?1, ?5, ?5)";
    return connection.Run(sql, static_cast<std::int64_t>(role), MakeObjectGuid(),
                          static_cast<std::int64_t>(parent), name, now);
}

HRESULT AddFirstRows(SqliteConnection& connection)
{
    QV_RETURN_IF_FAILED(connection.Run("INSERT INTO store (one, guid) VALUES (1, ?)", MakeObjectGuid()));
    QV_RETURN_IF_FAILED(AddFolder(connection, FolderRole::Root, FolderRole::None, ""));
    QV_RETURN_IF_FAILED(
        AddFolder(connection, FolderRole::IpmSubtree, FolderRole::Root, "Top of Personal Folders"));
    QV_RETURN_IF_FAILED(AddFolder(connection, FolderRole::Inbox, FolderRole::IpmSubtree, "Inbox"));
    QV_RETURN_IF_FAILED(AddFolder(connection, FolderRole::Outbox, FolderRole::IpmSubtree, "Outbox"));
    QV_RETURN_IF_FAILED(AddFolder(connection, FolderRole::SentItems, FolderRole::IpmSubtree, "Sent Items"));
    return AddFolder(connection, FolderRole::DeletedItems, FolderRole::IpmSubtree, "Deleted Items");
}

HRESULT CountTables(SqliteConnection& connection, std::int64_t& count)
{
    return ReadNumber(connection, "SELECT count(*) FROM sqlite_schema", count);
}

// From version 1: what tables sort and search by stands in columns with indexes.
constexpr char kVersion2[] = R"sql(
ALTER TABLE message ADD COLUMN subject_key TEXT;
UPDATE message SET subject_key = qv_fold(subject);
CREATE INDEX message_by_delivery ON message (folder_id, associated, delivered);
CREATE INDEX message_by_subject ON message (folder_id, associated, subject_key);
)sql";

// From version 2: folded were Latin, Greek, Cyrillic and Armenian letters alone.
constexpr char kVersion3[] = "UPDATE message SET subject_key = qv_fold(subject)";

// From version 3: folders that search.
constexpr char kVersion4[] = "ALTER TABLE folder ADD COLUMN search BLOB";

// From version 4: parts' runs and recipients are packed. What was written before stays as it is until its
// message is saved, and reads as well: a store of many gigabytes is brought up at once.
constexpr char kVersion5[] = "";

// The step from each version, from 1 on, to the next.
constexpr const char* kSteps[] = {kVersion2, kVersion3, kVersion4, kVersion5};
static_assert(std::size(kSteps) + 1 == kSchemaVersion);

HRESULT SetVersion(SqliteConnection& connection, std::int64_t version)
{
    return connection.RunScript(("PRAGMA user_version=" + std::to_string(version)).c_str());
}

HRESULT ReadVersion(SqliteConnection& connection, std::int64_t& version)
{
    std::int64_t application = 0;
    QV_RETURN_IF_FAILED(ReadNumber(connection, "PRAGMA application_id", application));
    QV_RETURN_IF_FAILED(ReadNumber(connection, "PRAGMA user_version", version));
    if (application != kApplicationId)
        return MAPI_E_CORRUPT_STORE;
    return version >= 1 && version <= kSchemaVersion ? S_OK : MAPI_E_VERSION;
}

// All steps are one transaction: a file is of the one version or of the other.
HRESULT UpgradeInTransaction(SqliteConnection& connection)
{
    SqliteTransaction transaction(connection, SqliteTransaction::Kind::Write);
    QV_RETURN_IF_FAILED(transaction.Result());
    std::int64_t version = 0;
    QV_RETURN_IF_FAILED(ReadVersion(connection, version));
    for (; version < kSchemaVersion; ++version)
        QV_RETURN_IF_FAILED(connection.RunScript(kSteps[version - 1]));
    QV_RETURN_IF_FAILED(SetVersion(connection, version));
    return transaction.Commit();
}

HRESULT CreateInTransaction(SqliteConnection& connection, bool& created)
{
    created = false;
    SqliteTransaction transaction(connection, SqliteTransaction::Kind::Write);
    QV_RETURN_IF_FAILED(transaction.Result());
    std::int64_t tables = 0;
    QV_RETURN_IF_FAILED(CountTables(connection, tables));
    if (tables != 0)
        return S_OK;
    QV_RETURN_IF_FAILED(connection.RunScript(kTables));
    QV_RETURN_IF_FAILED(AddFirstRows(connection));
    const std::string mark = "PRAGMA application_id=" + std::to_string(kApplicationId);
    QV_RETURN_IF_FAILED(connection.RunScript(mark.c_str()));
    QV_RETURN_IF_FAILED(SetVersion(connection, kSchemaVersion));
    created = true;
    return transaction.Commit();
}

}  // namespace

HRESULT ConfigureWriter(SqliteConnection& connection) noexcept
{
    return Guarded([&]() -> HRESULT {
        // Only of a file without tables this changes anything, and it asks for a disk that can be written.
        std::int64_t tables = 0;
        QV_RETURN_IF_FAILED(CountTables(connection, tables));
        if (tables == 0)
            QV_RETURN_IF_FAILED(connection.RunScript("PRAGMA auto_vacuum=INCREMENTAL"));
        // The log goes into the file at 16 MB: each time costs waits for the disk, however much it is.
        return connection.RunScript(
            "PRAGMA journal_mode=WAL; PRAGMA synchronous=FULL; PRAGMA wal_autocheckpoint=4000;"
            " PRAGMA foreign_keys=ON");
    });
}

HRESULT CreateSchema(SqliteConnection& connection) noexcept
{
    return Guarded([&]() -> HRESULT {
        bool created = false;
        QV_RETURN_IF_FAILED(CreateInTransaction(connection, created));
        return created ? S_OK : UpgradeSchema(connection);
    });
}

HRESULT CheckSchema(SqliteConnection& connection) noexcept
{
    return Guarded([&] {
        std::int64_t version = 0;
        return ReadVersion(connection, version);
    });
}

HRESULT UpgradeSchema(SqliteConnection& connection) noexcept
{
    return Guarded([&]() -> HRESULT {
        std::int64_t version = 0;
        QV_RETURN_IF_FAILED(ReadVersion(connection, version));
        return version == kSchemaVersion ? S_OK : UpgradeInTransaction(connection);
    });
}

}  // namespace quorvane
