#include <gtest/gtest.h>

#include <string>

#include "platform/com/com_ptr.h"

namespace quorvane {
namespace {

class MemoryStreamTest : public testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(CreateStreamOnHGlobal(nullptr, TRUE, stream.Put()), S_OK); }

    static void Write(IStream& to, std::string_view text)
    {
        ULONG written = 0;
        ASSERT_EQ(to.Write(text.data(), static_cast<ULONG>(text.size()), &written), S_OK);
        ASSERT_EQ(written, text.size());
    }

    static std::string Read(IStream& from, ULONG count)
    {
        std::string text(count, '\0');
        ULONG read = 0;
        EXPECT_EQ(from.Read(text.data(), count, &read), S_OK);
        text.resize(read);
        return text;
    }

    static HRESULT Seek(IStream& in, LONGLONG move, DWORD origin, ULONGLONG* position = nullptr)
    {
        LARGE_INTEGER distance;
        ULARGE_INTEGER result{};
        distance.QuadPart = move;
        const HRESULT hr = in.Seek(distance, origin, &result);
        if (position)
            *position = result.QuadPart;
        return hr;
    }

    static ULONGLONG SizeOf(IStream& of)
    {
        STATSTG stat{};
        EXPECT_EQ(of.Stat(&stat, STATFLAG_NONAME), S_OK);
        return stat.cbSize.QuadPart;
    }

    ComPtr<IStream> stream;
};

TEST_F(MemoryStreamTest, WhatWasWrittenIsReadBack)
{
    Write(*stream, "hello");
    ASSERT_EQ(Seek(*stream, 1, STREAM_SEEK_SET), S_OK);

    EXPECT_EQ(Read(*stream, 3), "ell");
    EXPECT_EQ(Read(*stream, 10), "o");
    EXPECT_EQ(Read(*stream, 10), "");
}

TEST_F(MemoryStreamTest, CloneSharesBytesAndHasAPositionOfItsOwn)
{
    Write(*stream, "abc");
    ComPtr<IStream> clone;
    ASSERT_EQ(stream->Clone(clone.Put()), S_OK);
    ASSERT_EQ(Seek(*stream, 0, STREAM_SEEK_SET), S_OK);

    Write(*clone, "def");

    EXPECT_EQ(Read(*stream, 10), "abcdef");
}

TEST_F(MemoryStreamTest, CopyingIntoACloneGoesOnToTheEnd)
{
    const std::string text(10000, 'q');
    Write(*stream, text);
    ComPtr<IStream> target;
    ASSERT_EQ(CreateStreamOnHGlobal(nullptr, TRUE, target.Put()), S_OK);
    ASSERT_EQ(Seek(*stream, 0, STREAM_SEEK_SET), S_OK);
    ULARGE_INTEGER all;
    ULARGE_INTEGER read{};
    ULARGE_INTEGER written{};
    all.QuadPart = ~0ULL;

    EXPECT_EQ(stream->CopyTo(target.Get(), all, &read, &written), S_OK);

    EXPECT_EQ(read.QuadPart, text.size());
    EXPECT_EQ(written.QuadPart, text.size());
    EXPECT_EQ(SizeOf(*target), text.size());
}

}  // namespace
}  // namespace quorvane
