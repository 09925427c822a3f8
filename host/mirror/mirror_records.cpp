#include "host/mirror/mirror_records.h"

#include "host/base/errors.h"
#include "host/store/properties.h"

namespace quorvane::host {

namespace {

std::string DigestHex(const std::string& digest)
{
    return Hex(Bytes(digest.begin(), digest.end()));
}

std::string DigestOfHex(const std::string& text)
{
    const Bytes bytes = FromHex(text);
    return {bytes.begin(), bytes.end()};
}

}  // namespace

MirrorRecords::MirrorRecords(const std::string& path) : database_(path, Database::Mode::kOpen)
{
    database_.Execute("PRAGMA synchronous=NORMAL");
}

std::vector<Mirror> MirrorRecords::All()
{
    Statement select(
        database_,
        "SELECT number, entry_id, folder, directory, identity, problem, held, confirmed, left_alone "
        "FROM mirror ORDER BY folder");
    std::vector<Mirror> mirrors;
    while (select.Step())
        mirrors.push_back({select.Number(0), select.Text(1), select.Text(2), select.Text(3), select.Text(4),
                           select.Text(5), select.Number(6), select.Number(7), select.Number(8)});
    return mirrors;
}

std::int64_t MirrorRecords::Version()
{
    Statement version(database_, "PRAGMA data_version");
    return version.Step() ? version.Number(0) : 0;
}

std::int64_t MirrorRecords::CountMails(std::int64_t mirror)
{
    Statement count(database_, "SELECT count(*) FROM mirror_mail WHERE mirror = ?");
    return count.Bind(1, mirror).Step() ? count.Number(0) : 0;
}

void MirrorRecords::Add(const std::vector<Mirror>& mirrors)
{
    Transaction transaction(database_);
    Statement taken(database_, "SELECT folder, directory FROM mirror WHERE entry_id = ? OR directory = ?");
    for (const Mirror& mirror : mirrors) {
        if (taken.Bind(1, mirror.entryId).Bind(2, mirror.directory).Step())
            Fail("tie", mirror.folder, "'" + taken.Text(0) + "' is tied to '" + taken.Text(1) + "' already");
        taken.Reset();
        Statement(database_, "INSERT INTO mirror (entry_id, folder, directory) VALUES (?, ?, ?)")
            .Bind(1, mirror.entryId)
            .Bind(2, mirror.folder)
            .Bind(3, mirror.directory)
            .Run();
    }
    transaction.Commit();
}

void MirrorRecords::Remove(std::int64_t number)
{
    Transaction transaction(database_);
    Statement(database_, "DELETE FROM mirror_mail WHERE mirror = ?").Bind(1, number).Run();
    Statement(database_, "DELETE FROM mirror WHERE number = ?").Bind(1, number).Run();
    transaction.Commit();
}

void MirrorRecords::Confirm(std::int64_t number)
{
    Statement(database_, "UPDATE mirror SET confirmed = held WHERE number = ?").Bind(1, number).Run();
}

void MirrorRecords::ForgetConfirmation(std::int64_t number)
{
    Statement(database_, "UPDATE mirror SET confirmed = 0 WHERE number = ?").Bind(1, number).Run();
}

void MirrorRecords::NoteState(const Mirror& mirror)
{
    Statement(database_,
              "UPDATE mirror SET identity = ?, problem = ?, held = ?, left_alone = ? WHERE number = ?")
        .Bind(1, mirror.identity)
        .Bind(2, mirror.problem)
        .Bind(3, mirror.held)
        .Bind(4, mirror.leftAlone)
        .Bind(5, mirror.number)
        .Run();
}

std::vector<MailPair> MirrorRecords::PairsOf(std::int64_t mirror)
{
    Statement select(
        database_,
        "SELECT number, item, base, next, arriving, marks, inode, size, time, digest, modified FROM "
        "mirror_mail WHERE mirror = ?");
    select.Bind(1, mirror);
    std::vector<MailPair> pairs;
    while (select.Step()) {
        MailPair& pair = pairs.emplace_back();
        pair.number = select.Number(0);
        pair.mirror = mirror;
        pair.item = select.Text(1);
        pair.base = select.Text(2);
        pair.next = select.Text(3);
        pair.isArriving = select.Number(4) != 0;
        pair.marks = static_cast<Marks>(select.Number(5));
        pair.look = {static_cast<std::uint64_t>(select.Number(6)),
                     static_cast<std::uint64_t>(select.Number(7)), select.Number(8)};
        pair.digest = DigestOfHex(select.Text(9));
        pair.modified = static_cast<std::uint64_t>(select.Number(10));
    }
    return pairs;
}

void MirrorRecords::Note(const Changes& changes)
{
    if (changes.IsEmpty())
        return;
    Transaction transaction(database_);
    Statement remove(database_, "DELETE FROM mirror_mail WHERE number = ?");
    for (const std::int64_t number : changes.removed)
        remove.Bind(1, number).Run();
    Statement put(
        database_,
        "INSERT OR REPLACE INTO mirror_mail (number, mirror, item, base, next, arriving, marks, inode, "
        "size, time, digest, modified) SELECT ?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9, ?10, ?11, ?12 WHERE EXISTS (SELECT 1 "
        "FROM mirror WHERE number = ?2)");
    for (const MailPair& pair : changes.put) {
        if (pair.number == 0)
            put.BindNull(1);
        else
            put.Bind(1, pair.number);
        put.Bind(2, pair.mirror).Bind(3, pair.item).Bind(4, pair.base).Bind(5, pair.next);
        put.Bind(6, std::int64_t{pair.isArriving}).Bind(7, std::int64_t{pair.marks});
        put.Bind(8, static_cast<std::int64_t>(pair.look.inode))
            .Bind(9, static_cast<std::int64_t>(pair.look.size));
        put.Bind(10, pair.look.time).Bind(11, DigestHex(pair.digest));
        put.Bind(12, static_cast<std::int64_t>(pair.modified)).Run();
    }
    transaction.Commit();
}

}  // namespace quorvane::host
