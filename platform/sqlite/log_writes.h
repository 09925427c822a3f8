// platform/sqlite/log_writes.h: a commit goes into a write-ahead log with one write.
//
// SQLite writes each page of a commit, and what stands before it in the log, by itself. Between files and
// SQLite they are held here until the last of a commit is there, or there are many, and go out together. No
// page is used by anybody before its commit is in the file: the last one's write reports what failed.
#ifndef QUORVANE_PLATFORM_SQLITE_LOG_WRITES_H_
#define QUORVANE_PLATFORM_SQLITE_LOG_WRITES_H_

namespace quorvane {

// The name of the file system for sqlite3_open_v2 that does so, over the one that is the default when a file
// is opened; null, which means that one itself, where memory is short. Any thread.
const char* GatheringFiles() noexcept;

}  // namespace quorvane

#endif  // QUORVANE_PLATFORM_SQLITE_LOG_WRITES_H_
