// transfer/storage_path.h: names of packages on the disk, and of elements in packages.
#ifndef QUORVANE_ENGINE_TRANSFER_STORAGE_PATH_H_
#define QUORVANE_ENGINE_TRANSFER_STORAGE_PATH_H_

#include <string>

#include "platform/com/bstr.h"

namespace quorvane {

// Picks a path for a new package, named like QVT3F2A.qvt in the user's temporary folder. An empty file
// stands there afterwards, so that nobody else picks the same.
//
// path  [out]  untouched after a failure.
//
// DISP_E_BUFFERTOOSMALL: the folder's path has more than 260 characters. Others come from the system.
[[nodiscard]] HRESULT MakePackagePath(std::string& path) noexcept;

// The name of a folder's or item's storage in a package: the same for the same ID, 31 characters, which is
// the most that structured storage allows. Throws std::bad_alloc.
OleString ElementName(BSTR id);

// Whether opening a package showed damage for certain: no other try will open it. Anything else (somebody has
// it open, the system is short of something, it can't be read just now) may be over the next time, and such a
// package is never removed.
bool IsDamage(HRESULT hr) noexcept;

}  // namespace quorvane

#endif  // QUORVANE_ENGINE_TRANSFER_STORAGE_PATH_H_
