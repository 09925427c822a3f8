// The tables of host.db, and how those of an earlier version are brought up to them.

#include <iterator>

#include "host/mailbox/records.h"

namespace quorvane::host {

namespace {

constexpr char kSchema[] = R"sql(
CREATE TABLE mailbox (name TEXT NOT NULL, instance TEXT NOT NULL);
CREATE TABLE share (
    folder_id TEXT PRIMARY KEY,
    entry_id TEXT NOT NULL UNIQUE,
    store_id TEXT NOT NULL,
    name TEXT NOT NULL);
CREATE TABLE member (
    folder_id TEXT NOT NULL REFERENCES share(folder_id),
    name TEXT NOT NULL,
    announced INTEGER NOT NULL,
    PRIMARY KEY (folder_id, name));
CREATE TABLE item (
    id TEXT PRIMARY KEY,
    folder_id TEXT NOT NULL,
    stamp INTEGER NOT NULL,
    member TEXT NOT NULL,
    deleted INTEGER NOT NULL,
    modified INTEGER NOT NULL);
CREATE INDEX item_folder ON item (folder_id);
CREATE TABLE outgoing (
    number INTEGER PRIMARY KEY AUTOINCREMENT,
    path TEXT NOT NULL UNIQUE,
    recipients TEXT NOT NULL,
    planned INTEGER NOT NULL DEFAULT 0);
CREATE TABLE delivery (
    package INTEGER NOT NULL REFERENCES outgoing(number),
    member TEXT NOT NULL,
    sequence INTEGER NOT NULL,
    PRIMARY KEY (package, member));
CREATE TABLE sequence (member TEXT PRIMARY KEY, last INTEGER NOT NULL);
CREATE TABLE received (sender TEXT PRIMARY KEY, last INTEGER NOT NULL);
)sql";

// From version 1 on: `told` is of how many members, this mailbox included, a member knows; `due` that it is
// to be told of the others.
constexpr char kUpgradeFrom1[] = R"sql(
ALTER TABLE member ADD COLUMN told INTEGER NOT NULL DEFAULT 0;
ALTER TABLE member ADD COLUMN due INTEGER NOT NULL DEFAULT 0;
UPDATE member AS own SET told = (SELECT count(*) + 1 FROM member WHERE folder_id = own.folder_id)
    WHERE announced = 1;
CREATE TABLE resend (
    number INTEGER PRIMARY KEY AUTOINCREMENT,
    folder_id TEXT NOT NULL REFERENCES share(folder_id),
    member TEXT NOT NULL,
    scope INTEGER NOT NULL,
    since INTEGER NOT NULL,
    cancelled INTEGER NOT NULL DEFAULT 0,
    done INTEGER NOT NULL DEFAULT 0,
    total INTEGER NOT NULL DEFAULT 0,
    per_second INTEGER NOT NULL DEFAULT 0,
    UNIQUE (folder_id, member));
CREATE TABLE given (
    resend INTEGER NOT NULL REFERENCES resend(number),
    item TEXT NOT NULL,
    PRIMARY KEY (resend, item)) WITHOUT ROWID;
CREATE TABLE unsent (
    item TEXT PRIMARY KEY,
    folder_id TEXT NOT NULL,
    subject TEXT NOT NULL,
    reason TEXT NOT NULL);
INSERT INTO resend (folder_id, member, scope, since) SELECT folder_id, name, 1, 0 FROM member WHERE announced = 0;
)sql";

// From version 2 on: members have devices (peers.h). What lay in the exchange in clear isn't read any more,
// so all members are sent their folders once more. A package that was taken is planned anew.
constexpr char kUpgradeFrom2[] = R"sql(
ALTER TABLE mailbox ADD COLUMN device TEXT NOT NULL DEFAULT '';
ALTER TABLE mailbox ADD COLUMN epoch TEXT NOT NULL DEFAULT '';
ALTER TABLE mailbox ADD COLUMN sequence INTEGER NOT NULL DEFAULT 0;
ALTER TABLE mailbox ADD COLUMN acks_serial INTEGER NOT NULL DEFAULT 0;
ALTER TABLE mailbox ADD COLUMN exchange TEXT NOT NULL DEFAULT '';
CREATE TABLE device (
    id TEXT PRIMARY KEY,
    member TEXT NOT NULL,
    card TEXT NOT NULL DEFAULT '',
    introducer TEXT NOT NULL DEFAULT '',
    how TEXT NOT NULL,
    pinned INTEGER NOT NULL,
    heard INTEGER NOT NULL DEFAULT 0,
    sent INTEGER NOT NULL DEFAULT 0,
    acked INTEGER NOT NULL DEFAULT 0,
    acks_serial INTEGER NOT NULL DEFAULT 0,
    remade INTEGER NOT NULL DEFAULT 0,
    epoch TEXT NOT NULL DEFAULT '',
    applied INTEGER NOT NULL DEFAULT 0,
    over TEXT NOT NULL DEFAULT '',
    gap_first INTEGER NOT NULL DEFAULT 0,
    gap_last INTEGER NOT NULL DEFAULT 0,
    gap_since INTEGER NOT NULL DEFAULT 0,
    asked INTEGER NOT NULL DEFAULT 0);
