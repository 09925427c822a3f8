// platform/file/file_share_posix.h: share modes of open files, by locks that go with the open file.
#ifndef QUORVANE_PLATFORM_FILE_FILE_SHARE_POSIX_H_
#define QUORVANE_PLATFORM_FILE_FILE_SHARE_POSIX_H_

#include "platform/file/file.h"

namespace quorvane::posix {

// Enters an open file into the record of who reads, writes and forbids either, which lasts until it is
// closed. The record is four bytes far behind any file's end, each locked by those that it stands for; it is
// looked at and added to under an advisory lock on the whole file.
//
// ERROR_SHARING_VIOLATION: another opener forbids what this one does, or does what this one forbids. On a
// file system without locks every opener is let through.
HRESULT ClaimShare(int file, bool reads, bool writes, FileShare share) noexcept;

// Whether another open file stands in the record as a writer.
bool IsWrittenByOthers(int file) noexcept;

}  // namespace quorvane::posix

#endif  // QUORVANE_PLATFORM_FILE_FILE_SHARE_POSIX_H_
