// msgstore/store/stored_file.h: a message on a compound file in memory, for tests.
#ifndef QUORVANE_MSGSTORE_STORE_STORED_FILE_H_
#define QUORVANE_MSGSTORE_STORE_STORED_FILE_H_

#include <gtest/gtest.h>

#include "platform/cfb/stg.h"
#include "platform/com/com_ptr.h"
#include "platform/mapi/mapi.h"

namespace quorvane::testing {

inline constexpr DWORD kStoredFileMode = STGM_READWRITE | STGM_SHARE_EXCLUSIVE;

// A compound file in memory with a message on its root.
struct StoredFile {
    StoredFile()
    {
        EXPECT_EQ(CreateILockBytesOnHGlobal(nullptr, TRUE, bytes.Put()), S_OK);
        EXPECT_EQ(StgCreateDocfileOnILockBytes(bytes.Get(), kStoredFileMode | STGM_CREATE, 0, storage.Put()),
                  S_OK);
        Open();
    }
    void Open()
    {
        EXPECT_EQ(
            OpenIMsgOnIStg(nullptr, MAPIAllocateBuffer, MAPIAllocateMore, MAPIFreeBuffer,
                           MAPIGetDefaultMalloc(), nullptr, storage.Get(), nullptr, 0, 0, message.Put()),
            S_OK);
    }
    // Saves, closes all, and opens the file again.
    void Reopen(DWORD mode = kStoredFileMode)
    {
        ASSERT_EQ(message->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
        message.Reset();
        storage.Reset();
        ASSERT_EQ(StgOpenStorageOnILockBytes(bytes.Get(), nullptr, mode, nullptr, 0, storage.Put()), S_OK);
        Open();
    }

    ComPtr<ILockBytes> bytes;
    ComPtr<IStorage> storage;
    ComPtr<IMessage> message;
};

}  // namespace quorvane::testing

#endif  // QUORVANE_MSGSTORE_STORE_STORED_FILE_H_
