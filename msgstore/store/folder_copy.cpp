#include "msgstore/store/folder_copy.h"

#include <algorithm>
#include <map>

#include "msgstore/props/property_copy.h"
#include "msgstore/store/folder_contents.h"
#include "msgstore/store/message_transfer.h"
#include "platform/com/com_ptr.h"

namespace quorvane {
namespace {

// Another store may have folders within themselves.
constexpr int kDeepestTransfer = 1000;
// So many messages of another store are asked for at once.
constexpr LONG kRowsAtOnce = 100;

// One copy, step by step.
class FolderCopier {
public:
    FolderCopier(std::int64_t fromFolder, const EntryId& id, std::int64_t toFolder, const std::string& name,
                 bool subfolders)
        : fromFolder_(fromFolder), id_(id), toFolder_(toFolder), name_(name), subfolders_(subfolders)
    {}

    HRESULT Step(SqliteConnection& connection, const StepTime& time)
    {
        if (toCopy_.empty())
            QV_RETURN_IF_FAILED(Begin(connection));
        while (next_ < toCopy_.size()) {
            const HRESULT copied = CopyNext(connection, time);
            if (copied != S_OK)
                return copied;
            if (++next_ < toCopy_.size() && time.IsOver())
                return S_FALSE;
        }
        return S_OK;
    }

private:
    HRESULT Begin(SqliteConnection& connection)
    {
        QV_RETURN_IF_FAILED(CheckTakesIn(connection, toFolder_));
        FolderRow original;
        QV_RETURN_IF_FAILED(FindFolderBelow(connection, fromFolder_, id_, original));
        std::vector<std::int64_t> tree;
        QV_RETURN_IF_FAILED(ListTree(connection, original.id, tree));
        if (std::find(tree.begin(), tree.end(), toFolder_) != tree.end())
            return MAPI_E_FOLDER_CYCLE;
        if (!subfolders_)
            tree.resize(1);
        toCopy_ = std::move(tree);
        return S_OK;
    }

    HRESULT CopyNext(SqliteConnection& connection, const StepTime& time)
    {
        if (copies_.count(toCopy_[next_]) == 0)
            QV_RETURN_IF_FAILED(CopyRow(connection));
        const std::int64_t copy = copies_.at(toCopy_[next_]);
        if (copy == 0)
            return S_OK;
        FolderRow row;
        QV_RETURN_IF_FAILED(FindFolder(connection, copy, row));
        const auto copyMessage = [&](SqliteConnection& here, std::int64_t message) {
            return CopyMessage(here, message, copy);
        };
        for (; kind_ < 2; ++kind_, last_ = 0) {
            const HRESULT copied =
                WorkOnAll(connection, toCopy_[next_], kind_ == 1, copyMessage, time, last_);
            if (copied != S_OK)
                return copied;
        }
        kind_ = 0;
        return S_OK;
    }

    // Of a folder that has gone since there is no copy, nor of those that were in it.
    HRESULT CopyRow(SqliteConnection& connection)
    {
        FolderRow original;
        const HRESULT found = FindFolder(connection, toCopy_[next_], original);
        const bool isTop = next_ == 0;
        const auto holder = copies_.find(original.parentId);
        if (found == MAPI_E_NOT_FOUND || (!isTop && (holder == copies_.end() || holder->second == 0))) {
            copies_[toCopy_[next_]] = 0;
            return S_OK;
        }
        QV_RETURN_IF_FAILED(found);
        FolderRow copy;
        QV_RETURN_IF_FAILED(CopyFolderRow(connection, original, isTop ? toFolder_ : holder->second,
                                          isTop && !name_.empty() ? name_ : original.name, copy));
        copies_[original.id] = copy.id;
        return S_OK;
    }

    const std::int64_t fromFolder_;
    const EntryId id_;
    const std::int64_t toFolder_;
    const std::string name_;
    const bool subfolders_;

