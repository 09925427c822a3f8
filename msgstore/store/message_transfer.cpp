#include "msgstore/store/message_transfer.h"

#include "msgstore/store/folder_contents.h"
#include "platform/com/com_ptr.h"

namespace quorvane {
namespace {

HRESULT IsAssociated(IMessage& message, bool& associated)
{
    MapiBuffer<SPropValue> flags;
    QV_RETURN_IF_FAILED(HrGetOneProp(&message, PR_MESSAGE_FLAGS, flags.Put()));
    associated = (flags->Value.l & MSGFLAG_ASSOCIATED) != 0;
    return S_OK;
}

HRESULT TransferOne(IMAPIFolder& from, IMAPIFolder& to, const SBinary& id, bool move)
{
    ComPtr<IMessage> original;
    ULONG type = 0;
    QV_RETURN_IF_FAILED(from.OpenEntry(id.cb, reinterpret_cast<LPENTRYID>(id.lpb), &IID_IMessage, 0, &type,
                                       original.PutUnknown()));
    bool associated = false;
    QV_RETURN_IF_FAILED(IsAssociated(*original, associated));
    ComPtr<IMessage> copy;
    QV_RETURN_IF_FAILED(to.CreateMessage(nullptr, associated ? MAPI_ASSOCIATED : 0, copy.Put()));
    QV_RETURN_IF_FAILED(
        original->CopyTo(0, nullptr, nullptr, 0, nullptr, &IID_IMessage, copy.Get(), 0, nullptr));
    QV_RETURN_IF_FAILED(copy->SaveChanges(0));
    if (!move)
        return S_OK;
    SBinary one = id;
    ENTRYLIST list{1, &one};
    return from.DeleteMessages(&list, 0, nullptr, 0);
}

}  // namespace

HRESULT TransferWithin(StoreCore& core, std::int64_t fromFolder, std::int64_t toFolder,
                       const ENTRYLIST& messages, bool move)
{
    ListProgress progress;
    const auto transfer = [&](SqliteConnection& connection, std::int64_t id) {
        return move ? MoveMessage(connection, id, toFolder) : CopyMessage(connection, id, toFolder);
    };
    const HRESULT written =
        core.WriteInSteps([&](SqliteConnection& connection, const StepTime& time) -> HRESULT {
            QV_RETURN_IF_FAILED(CheckTakesIn(connection, toFolder));
            return WorkOnListed(connection, core.Guid(), fromFolder, messages, transfer, time, progress);
        });
    QV_RETURN_IF_FAILED(written);
    return progress.partial ? MAPI_W_PARTIAL_COMPLETION : S_OK;
}

HRESULT TransferTo(IMAPIFolder& from, IMAPIFolder& to, const ENTRYLIST& messages, bool move)
{
    bool partial = false;
    for (ULONG i = 0; i < messages.cValues; ++i) {
        const HRESULT result = TransferOne(from, to, messages.lpbin[i], move);
        if (result == MAPI_E_NOT_FOUND)
            partial = true;
        else
            QV_RETURN_IF_FAILED(result);
    }
    return partial ? MAPI_W_PARTIAL_COMPLETION : S_OK;
}

}  // namespace quorvane
