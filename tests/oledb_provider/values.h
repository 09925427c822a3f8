// tests/oledb_provider/values.h: values of SQLite in a consumer's block, and out of it.
#ifndef QUORVANE_TESTS_OLEDB_PROVIDER_VALUES_H_
#define QUORVANE_TESTS_OLEDB_PROVIDER_VALUES_H_

#include <sqlite3.h>

#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "tests/oledb_provider/oledb.h"

namespace quorvane::test {

// One value of a row; none for null. Texts are UTF-8.
using Value = std::variant<std::monostate, std::int64_t, double, std::string>;
using Row = std::vector<Value>;

// The present row's value of a column, from 0. Throws std::bad_alloc.
Value ValueOf(sqlite3_stmt* statement, int column);

// Bytes of a bound value: those of its type, or of the consumer's choice for texts. Nothing: the type isn't
// one that values are converted to.
std::optional<size_t> SizeOfBound(const DBBINDING& binding) noexcept;

// Puts value, length and status into a block, as far as they are bound, and says which status it is. A text
// that has no room is cut, in the ANSI code page. Throws std::bad_alloc.
DBSTATUS PutValue(const Value& value, const DBBINDING& binding, BYTE* block);

// Gives a parameter its value, of the ANSI code page if it is text. SQLite's result code. Throws
// std::bad_alloc.
int BindParameter(sqlite3_stmt* statement, const DBBINDING& binding, const BYTE* block);

}  // namespace quorvane::test

#endif  // QUORVANE_TESTS_OLEDB_PROVIDER_VALUES_H_
