#include "host/store/folders.h"

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

// The sub-folder of that name; empty when there is none.
ComPtr<IMAPIFolder> OpenChild(IMAPIFolder& parent, const std::string& name)
{
    ComPtr<IMAPITable> table;
    Check(parent.GetHierarchyTable(0, table.Put()), "list the folders beside", name);
    SizedSPropTagArray(2, columns) = {2, {PR_ENTRYID, PR_DISPLAY_NAME_W}};
    Rows rows;
    Check(HrQueryAllRows(table.Get(), reinterpret_cast<LPSPropTagArray>(&columns), nullptr, nullptr, 0,
                         rows.Put()),
          "list the folders beside", name);
    ComPtr<IMAPIFolder> child;
    for (ULONG i = 0; i < rows.Count() && !child; ++i) {
        const SPropValue* const id = FindValue(rows[i], PR_ENTRYID);
        if (!id || TextOf(rows[i], PR_DISPLAY_NAME_W) != name)
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

std::vector<FolderInfo> ListFolders(const MailSession& session)
{
    ComPtr<IMAPITable> table;
    Check(TopFolder(session)->GetHierarchyTable(CONVENIENT_DEPTH, table.Put()), "list the folders of",
          "the message store");
    SizedSPropTagArray(5, columns) = {
        5, {PR_ENTRYID, PR_DISPLAY_NAME_W, PR_DEPTH, PR_CONTENT_COUNT, PR_CONTENT_UNREAD}};
    Rows rows;
    Check(HrQueryAllRows(table.Get(), reinterpret_cast<LPSPropTagArray>(&columns), nullptr, nullptr, 0,
                         rows.Put()),
          "list the folders of", "the message store");
    std::vector<FolderInfo> folders;
    std::map<LONG, std::string> pathAtDepth;
    for (ULONG i = 0; i < rows.Count(); ++i) {
        const LONG depth = LongOf(rows[i], PR_DEPTH);
        const auto parent = pathAtDepth.find(depth - 1);
        FolderInfo folder;
        folder.path = (parent == pathAtDepth.end() ? std::string() : parent->second + "/") +
                      TextOf(rows[i], PR_DISPLAY_NAME_W);
        folder.entryId = HexOf(rows[i], PR_ENTRYID);
        folder.items = LongOf(rows[i], PR_CONTENT_COUNT);
        folder.unread = LongOf(rows[i], PR_CONTENT_UNREAD);
        pathAtDepth[depth] = folder.path;
        folders.push_back(std::move(folder));
    }
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
    SizedSPropTagArray(10, columns) = {10,
                                       {PR_ENTRYID, PR_SUBJECT_W, PR_SENDER_NAME_W, PR_SENDER_EMAIL_ADDRESS_W,
                                        PR_SEARCH_KEY, PR_CLIENT_SUBMIT_TIME, PR_LAST_MODIFICATION_TIME,
                                        PR_MESSAGE_SIZE, PR_MESSAGE_FLAGS, quorvane::kPrMessageStatus}};
    ForEachItemRow(folder, reinterpret_cast<LPSPropTagArray>(&columns),
                   [&](const SRow& row) { visit(ReadItem(row)); });
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
