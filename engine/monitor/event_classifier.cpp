#include "engine/monitor/event_classifier.h"

#include "engine/items/arguments.h"
#include "engine/session/trace/trace.h"
#include "engine/session/trace/verbose_trace.h"
#include "engine/storeaccess/hex.h"
#include "platform/com/variant.h"

namespace quorvane {

namespace {

constexpr Traced kClassify{"CMsgStores::OnNotify"};

// The events whose record tells of an object; others have something else in its place.
constexpr ULONG kObjectEvents = fnevObjectCreated | fnevObjectDeleted | fnevObjectModified | fnevObjectMoved |
                                fnevObjectCopied | fnevSearchComplete;

constexpr BYTE kShortTerm = 0x80;

const char* NameOf(ULONG event) noexcept
{
    switch (event) {
        case fnevObjectCreated:
            return "fnevObjectCreated";
        case fnevObjectDeleted:
            return "fnevObjectDeleted";
        case fnevObjectModified:
            return "fnevObjectModified";
        case fnevObjectMoved:
            return "fnevObjectMoved";
        case fnevObjectCopied:
            return "fnevObjectCopied";
        default:
            return nullptr;
    }
}

// An identifier among an object's properties; the text stays empty when there is none.
HRESULT ReadId(const ComPtr<IUnknown>& object, ULONG tag, Bstr& text) noexcept
{
    ComPtr<IMAPIProp> properties;
    HR_TRY_QUIET(object.As(properties));
    PropValue value;
    if (FAILED(mapi::HrGetOneProp(properties.Get(), tag, value.Put())) || value->ulPropTag != tag)
        return S_OK;
    return HexFromBinary(value->Value.bin, text);
}

}  // namespace

HRESULT EventClassifier::Classify(const NOTIFICATION& notification) noexcept
{
    const ULONG event = notification.ulEventType;
    if ((event & kObjectEvents) == 0 || notification.info.obj.ulObjType != MAPI_MESSAGE)
        return S_OK;
    const OBJECT_NOTIFICATION& object = notification.info.obj;
    item_ = MakeComObject<CItem>(&session_);
    if (!item_)
        return kClassify(E_OUTOFMEMORY);
    session_.ItemSubmitEvent().Wait();
    bool done = false;
    HR_TRY_QUIET(FindOut(event, object, done));
    return done ? S_OK : Act(event, object);
}

HRESULT EventClassifier::FindOut(ULONG event, const OBJECT_NOTIFICATION& object, bool& done) noexcept
{
    done = true;
    HR_TRY(kClassify, HexFromBinary(object.lpEntryID, object.lpEntryID ? object.cbEntryID : 0, entryId_));
    TraceVerbose(kClassify, "EntryID: %s", entryId_);
    HR_TRY(kClassify, FindPlaces(event, object));
    HR_TRY(kClassify, FindFolders());
    const bool locked = !storeId_.IsEmpty() && session_.TakeItemLock(entryId_.Get(), storeId_.Get());
    if (locked || (!place_.folder && !oldPlace_.folder))
        return S_OK;
    if (message_) {
        bool hidden = false;
        HR_TRY(kClassify, IsHidden(hidden));
        if (hidden)
            return S_OK;
        HR_TRY(kClassify, Identify());
    }
    done = false;
    return S_OK;
}

// A message that can't be opened is known by its identifier alone.
HRESULT EventClassifier::FindPlaces(ULONG event, const OBJECT_NOTIFICATION& object) noexcept
{
    if (const char* const name = NameOf(event))
        TraceVerbose(kClassify, name);
    if (event == fnevObjectMoved) {
        HR_TRY_QUIET(ReadFolderId(object.cbOldParentID, object.lpOldParentID, oldPlace_.entryId));
        TraceVerbose(kClassify, "Old Folder EntryID: %s", oldPlace_.entryId);
    }
    if (event == fnevObjectMoved || event == fnevObjectDeleted)
        HR_TRY_QUIET(ReadFolderId(object.cbParentID, object.lpParentID, place_.entryId));
    if (event != fnevObjectDeleted)
        OpenMessage(object);
    if (message_ && event != fnevObjectMoved)
        HR_TRY_QUIET(ReadId(message_, PR_PARENT_ENTRYID, place_.entryId));
    TraceVerbose(kClassify, "Folder EntryID: %s", place_.entryId);
    return S_OK;
}

HRESULT EventClassifier::OpenEntry(ULONG size, LPENTRYID id, REFIID iid, ComPtr<IUnknown>& object) noexcept
{
    IMAPISession* const mapi = session_.MapiSession();
    if (!mapi)
        return E_HANDLE;
    ULONG type = 0;
    return mapi->OpenEntry(size, id, &iid, 0, &type, object.Put());
}

HRESULT EventClassifier::ReadFolderId(ULONG size, LPENTRYID id, Bstr& text) noexcept
{
    ComPtr<IUnknown> folder;
    HR_TRY_QUIET(OpenEntry(size, id, IID_IMAPIFolder, folder));
    return ReadId(folder, PR_ENTRYID, text);
}

void EventClassifier::OpenMessage(const OBJECT_NOTIFICATION& object) noexcept
{
    HR_IGNORE(OpenEntry(object.cbEntryID, object.lpEntryID, IID_IMessage, message_),
              "it may be gone again; without it the item is in no folder that is known");
}

// A folder that isn't found isn't shared.
HRESULT EventClassifier::Place::Find(IFolders& folders) noexcept
{
    Variant found;
    if (entryId.IsEmpty() || FAILED(folders.get_Item(TextArgument(entryId.Get()), found.Put())))
        return S_OK;
    HR_TRY_QUIET(found.ChangeType(VT_DISPATCH));
    HR_TRY_QUIET(QueryFor(found.Raw().pdispVal, folder));
    return folder->get_ID(id.Put());
}

HRESULT EventClassifier::FindFolders() noexcept
{
    ComPtr<IFolders> folders;
    HR_TRY_QUIET(session_.GetFolders(folders));
    HR_TRY_QUIET(place_.Find(*folders));
    HR_TRY_QUIET(oldPlace_.Find(*folders));
    if (oldPlace_.folder)
        TraceVerbose(kClassify, "OldFolderID: %s", oldPlace_.id);
    if (place_.folder)
        TraceVerbose(kClassify, "FolderID: %s", place_.id);
    IFolder* const folder = place_.folder ? place_.folder.Get() : oldPlace_.folder.Get();
    return folder ? folder->get_StoreID(storeId_.Put()) : S_OK;
}

HRESULT EventClassifier::IsHidden(bool& hidden) noexcept
{
    ComPtr<IMAPIProp> properties;
    HR_TRY_QUIET(message_.As(properties));
    PropValue flags;
    HR_TRY_QUIET(mapi::HrGetOneProp(properties.Get(), PR_MESSAGE_FLAGS, flags.Put()));
    hidden = flags->ulPropTag == PR_MESSAGE_FLAGS && (flags->Value.l & MSGFLAG_ASSOCIATED) != 0;
    return S_OK;
}

// The item takes the row's time, where there is a row; a new one always differs from its saved time.
HRESULT EventClassifier::Identify() noexcept
{
    HR_TRY_QUIET(item_->put_Raw(message_.Get()));
    savedTime_ = item_->m_dblLastModified;
    if (item_->DBRead() == S_OK)
        return S_OK;
    savedTime_ = 0;
    return item_->DBAppend();
}

HRESULT EventClassifier::Act(ULONG event, const OBJECT_NOTIFICATION& object) noexcept
{
    switch (event) {
        case fnevObjectCreated:
        case fnevObjectCopied:
            return ActOnAddition();
        case fnevObjectModified:
            return ActOnChange();
        case fnevObjectDeleted:
            return ActOnDeletion(object);
        case fnevObjectMoved:
            return ActOnMove();
        default:
            return S_OK;
    }
}

HRESULT EventClassifier::ActOnAddition() noexcept
{
    return item_->m_dblLastModified == savedTime_ ? S_OK : ReportAddition();
}

// The host's answer counts the other way round here: what it ignores is sent.
HRESULT EventClassifier::ActOnChange() noexcept
{
    if (item_->m_dblLastModified == savedTime_)
        return S_OK;
    bool ignored = false;
    HR_TRY_QUIET(Report(place_, qv_ac_Modified, &Addin::OnItemChanged, ignored));
    return ignored ? SendAndUpdate() : S_OK;
}

HRESULT EventClassifier::ActOnDeletion(const OBJECT_NOTIFICATION& object) noexcept
{
    if (object.lpEntryID && object.cbEntryID > 0 && (object.lpEntryID->abFlags[0] & kShortTerm) != 0)
        kClassify.Line("Warning: EntryID is short term");
    HR_TRY(kClassify, item_->m_bstrEntryID.Assign(entryId_.Get()));
    HR_TRY(kClassify, item_->m_bstrFolderEntryID.Assign(place_.entryId.Get()));
    HR_TRY(kClassify, item_->m_bstrFolderID.Assign(place_.id.Get()));
    return item_->DBRead() == S_OK ? ReportDeletion(place_) : S_OK;
}

HRESULT EventClassifier::ActOnMove() noexcept
{
    if (oldPlace_.folder) {
        item_->ReleaseMessage();
        HR_TRY_QUIET(ReportDeletion(oldPlace_));
        if (!place_.folder)
            return S_OK;
        HR_TRY(kClassify, item_->put_Raw(message_.Get()));
        HR_TRY(kClassify, item_->DBAppend());
    }
    return ReportAddition();
}

HRESULT EventClassifier::ReportAddition() noexcept
{
    bool ignored = false;
    HR_TRY_QUIET(Report(place_, qv_ac_Added, &Addin::OnItemAdded, ignored));
    return ignored ? S_OK : SendAndUpdate();
}

HRESULT EventClassifier::ReportDeletion(const Place& place) noexcept
{
    bool ignored = false;
    HR_TRY_QUIET(Report(place, qv_ac_Deleted, &Addin::OnItemDeleted, ignored));
    if (!ignored)
        HR_TRY(kClassify, item_->Send(item_->m_bstrFolderEntryID.Get()));
    HR_IGNORE(item_->DBDelete(), "the deletion has been told");
    return S_OK;
}

HRESULT EventClassifier::Report(const Place& place, qv_Action action, Callback callback,
                                bool& ignored) noexcept
{
    HR_TRY(kClassify, item_->m_bstrFolderEntryID.Assign(place.entryId.Get()));
    HR_TRY(kClassify, item_->m_bstrFolderID.Assign(place.id.Get()));
    HR_TRY(kClassify, item_->put_Action(action));
    ComPtr<IItem> offered;
    HR_TRY(kClassify, item_.As(offered));
    return kClassify((addin_.*callback)(offered.Get(), ignored));
}

HRESULT EventClassifier::SendAndUpdate() noexcept
{
    HR_TRY(kClassify, item_->Send(item_->m_bstrFolderEntryID.Get()));
    return kClassify(item_->DBUpdate());
}

}  // namespace quorvane
