// msgstore/store/search_folder.h: what callers do to folders that search.
#ifndef QUORVANE_MSGSTORE_STORE_SEARCH_FOLDER_H_
#define QUORVANE_MSGSTORE_STORE_SEARCH_FOLDER_H_

#include "msgstore/store/search_criteria.h"
#include "msgstore/store/store_core.h"

namespace quorvane {

// IMAPIFolder::SetSearchCriteria. A search is never stopped and never ends: each look at the folder shows
// what there is to find at that moment. All that a caller leaves out stays as it was, but RECURSIVE_SEARCH.
//
// MAPI_E_NO_SUPPORT: the folder doesn't search, or STOP_SEARCH; MAPI_E_NOT_INITIALIZED: something was left
// out that was never given; MAPI_E_UNKNOWN_ENTRYID: a folder of another store; MAPI_E_NOT_FOUND: one that is
// gone; MAPI_E_INVALID_PARAMETER: one that searches itself, or a malformed restriction; MAPI_E_TOO_COMPLEX.
[[nodiscard]] HRESULT SetSearch(StoreCore& core, std::int64_t folderId, const SRestriction* restriction,
                                const ENTRYLIST* folders, ULONG flags);

// IMAPIFolder::GetSearchCriteria. MAPI_E_NO_SUPPORT, MAPI_E_NOT_INITIALIZED as ReadSearchCriteria.
[[nodiscard]] HRESULT GetSearch(StoreCore& core, std::int64_t folderId, ULONG flags,
                                LPSRestriction* restriction, LPENTRYLIST* folders, ULONG* state);

// The entry identifiers of all that a folder finds.
[[nodiscard]] HRESULT ListFound(StoreCore& core, const FolderRow& folder, std::vector<Bytes>& ids);

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_STORE_SEARCH_FOLDER_H_