CREATE INDEX device_member ON device (member);
CREATE TABLE incoming (
    device TEXT NOT NULL,
    sequence INTEGER NOT NULL,
    state INTEGER NOT NULL,
    reason TEXT NOT NULL,
    since INTEGER NOT NULL,
    PRIMARY KEY (device, sequence));
CREATE TABLE stranger (
    device TEXT PRIMARY KEY,
    name TEXT NOT NULL,
    packages INTEGER NOT NULL,
    since INTEGER NOT NULL);
DROP TABLE delivery;
DROP TABLE sequence;
DROP TABLE received;
CREATE TABLE delivery (
    sequence INTEGER NOT NULL,
    device TEXT NOT NULL,
    previous INTEGER NOT NULL,
    PRIMARY KEY (sequence, device));
ALTER TABLE outgoing ADD COLUMN sequence INTEGER NOT NULL DEFAULT 0;
ALTER TABLE outgoing ADD COLUMN laid INTEGER NOT NULL DEFAULT 0;
UPDATE outgoing SET planned = 0;
DELETE FROM given WHERE resend IN (SELECT number FROM resend JOIN member USING (folder_id)
    WHERE resend.member = member.name AND announced = 1);
INSERT OR REPLACE INTO resend (folder_id, member, scope, since) SELECT folder_id, name, 3, 0 FROM member
    WHERE announced = 1;
UPDATE member SET told = 0, due = 1 WHERE announced = 1;
)sql";

// From version 3 on: what is known of an item are its heads (exchange/item_heads.h), as bytes in hexadecimal.
constexpr char kUpgradeFrom3[] = R"sql(
ALTER TABLE item ADD COLUMN heads TEXT NOT NULL DEFAULT '';
ALTER TABLE item ADD COLUMN whole INTEGER NOT NULL DEFAULT 1;
ALTER TABLE item ADD COLUMN pending INTEGER NOT NULL DEFAULT 0;
ALTER TABLE item ADD COLUMN beaten INTEGER NOT NULL DEFAULT 0;
CREATE INDEX item_beaten ON item (beaten) WHERE beaten > 0;
ALTER TABLE mailbox ADD COLUMN trash_days INTEGER NOT NULL DEFAULT 30;
CREATE TABLE trash (
    number INTEGER PRIMARY KEY AUTOINCREMENT,
    item TEXT NOT NULL,
    folder_id TEXT NOT NULL,
    folder TEXT NOT NULL,
    revision TEXT NOT NULL,
    subject TEXT NOT NULL,
    member TEXT NOT NULL,
    why INTEGER NOT NULL,
    since INTEGER NOT NULL,
    copy TEXT NOT NULL,
    UNIQUE (item, revision));
)sql";

// From version 4 on: folders are compared with those of other devices (comparison_records.h).
constexpr char kUpgradeFrom4[] = R"sql(
CREATE TABLE comparison (
    folder_id TEXT NOT NULL,
    device TEXT NOT NULL,
    since INTEGER NOT NULL,
    wanted INTEGER NOT NULL DEFAULT 0,
    opened INTEGER NOT NULL DEFAULT 0,
    equal INTEGER NOT NULL DEFAULT 0,
    differed INTEGER NOT NULL DEFAULT 0,
    tries INTEGER NOT NULL DEFAULT 0,
    items TEXT NOT NULL DEFAULT '[]',
    PRIMARY KEY (folder_id, device));
CREATE INDEX item_pending ON item (folder_id) WHERE pending = 1;
)sql";

