#include "fuzz/mailbox.h"

#include <cstring>

#include "engine/items/arguments.h"
#include "engine/session/options/options.h"
#include "platform/cfb/testing/test_support.h"
#include "platform/com/apartment.h"

namespace quorvane::fuzz {

using testing::TestMailbox;

Mailbox& Mailbox::OfProcess()
{
    static const FreeThreadScope freeThread;
    static Mailbox mailbox;
    return mailbox;
}

Mailbox::Mailbox()
{
    session.mapiSession = mailbox.Session();
    session.folders = ComPtr<IFolders>(folders.Get());
    const ComPtr<COptions> options = MakeComObject<COptions>();
    testing::SharedFolder& shared = folders->Share(kSharedId, TestMailbox::IdOf(*inbox), mailbox.StoreId());
    shared.options = ComPtr<IOptions>(options.Get());
    Require(session.HashStores().Add(Bstr(kSharedId).Get(), Bstr(Widen(directory.File(""))).Get()) == 1,
            "a hash store");
    Reset();
}

void Mailbox::Reset()
{
    for (const Bstr& id : TestMailbox::MailsIn(*inbox))
        mailbox.Delete(*inbox, id);
    session.Execute("DELETE FROM tblItem");
    const ComPtr<CItem> item = MakeItem(OLESTR("{A}"));
    const ComPtr<IMessage> message = mailbox.AddMessage(*inbox, {"Old", "Old body", {"zed"}, {"old.txt"}});
    Require(SUCCEEDED(item->put_Raw(message.Get())) && SUCCEEDED(item->DBAppend()), "an item");
    session.host.Forget();
}

ComPtr<CItem> Mailbox::MakeItem(OleStringView id)
{
    ComPtr<CItem> item = MakeComObject<CItem>(&session);
    item->m_bstrID = Bstr(id);
    item->m_bstrFolderID = Bstr(kSharedId);
    return item;
}

ComPtr<CItem> Mailbox::MakeItem(OleStringView id, const testing::TestMail& mail)
{
    ComPtr<CItem> item = MakeItem(id);
    Require(SUCCEEDED(item->put_Raw(testing::MakeDetachedMessage(mail).Get())), "an item's message");
    return item;
}

bool LooksLikeCompoundFile(const BYTE* data, std::size_t size)
{
    static constexpr BYTE kSignature[] = {0xD0, 0xCF, 0x11, 0xE0, 0xA1, 0xB1, 0x1A, 0xE1};
    return size >= sizeof kSignature && std::memcmp(data, kSignature, sizeof kSignature) == 0;
}

ComPtr<IStorage> OpenStorageOn(const BYTE* data, std::size_t size, DWORD mode)
{
    const auto bytes = cfb::test::LockBytesWith(Bytes(data, data + size));
    ComPtr<IStorage> root;
    if (FAILED(cfb::OpenDocfileOnLockBytes(bytes.Get(), mode, root.Put())))
        root.Reset();
    return root;
}

ComPtr<IStream> MakeStreamOn(const BYTE* data, std::size_t size)
{
    ComPtr<IStream> stream;
    ULONG written = 0;
    Require(SUCCEEDED(CreateStreamOnHGlobal(nullptr, TRUE, stream.Put())) &&
                SUCCEEDED(stream->Write(data, static_cast<ULONG>(size), &written)) &&
                SUCCEEDED(stream->Seek(LARGE_INTEGER{}, STREAM_SEEK_SET, nullptr)),
            "a stream in memory");
    return stream;
}

Bytes ContentOfStream(IStream& stream)
{
    Bytes content;
    Require(SUCCEEDED(stream.Seek(LARGE_INTEGER{}, STREAM_SEEK_SET, nullptr)) &&
                SUCCEEDED(cfb::test::ReadAll(stream, &content)),
            "a stream's content");
    return content;
}

Bytes ContentOfStorage(MemoryStorage& memory)
{
    memory.storage.Reset();
    return cfb::test::ContentOf(*memory.bytes);
}

}  // namespace quorvane::fuzz
