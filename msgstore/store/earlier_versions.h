// msgstore/store/earlier_versions.h: for tests: stores of the schema's earlier versions, made of SQL as they
// were.
#ifndef QUORVANE_MSGSTORE_STORE_EARLIER_VERSIONS_H_
#define QUORVANE_MSGSTORE_STORE_EARLIER_VERSIONS_H_

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <algorithm>
#include <filesystem>
#include <initializer_list>
#include <string>

namespace quorvane::testing {

inline constexpr char kTablesOfVersion1[] = R"sql(
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
    search_key      BLOB
);
CREATE INDEX message_of_folder ON message (folder_id, associated, id, flags);
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

// A store of version 1 with two messages in its Inbox. Numbers of 8 bytes stand for times, runs of bytes for
// GUIDs.
inline constexpr char kRowsOfVersion1[] = R"sql(
INSERT INTO store (one, guid) VALUES (1, x'01A1FD44F3DF76C3810F11B83E97731D');
INSERT INTO folder (id, guid, parent_id, name, role, created, modified) VALUES
    (1, x'01A1FD44F3DF76C3810F11B83E977301', NULL, '', 1, 100, 100),
    (2, x'01A1FD44F3DF76C3810F11B83E977302', 1, 'Top of Personal Folders', 2, 100, 100),
    (3, x'01A1FD44F3DF76C3810F11B83E977303', 2, 'Inbox', 3, 100, 100),
    (4, x'01A1FD44F3DF76C3810F11B83E977304', 2, 'Outbox', 4, 100, 100),
    (5, x'01A1FD44F3DF76C3810F11B83E977305', 2, 'Sent Items', 5, 100, 100),
    (6, x'01A1FD44F3DF76C3810F11B83E977306', 2, 'Deleted Items', 6, 100, 100);
INSERT INTO message (id, guid, folder_id, associated, version, created, modified, flags, size, subject) VALUES
    (1, x'01A1FD44F3DF76C3810F11B83E977311', 3, 0, 1, 200, 200, 9, 10, 'zebra'),
    (2, x'01A1FD44F3DF76C3810F11B83E977312', 3, 0, 1, 300, 300, 9, 10, 'Apple'),
    (3, x'01A1FD44F3DF76C3810F11B83E977313', 3, 0, 1, 300, 300, 9, 10, NULL);
INSERT INTO part (message_id, parent_id, number, properties, recipients) VALUES
    (1, 0, 0, x'1F0037000A0000007A006500620072006100', x''),
    (2, 0, 0, x'1F0037000A0000004100700070006C006500', x''), (3, 0, 0, x'', x'');
PRAGMA application_id=1364610387;
PRAGMA user_version=1;
)sql";

// What version 2 added. It folded Latin, Greek, Cyrillic and Armenian letters alone.
inline constexpr char kStepToVersion2[] = R"sql(
ALTER TABLE message ADD COLUMN subject_key TEXT;
UPDATE message SET subject_key = lower(subject);
INSERT INTO message (id, guid, folder_id, associated, version, created, modified, flags, size, subject,
                     subject_key) VALUES
    (4, x'01A1FD44F3DF76C3810F11B83E977314', 3, 0, 1, 400, 400, 9, 10, 'ＺＥ', 'ＺＥ');
INSERT INTO part (message_id, parent_id, number, properties, recipients) VALUES (4, 0, 0, x'', x'');
CREATE INDEX message_by_delivery ON message (folder_id, associated, delivered);
CREATE INDEX message_by_subject ON message (folder_id, associated, subject_key);
PRAGMA user_version=2;
)sql";

// What version 3 folded anew: every subject in it stands as this program folds it.
inline constexpr char kStepToVersion3[] =
    "UPDATE message SET subject_key = 'ｚｅ' WHERE id=4; PRAGMA user_version=3;";

// What version 4 added: folders that search. Texts stand in UTF-16 in it, and nothing is packed.
inline constexpr char kStepToVersion4[] = "ALTER TABLE folder ADD COLUMN search BLOB; PRAGMA user_version=4;";

// Takes the place of what is there; nobody may have it open.
inline void MakeStoreOf(const std::string& path, std::initializer_list<const char*> scripts)
{
    for (const char* const suffix : {"", "-wal", "-shm"})
        std::filesystem::remove(path + suffix);
    sqlite3* database = nullptr;
    ASSERT_EQ(sqlite3_open(path.c_str(), &database), SQLITE_OK);
    const auto run = [database](const char* sql) {
        EXPECT_EQ(sqlite3_exec(database, sql, nullptr, nullptr, nullptr), SQLITE_OK)
            << sqlite3_errmsg(database);
    };
    run("PRAGMA journal_mode=WAL");
    run("BEGIN");
    std::for_each(scripts.begin(), scripts.end(), run);
    run("COMMIT");
    sqlite3_close(database);
}

inline void MakeStoreOfVersion1(const std::string& path, const char* moreRows = "")
{
    MakeStoreOf(path, {kTablesOfVersion1, kRowsOfVersion1, moreRows});
}

inline void MakeStoreOfVersion2(const std::string& path)
{
    MakeStoreOf(path, {kTablesOfVersion1, kRowsOfVersion1, kStepToVersion2});
}

inline void MakeStoreOfVersion3(const std::string& path)
{
    MakeStoreOf(path, {kTablesOfVersion1, kRowsOfVersion1, kStepToVersion2, kStepToVersion3});
}

inline void MakeStoreOfVersion4(const std::string& path, const char* moreRows = "")
{
    MakeStoreOf(path, {kTablesOfVersion1, kRowsOfVersion1, kStepToVersion2, kStepToVersion3, kStepToVersion4,
                       moreRows});
}

}  // namespace quorvane::testing

#endif  // QUORVANE_MSGSTORE_STORE_EARLIER_VERSIONS_H_