    std::vector<std::int64_t> toCopy_;             // each behind the one that holds it
    std::size_t next_ = 0;                         // of them
    std::map<std::int64_t, std::int64_t> copies_;  // of those that are begun; 0: there is none
    int kind_ = 0;                                 // of messages of the next one: ordinary, associated, done
    std::int64_t last_ = 0;                        // of them, copied
};

}  // namespace

HRESULT CopyFolderWithin(StoreCore& core, std::int64_t fromFolder, const EntryId& id, std::int64_t toFolder,
                         const std::string& name, bool subfolders)
{
    FolderCopier copier(fromFolder, id, toFolder, name, subfolders);
    return core.WriteInSteps(
        [&](SqliteConnection& connection, const StepTime& time) { return copier.Step(connection, time); });
}

namespace {

HRESULT EntryIdsOf(IMAPITable& table, LONG count, std::vector<Bytes>& ids)
{
    RowSet rows;
    QV_RETURN_IF_FAILED(table.QueryRows(count, 0, rows.Put()));
    for (const SRow& row : rows) {
        if (row.cValues == 1 && row.lpProps[0].ulPropTag == PR_ENTRYID) {
            const SBinary& id = row.lpProps[0].Value.bin;
            ids.emplace_back(id.lpb, id.lpb + id.cb);
        }
    }
    return rows.size() == 0 ? S_FALSE : S_OK;
}

// All that a table shows, before anything of it is moved.
HRESULT AllEntryIds(ComPtr<IMAPITable> table, std::vector<Bytes>& ids)
{
    SPropTagArray column{1, {PR_ENTRYID}};
    QV_RETURN_IF_FAILED(table->SetColumns(&column, 0));
    HRESULT read = S_OK;
    while (read == S_OK)
        read = EntryIdsOf(*table, kRowsAtOnce, ids);
    return FAILED(read) ? read : S_OK;
}

HRESULT TransferAll(IMAPIFolder& from, IMAPIFolder& to, ULONG kind, bool move, bool& partial)
{
    ComPtr<IMAPITable> table;
    QV_RETURN_IF_FAILED(from.GetContentsTable(kind, table.Put()));
    std::vector<Bytes> ids;
    QV_RETURN_IF_FAILED(AllEntryIds(std::move(table), ids));
    for (Bytes& id : ids) {
        SBinary one{static_cast<ULONG>(id.size()), id.data()};
        const ENTRYLIST list{1, &one};
        const HRESULT transferred = TransferTo(from, to, list, move);
        QV_RETURN_IF_FAILED(transferred);
        partial = partial || transferred != S_OK;
    }
    return S_OK;
}

// What the folder is but its name, its messages and its folders.
HRESULT CopyFolderProperties(IMAPIFolder& from, IMAPIFolder& to, bool& partial)
{
    LPSPropTagArray listed = nullptr;
    QV_RETURN_IF_FAILED(from.GetPropList(MAPI_UNICODE, &listed));
    std::vector<ULONG> tags;
    for (ULONG i = 0; i < listed->cValues; ++i) {
        if (PROP_ID(listed->aulPropTag[i]) != PROP_ID(PR_DISPLAY_NAME))
            tags.push_back(listed->aulPropTag[i]);
    }
    MAPIFreeBuffer(listed);
    std::vector<SPropProblem> problems;
    QV_RETURN_IF_FAILED(CopyProperties(from, tags, to, problems));
    partial = partial || std::any_of(problems.begin(), problems.end(),
                                     [](const SPropProblem& problem) { return IsLoss(problem.scode); });
    return to.SaveChanges(KEEP_OPEN_READWRITE);
}

class FolderTransfer {
public:
    explicit FolderTransfer(const FolderCopyOptions& options) noexcept : options_(options) {}

    bool IsPartial() const noexcept { return partial_; }

