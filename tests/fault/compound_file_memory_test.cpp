// Elements of a compound file, opened and made with memory that runs short at each allocation in turn.
#include <gtest/gtest.h>

#include "engine/session/testing/failing_memory.h"
#include "platform/cfb/testing/test_support.h"

namespace quorvane::cfb::test {
namespace {

using ::quorvane::testing::FailingAllocation;

// Far more than there are; a loop that comes here doesn't end by itself.
constexpr long kTooMany = 10000;

// A file with a short stream and one that takes many sectors.
Bytes SmallFile()
{
    const ComPtr<ILockBytes> bytes = NewLockBytes();
    ComPtr<IStorage> root;
    EXPECT_EQ(S_OK, CreateDocfileOnLockBytes(bytes.Get(), kCreate, root.Put()));
    EXPECT_EQ(S_OK, WriteStream(*root, "short", Pattern(100, 1)));
    EXPECT_EQ(S_OK, WriteStream(*root, "long", Pattern(500'000, 2)));
    root.Reset();
    return ContentOf(*bytes);
}

// Calls get(IStorage& root, IStream**) on a file of its own for each of its allocations, which fails: it says
// what it lacks, and the stream isn't open then.
template <class Get>
void ExpectClosedWhereItLacksMemory(const std::string& name, Get get)
{
    const Bytes content = SmallFile();
    long number = 0;
    for (bool came = true; came; ++number) {
        ASSERT_LT(number, kTooMany);
        const ComPtr<ILockBytes> bytes = LockBytesWith(content);
        ComPtr<IStorage> root;
        ASSERT_EQ(S_OK, OpenDocfileOnLockBytes(bytes.Get(), kOpen, root.Put()));
        ComPtr<IStream> stream;
        HRESULT hr = S_OK;
        {
            const FailingAllocation failure(number);
            hr = get(*root, stream.Put());
            came = failure.HasCome();
        }
        EXPECT_TRUE(hr == S_OK || (came && hr == E_OUTOFMEMORY)) << number << ": " << std::hex << hr;
        stream.Reset();
        Bytes read;
        EXPECT_EQ(S_OK, ReadStream(*root, name, &read)) << "after allocation " << number;
        root.Reset();
        EXPECT_EQ(S_OK, OpenDocfileOnLockBytes(bytes.Get(), kOpen, root.Put()));
    }
    EXPECT_GT(number, 1);
}

TEST(CompoundFileMemoryTest, AStreamThatCouldNotBeOpenedIsNotOpen)
{
    for (const std::string name : {"short", "long"}) {
        ExpectClosedWhereItLacksMemory(name, [&](IStorage& root, IStream** stream) {
            return root.OpenStream(Wide(name).c_str(), nullptr, kRead, 0, stream);
        });
    }
}

TEST(CompoundFileMemoryTest, AStreamThatCouldNotBeMadeIsNotOpen)
{
    for (const std::string name : {"short", "long"}) {
        ExpectClosedWhereItLacksMemory(name, [&](IStorage& root, IStream** stream) {
            return root.CreateStream(Wide(name).c_str(), kCreate, 0, 0, stream);
        });
    }
}

}  // namespace
}  // namespace quorvane::cfb::test
