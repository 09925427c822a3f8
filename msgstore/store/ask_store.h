// msgstore/store/ask_store.h: for tests: the number that a store answers a question in SQL with.
#ifndef QUORVANE_MSGSTORE_STORE_ASK_STORE_H_
#define QUORVANE_MSGSTORE_STORE_ASK_STORE_H_

#include <gtest/gtest.h>

#include <string>

#include "msgstore/store/store_core.h"

namespace quorvane::testing {

// -1 where there is no answer.
inline std::int64_t AskStore(StoreCore& core, const char* sql)
{
    std::int64_t answer = -1;
    EXPECT_EQ(core.Read([&](SqliteConnection& connection) {
        SqliteRows rows = connection.Query(sql);
        if (rows.Next())
            answer = rows.Int64(0);
        return rows.Result();
    }),
              S_OK);
    return answer;
}

// Opens it for this.
inline std::int64_t AskStore(const std::string& path, const char* sql)
{
    std::shared_ptr<StoreCore> core;
    EXPECT_EQ(StoreCore::Open(path, false, core), S_OK);
    return core ? AskStore(*core, sql) : -1;
}

}  // namespace quorvane::testing

#endif  // QUORVANE_MSGSTORE_STORE_ASK_STORE_H_