    HRESULT Copy(IMAPIFolder& from, const Bytes& id, IMAPIFolder& to, const OleString& name, int depth)
    {
        if (depth > kDeepestTransfer)
            return MAPI_E_FOLDER_CYCLE;
        Bytes key = id;
        auto* const entry = reinterpret_cast<LPENTRYID>(key.data());
        const auto size = static_cast<ULONG>(key.size());
        ULONG type = 0;
        ComPtr<IMAPIFolder> original;
        QV_RETURN_IF_FAILED(
            from.OpenEntry(size, entry, &IID_IMAPIFolder, MAPI_MODIFY, &type, original.PutUnknown()));
        OleString text = name;
        ComPtr<IMAPIFolder> copy;
        QV_RETURN_IF_FAILED(to.CreateFolder(FOLDER_GENERIC, reinterpret_cast<LPTSTR>(text.data()), nullptr,
                                            &IID_IMAPIFolder, MAPI_UNICODE, copy.Put()));
        QV_RETURN_IF_FAILED(CopyFolderProperties(*original, *copy, partial_));
        for (const ULONG kind : {ULONG{0}, ULONG{MAPI_ASSOCIATED}})
            QV_RETURN_IF_FAILED(TransferAll(*original, *copy, kind, options_.move, partial_));
        if (options_.subfolders)
            QV_RETURN_IF_FAILED(CopyBelow(*original, *copy, depth));
        return options_.move ? RemoveEmpty(from, size, entry) : S_OK;
    }

private:
    HRESULT CopyBelow(IMAPIFolder& from, IMAPIFolder& to, int depth)
    {
        ComPtr<IMAPITable> table;
        QV_RETURN_IF_FAILED(from.GetHierarchyTable(0, table.Put()));
        std::vector<Bytes> ids;
        QV_RETURN_IF_FAILED(AllEntryIds(std::move(table), ids));
        for (const Bytes& id : ids)
            QV_RETURN_IF_FAILED(CopyNamed(from, id, to, depth + 1));
        return S_OK;
    }

    HRESULT CopyNamed(IMAPIFolder& from, const Bytes& id, IMAPIFolder& to, int depth)
    {
        Bytes key = id;
        ULONG objectType = 0;
        ComPtr<IMAPIFolder> folder;
        QV_RETURN_IF_FAILED(from.OpenEntry(static_cast<ULONG>(key.size()),
                                           reinterpret_cast<LPENTRYID>(key.data()), &IID_IMAPIFolder, 0,
                                           &objectType, folder.PutUnknown()));
        MapiBuffer<SPropValue> type;
        QV_RETURN_IF_FAILED(HrGetOneProp(folder.Get(), PR_FOLDER_TYPE, type.Put()));
        if (type->Value.l != FOLDER_GENERIC) {
            partial_ = true;  // what it searches is in that store
            return S_OK;
        }
        MapiBuffer<SPropValue> name;
        QV_RETURN_IF_FAILED(HrGetOneProp(folder.Get(), PR_DISPLAY_NAME_W, name.Put()));
        return Copy(from, id, to, OleString(name->Value.lpszW), depth);
    }

    HRESULT RemoveEmpty(IMAPIFolder& from, ULONG size, LPENTRYID id)
    {
        const HRESULT removed = from.DeleteFolder(size, id, 0, nullptr, 0);
        if (removed != MAPI_E_HAS_MESSAGES && removed != MAPI_E_HAS_FOLDERS)
            return removed;
        partial_ = true;
        return S_OK;
    }

    const FolderCopyOptions options_;
    bool partial_ = false;
};

}  // namespace

HRESULT CopyFolderTo(IMAPIFolder& from, const Bytes& id, IMAPIFolder& to, const OleString& name,
                     const FolderCopyOptions& options)
{
    FolderTransfer transfer(options);
    QV_RETURN_IF_FAILED(transfer.Copy(from, id, to, name, 0));
    return transfer.IsPartial() ? MAPI_W_PARTIAL_COMPLETION : S_OK;
}

}  // namespace quorvane
