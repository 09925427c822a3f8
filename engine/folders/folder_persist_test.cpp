#include <gtest/gtest.h>

#include <string>

#include "engine/folders/folder.h"
#include "engine/items/contents_stream.h"
#include "engine/items/message_storage.h"
#include "platform/cfb/stg.h"

namespace quorvane {
namespace {

std::string ReadContents(IStorage& storage)
{
    ComPtr<IStream> stream;
    EXPECT_EQ(OpenContents(storage, stream), S_OK);
    std::string bytes(4096, '\0');
    ULONG read = 0;
    EXPECT_GE(stream->Read(bytes.data(), static_cast<ULONG>(bytes.size()), &read), 0);
    bytes.resize(read);
    return bytes;
}

class FolderPersistTest : public ::testing::Test {
protected:
    FolderPersistTest()
    {
        EXPECT_EQ(CreateILockBytesOnHGlobal(nullptr, TRUE, bytes.Put()), S_OK);
        EXPECT_EQ(StgCreateDocfileOnILockBytes(bytes.Get(), kCreateMode, 0, storage.Put()), S_OK);
    }

    void WriteContents(const std::string& content)
    {
        ComPtr<IStream> stream;
        ASSERT_EQ(CreateContents(*storage, stream), S_OK);
        ASSERT_EQ(stream->Write(content.data(), static_cast<ULONG>(content.size()), nullptr), S_OK);
    }

    ComPtr<ILockBytes> bytes;
    ComPtr<IStorage> storage;
    ComPtr<CFolder> folder = MakeComObject<CFolder>(nullptr);
};

using namespace std::string_literals;

// A loaded folder is the way to an ID without a session.
const std::string kWithId = "\x10\x07\0\0\0\0\0\0\x06\0\0\0G\0o\0\0\0"s;

TEST_F(FolderPersistTest, CustomInfoAndIdAreWrittenInThisOrder)
{
    WriteContents(kWithId);
    ASSERT_EQ(folder->Load(storage.Get()), S_OK);
    ASSERT_EQ(folder->put_CustomInfo(Bstr(OLESTR("i")).Get()), S_OK);

    ASSERT_EQ(folder->Save(storage.Get(), TRUE), S_OK);

    EXPECT_EQ(ReadContents(*storage), "\x10\x07\0\0\x04\0\0\0i\0\0\0\x06\0\0\0G\0o\0\0\0"s);
}

TEST_F(FolderPersistTest, ANullCustomInfoIsALengthOfZero)
{
    WriteContents(kWithId);
    ASSERT_EQ(folder->Load(storage.Get()), S_OK);

    ASSERT_EQ(folder->Save(storage.Get(), TRUE), S_OK);

    EXPECT_EQ(ReadContents(*storage), kWithId);
}

TEST_F(FolderPersistTest, ALoadedFolderHasCustomInfoAndId)
{
    WriteContents("\x01\0\0\0\x04\0\0\0i\0\0\0\x06\0\0\0G\0o\0\0\0"s);

    ASSERT_EQ(folder->Load(storage.Get()), S_OK);

    Bstr text;
    ASSERT_EQ(folder->get_CustomInfo(text.Put()), S_OK);
    EXPECT_EQ(text.View(), OLESTR("i"));
    ASSERT_EQ(folder->get_ID(text.Put()), S_OK);
    EXPECT_EQ(text.View(), OLESTR("Go"));
    EXPECT_EQ(folder->IsDirty(), S_FALSE);
}

TEST_F(FolderPersistTest, TheLatestVersionIsReadAndALaterOneRefused)
{
    WriteContents("\0\x0A\0\0\0\0\0\0\0\0\0\0"s);
    EXPECT_EQ(folder->Load(storage.Get()), S_OK);

    WriteContents("\x01\x0A\0\0\0\0\0\0\0\0\0\0"s);
    EXPECT_EQ(folder->Load(storage.Get()), E_FAIL);
}

TEST_F(FolderPersistTest, AStorageWithoutContentsIsRefused)
{
    EXPECT_EQ(folder->Load(storage.Get()), STG_E_FILENOTFOUND);
}

TEST_F(FolderPersistTest, AFolderThatIsMadeAnewInAStorageIsToBeSaved)
{
    WriteContents(kWithId);
    ASSERT_EQ(folder->Load(storage.Get()), S_OK);
    ASSERT_EQ(folder->IsDirty(), S_FALSE);

    EXPECT_EQ(folder->InitNew(storage.Get()), S_OK);

    EXPECT_EQ(folder->IsDirty(), S_OK);
}

TEST_F(FolderPersistTest, GetSizeMaxIsTheExactSize)
{
    WriteContents(kWithId);
    ASSERT_EQ(folder->Load(storage.Get()), S_OK);
    ULARGE_INTEGER size{};

    ASSERT_EQ(folder->GetSizeMax(&size), S_OK);

    EXPECT_EQ(size.QuadPart, kWithId.size());
}

}  // namespace
}  // namespace quorvane