// From version 5 on: who shares a folder stands in changes that members signed (shared_folders.h). Of folders
// that were shared before, nobody can tell who founded them: they are shared no more until one member shares
// his again. `folder` has one row for each founding, `folder_device` those whom its members told of.
constexpr char kUpgradeFrom5[] = R"sql(
CREATE TABLE folder (
    founding TEXT PRIMARY KEY,
    folder_id TEXT NOT NULL,
    state INTEGER NOT NULL,
    name TEXT NOT NULL,
    inviter TEXT NOT NULL,
    since INTEGER NOT NULL,
    target TEXT NOT NULL DEFAULT '',
    asked TEXT NOT NULL DEFAULT '',
    asked_in INTEGER NOT NULL DEFAULT 0,
    fresh INTEGER NOT NULL DEFAULT 0,
    owes_all INTEGER NOT NULL DEFAULT 0);
CREATE INDEX folder_id ON folder (folder_id);
CREATE UNIQUE INDEX folder_here ON folder (folder_id) WHERE state = 1;
CREATE TABLE membership (
    founding TEXT NOT NULL REFERENCES folder(founding),
    number INTEGER NOT NULL,
    entry TEXT NOT NULL,
    PRIMARY KEY (founding, number)) WITHOUT ROWID;
CREATE TABLE folder_device (
    founding TEXT NOT NULL REFERENCES folder(founding),
    device TEXT NOT NULL,
    is_in INTEGER NOT NULL DEFAULT 1,
    has INTEGER NOT NULL DEFAULT 0,
    told INTEGER NOT NULL DEFAULT 0,
    due INTEGER NOT NULL DEFAULT 0,
    PRIMARY KEY (founding, device)) WITHOUT ROWID;
CREATE TABLE wish (folder_id TEXT NOT NULL, name TEXT NOT NULL, PRIMARY KEY (folder_id, name)) WITHOUT ROWID;
CREATE TABLE dropped (device TEXT PRIMARY KEY);
CREATE TABLE former (folder_id TEXT PRIMARY KEY, entry_id TEXT NOT NULL, name TEXT NOT NULL);
CREATE TABLE refusal (
    device TEXT NOT NULL,
    reason TEXT NOT NULL,
    count INTEGER NOT NULL,
    since INTEGER NOT NULL,
    PRIMARY KEY (device, reason)) WITHOUT ROWID;
ALTER TABLE outgoing ADD COLUMN kind INTEGER NOT NULL DEFAULT 1;
INSERT INTO former (folder_id, entry_id, name) SELECT folder_id, entry_id, name FROM share;
DELETE FROM given;
DELETE FROM resend;
DELETE FROM member;
DELETE FROM comparison;
DELETE FROM share;
DELETE FROM unsent;
DELETE FROM delivery;
UPDATE device SET sent = acked;
ALTER TABLE member DROP COLUMN told;
ALTER TABLE member DROP COLUMN due;
)sql";

// From version 6 on: a device's card changes when another one of its member is linked.
constexpr char kUpgradeFrom6[] = R"sql(
ALTER TABLE mailbox ADD COLUMN card_serial INTEGER NOT NULL DEFAULT 1;
)sql";

// From version 7 on: a device that wasn't heard of for long holds nothing up.
constexpr char kUpgradeFrom7[] = R"sql(
ALTER TABLE device ADD COLUMN silent INTEGER NOT NULL DEFAULT 0;
)sql";

// From version 8 on: members may share what they make of items (flag_records.h). `share.flags`: they do;
// `folder_device.flags`: 0 the device isn't known to, 1 it does and is to be told of all flags, 2 it is told
// of changes. `due`: the message doesn't show them yet.
constexpr char kUpgradeFrom8[] = R"sql(
ALTER TABLE share ADD COLUMN flags INTEGER NOT NULL DEFAULT 0;
ALTER TABLE folder_device ADD COLUMN flags INTEGER NOT NULL DEFAULT 0;
CREATE TABLE item_flags (
    item TEXT PRIMARY KEY,
    folder_id TEXT NOT NULL,
    flags TEXT NOT NULL,
    pending INTEGER NOT NULL,
    due INTEGER NOT NULL) WITHOUT ROWID;
CREATE INDEX item_flags_folder ON item_flags (folder_id);
CREATE INDEX item_flags_pending ON item_flags (folder_id) WHERE pending = 1;
CREATE INDEX item_flags_due ON item_flags (item) WHERE due = 1;
)sql";

