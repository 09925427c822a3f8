#include "engine/items/arguments.h"
#include "engine/items/item.h"
#include "engine/persist/database.h"
#include "engine/persist/statements.h"
#include "engine/session/trace/trace.h"
#include "quorvane3/carried_message.h"

namespace quorvane {

HRESULT CItem::Load(IStorage* storage, DatabaseSession& session) noexcept
{
    const Traced traced{"CItem::Load"};
    HR_TRY(traced, Load(storage));
    HR_TRY(traced, FindSharedFolder());
    ReadPlace(session);
    ReleaseMessage();

    ComPtr<IStorage> data;
    const HRESULT hr = storage->OpenStorage(kMessageDataName, nullptr, kOpenMode, nullptr, 0, data.Put());
    // No such element is a deletion. One that is there and can't be opened is damage, and must not pass for
    // a deletion: that would cost the receiver the message.
    if (hr == STG_E_FILENOTFOUND)
        return S_OK;
    HR_TRY(traced, hr);
    HR_TRY(traced, CheckCarriedMessage(*data));
    return traced(OpenCarriedMessage(*data));
}

HRESULT CItem::FindSharedFolder() noexcept
{
    ComPtr<IFolders> folders;
    HR_TRY_QUIET(m_pSession->GetFolders(folders));
    ComPtr<IFolder> folder;
    HR_TRY_QUIET(folders->Find(TextArgument(m_bstrFolderID.Get()), NoArgument(), NoArgument(), folder.Put()));
    HR_TRY_QUIET(folder->get_EntryID(m_bstrFolderEntryID.Put()));
    HR_TRY_QUIET(folder->get_StoreID(m_bstrStoreID.Put()));
    return folder->Validate();
}

// The message is opened inside the storage file, after all of it was read once: what can't be read refuses
// the item, and isn't found missing when half of the message is applied.
HRESULT CItem::OpenCarriedMessage(IStorage& data) noexcept
{
    HR_TRY_QUIET(ReadThrough(data));
    HR_TRY_QUIET(m_MessageSession.Open());
    return OpenMessageOnStorage(m_MessageSession.Get(), data, m_pMessage);
}

}  // namespace quorvane
