// platform/bytes/file_store.h: a file of the operating system as a byte store.
#ifndef QUORVANE_PLATFORM_BYTES_FILE_STORE_H_
#define QUORVANE_PLATFORM_BYTES_FILE_STORE_H_

#include <memory>

#include "platform/bytes/byte_store.h"

namespace quorvane {

enum class FileUse {
    kCreate,       // for reading and writing; a file that exists is an error
    kCreateAnew,   // the same; a file that exists is opened, its content to be replaced
    kReadWrite,    // a file that exists
    kRead,         // reading; nobody else may open the file for anything
    kReadSharing,  // reading; others may read too
    kPeek,         // reading, beside whoever has it open
};

// Opens a file. All uses but the last two exclude every other open of the file through this function, in
// this process and in others, kReadSharing those that write. Off Windows that is a lock which other
// programs needn't heed; on a file system without locks there is none.
//
// STG_E_FILENOTFOUND, STG_E_PATHNOTFOUND, STG_E_ACCESSDENIED, STG_E_FILEALREADYEXISTS (kCreate),
// STG_E_SHAREVIOLATION, STG_E_TOOMANYOPENFILES, STG_E_MEDIUMFULL, STG_E_INVALIDNAME (a directory, or no
// name), E_OUTOFMEMORY.
[[nodiscard]] HRESULT OpenFileStore(LPCOLESTR path, FileUse use, std::unique_ptr<ByteStore>* store) noexcept;

}  // namespace quorvane

#endif  // QUORVANE_PLATFORM_BYTES_FILE_STORE_H_
