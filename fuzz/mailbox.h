// fuzz/mailbox.h: what received items meet: a session of the engine, over a mailbox with a shared folder in
// it.
#ifndef QUORVANE_FUZZ_MAILBOX_H_
#define QUORVANE_FUZZ_MAILBOX_H_

#include "engine/items/item.h"
#include "engine/items/message_storage.h"
#include "engine/items/testing/test_folders.h"
#include "engine/items/testing/test_mailbox.h"
#include "engine/items/testing/test_session.h"
#include "fuzz/target.h"

namespace quorvane::fuzz {

// The shared folder's ID.
inline constexpr OLECHAR kSharedId[] = OLESTR("{F}");

// One for a process, made when it is first asked for; for one thread at a time. Throws std::runtime_error.
class Mailbox {
public:
    static Mailbox& OfProcess();

    // The folder with the message of one item in it, {A}, whatever was in it.
    void Reset();

    ComPtr<CItem> MakeItem(OleStringView id);
    // One with a message, not saved anywhere.
    ComPtr<CItem> MakeItem(OleStringView id, const testing::TestMail& mail);

    const test::TestDirectory directory;
    testing::TestMailbox mailbox;
    testing::TestSession session;
    ComPtr<testing::SharedFolders> folders = MakeComObject<testing::SharedFolders>();
    ComPtr<IMAPIFolder> inbox = mailbox.MakeFolder("Inbox");

private:
    Mailbox();
};

// A compound file that `fill` (IStorage& -> void) fills.
template <class Fill>
Bytes MakeCompoundFile(const Fill& fill);

// Whether bytes begin as a compound file does.
bool LooksLikeCompoundFile(const BYTE* data, std::size_t size);
// The root of a compound file in memory that holds these bytes; empty when it doesn't open.
ComPtr<IStorage> OpenStorageOn(const BYTE* data, std::size_t size, DWORD mode = kOpenMode);
// A stream in memory that stands at the beginning of these bytes.
ComPtr<IStream> MakeStreamOn(const BYTE* data, std::size_t size);
// All that was written to such a stream.
Bytes ContentOfStream(IStream& stream);

// Implementation.

Bytes ContentOfStorage(MemoryStorage& memory);

template <class Fill>
Bytes MakeCompoundFile(const Fill& fill)
{
    MemoryStorage memory;
    Require(SUCCEEDED(memory.Create()), "a storage in memory");
    fill(*memory.storage);
    return ContentOfStorage(memory);
}

}  // namespace quorvane::fuzz

#endif  // QUORVANE_FUZZ_MAILBOX_H_
