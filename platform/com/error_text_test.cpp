#include "platform/com/error_text.h"

#include <gtest/gtest.h>

#include <thread>

#include "platform/com/com_ptr.h"

namespace quorvane {
namespace {

TEST(ErrorTextTest, ARaisedErrorCarriesSourceTextAndInterface)
{
    EXPECT_EQ(RaiseError(IID_IStream, OLESTR("example.Class"), OLESTR("Please login first."), E_FAIL),
              E_FAIL);

    ComPtr<IErrorInfo> info;
    ASSERT_EQ(GetErrorInfo(0, info.Put()), S_OK);
    Bstr source;
    Bstr description;
    GUID guid{};
    EXPECT_EQ(info->GetSource(source.Put()), S_OK);
    EXPECT_EQ(info->GetDescription(description.Put()), S_OK);
    EXPECT_EQ(info->GetGUID(&guid), S_OK);
    EXPECT_EQ(source.View(), OLESTR("example.Class"));
    EXPECT_EQ(description.View(), OLESTR("Please login first."));
    EXPECT_TRUE(IsEqualGUID(guid, IID_IStream));
}

TEST(ErrorTextTest, AnErrorIsTakenOnce)
{
    RaiseError(IID_IStream, OLESTR("a"), OLESTR("b"), E_FAIL);

    EXPECT_EQ(TakeErrorDescription().View(), OLESTR("b"));
    EXPECT_TRUE(TakeErrorDescription().IsNull());
    ComPtr<IErrorInfo> info;
    EXPECT_EQ(GetErrorInfo(0, info.Put()), S_FALSE);
}

TEST(ErrorTextTest, EachThreadHasItsOwnError)
{
    RaiseError(IID_IStream, OLESTR("a"), OLESTR("here"), E_FAIL);
    Bstr elsewhere(OLESTR("untouched"));

    std::thread([&] { elsewhere = TakeErrorDescription(); }).join();

    EXPECT_TRUE(elsewhere.IsNull());
    EXPECT_EQ(TakeErrorDescription().View(), OLESTR("here"));
}

TEST(ErrorTextTest, ClearingDropsTheError)
{
    RaiseError(IID_IStream, OLESTR("a"), OLESTR("b"), E_FAIL);

    ClearErrorInfo();

    EXPECT_TRUE(TakeErrorDescription().IsNull());
}

}  // namespace
}  // namespace quorvane
