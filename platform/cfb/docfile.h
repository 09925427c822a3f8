// platform/cfb/docfile.h: this library's own compound files, on every platform.
//
// Off Windows the published Stg* functions (platform/cfb/stg.h) are these; their contracts stand there.
// On Windows they stand beside the system's. Any thread may call.
#ifndef QUORVANE_PLATFORM_CFB_DOCFILE_H_
#define QUORVANE_PLATFORM_CFB_DOCFILE_H_

#include "platform/com/com.h"

namespace quorvane::cfb {

// How a new compound file is laid out.
enum class Layout {
    kVersion3,  // 512-byte sectors: what every reader knows; up to 2 GB.
    kVersion4,  // 4096-byte sectors: for content of more than 2 GB.
};

// StgCreateDocfile.
[[nodiscard]] HRESULT CreateDocfile(LPCOLESTR path, DWORD mode, IStorage** storage,
                                    Layout layout = Layout::kVersion3) noexcept;
// StgOpenStorage.
[[nodiscard]] HRESULT OpenDocfile(LPCOLESTR path, DWORD mode, IStorage** storage) noexcept;
// StgIsStorageFile.
[[nodiscard]] HRESULT IsDocfile(LPCOLESTR path) noexcept;

// StgCreateDocfileOnILockBytes: replaces whatever the bytes hold; STGM_CREATE must be given.
[[nodiscard]] HRESULT CreateDocfileOnLockBytes(ILockBytes* bytes, DWORD mode, IStorage** storage,
                                               Layout layout = Layout::kVersion3) noexcept;
// StgOpenStorageOnILockBytes.
[[nodiscard]] HRESULT OpenDocfileOnLockBytes(ILockBytes* bytes, DWORD mode, IStorage** storage) noexcept;
// StgIsStorageILockBytes.
[[nodiscard]] HRESULT IsDocfileOnLockBytes(ILockBytes* bytes) noexcept;

// CreateILockBytesOnHGlobal, on memory of its own. E_OUTOFMEMORY, STG_E_INVALIDPOINTER.
[[nodiscard]] HRESULT CreateLockBytesInMemory(ILockBytes** bytes) noexcept;

}  // namespace quorvane::cfb

#endif  // QUORVANE_PLATFORM_CFB_DOCFILE_H_
