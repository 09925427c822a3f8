// host/sharing/package_check.h: looks a package of the engine's through before it goes to others.
//
// A full disk, a kill or a store that couldn't copy a message may leave an item in a package that isn't what
// it says: a receiver would take it for a deletion, or empty his own mail. Such an item is taken out.
#ifndef QUORVANE_HOST_SHARING_PACKAGE_CHECK_H_
#define QUORVANE_HOST_SHARING_PACKAGE_CHECK_H_

#include <filesystem>
#include <string>
#include <vector>

#include "host/base/compound_file.h"

namespace quorvane::host {

// An item or a folder's announcement that isn't fit to be sent. Without an ID when it can't even be told
// which it is: then it was never completed, and nobody takes it for sent.
struct DamagedElement {
    const OLECHAR* part = nullptr;  // of the package
    OleString element;
    std::string id;
    std::string folderId;
    std::string reason;
};

// What is wrong with the message on a storage (CheckCarriedMessage tells), in words. Empty when nothing is.
std::string FindDamage(IStorage& message);

// What a package holds that may be sent, and what else.
struct CheckedPackage {
    Package sound;
    std::vector<DamagedElement> damaged;
};

// Reads a package and leaves it as it is. Throws a HostError when it can't be read at all.
CheckedPackage CheckPackage(IStorage& root, const std::string& shown);

// Takes elements out of a package. Throws a HostError.
void TakeOut(const std::filesystem::path& path, const std::vector<DamagedElement>& damaged);

// Whether a file isn't a package beyond all doubt: not one that can't be opened just now.
bool IsRuined(const std::filesystem::path& path);

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_SHARING_PACKAGE_CHECK_H_
