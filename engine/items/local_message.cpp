#include "engine/items/local_message.h"

#include "engine/items/entry.h"

namespace quorvane {

HRESULT FindLocalMessage(IMsgStore& store, BSTR entryId, ComPtr<IMessage>& local) noexcept
{
    local.Reset();
    BinaryId id;
    if (ViewOf(entryId).empty() || FAILED(EntryIdFromHex(entryId, id)))
        return S_OK;
    ULONG type = 0;
    ComPtr<IUnknown> object;
    HR_TRY_QUIET(store.OpenEntry(id.Size(), id.EntryId(), nullptr, MAPI_MODIFY, &type, object.Put()));
    return object.As(local);
}

HRESULT CreateLocalMessage(IMAPIFolder& folder, ComPtr<IMessage>& local) noexcept
{
    PropValue name;
    HR_TRY_QUIET(mapi::HrGetOneProp(&folder, PR_DISPLAY_NAME_A, name.Put()));
    return folder.CreateMessage(nullptr, 0, local.Put());
}

HRESULT DeleteAllProperties(const Traced& traced, IMessage& local) noexcept
{
    MapiBuffer<SPropTagArray> tags;
    HR_TRY_QUIET(local.GetPropList(0, tags.Put()));
    MapiBuffer<SPropProblemArray> problems;
    HR_IGNORE(traced(local.DeleteProps(tags.Get(), problems.Put())), "what is left is overwritten");
    return S_OK;
}

HRESULT LocalMessageId::Read(IMessage& local) noexcept
{
    HR_TRY_QUIET(mapi::HrGetOneProp(&local, PR_ENTRYID, entryId_.Put()));
    return entryId_->ulPropTag == PR_ENTRYID ? S_OK : E_FAIL;
}

HRESULT LocalMessageId::DeleteFrom(IMAPIFolder& folder) noexcept
{
    ENTRYLIST list{1, &entryId_->Value.bin};
    return folder.DeleteMessages(&list, 0, nullptr, 0);
}

}  // namespace quorvane
