// tests/oledb_provider/access_file.h: files that begin as Access's do and hold the tables of SQLite.
#ifndef QUORVANE_TESTS_OLEDB_PROVIDER_ACCESS_FILE_H_
#define QUORVANE_TESTS_OLEDB_PROVIDER_ACCESS_FILE_H_

namespace quorvane::test {

// Bytes in front of SQLite's own; they begin with Access's signature.
inline constexpr long long kAccessHeaderSize = 4096;

// The VFS through which SQLite reads and makes such files, for this module. To open a file that doesn't begin
// so gives SQLITE_NOTADB. The journals are files as ever.
inline constexpr char kAccessFileVfs[] = "access_file";

// Makes SQLite know the VFS. SQLite's result code. Any thread may call, at any time.
int RegisterAccessFileVfs() noexcept;

}  // namespace quorvane::test

#endif  // QUORVANE_TESTS_OLEDB_PROVIDER_ACCESS_FILE_H_
