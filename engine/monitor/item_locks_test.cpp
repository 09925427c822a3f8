#include "engine/monitor/item_locks.h"

#include <gtest/gtest.h>

#include <thread>

namespace quorvane {
namespace {

const Bstr kItem(OLESTR("AB"));
const Bstr kStore(OLESTR("CD"));

TEST(ItemLocksTest, AnUnknownItemIsNotLocked)
{
    const ItemLocks locks;

    EXPECT_FALSE(locks.IsLocked(kItem.Get(), kStore.Get()));
}

TEST(ItemLocksTest, ALockedItemIsLockedUntilItIsUnlocked)
{
    ItemLocks locks;
    locks.Lock(kItem.Get(), kStore.Get(), VARIANT_FALSE);

    EXPECT_TRUE(locks.IsLocked(kItem.Get(), kStore.Get()));
    EXPECT_EQ(locks.Unlock(kItem.Get(), kStore.Get()), S_OK);
    EXPECT_FALSE(locks.IsLocked(kItem.Get(), kStore.Get()));
}

TEST(ItemLocksTest, UnlockingWhatIsNotLockedFails)
{
    ItemLocks locks;

    EXPECT_EQ(locks.Unlock(kItem.Get(), kStore.Get()), E_FAIL);
}

TEST(ItemLocksTest, ASecondUnlockFails)
{
    ItemLocks locks;
    locks.Lock(kItem.Get(), kStore.Get(), VARIANT_TRUE);

    EXPECT_EQ(locks.Unlock(kItem.Get(), kStore.Get()), S_OK);
    EXPECT_EQ(locks.Unlock(kItem.Get(), kStore.Get()), E_FAIL);
}

TEST(ItemLocksTest, DropTakesAnAutomaticLockOff)
{
    ItemLocks locks;
    locks.Lock(kItem.Get(), kStore.Get(), VARIANT_TRUE);
    locks.Drop(kItem.Get(), kStore.Get());

    EXPECT_FALSE(locks.IsLocked(kItem.Get(), kStore.Get()));
}

TEST(ItemLocksTest, DropLeavesALockWithoutAutoUnlock)
{
    ItemLocks locks;
    locks.Lock(kItem.Get(), kStore.Get(), VARIANT_FALSE);
    locks.Drop(kItem.Get(), kStore.Get());

    EXPECT_TRUE(locks.IsLocked(kItem.Get(), kStore.Get()));
}

TEST(ItemLocksTest, DropLeavesALockWhoseAutoUnlockIsTrueByAnotherValue)
{
    ItemLocks locks;
    locks.Lock(kItem.Get(), kStore.Get(), 1);
    locks.Drop(kItem.Get(), kStore.Get());

    EXPECT_TRUE(locks.IsLocked(kItem.Get(), kStore.Get()));
}

TEST(ItemLocksTest, ASecondLockKeepsTheFirstAutoUnlock)
{
    ItemLocks locks;
    locks.Lock(kItem.Get(), kStore.Get(), VARIANT_FALSE);
    locks.Lock(kItem.Get(), kStore.Get(), VARIANT_TRUE);
    locks.Drop(kItem.Get(), kStore.Get());

    EXPECT_TRUE(locks.IsLocked(kItem.Get(), kStore.Get()));
}

TEST(ItemLocksTest, OneEntryIdInTwoStoresIsTwoLocks)
{
    ItemLocks locks;
    const Bstr otherStore(OLESTR("EF"));
    locks.Lock(kItem.Get(), kStore.Get(), VARIANT_TRUE);

    EXPECT_FALSE(locks.IsLocked(kItem.Get(), otherStore.Get()));
}

TEST(ItemLocksTest, NothingSeparatesTheHalvesOfAKey)
{
    ItemLocks locks;
    locks.Lock(kItem.Get(), kStore.Get(), VARIANT_TRUE);

    EXPECT_TRUE(locks.IsLocked(Bstr(OLESTR("A")).Get(), Bstr(OLESTR("BCD")).Get()));
}

TEST(ItemLocksTest, ManyThreadsMayLockAtOnce)
{
    ItemLocks locks;
    std::thread other([&locks] {
        for (int i = 0; i < 1000; ++i)
            locks.Lock(kItem.Get(), kStore.Get(), VARIANT_TRUE);
    });
    for (int i = 0; i < 1000; ++i)
        locks.Drop(kItem.Get(), kStore.Get());
    other.join();
    locks.Drop(kItem.Get(), kStore.Get());

    EXPECT_FALSE(locks.IsLocked(kItem.Get(), kStore.Get()));
}

TEST(MovedItemsTest, ARememberedItemIsFound)
{
    MovedItems moved;
    ASSERT_EQ(moved.Remember(kItem.Get(), Bstr(OLESTR("old")).Get()), S_OK);

    Bstr id;
    ASSERT_EQ(moved.Find(kItem.Get(), id.Put()), S_OK);
    EXPECT_EQ(id.View(), OLESTR("old"));
}

TEST(MovedItemsTest, RememberingAgainReplacesTheId)
{
    MovedItems moved;
    ASSERT_EQ(moved.Remember(kItem.Get(), Bstr(OLESTR("old")).Get()), S_OK);
    ASSERT_EQ(moved.Remember(kItem.Get(), Bstr(OLESTR("older")).Get()), S_OK);

    Bstr id;
    ASSERT_EQ(moved.Find(kItem.Get(), id.Put()), S_OK);
    EXPECT_EQ(id.View(), OLESTR("older"));
}

TEST(MovedItemsTest, AnUnknownItemLeavesTheIdAsItWas)
{
    const MovedItems moved;
    Bstr id(OLESTR("mine"));
    BSTR place = id.Get();

    EXPECT_EQ(moved.Find(kItem.Get(), &place), E_FAIL);
    EXPECT_EQ(place, id.Get());
}

TEST(MovedItemsTest, AForgottenItemIsGone)
{
    MovedItems moved;
    ASSERT_EQ(moved.Remember(kItem.Get(), Bstr(OLESTR("old")).Get()), S_OK);

    EXPECT_EQ(moved.Forget(kItem.Get()), S_OK);
    EXPECT_EQ(moved.Forget(kItem.Get()), E_FAIL);
}

}  // namespace
}  // namespace quorvane
