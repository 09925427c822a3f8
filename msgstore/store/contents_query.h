// msgstore/store/contents_query.h: what a contents table asks for, as SQL.
//
// A restriction is put into SQL as a whole or not at all, and gives the same rows as its Matches.
// Comparisons, contents, bit masks and existence of the properties that have columns are, and what is made of
// those by and, or, not.
#ifndef QUORVANE_MSGSTORE_STORE_CONTENTS_QUERY_H_
#define QUORVANE_MSGSTORE_STORE_CONTENTS_QUERY_H_

#include <string>
#include <variant>
#include <vector>

#include "msgstore/store/entry_id.h"
#include "msgstore/store/sqlite_connection.h"
#include "msgstore/table/restriction.h"

namespace quorvane {

// A condition on a row of `message`, never null, with the values of its parameters in order.
struct SqlCondition {
    std::string text;
    std::vector<std::variant<std::int64_t, std::string, Bytes>> values;

    void BindTo(SqliteRows& rows) const;
};

// False: it can't be put so; `condition` is then undefined.
//
// store  the store's GUID, which long-term identifiers hold; null: rows show others, and a comparison of
// those can't.
[[nodiscard]] bool TranslateRestriction(const Restriction& restriction, const ObjectGuid* store,
                                        SqlCondition& condition);

// One term of an ORDER BY, without its direction; empty for a column that every row lacks. False: the column
// isn't one of the table's.
[[nodiscard]] bool TranslateSortColumn(const SortColumn& column, std::string& term);

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_STORE_CONTENTS_QUERY_H_
