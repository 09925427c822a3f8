// tests/late_bound/exported_names.h: what a library offers to those who load it.
#ifndef QUORVANE_TESTS_LATE_BOUND_EXPORTED_NAMES_H_
#define QUORVANE_TESTS_LATE_BOUND_EXPORTED_NAMES_H_

#include <set>
#include <string>

namespace quorvane::test {

// The names that the library at a path exports. Empty when it can't be read.
std::set<std::string> ExportedNames(const std::string& path);

}  // namespace quorvane::test

#endif  // QUORVANE_TESTS_LATE_BOUND_EXPORTED_NAMES_H_
