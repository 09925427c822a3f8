// A message on structured storage, as a .msg file has it, on its way into a store and out of it again.
//
// Whatever it says, it ends in a code. What the store took can be read, and can be carried on; whole, if it
// was that.
#include "engine/storeaccess/mapi_memory.h"
#include "fuzz/mailbox.h"
#include "quorvane3/carried_message.h"

namespace quorvane::fuzz {
namespace {

using testing::TestMailbox;

HRESULT CopyTo(IMessage& from, IMessage& to)
{
    HRESULT hr = from.CopyTo(0, nullptr, nullptr, 0, nullptr, &IID_IMessage, &to, 0, nullptr);
    return FAILED(hr) ? hr : to.SaveChanges(KEEP_OPEN_READWRITE);
}

void CarryOn(IMessage& message, bool isWhole)
{
    MemoryStorage memory;
    MessageSession session;
    ComPtr<IMessage> carried;
    Require(SUCCEEDED(memory.Create()) && SUCCEEDED(session.Open()) &&
                SUCCEEDED(OpenMessageOnStorage(session.Get(), *memory.storage, carried)),
            "a message in memory");
    Require(SUCCEEDED(CopyTo(message, *carried)), "what the store took can't be carried on");
    carried.Reset();
    Require(!isWhole || CheckCarriedMessage(*memory.storage) == S_OK,
            "what was whole isn't so when it is carried on");
}

void RunMsg(const BYTE* data, std::size_t size)
{
    Mailbox& here = Mailbox::OfProcess();
    const ComPtr<IStorage> storage = OpenStorageOn(data, size, STGM_READ | STGM_SHARE_EXCLUSIVE);
    if (!storage)
        return;
    const bool isWhole = CheckCarriedMessage(*storage) == S_OK;
    MessageSession session;
    Require(SUCCEEDED(session.Open()), "a message session");
    ComPtr<IMessage> message;
    if (FAILED(OpenMessageOnStorage(session.Get(), *storage, message)))
        return;
    ComPtr<IMessage> imported;
    Require(here.inbox->CreateMessage(nullptr, 0, imported.Put()) == S_OK, "a message of the store");
    if (FAILED(CopyTo(*message, *imported)))
        return;
    const Bstr id = TestMailbox::IdOf(*imported);
    CarryOn(*imported, isWhole);
    imported.Reset();
    const ComPtr<IMessage> kept = here.mailbox.Open(id);
    Require(static_cast<bool>(kept), "what the store took isn't there");
    ULONG count = 0;
    MapiBuffer<SPropValue> values;
    Require(SUCCEEDED(kept->GetProps(nullptr, MAPI_UNICODE, &count, values.Put())),
            "what the store took can't be read");
    here.mailbox.Delete(*here.inbox, id);
}

// A mail with everything: recipients, attachments, and a mail in an attachment.
void FillWhole(IMessage& message, int depth)
{
    TestMailbox::Fill(message, {"Hello", "Body", {"ann", "bob"}, {"a.txt", "b.txt"}});
    if (depth == 0)
        return;
    ULONG number = 0;
    ComPtr<IAttach> attachment;
    ComPtr<IMessage> embedded;
    Require(message.CreateAttach(nullptr, 0, &number, attachment.Put()) == S_OK, "an attachment");
    SPropValue method{};
    method.ulPropTag = PR_ATTACH_METHOD;
    method.Value.l = ATTACH_EMBEDDED_MSG;
    Require(SUCCEEDED(attachment->SetProps(1, &method, nullptr)), "an attachment");
    Require(attachment->OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IMessage, 0, MAPI_CREATE | MAPI_MODIFY,
                                     embedded.PutUnknown()) == S_OK,
            "an embedded message");
    FillWhole(*embedded, depth - 1);
    Require(embedded->SaveChanges(0) == S_OK && attachment->SaveChanges(0) == S_OK, "an attachment");
}

template <class Fill>
Bytes MakeMsg(const Fill& fill)
{
    return MakeCompoundFile([&](IStorage& storage) {
        MessageSession session;
        ComPtr<IMessage> message;
        Require(SUCCEEDED(session.Open()) && SUCCEEDED(OpenMessageOnStorage(session.Get(), storage, message)),
                "a message on a storage");
        fill(*message);
        Require(message->SaveChanges(0) == S_OK, "a message");
    });
}

std::vector<Bytes> MakeMsgSeeds()
{
    Mailbox::OfProcess();
    return {MakeMsg([](IMessage&) {}), MakeMsg([](IMessage& message) { FillWhole(message, 0); }),
            MakeMsg([](IMessage& message) { FillWhole(message, 2); })};
}

}  // namespace

const Target kMsg{"msg", RunMsg, MakeMsgSeeds};

}  // namespace quorvane::fuzz
