#include "host/base/sqlite.h"

#include <gtest/gtest.h>

#include "platform/testing/test_directory.h"

namespace quorvane::host {

namespace {

constexpr char kSelectFrom[] = "SELECT n FROM t WHERE n >= ? ORDER BY n";

class SqliteTest : public ::testing::Test {
protected:
    SqliteTest() { database.Execute("CREATE TABLE t (n INTEGER); INSERT INTO t VALUES (1), (2), (3)"); }

    const test::TestDirectory directory;
    Database database{(directory / "a.db").string(), Database::Mode::kCreate};
};

TEST_F(SqliteTest, OneTextMayRunTwiceAtOnce)
{
    Statement outer(database, kSelectFrom);
    ASSERT_TRUE(outer.Bind(1, std::int64_t{1}).Step());
    {
        Statement inner(database, kSelectFrom);
        ASSERT_TRUE(inner.Bind(1, std::int64_t{3}).Step());
        EXPECT_EQ(inner.Number(0), 3);
    }
    ASSERT_TRUE(outer.Step());
    EXPECT_EQ(outer.Number(0), 2);
}

TEST_F(SqliteTest, AStatementBeginsWithoutTheValuesOfItsFormerUse)
{
    ASSERT_TRUE(Statement(database, kSelectFrom).Bind(1, std::int64_t{2}).Step());

    EXPECT_FALSE(Statement(database, kSelectFrom).Step());  // nothing is greater than a missing value
}

TEST_F(SqliteTest, WhatWasntReadToItsEndReadsNoMore)
{
    ASSERT_TRUE(Statement(database, kSelectFrom).Bind(1, std::int64_t{1}).Step());
    Database other((directory / "a.db").string(), Database::Mode::kOpen);
    other.Execute("INSERT INTO t VALUES (4)");

    // A reader of the former moment couldn't write.
    database.SetPatience(0);
    EXPECT_NO_THROW(database.Execute("BEGIN; INSERT INTO t VALUES (5); COMMIT"));
    Statement count(database, "SELECT count(*) FROM t");
    ASSERT_TRUE(count.Step());
    EXPECT_EQ(count.Number(0), 5);
}

TEST_F(SqliteTest, AStatementFollowsAChangedTable)
{
    ASSERT_TRUE(Statement(database, "SELECT * FROM t").Step());
    database.Execute("ALTER TABLE t ADD COLUMN m INTEGER DEFAULT 7");

    Statement select(database, "SELECT * FROM t");
    ASSERT_TRUE(select.Step());
    EXPECT_EQ(select.Number(1), 7);
}

}  // namespace

}  // namespace quorvane::host
