// host/store/folders.h: the folders of a mailbox by path, and the items in them.
//
// A folder's path is its display names from below the store's top folder, with '/' between them:
// "Inbox", "Projects/2026".
#ifndef QUORVANE_HOST_STORE_FOLDERS_H_
#define QUORVANE_HOST_STORE_FOLDERS_H_

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "host/store/profile.h"
#include "quorvane3/com.h"
#include "quorvane3/mapi.h"

namespace quorvane::host {

struct FolderInfo {
    std::string path;
    std::string entryId;
    std::string parentId;  // the entry identifier of the folder that it lies in
    LONG items = 0;
    LONG unread = 0;
};

struct ItemInfo {
    std::string entryId;
    std::string subject;
    std::string sender;
    std::string searchKey;
    std::uint64_t sent = 0;
    std::uint64_t modified = 0;
    LONG size = 0;
    LONG flags = 0;   // PR_MESSAGE_FLAGS
    LONG status = 0;  // of IMAPIFolder::GetMessageStatus
    // Whether the row told the sender's address, which stands in the item's content: a row of a damaged item
    // never does.
    bool hasAddress = false;
};

// All folders below the top, parents before children, but for those that search. Throws a HostError.
std::vector<FolderInfo> ListFolders(const MailSession& session);

// The folder at a path. Throws a HostError when there is none.
ComPtr<IMAPIFolder> FindFolder(const MailSession& session, const std::string& path);

// The same; folders that are missing on the way are made.
ComPtr<IMAPIFolder> EnsureFolder(const MailSession& session, const std::string& path);

// Makes the folder at a path, and those that are missing on the way. Throws a HostError where there is one.
ComPtr<IMAPIFolder> MakeFolder(const MailSession& session, const std::string& path);

// Puts the folder at one path to another one, with all that is in it. It stays the folder that it is: entry
// identifiers remain. Throws a HostError where the new path's parent is missing, or lies in the folder, where
// a folder is there, and for a folder that every store has, as the inbox.
void MoveFolder(const MailSession& session, const std::string& path, const std::string& newPath);

// Throws a HostError for a folder that every store has.
void CheckMayGo(const MailSession& session, const std::string& path);
// Deletes a folder that holds nothing; throws a HostError where it holds something.
void DeleteFolder(const MailSession& session, const std::string& path);

// The path that names a folder in one way: without empty parts. Its last part, and what is before that, which
// is empty for a folder right below the top. Throw a HostError for a path that names no folder.
std::string PlainPath(const std::string& path);
std::string NameIn(const std::string& path);
std::string ParentPath(const std::string& path);

// The folder with an entry identifier in hexadecimal text; empty when it can't be opened.
ComPtr<IMAPIFolder> OpenFolder(const MailSession& session, const std::string& entryId);

// The message with an entry identifier in hexadecimal text, to be read or (`modify`) changed as well; empty
// when it can't be opened.
ComPtr<IMessage> OpenMessage(const MailSession& session, const std::string& entryId, bool modify);

// Whether the content of a message can't be read, as its bytes in the store are damaged. One that is gone
// isn't.
bool IsDamaged(const MailSession& session, const std::string& entryId);

// The entry identifier, in hexadecimal text, of the folder that a message lies in; "" when there is no such
// message. Throws a HostError when that can't be told now.
std::string FolderOfMessage(const MailSession& session, const std::string& entryId);

// Calls `visit` for each item of a folder in the folder's own order. Memory doesn't grow with the folder.
void ForEachItem(IMAPIFolder& folder, const std::function<void(const ItemInfo&)>& visit);

// The first items of a folder, so many at most.
std::vector<ItemInfo> FirstItems(IMAPIFolder& folder, std::size_t most);

// The same with the row that each item has of `columns`.
void ForEachItemRow(IMAPIFolder& folder, LPSPropTagArray columns,
                    const std::function<void(const SRow&)>& visit);

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_STORE_FOLDERS_H_
