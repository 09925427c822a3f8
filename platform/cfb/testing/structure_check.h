// platform/cfb/testing/structure_check.h: an examiner of compound files that shares no code with this
// library's reader.
#ifndef QUORVANE_PLATFORM_CFB_TESTING_STRUCTURE_CHECK_H_
#define QUORVANE_PLATFORM_CFB_TESTING_STRUCTURE_CHECK_H_

#include <string>
#include <vector>

#include "platform/com/com.h"

namespace quorvane::cfb::test {

struct Findings {
    // What no reader may meet: links out of the file, loops, sectors with two owners, names out of order.
    std::vector<std::string> faults;
    // What a kill or a refused write may leave behind: sectors and entries that are in use and belong to
    // nothing, chains and a file that are longer than is said of them.
    std::vector<std::string> leaks;
    // What a file that was closed in order doesn't have: sectors at the end of the file, of the mini stream
    // or of the directory in which nothing is in use.
    std::vector<std::string> slack;
    // Where the trees of storages break the rules of red and black. Other programs' trees may, and those that
    // a kill left.
    std::vector<std::string> colors;
    // The longest way from a storage down its tree.
    unsigned depth = 0;
    unsigned elements = 0;
};

// Reads the whole structure of a compound file.
Findings Examine(const std::vector<BYTE>& file);

std::string Text(const std::vector<std::string>& lines);

}  // namespace quorvane::cfb::test

#endif  // QUORVANE_PLATFORM_CFB_TESTING_STRUCTURE_CHECK_H_
