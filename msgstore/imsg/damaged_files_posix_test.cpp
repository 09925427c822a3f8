// Messages in damaged files: each is read or refused, and reading comes to an end. Off Windows alone: there
// the compound files are the system's.
#include <fstream>
#include <iterator>
#include <random>

#include "msgstore/imsg/corpus_files.h"
#include "msgstore/message/message_fixture.h"

namespace quorvane {
namespace {

// Opens the bytes as a file and reads all there is; whatever comes, it ends.
void ReadAll(const std::string& bytes)
{
    ComPtr<ILockBytes> file;
    ComPtr<IStorage> storage;
    ASSERT_EQ(CreateILockBytesOnHGlobal(nullptr, TRUE, file.Put()), S_OK);
    ASSERT_EQ(file->WriteAt(ULARGE_INTEGER{}, bytes.data(), static_cast<ULONG>(bytes.size()), nullptr), S_OK);
    ComPtr<IMessage> message;
    if (FAILED(StgOpenStorageOnILockBytes(file.Get(), nullptr, STGM_READ | STGM_SHARE_EXCLUSIVE, nullptr, 0,
                                          storage.Put())) ||
        FAILED(OpenMessage(*storage, message)))
        return;
    MemoryFile target;
    ComPtr<IMessage> copy;
    ASSERT_EQ(OpenMessage(*target.storage, copy), S_OK);
    if (SUCCEEDED(say::CopyAll(*message, *copy)))
        (void)copy->SaveChanges(KEEP_OPEN_READWRITE);
}

TEST(DamagedFilesTest, AMessageWithChangedBytesIsReadOrRefused)
{
    std::mt19937 random(20240607);
    int number = 0;
    for (const fs::path& path : CorpusFiles("msg")) {
        if (++number % 8 != 0 || fs::file_size(path) > 100000)
            continue;
        SCOPED_TRACE(path.filename());
        std::ifstream file(path, std::ios::binary);
        const std::string whole((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
        for (int round = 0; round < 30; ++round) {
            std::string bytes = whole;
            for (int change = 0; change < 1 + round; ++change)
                bytes[random() % bytes.size()] = static_cast<char>(random());
            ReadAll(bytes);
        }
    }
}

TEST(DamagedFilesTest, ABrokenCompoundFileIsAnErrorOrAMessage)
{
    for (const fs::path& path : CorpusFiles("ole-bad")) {
        SCOPED_TRACE(path.filename());
        const auto storage = OpenFile(path);
        ComPtr<IMessage> message;
        if (!storage || FAILED(OpenMessage(*storage, message)))
            continue;
        MemoryFile file;
        ComPtr<IMessage> copy;
        ASSERT_EQ(OpenMessage(*file.storage, copy), S_OK);
        if (SUCCEEDED(say::CopyAll(*message, *copy))) {
            EXPECT_EQ(copy->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
        }
    }
}

}  // namespace
}  // namespace quorvane
