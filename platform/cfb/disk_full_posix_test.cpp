// A file system that lets no file grow beyond a limit, as a full disk does.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>

#include "platform/cfb/testing/structure_check.h"
#include "platform/cfb/testing/test_support.h"

namespace quorvane::cfb::test {
namespace {

// For its lifetime no file of this process becomes longer than `bytes`.
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t bytes) : handler_(std::signal(SIGXFSZ, SIG_IGN))
    {
        EXPECT_EQ(0, ::getrlimit(RLIMIT_FSIZE, &before_));
        const rlimit limit{bytes, before_.rlim_max};
        EXPECT_EQ(0, ::setrlimit(RLIMIT_FSIZE, &limit));
    }
    ~FileSizeLimit()
    {
        EXPECT_EQ(0, ::setrlimit(RLIMIT_FSIZE, &before_));
        std::signal(SIGXFSZ, handler_);
    }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

private:
    void (*handler_)(int);
    rlimit before_{};
};

class DiskFullTest : public ::testing::Test {
protected:
    // Fills the file up to the limit; notes what is in it. The last element may be there without content.
    void Fill(unsigned round)
    {
        for (unsigned i = 0;; ++i) {
            const std::string name = std::to_string(10'000 * (round + 1) + i);
            const Bytes content = Pattern(i * 997 % 9000, i);
            const HRESULT hr = WriteStream(*root, name, content);
            if (hr == S_OK) {
                expected[name] = content;
                continue;
            }
            ASSERT_EQ(STG_E_MEDIUMFULL, hr) << name;
            Bytes found;
            const HRESULT there = ReadStream(*root, name, &found);
            ASSERT_TRUE(there == STG_E_FILENOTFOUND || (there == S_OK && found.empty())) << name;
            if (there == S_OK)
                expected[name] = found;
            return;
        }
    }

    void ExpectExpected()
    {
        Tree found;
        ASSERT_EQ(S_OK, Walk(*root, "", &found));
        EXPECT_TRUE(expected == found);
    }

    const ScratchDirectory directory;
    const OleString path = FromUtf8(directory.File("package"));
    ComPtr<IStorage> root;
    Tree expected;
};

TEST_F(DiskFullTest, WhatWasWrittenStaysAndDestroyingTheFirstElementsMakesRoom)
{
    for (rlim_t limit = 12'000; limit < 200'000 && !HasFailure(); limit += 6'311) {
        SCOPED_TRACE(limit);
        expected.clear();
        ASSERT_EQ(S_OK, CreateDocfile(path.c_str(), kCreate, root.Put()));
        {
            const FileSizeLimit full(limit);
            for (unsigned round = 0; round < 3; ++round) {
                Fill(round);
                ExpectExpected();
                for (unsigned i = 0; i < 3 && !expected.empty(); ++i) {
                    ASSERT_EQ(S_OK, root->DestroyElement(FromUtf8(expected.begin()->first).c_str()));
                    expected.erase(expected.begin());
                }
            }
            root.Reset();
        }
        ASSERT_EQ(S_OK, OpenDocfile(path.c_str(), kOpen, root.Put()));
        ExpectExpected();
        ASSERT_EQ(S_OK, WriteStream(*root, "after", Pattern(50'000, 1)));
        root.Reset();
        const Findings findings = Examine(LoadFile(directory.File("package")));
        EXPECT_TRUE(findings.faults.empty()) << Text(findings.faults);
    }
}

TEST_F(DiskFullTest, WritingInANewStorageTellsItAndWhatWasWrittenLands)
{
    for (const std::size_t size : {200u, 3'000u, 9'000u, 70'000u}) {
        SCOPED_TRACE(size);
        expected = {{"s", std::nullopt}};
        ASSERT_EQ(S_OK, CreateDocfile(path.c_str(), kCreate, root.Put()));
        {
            const FileSizeLimit full(400'000);
            ComPtr<IStorage> storage;
            ASSERT_EQ(S_OK, root->CreateStorage(OLESTR("s"), kCreate, 0, 0, storage.Put()));
            HRESULT hr = S_OK;
            for (unsigned i = 0; hr == S_OK; ++i) {
                const std::string name = std::to_string(i);
                ComPtr<IStream> stream;
                ULONG written = 0;
                const Bytes content = Pattern(size, i);
                ASSERT_EQ(S_OK, storage->CreateStream(Wide(name).c_str(), kCreate, 0, 0, stream.Put()));
                hr = stream->Write(content.data(), static_cast<ULONG>(size), &written);
                expected["s/" + name] = hr == S_OK ? content : Bytes();
            }
            EXPECT_EQ(STG_E_MEDIUMFULL, hr);
            EXPECT_EQ(S_OK, storage->Commit(STGC_DEFAULT));
        }
        EXPECT_LT(300'000 / (size + 700), expected.size());
        ExpectExpected();
        root.Reset();
    }
}

}  // namespace
}  // namespace quorvane::cfb::test
