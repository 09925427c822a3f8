// Where the functions of this library are stricter, or of another form, than the same ones of Windows.
#include <gtest/gtest.h>

#include <string>

#include "platform/com/com_ptr.h"

namespace quorvane {
namespace {

class MemoryStreamPosixTest : public testing::Test {
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

TEST_F(MemoryStreamPosixTest, WritingPastTheEndLeavesZerosBetween)
{
    ASSERT_EQ(Seek(*stream, 3, STREAM_SEEK_SET), S_OK);
    Write(*stream, "x");
    ASSERT_EQ(Seek(*stream, 0, STREAM_SEEK_SET), S_OK);

    EXPECT_EQ(Read(*stream, 4), std::string("\0\0\0x", 4));
}

TEST_F(MemoryStreamPosixTest, SeekingKnowsThreeOriginsAndStopsAtTheBeginning)
{
    Write(*stream, "abcdef");
    ULONGLONG position = 0;

    EXPECT_EQ(Seek(*stream, -2, STREAM_SEEK_END, &position), S_OK);
    EXPECT_EQ(position, 4u);
    EXPECT_EQ(Seek(*stream, -1, STREAM_SEEK_CUR, &position), S_OK);
    EXPECT_EQ(position, 3u);
    EXPECT_EQ(Seek(*stream, -4, STREAM_SEEK_CUR), STG_E_SEEKERROR);
    EXPECT_EQ(Seek(*stream, 0, 9), STG_E_INVALIDFUNCTION);
    EXPECT_EQ(Seek(*stream, INT64_MIN, STREAM_SEEK_CUR), STG_E_SEEKERROR);
    EXPECT_EQ(Seek(*stream, INT64_MAX, STREAM_SEEK_CUR), STG_E_SEEKERROR);
    EXPECT_EQ(Read(*stream, 10), "def") << "a refused seek leaves the position";
}

TEST_F(MemoryStreamPosixTest, TheSizeCanBeSetBothWaysAndHasALimit)
{
    ULARGE_INTEGER size;
    Write(*stream, "abcdef");

    size.QuadPart = 2;
    EXPECT_EQ(stream->SetSize(size), S_OK);
    EXPECT_EQ(SizeOf(*stream), 2u);
    size.QuadPart = 1ULL << 40;
    EXPECT_EQ(stream->SetSize(size), STG_E_MEDIUMFULL);
    EXPECT_EQ(SizeOf(*stream), 2u);
}

}  // namespace
}  // namespace quorvane
