-- The sharing database as SQLite keeps it. A host makes the file with this script; the engine never does.
CREATE TABLE tblItem (
    ID           TEXT NOT NULL PRIMARY KEY,
    EntryID      TEXT NOT NULL,
    StoreID      TEXT NOT NULL,
    LastModified REAL,
    Version      REAL
);
CREATE INDEX idxItemEntryID ON tblItem (EntryID);

CREATE TABLE tblStorageFiles (
    Recipients TEXT NOT NULL,
    Path       TEXT NOT NULL PRIMARY KEY,
    Status     INTEGER NOT NULL DEFAULT 0
);

CREATE TABLE tblUnfinishedReceiveJob (
    Path TEXT NOT NULL PRIMARY KEY,
    Tag  TEXT
);

CREATE TABLE tblUnfinishedResendJob (
    JobID      TEXT NOT NULL PRIMARY KEY,
    FolderID   TEXT NOT NULL,
    Recipients TEXT NOT NULL
);
