#include "engine/items/contents_stream.h"

#include <gtest/gtest.h>

#include <string>

#include "engine/items/item.h"
#include "engine/items/testing/test_session.h"
#include "platform/com/com_object.h"

namespace quorvane {
namespace {

ComPtr<IStream> MakeStream(const std::string& bytes = {})
{
    ComPtr<IStream> stream;
    EXPECT_EQ(CreateStreamOnHGlobal(nullptr, TRUE, stream.Put()), S_OK);
    ULONG written = 0;
    EXPECT_EQ(stream->Write(bytes.data(), static_cast<ULONG>(bytes.size()), &written), S_OK);
    EXPECT_EQ(stream->Seek(LARGE_INTEGER{}, STREAM_SEEK_SET, nullptr), S_OK);
    return stream;
}

std::string BytesOf(IStream& stream)
{
    EXPECT_EQ(stream.Seek(LARGE_INTEGER{}, STREAM_SEEK_SET, nullptr), S_OK);
    std::string bytes(65536, '\0');
    ULONG read = 0;
    EXPECT_GE(stream.Read(bytes.data(), static_cast<ULONG>(bytes.size()), &read), 0);
    bytes.resize(read);
    return bytes;
}

std::string Word(ULONG value)
{
    std::string bytes;
    for (int shift = 0; shift < 32; shift += 8)
        bytes += static_cast<char>(value >> shift & 0xFF);
    return bytes;
}

// A text as it stands in the stream.
std::string Text(const std::string& ascii)
{
    std::string bytes = Word(static_cast<ULONG>(2 * ascii.size() + 2));
    for (const char c : ascii)
        bytes += std::string{c, '\0'};
    return bytes + std::string(2, '\0');
}

// A stream on a medium that fails once: at its first read.
class StumblingStream final : public ComObject<StumblingStream, Answers<IStream, ISequentialStream>> {
public:
    explicit StumblingStream(ComPtr<IStream> sound) : sound_(std::move(sound)) {}

