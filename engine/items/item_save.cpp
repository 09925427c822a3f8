#include "engine/items/contents_stream.h"
#include "engine/items/exclusions.h"
#include "engine/items/item.h"
#include "engine/items/package.h"
#include "engine/session/trace/trace.h"
#include "platform/cfb/stg.h"

namespace quorvane {

HRESULT CItem::Save(IStorage* storage, BOOL sameAsLoad)
{
    if (!storage)
        return E_POINTER;
    const SessionUse use(m_pSession);
    HR_TRY_QUIET(use.Result());
    HRESULT copied = S_OK;
    HR_TRY_QUIET(SaveWith(*storage, sameAsLoad, copied));
    HR_IGNORE(copied, "the result of a save is that of its stream");
    return S_OK;
}

HRESULT CItem::SaveWith(IStorage& storage, BOOL sameAsLoad, HRESULT& copied) noexcept
{
    if (m_pMessage)
        HR_TRY_QUIET(SaveMessage(storage, copied));
    else
        HR_IGNORE(storage.DestroyElement(kMessageDataName), "there is one in a reused storage only");

    ComPtr<IStream> stream;
    HR_TRY_QUIET(CreateContents(storage, stream));
    return Save(stream.Get(), sameAsLoad);
}

// A failure to make the place is returned; a failure to copy the message is traced and told apart, and what
// was copied stays.
HRESULT CItem::SaveMessage(IStorage& storage, HRESULT& copied) noexcept
{
    const Traced traced{"CItem::Save"};
    ComPtr<IStorage> data;
    HR_TRY(traced, storage.CreateStorage(kMessageDataName, kCreateMode, 0, 0, data.Put()));
    MessageSession session;
    HR_TRY(traced, session.Open());
    copied = traced(CopyMessageTo(session.Get(), *data));
    return S_OK;
}

HRESULT CItem::CopyMessageTo(LPMSGSESS session, IStorage& data) noexcept
{
    ComPtr<IMessage> target;
    HR_TRY_QUIET(OpenMessageOnStorage(session, data, target));
    TagList exclusions;
    HR_TRY_QUIET(CarriedExclusions(m_ExcludedProperties, exclusions));
    HR_TRY_QUIET(m_pMessage->CopyTo(0, nullptr, exclusions.Get(), 0, nullptr, &IID_IMessage, target.Get(),
                                    MAPI_DIALOG, nullptr));
    // What is carried is unread.
    HR_TRY_QUIET(target->SetReadFlag(CLEAR_READ_FLAG));
    return target->SaveChanges(KEEP_OPEN_READWRITE);
}

HRESULT CItem::SaveToFile(BSTR FileName)
{
    const Traced traced{"CItem::SaveToFile"};
    if (!FileName)
        return traced(E_INVALIDARG);
    ComPtr<IStorage> file;
    HR_TRY(traced, StgCreateDocfile(FileName, kCreateMode, 0, file.Put()));
    MemoryStorage memory;
    HR_TRY(traced, memory.Create());
    HR_TRY(traced, Save(memory.storage.Get(), TRUE));
    return traced(CopyElement(*memory.storage, *file));
}

}  // namespace quorvane
