// msgstore/imsg/corpus_files.h: for tests: the corpus's files as storages and messages.
#ifndef QUORVANE_MSGSTORE_IMSG_CORPUS_FILES_H_
#define QUORVANE_MSGSTORE_IMSG_CORPUS_FILES_H_

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <vector>

#include "platform/cfb/stg.h"
#include "platform/com/bstr.h"
#include "platform/com/com_ptr.h"
#include "platform/mapi/mapi.h"

namespace quorvane {

namespace fs = std::filesystem;

// The files of one of the corpus's folders; none, with a line that says so, where there's no corpus.
inline std::vector<fs::path> CorpusFiles(const char* folder)
{
    std::vector<fs::path> files;
    const char* const corpus = std::getenv("QUORVANE_CORPUS");
    if (!corpus) {
        std::puts("QUORVANE_CORPUS isn't set: nothing to test here");
        return files;
    }
    for (const auto& entry : fs::directory_iterator(fs::path(corpus) / folder))
        files.push_back(entry.path());
    std::sort(files.begin(), files.end());
    EXPECT_FALSE(files.empty());
    return files;
}

inline ComPtr<IStorage> OpenFile(const fs::path& path)
{
    ComPtr<IStorage> storage;
    (void)StgOpenStorage(FromUtf8(path.string()).c_str(), nullptr, STGM_READ | STGM_SHARE_EXCLUSIVE, nullptr,
                         0, storage.Put());
    return storage;
}

inline HRESULT OpenMessage(IStorage& storage, ComPtr<IMessage>& message)
{
    return OpenIMsgOnIStg(nullptr, MAPIAllocateBuffer, MAPIAllocateMore, MAPIFreeBuffer,
                          MAPIGetDefaultMalloc(), nullptr, &storage, nullptr, 0, 0, message.Put());
}

// A storage in memory.
struct MemoryFile {
    MemoryFile()
    {
        EXPECT_EQ(CreateILockBytesOnHGlobal(nullptr, TRUE, bytes.Put()), S_OK);
        EXPECT_EQ(StgCreateDocfileOnILockBytes(
                      bytes.Get(), STGM_CREATE | STGM_READWRITE | STGM_SHARE_EXCLUSIVE, 0, storage.Put()),
                  S_OK);
    }
    ComPtr<ILockBytes> bytes;
    ComPtr<IStorage> storage;
};

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_IMSG_CORPUS_FILES_H_
