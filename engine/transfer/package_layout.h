// transfer/package_layout.h: the names in a package's compound file.
//
//   "1.0"        the format's version: a storage of the root
//     "Folders"  one storage for each folder, with its persisted form
//     "Items"    one storage for each item, with its persisted form and its message
#ifndef QUORVANE_ENGINE_TRANSFER_PACKAGE_LAYOUT_H_
#define QUORVANE_ENGINE_TRANSFER_PACKAGE_LAYOUT_H_

#include "platform/com/com.h"

namespace quorvane {

inline constexpr OLECHAR kVersionName[] = OLESTR("1.0");
inline constexpr OLECHAR kFoldersName[] = OLESTR("Folders");
inline constexpr OLECHAR kItemsName[] = OLESTR("Items");

}  // namespace quorvane

#endif  // QUORVANE_ENGINE_TRANSFER_PACKAGE_LAYOUT_H_
