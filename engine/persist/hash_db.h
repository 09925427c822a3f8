// persist/hash_db.h: what each item of a shared folder looked like when it was last dealt with.
//
// One CHashDB for each shared folder: a map from the item's long-term entry identifier (hexadecimal text) to
// a text of three parts, the item's hash, a tab, and its message flags in decimal; mirrored in one file. A
// hash may be empty. A value without a tab is an older form of the record, whose flags count as -1.
//
// The file is a plain sequence of records to its end, each a key and a value; a string is its size in bytes
// with the terminator (4 bytes, little-endian; 0 for null), the text in UTF-16 and the terminator. A key that
// comes again replaces the earlier one. After every change the file holds the whole map, at a cost that
// doesn't grow with it; a process that is killed in the midst of a save leaves what the map was before or
// after the change (docs/hash-file.md).
#ifndef QUORVANE_ENGINE_PERSIST_HASH_DB_H_
#define QUORVANE_ENGINE_PERSIST_HASH_DB_H_

#include <atomic>
#include <map>
#include <memory>
#include <string>

#include "engine/persist/packed_texts.h"
#include "platform/com/bstr.h"
#include "platform/com/mutex.h"
#include "platform/mapi/mapi.h"

namespace quorvane {

class HashFile;

// The hash store of one folder. Any thread may call any operation at any time.
class CHashDB {
public:
    // folderId  [in]  names the store and its file. Throws std::bad_alloc.
    explicit CHashDB(OleStringView folderId);
    CHashDB(const CHashDB&) = delete;
    CHashDB& operator=(const CHashDB&) = delete;
    ~CHashDB();

    // Opens the file "<Directory><folder ID>.dat", makes it where there is none, and loads it.
    //
    // Directory  [in]  ends with a separator.
    //
    // S_OK, also for a damaged file: the records in front of the damage are there. E_INVALIDARG: the folder's
    // ID can't be a file's name in that directory. Others come from the file. After a failure the store works
    // in memory, and saves fail.
    [[nodiscard]] HRESULT Init(BSTR Directory) noexcept;

    // Replaces the map by what the file holds. Failures come from the file.
    [[nodiscard]] HRESULT FillMap() noexcept;

    // Brings the file up to the map. S_OK at once while saving is suspended. Failures come from the file;
    // after one the next save writes the whole map.
    [[nodiscard]] HRESULT SaveMap() noexcept;

    // What is known of an item.
    //
    // Hash   [out]  the caller's; empty, not null, for an unknown item. Null after a failure.
    // Flags  [out]  -1 for an unknown item, or a record without flags.
    //
    // S_OK. E_POINTER. E_OUTOFMEMORY. The form with an identifier: what the conversion to text answers.
    [[nodiscard]] HRESULT GetHash(const SBinary& EntryID, BSTR* Hash, LONG* Flags) noexcept;
    [[nodiscard]] HRESULT GetHash(BSTR Key, BSTR* Hash, LONG* Flags) noexcept;

    // Records an item, or forgets it, and saves.
    //
    // Hash  [in]  null forgets the item (S_OK also for an unknown one); an empty text is a hash like others.
    //
    // E_FAIL: memory is short, nothing changed. E_INVALIDARG: the key is null, or key or value can't stand in
    // a file. Others are SaveMap's: the map has changed, the file may not. The form with an identifier: what
    // the conversion to text answers.
    HRESULT SetHash(const SBinary& EntryID, BSTR Hash, LONG Flags) noexcept;
    HRESULT SetHash(BSTR Key, BSTR Hash, LONG Flags) noexcept;

    // Records the present state of a message under `Key`; null forgets it. What reading the message's
    // modification time or flags answers; S_OK otherwise, whatever became of the save.
    HRESULT SetHash(BSTR Key, IMessage* Message) noexcept;

    // While true, SaveMap does nothing. Not counted: whoever clears it ends every suspension.
    std::atomic<bool> SuspendSave{false};

    // Appends the keys that the store knows and `Table` doesn't show.
    //
    // Store    [in]      opens the items whose rows carry a short-term identifier.
    // Table    [in]      stands at its beginning, with PR_ENTRYID among its columns; left there.
    // Deleted  [in,out]  keys are appended in no particular order. Rows that can't be read count as gone.
    //
    // S_OK. E_FAIL: a row carried no PR_ENTRYID; nothing was appended. E_OUTOFMEMORY. The failure of going
    // back to the table's beginning; what was appended stays.
    [[nodiscard]] HRESULT FindDeletedSmart(IMsgStore* Store, IMAPITable* Table,
                                           PackedTexts& Deleted) noexcept;

    // How many records there are.
    size_t Count() noexcept;

private:
    HRESULT SaveLocked() noexcept QV_REQUIRES(m_csLock);

    const OleString m_strName;
    Mutex m_csLock;
    const std::unique_ptr<HashFile> m_pFile QV_PT_GUARDED_BY(m_csLock);
};

// The hash stores of a session, by folder ID. A store that has entered stays as long as the map does. Any
// thread may call.
class CHashDBMap {
public:
    CHashDBMap() noexcept = default;
    CHashDBMap(const CHashDBMap&) = delete;
    CHashDBMap& operator=(const CHashDBMap&) = delete;

    // The store of a folder, null when it has none. Lives as long as the map.
    CHashDB* Find(BSTR FolderID) noexcept;

    // Makes a folder's store and opens its file in `Directory`, which ends with a separator. A store whose
    // file can't be opened enters all the same, and one that is there already stays.
    // 1, or -1 when memory is short.
    LONG Add(BSTR FolderID, BSTR Directory) noexcept;

    // CHashDB::SetHash of the folder's store; does nothing where there is none.
    void SetHash(BSTR Key, BSTR FolderID, IMessage* Message) noexcept;

private:
    struct ByCollation {
        bool operator()(const Bstr& a, const Bstr& b) const noexcept
        {
            return VarBstrCmp(a.Get(), b.Get(), LOCALE_USER_DEFAULT, 0) == static_cast<HRESULT>(VARCMP_LT);
        }
    };

    Mutex m_csLock;
    std::map<Bstr, std::unique_ptr<CHashDB>, ByCollation> m_mapStores QV_GUARDED_BY(m_csLock);
};

}  // namespace quorvane

#endif  // QUORVANE_ENGINE_PERSIST_HASH_DB_H_
