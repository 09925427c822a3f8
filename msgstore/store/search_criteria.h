// msgstore/store/search_criteria.h: what a search folder shows.
//
// Nothing is kept of what was found: whoever asks searches, and so finds what is there at that moment.
#ifndef QUORVANE_MSGSTORE_STORE_SEARCH_CRITERIA_H_
#define QUORVANE_MSGSTORE_STORE_SEARCH_CRITERIA_H_

#include <vector>

#include "msgstore/store/folder_rows.h"

namespace quorvane {

// In the folder's row, little-endian: flags (4 bytes: 1 recursive, 2 in the foreground), the count of folders
// (4), their GUIDs (16 each), the restriction (restriction_codec.h). No bytes: nothing was asked for yet.
struct SearchCriteria {
    bool recursive = false;           // also what is below the folders
    bool foreground = false;          // as the caller said; it makes no difference
    std::vector<ObjectGuid> folders;  // that are searched; those that are gone don't count
    Bytes restriction;
};

// MAPI_E_NO_SUPPORT: it's no search folder; MAPI_E_NOT_INITIALIZED: nothing was asked for yet;
// MAPI_E_CORRUPT_DATA; MAPI_E_OBJECT_DELETED: it's gone.
[[nodiscard]] HRESULT ReadSearchCriteria(SqliteConnection& connection, std::int64_t folderId,
                                         SearchCriteria& criteria);

// Within a transaction that writes; logs the change.
[[nodiscard]] HRESULT WriteSearchCriteria(SqliteConnection& connection, std::int64_t folderId,
                                          const SearchCriteria& criteria);

// The folders that are searched, at all depths.
[[nodiscard]] HRESULT ListSearchedFolders(SqliteConnection& connection, const SearchCriteria& criteria,
                                          std::vector<std::int64_t>& ids);

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_STORE_SEARCH_CRITERIA_H_
