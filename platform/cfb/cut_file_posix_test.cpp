// A file that somebody else cuts while it is open here.
#include <gtest/gtest.h>
#include <unistd.h>

#include "platform/cfb/testing/test_support.h"

namespace quorvane::cfb::test {
namespace {

class CutFileTest : public ::testing::Test {
protected:
    static bool IsRefusal(HRESULT hr) { return FAILED(hr) && HRESULT_FACILITY(hr) == FACILITY_STORAGE; }

    const ScratchDirectory directory;
    const std::string file = directory.File("package");
    const OleString path = FromUtf8(file);
    ComPtr<IStorage> root;
};

TEST_F(CutFileTest, EveryWriteAfterwardsIsRefused)
{
    for (const off_t size : {0, 100, 512, 4'096, 60'000, 200'000}) {
        SCOPED_TRACE(size);
        ASSERT_EQ(S_OK, CreateDocfile(path.c_str(), kCreate, root.Put()));
        for (unsigned i = 0; i < 400; ++i) {
            const int cut = i == 200 ? ::truncate(file.c_str(), size) : 0;
            ASSERT_EQ(0, cut);
            const HRESULT hr = WriteStream(*root, std::to_string(i * 7919 % 1000), Pattern(1 + i * 37, i));
            ASSERT_TRUE(i < 200 ? hr == S_OK : IsRefusal(hr)) << i << " " << std::hex << hr;
        }
        root.Reset();
        Tree tree;
        const HRESULT opened = OpenDocfile(path.c_str(), kOpen, root.Put());
        const HRESULT walked = SUCCEEDED(opened) ? Walk(*root, "", &tree) : opened;
        EXPECT_TRUE(walked == S_OK || IsRefusal(walked));
        root.Reset();
    }
}

TEST_F(CutFileTest, WhatIsNotThereAnyMoreIsNotRead)
{
    ASSERT_EQ(S_OK, CreateDocfile(path.c_str(), kCreate, root.Put()));
    for (unsigned i = 0; i < 100; ++i)
        ASSERT_EQ(S_OK, WriteStream(*root, std::to_string(i), Pattern(9'000, i)));
    root.Reset();
    ASSERT_EQ(S_OK, OpenDocfile(path.c_str(), kRead, root.Put()));
    ASSERT_EQ(0, ::truncate(file.c_str(), 300'000));
    unsigned refused = 0;
    for (unsigned i = 0; i < 100; ++i) {
        Bytes content;
        const HRESULT hr = ReadStream(*root, std::to_string(i), &content);
        ASSERT_TRUE(hr == S_OK || IsRefusal(hr));
        refused += hr == S_OK ? 0 : 1;
        EXPECT_TRUE(hr != S_OK || content == Pattern(9'000, i)) << i;
    }
    EXPECT_LT(50u, refused);
}

}  // namespace
}  // namespace quorvane::cfb::test
