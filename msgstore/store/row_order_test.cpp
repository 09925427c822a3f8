#include "msgstore/store/row_order.h"

#include <gtest/gtest.h>

namespace quorvane {
namespace {

RowOrder OrderOf(const std::vector<std::int64_t>& ids)
{
    RowOrder order;
    order.Restart(ids);
    return order;
}

std::vector<std::int64_t> IdsOf(const RowOrder& order)
{
    std::vector<std::int64_t> ids;
    for (std::size_t i = 0; i < order.size(); ++i)
        ids.push_back(order.IdAt(i));
    return ids;
}

TEST(RowOrderTest, RowsStandWhereTheyArePut)
{
    RowOrder order = OrderOf({5, 1, 3});

    order.Insert(2, 4);
    EXPECT_EQ(IdsOf(order), (std::vector<std::int64_t>{5, 1, 4, 3}));
    EXPECT_EQ(order.IndexOf(4), 2u);
    EXPECT_EQ(order.IndexOf(2), std::nullopt);
}

TEST(RowOrderTest, TheCursorStaysWithItsRow)
{
    RowOrder order = OrderOf({10, 20, 30});
    order.SetCursor(1);

    order.Insert(0, 5);
    EXPECT_EQ(order.IdAt(order.Cursor()), 20);
    order.Erase(0);
    EXPECT_EQ(order.IdAt(order.Cursor()), 20);
    order.Erase(1);
    EXPECT_EQ(order.IdAt(order.Cursor()), 30);
}

TEST(RowOrderTest, ACursorAtTheEndStandsBeforeWhatIsAddedThere)
{
    RowOrder order = OrderOf({10});
    order.SetCursor(1);

    order.Insert(1, 20);

    EXPECT_EQ(order.IdAt(order.Cursor()), 20);
}

TEST(RowOrderTest, ABookmarkKnowsThatItsRowIsGone)
{
    RowOrder order = OrderOf({10, 20, 30});
    order.SetCursor(1);
    const BOOKMARK bookmark = order.CreateBookmark();
    std::size_t index = 0;
    bool lost = true;

    ASSERT_TRUE(order.Find(bookmark, index, lost));
    EXPECT_FALSE(lost);
    order.Erase(1);
    ASSERT_TRUE(order.Find(bookmark, index, lost));
    EXPECT_TRUE(lost);
    EXPECT_EQ(index, 1u);
    EXPECT_TRUE(order.FreeBookmark(bookmark));
    EXPECT_FALSE(order.Find(bookmark, index, lost));
    EXPECT_FALSE(order.FreeBookmark(bookmark));
}

TEST(RowOrderTest, TheFixedPlacesAreTheBeginningTheCursorAndTheEnd)
{
    RowOrder order = OrderOf({10, 20, 30});
    order.SetCursor(1);
    const auto place = [&](BOOKMARK bookmark) {
        std::size_t index = 99;
        bool lost = true;
        EXPECT_TRUE(order.Find(bookmark, index, lost));
        EXPECT_FALSE(lost);
        return index;
    };
    EXPECT_EQ(place(BOOKMARK_BEGINNING), 0u);
    EXPECT_EQ(place(BOOKMARK_CURRENT), 1u);
    EXPECT_EQ(place(BOOKMARK_END), 3u);
}

TEST(RowOrderTest, ReplacedRowsTakeTheirBookmarksAlong)
{
    RowOrder order = OrderOf({10, 20, 30});
    order.SetCursor(2);
    const BOOKMARK stays = order.CreateBookmark();
    order.SetCursor(1);
    const BOOKMARK goes = order.CreateBookmark();
    order.SetCursor(3);

    order.Replace({5, 10, 30, 40});

    std::size_t index = 0;
    bool lost = false;
    ASSERT_TRUE(order.Find(stays, index, lost));
    EXPECT_EQ(order.IdAt(index), 30);
    EXPECT_FALSE(lost);
    ASSERT_TRUE(order.Find(goes, index, lost));
    EXPECT_TRUE(lost);
    EXPECT_EQ(order.Cursor(), order.size());
}

}  // namespace
}  // namespace quorvane
