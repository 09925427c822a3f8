// One root, several threads.
#include <gtest/gtest.h>

#include <thread>

#include "platform/cfb/testing/structure_check.h"
#include "platform/cfb/testing/test_support.h"

namespace quorvane::cfb::test {
namespace {

void WorkIn(IStorage& storage, unsigned thread)
{
    for (unsigned i = 0; i < 150; ++i) {
        const std::string name = "e" + std::to_string(i % 25);
        const Bytes content = Pattern(i * 61 % 6000, thread * 1000 + i);
        Bytes found;
        ASSERT_EQ(S_OK, WriteStream(storage, name, content));
        ASSERT_EQ(S_OK, ReadStream(storage, name, &found));
        ASSERT_EQ(content, found);
        if (i % 4 == 3) {
            ASSERT_EQ(S_OK, storage.DestroyElement(Wide(name).c_str()));
        }
    }
}

// Four threads, each in a storage of its own.
void WorkInFour(IStorage& root)
{
    std::vector<std::jthread> threads;
    for (unsigned i = 0; i < 4; ++i) {
        threads.emplace_back([&root, i] {
            ComPtr<IStorage> storage;
            const std::string name = "thread" + std::to_string(i);
            ASSERT_EQ(S_OK, root.CreateStorage(Wide(name).c_str(), kCreate, 0, 0, storage.Put()));
            WorkIn(*storage, i);
        });
    }
}

void ExpectWhole(const Bytes& file)
{
    const Findings findings = Examine(file);
    EXPECT_TRUE(findings.faults.empty()) << Text(findings.faults);
    EXPECT_TRUE(findings.leaks.empty()) << Text(findings.leaks);
}

TEST(ThreadsTest, SeveralThreadsWorkInOneArrayOfBytes)
{
    const auto bytes = NewLockBytes();
    ComPtr<IStorage> root;
    ASSERT_EQ(S_OK, CreateDocfileOnLockBytes(bytes.Get(), kCreate, root.Put()));
    WorkInFour(*root);
    ExpectWhole(ContentOf(*bytes));
}

TEST(ThreadsTest, SeveralThreadsWorkInOneFile)
{
    const ScratchDirectory directory;
    ComPtr<IStorage> root;
    ASSERT_EQ(S_OK, CreateDocfile(FromUtf8(directory.File("package")).c_str(), kCreate, root.Put()));
    WorkInFour(*root);
    root.Reset();
    ExpectWhole(LoadFile(directory.File("package")));
}

TEST(ThreadsTest, ARootMayBeReleasedWhileOthersUseIt)
{
    for (unsigned round = 0; round < 20; ++round) {
        const auto bytes = NewLockBytes();
        ComPtr<IStorage> root;
        ComPtr<IStorage> storage;
        ASSERT_EQ(S_OK, CreateDocfileOnLockBytes(bytes.Get(), kCreate, root.Put()));
        ASSERT_EQ(S_OK, root->CreateStorage(OLESTR("s"), kCreate, 0, 0, storage.Put()));
        HRESULT last = S_OK;
        std::jthread worker([&] {
            while (SUCCEEDED(last))
                last = WriteStream(*storage, "a", Pattern(100, 1));
        });
        root.Reset();
        worker.join();
        EXPECT_EQ(STG_E_REVERTED, last);
    }
}

}  // namespace
}  // namespace quorvane::cfb::test