// From version 9 on: folders may be tied to Maildirs (host/mirror). `mirror_mail` tells what both sides last
// agreed on of each mail: its item and the unique name of its file.
constexpr char kUpgradeFrom9[] = R"sql(
CREATE TABLE mirror (
    number INTEGER PRIMARY KEY AUTOINCREMENT,
    entry_id TEXT NOT NULL UNIQUE,
    folder TEXT NOT NULL,
    directory TEXT NOT NULL UNIQUE,
    identity TEXT NOT NULL DEFAULT '',
    problem TEXT NOT NULL DEFAULT '',
    held INTEGER NOT NULL DEFAULT 0,
    confirmed INTEGER NOT NULL DEFAULT 0,
    left_alone INTEGER NOT NULL DEFAULT 0);
CREATE TABLE mirror_mail (
    number INTEGER PRIMARY KEY,
    mirror INTEGER NOT NULL REFERENCES mirror(number),
    item TEXT NOT NULL UNIQUE,
    base TEXT NOT NULL,
    next TEXT NOT NULL,
    arriving INTEGER NOT NULL,
    marks INTEGER NOT NULL,
    inode INTEGER NOT NULL,
    size INTEGER NOT NULL,
    time INTEGER NOT NULL,
    digest TEXT NOT NULL,
    modified INTEGER NOT NULL,
    UNIQUE (mirror, base));
)sql";

// From version 10 on: who else may read what the mailbox lays in the exchange; Readers
// (host/exchange/outside.h).
constexpr char kUpgradeFrom10[] = R"sql(
ALTER TABLE mailbox ADD COLUMN readers INTEGER NOT NULL DEFAULT 1;
)sql";

// From version 11 on: what passed on each day, and how long changes took (traffic.h).
constexpr char kUpgradeFrom11[] = R"sql(
CREATE TABLE traffic (
    day INTEGER PRIMARY KEY,
    packages_sent INTEGER NOT NULL,
    items_sent INTEGER NOT NULL,
    bytes_sent INTEGER NOT NULL,
    packages_received INTEGER NOT NULL,
    items_received INTEGER NOT NULL,
    bytes_received INTEGER NOT NULL);
CREATE TABLE applied_within (
    day INTEGER NOT NULL,
    seconds INTEGER NOT NULL,
    items INTEGER NOT NULL,
    PRIMARY KEY (day, seconds)) WITHOUT ROWID;
)sql";

// From version 12 on: `item_flags.due` is a set of flags.
constexpr char kUpgradeFrom12[] = R"sql(
UPDATE item_flags SET due = 15 WHERE due <> 0;
DROP INDEX item_flags_due;
CREATE INDEX item_flags_due ON item_flags (item) WHERE due <> 0;
)sql";

// From version 13 on: folders may be shared with all that lies in them (shared_folders.h). `share.tree`: what
// comes to lie in it is shared by this mailbox; `folder.lies_in`: the founding of the folder that its founder
// put it into; `folder.follows`: what its founder puts into it is accepted by itself.
constexpr char kUpgradeFrom13[] = R"sql(
ALTER TABLE share ADD COLUMN tree INTEGER NOT NULL DEFAULT 0;
ALTER TABLE folder ADD COLUMN lies_in TEXT NOT NULL DEFAULT '';
ALTER TABLE folder ADD COLUMN follows INTEGER NOT NULL DEFAULT 0;
)sql";

// Each brings the records from the version that is its place, counted from 1, to the next.
constexpr const char* kUpgrades[] = {kUpgradeFrom1, kUpgradeFrom2,  kUpgradeFrom3,  kUpgradeFrom4,
                                     kUpgradeFrom5, kUpgradeFrom6,  kUpgradeFrom7,  kUpgradeFrom8,
                                     kUpgradeFrom9, kUpgradeFrom10, kUpgradeFrom11, kUpgradeFrom12,
                                     kUpgradeFrom13};
static_assert(std::size(kUpgrades) + 1 == Records::kVersion);

}  // namespace

void Records::CreateTables(Database& database, const std::string& name, const std::string& instance)
{
    database.Execute(kSchema);
    Upgrade(database, 1);
    Statement(database, "INSERT INTO mailbox (name, instance) VALUES (?, ?)")
        .Bind(1, name)
        .Bind(2, instance)
        .Run();
}

void Records::Upgrade(Database& database, std::int64_t version)
{
    for (; version < kVersion; ++version)
        database.Execute(kUpgrades[version - 1]);
    database.Execute("PRAGMA user_version = " + std::to_string(kVersion));
}

}  // namespace quorvane::host
