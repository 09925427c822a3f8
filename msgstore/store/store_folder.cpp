#include "msgstore/store/store_folder.h"

#include "msgstore/message/message.h"
#include "msgstore/store/folder_contents.h"
#include "msgstore/store/folder_copy.h"
#include "msgstore/store/folder_properties.h"
#include "msgstore/store/message_transfer.h"
#include "msgstore/store/search_folder.h"
#include "msgstore/store/store_message.h"
#include "msgstore/store/store_rows.h"
#include "msgstore/store/store_table.h"
#include "msgstore/store/text_argument.h"
#include "platform/com/bstr.h"

namespace quorvane {

const IID kStoreFolderIid = {0x6f1c7b52, 0x0d94, 0x4c1e, {0x8a, 0x37, 0xe2, 0x5b, 0x14, 0xc9, 0x60, 0xd8}};

namespace {

// Which way SetReadFlag's flags go: false with `changes` false for those that leave the state alone.
bool WantsRead(ULONG flags, bool& changes) noexcept
{
    changes = (flags & (GENERATE_RECEIPT_ONLY | CLEAR_RN_PENDING | CLEAR_NRN_PENDING)) == 0;
    return (flags & CLEAR_READ_FLAG) == 0;
}

MessageWork Marking(bool read)
{
    return [read](SqliteConnection& connection, std::int64_t id) {
        MessageRow row;
        return SetMessageRead(connection, id, read, row);
    };
}

HRESULT MakeFolder(SqliteConnection& connection, std::int64_t parentId, const std::string& name,
                   const std::string* comment, bool isSearch, bool openIfExists, FolderRow& row)
{
    const HRESULT found = FindFolder(connection, parentId, name, row);
    if (found == S_OK)
        return openIfExists && row.isSearch == isSearch ? S_OK : MAPI_E_COLLISION;
    if (found != MAPI_E_NOT_FOUND)
        return found;
    QV_RETURN_IF_FAILED(InsertFolder(connection, parentId, name, isSearch, row));
    if (!comment)
        return S_OK;
    PropertyBag properties;
    properties.Put(PropertyValue::Unicode(PR_COMMENT_W, FromUtf8(*comment)));
    return UpdateFolder(connection, row.id, name, properties);
}

}  // namespace

HRESULT CStoreFolder::QueryInterface(REFIID riid, void** object)
{
    if (object && IsEqualIID(riid, kStoreFolderIid)) {
        *object = this;
        AddRef();
        return S_OK;
    }
    return StoreProp::QueryInterface(riid, object);
}

HRESULT CStoreFolder::FindRow(SqliteConnection& connection, FolderRow& row) const
{
    const HRESULT found = FindFolder(connection, m_folderId, row);
    return found == MAPI_E_NOT_FOUND ? MAPI_E_OBJECT_DELETED : found;
}

HRESULT CStoreFolder::ReadKept(PropertyBag& bag)
{
    return Core()->Read([&](SqliteConnection& connection) {
        FolderRow row;
        QV_RETURN_IF_FAILED(FindRow(connection, row));
        return PutKeptFolderProperties(connection, row, bag);
    });
}

HRESULT CStoreFolder::WriteKept(const PropertyBag& bag)
{
    PropertyBag kept = bag;
    const PropertyValue* const name = kept.Find(PR_DISPLAY_NAME_W);
    const std::string newName = name ? ToUtf8(name->AsText()) : std::string();
    kept.Erase(PROP_ID(PR_DISPLAY_NAME_W));
    return Core()->Write(Durability::AtReturn, [&](SqliteConnection& connection) {
        FolderRow row;
        QV_RETURN_IF_FAILED(FindRow(connection, row));
        return UpdateFolder(connection, m_folderId, newName.empty() ? row.name : newName, kept);
    });
}

// Nobody waits for a count that he didn't ask for.
HRESULT CStoreFolder::ReadMade(ULONG id, PropertyBag& bag)
{
    const bool counts = id == kAll || IsFolderCount(id);
    return Core()->Read([&](SqliteConnection& connection) {
        FolderRow row;
        QV_RETURN_IF_FAILED(FindRow(connection, row));
        PutFixedFolderProperties(Core()->Guid(), row, bag);
        return counts ? PutFolderCounts(connection, Core()->Guid(), row, bag) : S_OK;
    });
}

HRESULT CStoreFolder::OpenObject(ULONG tag, REFIID iid, ULONG interfaceOptions, ULONG,
                                 LPUNKNOWN* object) noexcept
{
    if (!IsEqualIID(iid, IID_IMAPITable))
        return MAPI_E_INTERFACE_NOT_SUPPORTED;
    auto* const table = reinterpret_cast<LPMAPITABLE*>(object);
    switch (PROP_ID(tag)) {
        case PROP_ID(PR_CONTAINER_CONTENTS):
            return GetContentsTable(interfaceOptions, table);
        case PROP_ID(PR_FOLDER_ASSOCIATED_CONTENTS):
            return GetContentsTable(interfaceOptions | MAPI_ASSOCIATED, table);
        case PROP_ID(PR_CONTAINER_HIERARCHY):
            return GetHierarchyTable(interfaceOptions, table);
        default:
            return MAPI_E_NO_SUPPORT;
    }
}

HRESULT CStoreFolder::GetContentsTable(ULONG flags, LPMAPITABLE* table)
{
    if (!table)
        return MAPI_E_INVALID_PARAMETER;
    *table = nullptr;
    return Guarded([&] {
        bool shortTermIds = false;
        FolderRow row;
        const HRESULT read = Core()->Read([&](SqliteConnection& connection) {
            QV_RETURN_IF_FAILED(FindRow(connection, row));
            return ReadShortTermIds(connection, shortTermIds);
        });
        QV_RETURN_IF_FAILED(read);
        return GiveTable(
            Store().session, Core(),
            MakeContentsSource(Core()->Guid(), row, (flags & MAPI_ASSOCIATED) != 0, shortTermIds), flags,
            table);
    });
}

HRESULT CStoreFolder::GetHierarchyTable(ULONG flags, LPMAPITABLE* table)
{
    if (!table)
        return MAPI_E_INVALID_PARAMETER;
    *table = nullptr;
    return Guarded([&] {
        return GiveTable(Store().session, Core(),
                         MakeHierarchySource(*Core(), m_folderId, (flags & CONVENIENT_DEPTH) != 0), flags,
                         table);
    });
}

HRESULT CStoreFolder::OpenEntry(ULONG idSize, LPENTRYID id, LPCIID iid, ULONG flags, ULONG* type,
                                LPUNKNOWN* object)
{
    return Guarded([&] { return quorvane::OpenObject(Store(), idSize, id, iid, flags, type, object); });
}

HRESULT CStoreFolder::SetSearchCriteria(LPSRestriction restriction, LPENTRYLIST containers, ULONG flags)
{
    return Guarded([&] { return SetSearch(*Core(), m_folderId, restriction, containers, flags); });
}

HRESULT CStoreFolder::GetSearchCriteria(ULONG flags, LPSRestriction* restriction, LPENTRYLIST* containers,
                                        ULONG* state)
{
    return Guarded([&] { return GetSearch(*Core(), m_folderId, flags, restriction, containers, state); });
}

HRESULT CStoreFolder::CreateMessage(LPCIID iid, ULONG flags, LPMESSAGE* message)
{
    if (!message)
        return MAPI_E_INVALID_PARAMETER;
    *message = nullptr;
    return Guarded([&]() -> HRESULT {
        FolderRow row;
        QV_RETURN_IF_FAILED(
            Core()->Read([&](SqliteConnection& connection) { return FindRow(connection, row); }));
        if (row.isSearch)
            return MAPI_E_NO_ACCESS;
        auto backend =
            std::make_shared<StoreMessage>(Core(), m_folderId, row.guid, (flags & MAPI_ASSOCIATED) != 0);
        ComPtr<IMessage> made;
        QV_RETURN_IF_FAILED(MakeMessage(std::move(backend), true, nullptr, made.Put()));
        return made->QueryInterface(iid ? *iid : IID_IMessage, reinterpret_cast<void**>(message));
    });
}

HRESULT CStoreFolder::CopyMessages(LPENTRYLIST messages, LPCIID, LPVOID target, ULONG, LPMAPIPROGRESS,
                                   ULONG flags)
{
    if (!messages || !target || (messages->cValues != 0 && !messages->lpbin))
        return MAPI_E_INVALID_PARAMETER;
    return Guarded([&] {
        auto* const folder = static_cast<IUnknown*>(target);
        const bool move = (flags & MESSAGE_MOVE) != 0;
        ComPtr<CStoreFolder> here;
        if (SUCCEEDED(folder->QueryInterface(kStoreFolderIid, here.PutVoid())) && here->Core() == Core())
            return TransferWithin(*Core(), m_folderId, here->FolderId(), *messages, move);
        ComPtr<IMAPIFolder> elsewhere;
        QV_RETURN_IF_FAILED(QueryFor(folder, elsewhere));
        return TransferTo(*this, *elsewhere, *messages, move);
    });
}

HRESULT CStoreFolder::DeleteMessages(LPENTRYLIST messages, ULONG, LPMAPIPROGRESS, ULONG)
{
    if (!messages || (messages->cValues != 0 && !messages->lpbin))
        return MAPI_E_INVALID_PARAMETER;
    ListProgress progress;
    const HRESULT written = Core()->WriteInSteps([&](SqliteConnection& connection, const StepTime& time) {
        return WorkOnListed(connection, Core()->Guid(), m_folderId, *messages, DeleteMessage, time, progress);
    });
    QV_RETURN_IF_FAILED(written);
    return progress.partial ? MAPI_W_PARTIAL_COMPLETION : S_OK;
}

HRESULT CStoreFolder::CreateFolder(ULONG type, LPTSTR name, LPTSTR comment, LPCIID iid, ULONG flags,
                                   LPMAPIFOLDER* folder)
{
    if (!name || !folder)
        return MAPI_E_INVALID_PARAMETER;
    *folder = nullptr;
    if (type != FOLDER_GENERIC && type != FOLDER_SEARCH)
        return MAPI_E_INVALID_PARAMETER;
    return Guarded([&] {
        const std::string itsName = TextArgument(name, flags);
        const std::string itsComment = comment ? TextArgument(comment, flags) : std::string();
        if (itsName.empty())
            return MAPI_E_INVALID_PARAMETER;
        FolderRow row;
        const HRESULT written = Core()->Write(Durability::AtReturn, [&](SqliteConnection& connection) {
            QV_RETURN_IF_FAILED(CheckTakesIn(connection, m_folderId));
            return MakeFolder(connection, m_folderId, itsName, comment ? &itsComment : nullptr,
                              type == FOLDER_SEARCH, (flags & OPEN_IF_EXISTS) != 0, row);
        });
        QV_RETURN_IF_FAILED(written);
        return GiveFolder(Store(), row.id, iid, MAPI_MODIFY, reinterpret_cast<LPUNKNOWN*>(folder));
    });
}

HRESULT CStoreFolder::CopyFolder(ULONG idSize, LPENTRYID id, LPCIID, LPVOID target, LPTSTR newName, ULONG,
                                 LPMAPIPROGRESS, ULONG flags)
{
    if (!target)
        return MAPI_E_INVALID_PARAMETER;
    EntryId parsed;
    QV_RETURN_IF_FAILED(ParseEntryId(id, idSize, parsed));
    if (parsed.kind != MAPI_FOLDER || parsed.store != Core()->Guid())
        return MAPI_E_UNKNOWN_ENTRYID;
    return Guarded([&]() -> HRESULT {
        const std::string name = TextArgument(newName, flags);
        auto* const folder = static_cast<IUnknown*>(target);
        ComPtr<CStoreFolder> here;
        if (FAILED(folder->QueryInterface(kStoreFolderIid, here.PutVoid())) || here->Core() != Core())
            return CopyToOtherStore(parsed, *folder, name, flags);
        if ((flags & FOLDER_MOVE) == 0)
            return CopyFolderWithin(*Core(), m_folderId, parsed, here->FolderId(), name,
                                    (flags & COPY_SUBFOLDERS) != 0);
        return Core()->Write(Durability::AtReturn, [&](SqliteConnection& connection) {
            return MoveFolderBelow(connection, m_folderId, parsed, here->FolderId(), name);
        });
    });
}

HRESULT CStoreFolder::CopyToOtherStore(const EntryId& id, IUnknown& target, const std::string& name,
                                       ULONG flags)
{
    const bool move = (flags & FOLDER_MOVE) != 0;
    ComPtr<IMAPIFolder> elsewhere;
    QV_RETURN_IF_FAILED(QueryFor(&target, elsewhere));
    FolderRow row;
    QV_RETURN_IF_FAILED(Core()->Read([&](SqliteConnection& connection) {
        return move ? FindMovableFolder(connection, m_folderId, id, row)
                    : FindFolderBelow(connection, m_folderId, id, row);
    }));
    return CopyFolderTo(*this, LongTermId(Core()->Guid(), MAPI_FOLDER, row.guid), *elsewhere,
                        FromUtf8(name.empty() ? row.name : name),
                        {.subfolders = move || (flags & COPY_SUBFOLDERS) != 0, .move = move});
}

HRESULT CStoreFolder::DeleteFolder(ULONG idSize, LPENTRYID id, ULONG, LPMAPIPROGRESS, ULONG flags)
{
    EntryId parsed;
    QV_RETURN_IF_FAILED(ParseEntryId(id, idSize, parsed));
    if (parsed.kind != MAPI_FOLDER || parsed.store != Core()->Guid())
        return MAPI_E_UNKNOWN_ENTRYID;
    QV_RETURN_IF_FAILED(Core()->WriteInSteps([&](SqliteConnection& connection, const StepTime& time) {
        return DeleteFolderBelow(connection, m_folderId, parsed, flags, time);
    }));
    // What was to be deleted is: space that can't be given back now serves what comes.
    (void)Core()->GiveSpaceBack();
    return S_OK;
}

HRESULT CStoreFolder::SetReadFlags(LPENTRYLIST messages, ULONG, LPMAPIPROGRESS, ULONG flags)
{
    bool changes = false;
    const bool read = WantsRead(flags, changes);
    if (!changes)
        return S_OK;
    return Guarded([&] { return messages ? MarkListed(*messages, read) : MarkAll(read); });
}

HRESULT CStoreFolder::MarkListed(const ENTRYLIST& messages, bool read)
{
    ListProgress progress;
    const HRESULT written = Core()->WriteInSteps([&](SqliteConnection& connection, const StepTime& time) {
        return WorkOnListed(connection, Core()->Guid(), m_folderId, messages, Marking(read), time, progress);
    });
    QV_RETURN_IF_FAILED(written);
    return progress.partial ? MAPI_W_PARTIAL_COMPLETION : S_OK;
}

HRESULT CStoreFolder::MarkAll(bool read)
{
    FolderRow row;
    QV_RETURN_IF_FAILED(Core()->Read([&](SqliteConnection& connection) { return FindRow(connection, row); }));
    if (!row.isSearch) {
        std::int64_t last = 0;
        return Core()->WriteInSteps([&](SqliteConnection& connection, const StepTime& time) {
            return WorkOnAll(connection, m_folderId, false, Marking(read), time, last);
        });
    }
    std::vector<Bytes> found;
    QV_RETURN_IF_FAILED(ListFound(*Core(), row, found));
    std::vector<SBinary> ids;
    for (Bytes& id : found)
        ids.push_back({static_cast<ULONG>(id.size()), id.data()});
    const HRESULT marked = MarkListed({static_cast<ULONG>(ids.size()), ids.data()}, read);
    return FAILED(marked) ? marked : S_OK;  // what isn't found any more needs no mark
}

HRESULT CStoreFolder::GetMessageStatus(ULONG idSize, LPENTRYID id, ULONG, ULONG* status)
{
    if (!status)
        return MAPI_E_INVALID_PARAMETER;
    EntryId parsed;
    QV_RETURN_IF_FAILED(ParseEntryId(id, idSize, parsed));
    return Core()->Read([&](SqliteConnection& connection) {
        MessageRow row;
        QV_RETURN_IF_FAILED(FindMessage(connection, parsed, row));
        *status = static_cast<ULONG>(row.status);
        return S_OK;
    });
}

HRESULT CStoreFolder::SetMessageStatus(ULONG idSize, LPENTRYID id, ULONG newStatus, ULONG mask,
                                       ULONG* oldStatus)
{
    EntryId parsed;
    QV_RETURN_IF_FAILED(ParseEntryId(id, idSize, parsed));
    MessageRow row;
    const HRESULT written = Core()->Write(Durability::AtReturn, [&](SqliteConnection& connection) {
        QV_RETURN_IF_FAILED(FindMessage(connection, parsed, row));
        return quorvane::SetMessageStatus(connection, row.id, newStatus, mask, row);
    });
    QV_RETURN_IF_FAILED(written);
    if (oldStatus)
        *oldStatus = static_cast<ULONG>(row.status);
    return S_OK;
}

HRESULT CStoreFolder::SaveContentsSort(LPSSortOrderSet, ULONG)
{
    return MAPI_E_NO_SUPPORT;
}

HRESULT CStoreFolder::EmptyFolder(ULONG, LPMAPIPROGRESS, ULONG flags)
{
    FolderRow row;
    QV_RETURN_IF_FAILED(Core()->Read([&](SqliteConnection& connection) { return FindRow(connection, row); }));
    if (row.isSearch)
        return MAPI_E_NO_SUPPORT;
    QV_RETURN_IF_FAILED(Core()->WriteInSteps([&](SqliteConnection& connection, const StepTime& time) {
        return EmptyFolderRows(connection, m_folderId, (flags & DEL_ASSOCIATED) != 0, time);
    }));
    (void)Core()->GiveSpaceBack();  // as in DeleteFolder
    return S_OK;
}

}  // namespace quorvane
