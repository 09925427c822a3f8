#include "msgstore/store/store_objects.h"

#include <algorithm>

#include "msgstore/message/message.h"
#include "msgstore/store/folder_rows.h"
#include "msgstore/store/object_events.h"
#include "msgstore/store/store_folder.h"
#include "msgstore/store/store_message.h"

namespace quorvane {
namespace {

HRESULT OpenMessageRow(const OpenedStore& store, const EntryId& id, ULONG flags, LPCIID iid,
                       LPUNKNOWN* object)
{
    MessageRow row;
    QV_RETURN_IF_FAILED(
        store.core->Read([&](SqliteConnection& connection) { return FindMessage(connection, id, row); }));
    ComPtr<IMessage> message;
    QV_RETURN_IF_FAILED(MakeMessage(std::make_shared<StoreMessage>(store.core, row), IsWritable(flags),
                                    nullptr, message.Put()));
    return message->QueryInterface(iid ? *iid : IID_IMessage, reinterpret_cast<void**>(object));
}

HRESULT OpenFolderRow(const OpenedStore& store, const EntryId& id, ULONG flags, LPCIID iid, LPUNKNOWN* object)
{
    FolderRow row;
    QV_RETURN_IF_FAILED(
        store.core->Read([&](SqliteConnection& connection) { return FindFolder(connection, id, row); }));
    return GiveFolder(store, row.id, iid, flags, object);
}

}  // namespace

bool IsWritable(ULONG flags) noexcept
{
    return (flags & (MAPI_MODIFY | MAPI_BEST_ACCESS)) != 0;
}

HRESULT OpenObject(const OpenedStore& store, ULONG idSize, const ENTRYID* id, LPCIID iid, ULONG flags,
                   ULONG* type, LPUNKNOWN* object)
{
    if (!object)
        return MAPI_E_INVALID_PARAMETER;
    *object = nullptr;
    EntryId parsed;
    if (idSize == 0 || !id) {
        parsed.store = store.core->Guid();
        parsed.kind = MAPI_FOLDER;
        parsed.isShortTerm = true;
        parsed.row = static_cast<std::int64_t>(FolderRole::Root);
    } else {
        QV_RETURN_IF_FAILED(ParseEntryId(id, idSize, parsed));
    }
    if (parsed.store != store.core->Guid())
        return MAPI_E_UNKNOWN_ENTRYID;
    if (parsed.kind == MAPI_STORE)
        return MAPI_E_INVALID_ENTRYID;
    QV_RETURN_IF_FAILED(parsed.kind == MAPI_FOLDER ? OpenFolderRow(store, parsed, flags, iid, object)
                                                   : OpenMessageRow(store, parsed, flags, iid, object));
    if (type)
        *type = parsed.kind;
    return S_OK;
}

HRESULT ResolveGuid(StoreCore& core, const EntryId& id, ObjectGuid& guid)
{
    if (!id.isShortTerm) {
        guid = id.object;
        return S_OK;
    }
    return core.Read([&](SqliteConnection& connection) {
        if (id.kind == MAPI_FOLDER) {
            FolderRow row;
            QV_RETURN_IF_FAILED(FindFolder(connection, id, row));
            guid = row.guid;
            return S_OK;
        }
        MessageRow row;
        QV_RETURN_IF_FAILED(FindMessage(connection, id, row));
        guid = row.guid;
        return S_OK;
    });
}

HRESULT AreSameObject(StoreCore& core, ByteView first, ByteView second, bool& same)
{
    same = std::equal(first.begin(), first.end(), second.begin(), second.end());
    EntryId a;
    EntryId b;
    if (same || FAILED(ParseEntryId(first.data(), first.size(), a)) ||
        FAILED(ParseEntryId(second.data(), second.size(), b)))
        return S_OK;
    if (a.kind != b.kind || a.store != b.store || a.store != core.Guid())
        return S_OK;
    ObjectGuid guidA;
    ObjectGuid guidB;
    const HRESULT resolvedA = ResolveGuid(core, a, guidA);
    const HRESULT resolvedB = ResolveGuid(core, b, guidB);
    if (resolvedA == MAPI_E_NOT_FOUND || resolvedB == MAPI_E_NOT_FOUND)
        return S_OK;
    QV_RETURN_IF_FAILED(resolvedA);
    QV_RETURN_IF_FAILED(resolvedB);
    same = guidA == guidB;
    return S_OK;
}

HRESULT CompareIds(SessionState& session, ByteView first, ByteView second, bool& same)
{
    same = std::equal(first.begin(), first.end(), second.begin(), second.end());
    EntryId id;
    if (same || FAILED(ParseEntryId(first.data(), first.size(), id)))
        return S_OK;
    std::shared_ptr<StoreCore> core;
    const HRESULT opened = session.OpenStore(id.store, core);
    if (opened == MAPI_E_UNKNOWN_ENTRYID)
        return S_OK;
    QV_RETURN_IF_FAILED(opened);
    return AreSameObject(*core, first, second, same);
}

HRESULT GiveFolder(const OpenedStore& store, std::int64_t folderId, LPCIID iid, ULONG flags,
                   LPUNKNOWN* object)
{
    const auto folder = MakeComObject<CStoreFolder>(store, folderId, IsWritable(flags));
    if (!folder)
        return E_OUTOFMEMORY;
    return folder->QueryInterface(iid ? *iid : IID_IMAPIFolder, reinterpret_cast<void**>(object));
}

HRESULT AdviseObjects(const OpenedStore& store, ULONG idSize, const ENTRYID* id, ULONG eventMask,
                      LPMAPIADVISESINK sink, ULONG* connection)
{
    if (!sink || !connection)
        return MAPI_E_INVALID_PARAMETER;
    std::optional<ObjectGuid> object;
    EntryId parsed;
    if (idSize != 0 && id) {
        QV_RETURN_IF_FAILED(ParseEntryId(id, idSize, parsed));
        if (parsed.store != store.core->Guid())
            return MAPI_E_UNKNOWN_ENTRYID;
        if (parsed.kind != MAPI_STORE)
            QV_RETURN_IF_FAILED(ResolveGuid(*store.core, parsed, object.emplace()));
    }
    std::shared_ptr<EventSource> events;
    QV_RETURN_IF_FAILED(MakeObjectEvents(store.core, object, eventMask, events));
    return store.session->Hub().Advise(std::move(events), *sink, *connection);
}

}  // namespace quorvane
