// platform/sqlite/open_database.h: opens an SQLite database that may lie where nothing can be written.
//
// Who reads a database with a write-ahead log writes beside it: the log's index. On a disk that is read only,
// or full, such a database can't be opened the usual way, though all of it is there. While nobody else has it
// open it is opened at rest then: what was committed is read, log included, nothing is written anywhere, and
// a statement that writes fails with SQLITE_READONLY.
#ifndef QUORVANE_PLATFORM_SQLITE_OPEN_DATABASE_H_
#define QUORVANE_PLATFORM_SQLITE_OPEN_DATABASE_H_

struct sqlite3;

namespace quorvane {

// Opens a database with sqlite3_open_v2's flags, at rest if need be, and reads from it once. `path` is UTF-8;
// `patience` is for how many milliseconds it waits for locks of others, now and later. Gives SQLite's code,
// of the last way that was tried. As with sqlite3_open_v2, what stands in `database` afterwards is the
// caller's to close, after a failure too, and is null only for want of memory.
int OpenDatabase(const char* path, int flags, int patience, sqlite3*& database) noexcept;

// Opens a database at rest; likewise. Nobody may have it open for writing meanwhile.
int OpenDatabaseAtRest(const char* path, sqlite3*& database) noexcept;

}  // namespace quorvane

#endif  // QUORVANE_PLATFORM_SQLITE_OPEN_DATABASE_H_
