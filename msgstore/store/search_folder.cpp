#include "msgstore/store/search_folder.h"

#include <algorithm>

#include "msgstore/store/table_source.h"
#include "msgstore/table/restriction_codec.h"

namespace quorvane {
namespace {

HRESULT ReadFolders(SqliteConnection& connection, const ObjectGuid& store, const ENTRYLIST& list,
                    std::vector<ObjectGuid>& folders)
{
    folders.clear();
    if (!list.lpbin)
        return MAPI_E_INVALID_PARAMETER;
    for (ULONG i = 0; i < list.cValues; ++i) {
        EntryId id;
        QV_RETURN_IF_FAILED(ParseEntryId(list.lpbin[i].lpb, list.lpbin[i].cb, id));
        if (id.kind != MAPI_FOLDER || id.store != store)
            return MAPI_E_UNKNOWN_ENTRYID;
        FolderRow row;
        QV_RETURN_IF_FAILED(FindFolder(connection, id, row));
        if (row.isSearch)
            return MAPI_E_INVALID_PARAMETER;
        folders.push_back(row.guid);
    }
    return S_OK;
}

HRESULT EncodeChecked(const SRestriction& restriction, Bytes& bytes)
{
    std::shared_ptr<const Restriction> checked;
    QV_RETURN_IF_FAILED(Restriction::Make(&restriction, checked));
    return EncodeRestriction(restriction, bytes);
}

HRESULT GiveFolders(const ObjectGuid& store, const std::vector<ObjectGuid>& folders, LPENTRYLIST* result)
{
    const MapiAllocator allocator;
    MapiBuffer<ENTRYLIST> list(static_cast<ENTRYLIST*>(allocator.Allocate(sizeof(ENTRYLIST))));
    if (!list)
        return E_OUTOFMEMORY;
    *list.Get() = {static_cast<ULONG>(folders.size()), static_cast<SBinary*>(allocator.AllocateMore(
                                                           folders.size() * sizeof(SBinary), list.Get()))};
    if (!list->lpbin)
        return E_OUTOFMEMORY;
    for (std::size_t i = 0; i < folders.size(); ++i) {
        const Bytes id = LongTermId(store, MAPI_FOLDER, folders[i]);
        auto* const bytes = static_cast<BYTE*>(allocator.AllocateMore(id.size(), list.Get()));
        if (!bytes)
            return E_OUTOFMEMORY;
        std::copy(id.begin(), id.end(), bytes);
        list->lpbin[i] = {static_cast<ULONG>(id.size()), bytes};
    }
    *result = list.Detach();
    return S_OK;
}

}  // namespace

HRESULT SetSearch(StoreCore& core, std::int64_t folderId, const SRestriction* restriction,
                  const ENTRYLIST* folders, ULONG flags)
{
    if ((flags & STOP_SEARCH) != 0)
        return MAPI_E_NO_SUPPORT;
    return core.Write(Durability::AtReturn, [&](SqliteConnection& connection) -> HRESULT {
        SearchCriteria criteria;
        const HRESULT read = ReadSearchCriteria(connection, folderId, criteria);
        const bool hasFolders = folders && folders->cValues > 0;
        const bool isAnew =
            restriction && hasFolders && (read == MAPI_E_NOT_INITIALIZED || read == MAPI_E_CORRUPT_DATA);
        if (!isAnew)
            QV_RETURN_IF_FAILED(read);
        if (restriction)
            QV_RETURN_IF_FAILED(EncodeChecked(*restriction, criteria.restriction));
        if (hasFolders)
            QV_RETURN_IF_FAILED(ReadFolders(connection, core.Guid(), *folders, criteria.folders));
        criteria.recursive = (flags & RECURSIVE_SEARCH) != 0;
        criteria.foreground = (flags & FOREGROUND_SEARCH) != 0;
        return WriteSearchCriteria(connection, folderId, criteria);
    });
}

HRESULT GetSearch(StoreCore& core, std::int64_t folderId, ULONG flags, LPSRestriction* restriction,
                  LPENTRYLIST* folders, ULONG* state)
{
    SearchCriteria criteria;
    QV_RETURN_IF_FAILED(core.Read(
        [&](SqliteConnection& connection) { return ReadSearchCriteria(connection, folderId, criteria); }));
    MapiBuffer<SRestriction> made;
    QV_RETURN_IF_FAILED(DecodeRestriction(criteria.restriction, (flags & MAPI_UNICODE) != 0, made));
    if (folders)
        QV_RETURN_IF_FAILED(GiveFolders(core.Guid(), criteria.folders, folders));
    if (restriction)
        *restriction = made.Detach();
    if (state)
        *state = SEARCH_RUNNING | (criteria.recursive ? SEARCH_RECURSIVE : 0u) |
                 (criteria.foreground ? SEARCH_FOREGROUND : 0u);
    return S_OK;
}

HRESULT ListFound(StoreCore& core, const FolderRow& folder, std::vector<Bytes>& ids)
{
    return core.Read([&](SqliteConnection& connection) -> HRESULT {
        const std::unique_ptr<TableSource> source = MakeContentsSource(core.Guid(), folder, false, false);
        std::vector<std::int64_t> rows;
        QV_RETURN_IF_FAILED(source->ListRows(connection, {}, rows));
        for (const std::int64_t row : rows)
            ids.push_back(ShortTermId(core.Guid(), MAPI_MESSAGE, row));
        return S_OK;
    });
}

}  // namespace quorvane
