#include "host/store/folders.h"

#include <algorithm>
#include <map>

#include "host/base/errors.h"
#include "host/store/properties.h"

namespace quorvane::host {

namespace {

constexpr LONG kRowsAtOnce = 200;

ComPtr<IMAPIFolder> TopFolder(const MailSession& session)
{
    MapiMemory<SPropValue> id;
    Check(HrGetOneProp(&session.Store(), PR_IPM_SUBTREE_ENTRYID, id.Put()), "open the top folder of",
          "the message store");
    ComPtr<IMAPIFolder> folder;
    ULONG type = 0;
    Check(session.Store().OpenEntry(id->Value.bin.cb, reinterpret_cast<LPENTRYID>(id->Value.bin.lpb),
                                    &IID_IMAPIFolder, MAPI_BEST_ACCESS, &type, folder.PutUnknown()),
          "open the top folder of", "the message store");
    return folder;
}

std::vector<std::string> SplitPath(const std::string& path)
{
    std::vector<std::string> parts;
    std::size_t begin = 0;
    while (begin <= path.size()) {
        const std::size_t end = std::min(path.find('/', begin), path.size());
        if (end > begin)
            parts.push_back(path.substr(begin, end - begin));
        begin = end + 1;
    }
    if (parts.empty())
        Fail("open the folder", path, "the path names no folder");
    return parts;
}

// One that another program of the user's has made to show messages of other folders: it holds nothing that
// could be shared, listed as its own or imported into.
bool Searches(const SRow& row)
{
    return LongOf(row, PR_FOLDER_TYPE) == LONG{FOLDER_SEARCH};
}

// The sub-folder of that name; empty when there is none.
ComPtr<IMAPIFolder> OpenChild(IMAPIFolder& parent, const std::string& name)
{
    ComPtr<IMAPITable> table;
    Check(parent.GetHierarchyTable(0, table.Put()), "list the folders beside", name);
    SizedSPropTagArray(3, columns) = {3, {PR_ENTRYID, PR_DISPLAY_NAME_W, PR_FOLDER_TYPE}};
    Rows rows;
    Check(HrQueryAllRows(table.Get(), reinterpret_cast<LPSPropTagArray>(&columns), nullptr, nullptr, 0,
                         rows.Put()),
          "list the folders beside", name);
    ComPtr<IMAPIFolder> child;
    for (ULONG i = 0; i < rows.Count() && !child; ++i) {
        const SPropValue* const id = FindValue(rows[i], PR_ENTRYID);
        if (!id || TextOf(rows[i], PR_DISPLAY_NAME_W) != name || Searches(rows[i]))
            continue;
        ULONG type = 0;
        Check(parent.OpenEntry(id->Value.bin.cb, reinterpret_cast<LPENTRYID>(id->Value.bin.lpb),
                               &IID_IMAPIFolder, MAPI_BEST_ACCESS, &type, child.PutUnknown()),
              "open the folder", name);
    }
    return child;
}

ComPtr<IMAPIFolder> MakeChild(IMAPIFolder& parent, const std::string& name)
{
    OleString wide = FromUtf8(name);
    ComPtr<IMAPIFolder> child;
    Check(parent.CreateFolder(FOLDER_GENERIC, reinterpret_cast<LPTSTR>(wide.data()), nullptr, nullptr,
                              MAPI_UNICODE | OPEN_IF_EXISTS, child.Put()),
          "make the folder", name);
    return child;
}

ComPtr<IMAPIFolder> FindParent(const MailSession& session, const std::string& path)
{
    const std::string parent = ParentPath(path);
    return parent.empty() ? TopFolder(session) : FindFolder(session, parent);
}

// The inbox and its like.
std::vector<std::string> FirstFolders(const MailSession& session)
{
    std::vector<std::string> ids;
    for (const ULONG tag : {PR_IPM_OUTBOX_ENTRYID, PR_IPM_SENTMAIL_ENTRYID, PR_IPM_WASTEBASKET_ENTRYID})
        ids.push_back(HexOf(session.Store(), tag));
    ULONG size = 0;
    MapiMemory<ENTRYID> inbox;
    Check(session.Store().GetReceiveFolder(nullptr, 0, &size, inbox.Put(), nullptr), "find the inbox of",
          "the message store");
    const auto* const bytes = reinterpret_cast<const BYTE*>(inbox.Get());
    ids.push_back(Hex(Bytes(bytes, bytes + size)));
    return ids;
}

void Rename(IMAPIFolder& folder, const std::string& path, const std::string& newPath)
{
    const HRESULT hr = SetText(folder, PR_DISPLAY_NAME_W, NameIn(newPath));
    if (hr == MAPI_E_COLLISION)
        Fail("move the folder", path, "there is one at '" + newPath + "' already");
    Check(hr, "move the folder", path);
}

// Of what an ItemInfo is made.
LPSPropTagArray ItemColumns()
{
    static SizedSPropTagArray(10, columns) = {
        10,
        {PR_ENTRYID, PR_SUBJECT_W, PR_SENDER_NAME_W, PR_SENDER_EMAIL_ADDRESS_W, PR_SEARCH_KEY,
         PR_CLIENT_SUBMIT_TIME, PR_LAST_MODIFICATION_TIME, PR_MESSAGE_SIZE, PR_MESSAGE_FLAGS,
         quorvane::kPrMessageStatus}};
    return reinterpret_cast<LPSPropTagArray>(&columns);
}

ItemInfo ReadItem(const SRow& row)
{
    ItemInfo item;
    item.entryId = HexOf(row, PR_ENTRYID);
    item.subject = TextOf(row, PR_SUBJECT_W);
    item.sender = TextOf(row, PR_SENDER_NAME_W);
    const std::string address = TextOf(row, PR_SENDER_EMAIL_ADDRESS_W);
    item.hasAddress = !address.empty();
    if (item.sender.empty())
        item.sender = address;
    item.searchKey = HexOf(row, PR_SEARCH_KEY);
    item.sent = TimeOf(row, PR_CLIENT_SUBMIT_TIME);
    item.modified = TimeOf(row, PR_LAST_MODIFICATION_TIME);
    item.size = LongOf(row, PR_MESSAGE_SIZE);
    item.flags = LongOf(row, PR_MESSAGE_FLAGS);
    item.status = LongOf(row, quorvane::kPrMessageStatus);
    return item;
}

// By the folder that they are in; their paths are their names yet.
using FoldersBelow = std::map<std::string, std::vector<FolderInfo>>;

// A store shows each of its folders in one place, so that this ends.
void AppendTree(FoldersBelow& below, const std::string& entryId, const std::string& path,
                std::vector<FolderInfo>& folders)
{
    const auto found = below.find(entryId);
    if (found == below.end())
        return;
    for (FolderInfo& folder : found->second) {
        folder.path = (path.empty() ? "" : path + "/") + folder.path;
        folders.push_back(folder);
        AppendTree(below, folder.entryId, folder.path, folders);
    }
}

template <class Object>
HRESULT TryOpenEntry(const MailSession& session, const std::string& entryId, ULONG flags,
                     ComPtr<Object>& result)
{
    Bytes id = FromHex(entryId);
    ComPtr<IUnknown> object;
    ULONG type = 0;
    const HRESULT hr = session.Store().OpenEntry(static_cast<ULONG>(id.size()), EntryIdOf(id), &Iid<Object>(),
                                                 flags, &type, object.Put());
    return SUCCEEDED(hr) ? object.As(result) : hr;
}

template <class Object>
ComPtr<Object> OpenEntry(const MailSession& session, const std::string& entryId, ULONG flags)
{
    ComPtr<Object> result;
    return SUCCEEDED(TryOpenEntry(session, entryId, flags, result)) ? result : nullptr;
}

}  // namespace

// The store lists them in the order in which they were made.
std::vector<FolderInfo> ListFolders(const MailSession& session)
{
    const ComPtr<IMAPIFolder> top = TopFolder(session);
    ComPtr<IMAPITable> table;
    Check(top->GetHierarchyTable(CONVENIENT_DEPTH, table.Put()), "list the folders of", "the message store");
    SizedSPropTagArray(6, columns) = {6,
                                      {PR_ENTRYID, PR_PARENT_ENTRYID, PR_DISPLAY_NAME_W, PR_CONTENT_COUNT,
                                       PR_CONTENT_UNREAD, PR_FOLDER_TYPE}};
    Rows rows;
    Check(HrQueryAllRows(table.Get(), reinterpret_cast<LPSPropTagArray>(&columns), nullptr, nullptr, 0,
                         rows.Put()),
          "list the folders of", "the message store");
    FoldersBelow below;
    for (ULONG i = 0; i < rows.Count(); ++i) {
        if (Searches(rows[i]))
            continue;
        below[HexOf(rows[i], PR_PARENT_ENTRYID)].push_back(
            {TextOf(rows[i], PR_DISPLAY_NAME_W), HexOf(rows[i], PR_ENTRYID),
             HexOf(rows[i], PR_PARENT_ENTRYID), LongOf(rows[i], PR_CONTENT_COUNT),
             LongOf(rows[i], PR_CONTENT_UNREAD)});
    }
    std::vector<FolderInfo> folders;
    AppendTree(below, HexOf(*top, PR_ENTRYID), {}, folders);
    return folders;
}

ComPtr<IMAPIFolder> FindFolder(const MailSession& session, const std::string& path)
{
    ComPtr<IMAPIFolder> folder = TopFolder(session);
    for (const std::string& name : SplitPath(path)) {
        folder = OpenChild(*folder, name);
        if (!folder)
            Fail("open the folder", path, "no such folder");
    }
    return folder;
}

ComPtr<IMAPIFolder> EnsureFolder(const MailSession& session, const std::string& path)
{
    ComPtr<IMAPIFolder> folder = TopFolder(session);
    for (const std::string& name : SplitPath(path)) {
        ComPtr<IMAPIFolder> child = OpenChild(*folder, name);
        folder = child ? child : MakeChild(*folder, name);
    }
    return folder;
}

std::string PlainPath(const std::string& path)
{
    std::string plain;
    for (const std::string& name : SplitPath(path))
        plain += (plain.empty() ? "" : "/") + name;
    return plain;
}

std::string NameIn(const std::string& path)
{
    return SplitPath(path).back();
}

std::string ParentPath(const std::string& path)
{
    const std::string plain = PlainPath(path);
    const std::size_t slash = plain.rfind('/');
    return slash == std::string::npos ? std::string() : plain.substr(0, slash);
}

ComPtr<IMAPIFolder> MakeFolder(const MailSession& session, const std::string& path)
{
    const std::string parent = ParentPath(path);
    const ComPtr<IMAPIFolder> above = parent.empty() ? TopFolder(session) : EnsureFolder(session, parent);
    OleString wide = FromUtf8(NameIn(path));
    ComPtr<IMAPIFolder> made;
    const HRESULT hr = above->CreateFolder(FOLDER_GENERIC, reinterpret_cast<LPTSTR>(wide.data()), nullptr,
                                           nullptr, MAPI_UNICODE, made.Put());
    if (hr == MAPI_E_COLLISION)
        Fail("make the folder", path, "there is one already");
    Check(hr, "make the folder", path);
    return made;
}

void CheckMayGo(const MailSession& session, const std::string& path)
{
    const std::string id = HexOf(*FindFolder(session, path), PR_ENTRYID);
    const std::vector<std::string> first = FirstFolders(session);
    if (std::find(first.begin(), first.end(), id) != first.end())
        Fail("move or delete the folder", path, "each mailbox has it");
}

void MoveFolder(const MailSession& session, const std::string& path, const std::string& newPath)
{
    CheckMayGo(session, path);
    const ComPtr<IMAPIFolder> folder = FindFolder(session, path);
    const ComPtr<IMAPIFolder> from = FindParent(session, path);
    const ComPtr<IMAPIFolder> to = FindParent(session, newPath);
    if (HexOf(*from, PR_ENTRYID) == HexOf(*to, PR_ENTRYID))
        return Rename(*folder, path, newPath);
    Bytes id = FromHex(HexOf(*folder, PR_ENTRYID));
    OleString wide = FromUtf8(NameIn(newPath));
    const HRESULT hr =
        from->CopyFolder(static_cast<ULONG>(id.size()), EntryIdOf(id), &IID_IMAPIFolder, to.Get(),
                         reinterpret_cast<LPTSTR>(wide.data()), 0, nullptr, FOLDER_MOVE | MAPI_UNICODE);
    if (hr == MAPI_E_COLLISION)
        Fail("move the folder", path, "there is one at '" + newPath + "' already");
    if (hr == MAPI_E_FOLDER_CYCLE)
        Fail("move the folder", path, "it would lie in itself");
    Check(hr, "move the folder", path);
}

void DeleteFolder(const MailSession& session, const std::string& path)
{
    Bytes id = FromHex(HexOf(*FindFolder(session, path), PR_ENTRYID));
    Check(
        FindParent(session, path)->DeleteFolder(static_cast<ULONG>(id.size()), EntryIdOf(id), 0, nullptr, 0),
        "delete the folder", path);
}

ComPtr<IMAPIFolder> OpenFolder(const MailSession& session, const std::string& entryId)
{
    return OpenEntry<IMAPIFolder>(session, entryId, MAPI_BEST_ACCESS);
}

ComPtr<IMessage> OpenMessage(const MailSession& session, const std::string& entryId, bool modify)
{
    return OpenEntry<IMessage>(session, entryId, modify ? MAPI_MODIFY : 0);
}

bool IsDamaged(const MailSession& session, const std::string& entryId)
{
    ComPtr<IMessage> message;
    HRESULT hr = TryOpenEntry(session, entryId, 0, message);
    MapiMemory<SPropTagArray> tags;
    if (SUCCEEDED(hr))
        hr = message->GetPropList(MAPI_UNICODE, tags.Put());
    return hr == MAPI_E_CORRUPT_DATA;
}

std::string FolderOfMessage(const MailSession& session, const std::string& entryId)
{
    ComPtr<IMessage> message;
    const HRESULT hr = TryOpenEntry(session, entryId, 0, message);
    if (hr == MAPI_E_NOT_FOUND || hr == MAPI_E_OBJECT_DELETED || hr == MAPI_E_INVALID_ENTRYID)
        return {};
    Check(hr, "look for the message", entryId);
    MapiMemory<SPropValue> parent;
    Check(HrGetOneProp(message.Get(), PR_PARENT_ENTRYID, parent.Put()), "find the folder of the message",
          entryId);
    return Hex(parent->Value.bin);
}

void ForEachItem(IMAPIFolder& folder, const std::function<void(const ItemInfo&)>& visit)
{
    ForEachItemRow(folder, ItemColumns(), [&](const SRow& row) { visit(ReadItem(row)); });
}

std::vector<ItemInfo> FirstItems(IMAPIFolder& folder, std::size_t most)
{
    ComPtr<IMAPITable> table;
    Check(folder.GetContentsTable(0, table.Put()), "list the items of", "the folder");
    Check(table->SetColumns(ItemColumns(), 0), "list the items of", "the folder");
    Rows rows;
    Check(table->QueryRows(static_cast<LONG>(most), 0, rows.Put()), "list the items of", "the folder");
    std::vector<ItemInfo> items;
    for (ULONG i = 0; i < rows.Count(); ++i)
        items.push_back(ReadItem(rows[i]));
    return items;
}

void ForEachItemRow(IMAPIFolder& folder, LPSPropTagArray columns,
                    const std::function<void(const SRow&)>& visit)
{
    ComPtr<IMAPITable> table;
    Check(folder.GetContentsTable(0, table.Put()), "list the items of", "the folder");
    Check(table->SetColumns(columns, 0), "list the items of", "the folder");
    for (;;) {
        Rows rows;
        Check(table->QueryRows(kRowsAtOnce, 0, rows.Put()), "list the items of", "the folder");
        if (rows.Count() == 0)
            return;
        for (ULONG i = 0; i < rows.Count(); ++i)
            visit(rows[i]);
    }
}

}  // namespace quorvane::host
