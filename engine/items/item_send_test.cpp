// How an item finds the package of its recipients.
#include <gtest/gtest.h>

#include "engine/items/item.h"
#include "engine/items/testing/test_folders.h"
#include "engine/items/testing/test_session.h"

namespace quorvane::testing {
namespace {

// A list of packages that has what a test puts into it under every name.
class OddList final : public ComObject<OddList, DispatchImpl<IStorageFiles>> {
public:
    Variant found;
    int added = 0;

    HRESULT STDMETHODCALLTYPE get_Item(VARIANT, VARIANT* pvar) override { return found.CopyTo(pvar); }
    HRESULT STDMETHODCALLTYPE Add(BSTR, IStorageFile**) override
    {
        ++added;
        return E_ACCESSDENIED;
    }
    HRESULT STDMETHODCALLTYPE get__NewEnum(IUnknown**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE get_Count(LONG*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Remove(VARIANT) override { return E_NOTIMPL; }
};

class ItemSendTest : public ::testing::Test {
protected:
    ItemSendTest() { session.storageFiles = ComPtr<IStorageFiles>(list.Get()); }

    TestSession session;
    const ComPtr<OddList> list = MakeComObject<OddList>();
    const ComPtr<CItem> item = MakeComObject<CItem>(&session);
};

TEST_F(ItemSendTest, WhatIsFoundAndIsNoPackageFailsTheSendAndNothingIsAdded)
{
    list->found = Variant::Dispatch(MakeComObject<SharedFolder>().Get());
    EXPECT_EQ(item->Send(Bstr(OLESTR("someone")).Get()), E_NOINTERFACE);

    list->found = Variant::Long(1);
    EXPECT_EQ(item->Send(Bstr(OLESTR("someone")).Get()), E_FAIL);
    EXPECT_EQ(list->added, 0);
}

}  // namespace
}  // namespace quorvane::testing