    HRESULT STDMETHODCALLTYPE Read(void* bytes, ULONG size, ULONG* read) override
    {
        return reads_++ == 0 ? STG_E_READFAULT : sound_->Read(bytes, size, read);
    }
    HRESULT STDMETHODCALLTYPE Write(const void*, ULONG, ULONG*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Seek(LARGE_INTEGER, DWORD, ULARGE_INTEGER*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SetSize(ULARGE_INTEGER) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE CopyTo(IStream*, ULARGE_INTEGER, ULARGE_INTEGER*, ULARGE_INTEGER*) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE Commit(DWORD) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Revert() override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE LockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE UnlockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE Stat(STATSTG*, DWORD) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Clone(IStream**) override { return E_NOTIMPL; }

private:
    const ComPtr<IStream> sound_;
    int reads_ = 0;
};

class ContentsStreamTest : public ::testing::Test {
protected:
    HRESULT LoadItem(const std::string& bytes) { return item->Load(MakeStream(bytes).Get()); }

    std::string SavedItem()
    {
        const ComPtr<IStream> stream = MakeStream();
        EXPECT_EQ(item->Save(stream.Get(), FALSE), S_OK);
        return BytesOf(*stream);
    }

    ComPtr<CItem> item = MakeComObject<CItem>(nullptr);
};

const std::string kNothing = Word(0);

TEST_F(ContentsStreamTest, AnItemIsWrittenAsVersionIdFolderIdCustomInfoAndAction)
{
    item->m_bstrID = Bstr(OLESTR("id"));
    item->m_bstrFolderID = Bstr(OLESTR("folder"));
    item->m_bstrCustomInfo = Bstr(OLESTR("i"));
    item->m_lAction = qv_ac_Modified;

    EXPECT_EQ(SavedItem(), Word(0x0710) + Text("id") + Text("folder") + Text("i") + Word(20));
}

TEST_F(ContentsStreamTest, AnItemWithNothingInItTakesTwentyBytes)
{
    EXPECT_EQ(SavedItem(), Word(1808) + kNothing + kNothing + kNothing + Word(0));
}

TEST_F(ContentsStreamTest, AnEmptyTextIsWrittenWithItsTerminator)
{
    item->m_bstrID = Bstr(OleStringView());

    EXPECT_EQ(SavedItem().substr(4, 6), Text(""));
}

TEST_F(ContentsStreamTest, GetSizeMaxIsTheExactSize)
{
    item->m_bstrID = Bstr(OLESTR("some id"));
    ULARGE_INTEGER size{};

    ASSERT_EQ(item->GetSizeMax(&size), S_OK);

    EXPECT_EQ(size.QuadPart, SavedItem().size());
    EXPECT_EQ(item->GetSizeMax(nullptr), E_POINTER);
}

TEST_F(ContentsStreamTest, WhatWasWrittenIsReadBack)
{
    item->m_bstrID = Bstr(OLESTR("{1F}\u00e9\u4e2d"));
    item->m_bstrFolderID = Bstr(OLESTR("folder"));
    item->m_lAction = -7;
    const std::string bytes = SavedItem();
    item = MakeComObject<CItem>(nullptr);

    ASSERT_EQ(LoadItem(bytes), S_OK);

    EXPECT_EQ(item->m_bstrID.View(), OLESTR("{1F}\u00e9\u4e2d"));
    EXPECT_EQ(item->m_bstrFolderID.View(), OLESTR("folder"));
    EXPECT_TRUE(item->m_bstrCustomInfo.IsNull());
    EXPECT_EQ(item->m_lAction, -7);
}

TEST_F(ContentsStreamTest, EarlierVersionsAndTheLatestAreRead)
{
    const std::string rest = kNothing + kNothing + kNothing + Word(0);

    EXPECT_EQ(LoadItem(Word(1) + rest), S_OK);
    EXPECT_EQ(LoadItem(Word(2560) + rest), S_OK);
}

TEST_F(ContentsStreamTest, ALaterVersionIsRefused)
{
    EXPECT_EQ(LoadItem(Word(2561) + kNothing + kNothing + kNothing + Word(0)), E_FAIL);
}

TEST_F(ContentsStreamTest, AStreamWithoutAWholeVersionIsRefused)
{
    EXPECT_EQ(LoadItem(""), E_FAIL);
    EXPECT_EQ(LoadItem(std::string(3, '\0')), E_FAIL);
}

// What comes after it would pass for an item of its own.
TEST_F(ContentsStreamTest, AVersionThatCantBeReadIsTheEndOfTheReading)
{
    item->m_bstrID = Bstr(OLESTR("id"));
    const auto stream = MakeComObject<StumblingStream>(MakeStream(kNothing + kNothing + kNothing + kNothing));

    EXPECT_EQ(item->Load(static_cast<IStream*>(stream.Get())), STG_E_READFAULT);

    EXPECT_EQ(Narrow(item->m_bstrID.View()), "id");
}

TEST_F(ContentsStreamTest, ALengthOfZeroIsANullTextAndALengthOfTwoAnEmptyOne)
{
    ASSERT_EQ(LoadItem(Word(1) + kNothing + Text("") + kNothing + Word(0)), S_OK);

    EXPECT_TRUE(item->m_bstrID.IsNull());
    EXPECT_FALSE(item->m_bstrFolderID.IsNull());
    EXPECT_TRUE(item->m_bstrFolderID.IsEmpty());
}

TEST_F(ContentsStreamTest, ALengthOfOneIsRefused)
{
    EXPECT_EQ(LoadItem(Word(1) + Word(1) + std::string(64, '\0')), E_FAIL);
}

TEST_F(ContentsStreamTest, ALengthOverAMegabyteIsDenied)
{
    EXPECT_EQ(LoadItem(Word(1) + Word(0x100001)), E_ACCESSDENIED);
    EXPECT_EQ(LoadItem(Word(1) + Word(0xFFFFFFFF)), E_ACCESSDENIED);
    // One less is only too long for this stream.
    EXPECT_EQ(LoadItem(Word(1) + Word(0x100000)), E_FAIL);
}

TEST_F(ContentsStreamTest, ATextWithoutATerminatorIsRefused)
{
    EXPECT_EQ(LoadItem(Word(1) + Word(4) + std::string{'a', '\0', 'b', '\0'} + std::string(64, '\0')),
              E_FAIL);
    EXPECT_EQ(LoadItem(Word(1) + Word(3) + std::string{'a', '\0', '\0'} + std::string(64, '\0')), E_FAIL);
}

TEST_F(ContentsStreamTest, EveryCutOfAStreamIsRefusedAndKeepsWhatWasReadBefore)
{
    const std::string whole = Word(1808) + Text("id") + Text("folder") + kNothing + Word(10);
    for (size_t size = 0; size < whole.size(); ++size) {
        item = MakeComObject<CItem>(nullptr);
        EXPECT_EQ(LoadItem(whole.substr(0, size)), E_FAIL) << size;
        EXPECT_EQ(item->m_bstrID.IsNull(), size < 4 + Text("id").size()) << size;
        EXPECT_EQ(item->m_lAction, 0) << size;
    }
    EXPECT_EQ(LoadItem(whole), S_OK);
}

TEST_F(ContentsStreamTest, LoadingClearsTheDirtyFlagAndInitNewSetsIt)
{
    ASSERT_EQ(item->InitNew(), S_OK);
    EXPECT_EQ(item->IsDirty(), S_OK);

    EXPECT_EQ(LoadItem(""), E_FAIL);
    EXPECT_EQ(item->IsDirty(), S_OK);
    ASSERT_EQ(LoadItem(SavedItem()), S_OK);
    EXPECT_EQ(item->IsDirty(), S_FALSE);
}

TEST_F(ContentsStreamTest, ANullPlaceIsRefused)
{
    EXPECT_EQ(item->Load(static_cast<IStream*>(nullptr)), E_POINTER);
    EXPECT_EQ(item->Load(static_cast<IStorage*>(nullptr)), E_POINTER);
    EXPECT_EQ(item->Save(static_cast<IStream*>(nullptr), FALSE), E_POINTER);
    EXPECT_EQ(item->Save(static_cast<IStorage*>(nullptr), FALSE), E_POINTER);
}

}  // namespace
}  // namespace quorvane
