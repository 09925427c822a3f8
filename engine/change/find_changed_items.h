// change/find_changed_items.h: which items of a folder differ from what its hash store remembers, and which
// have gone.
//
// An item has changed when the MD5 of its PR_LAST_MODIFICATION_TIME differs from the hash that is stored for
// its long-term PR_ENTRYID. Its flags are kept beside the hash and count only where a caller asks for it.
#ifndef QUORVANE_ENGINE_CHANGE_FIND_CHANGED_ITEMS_H_
#define QUORVANE_ENGINE_CHANGE_FIND_CHANGED_ITEMS_H_

#include "engine/change/scan_result.h"
#include "engine/persist/hash_db.h"
#include "engine/storeaccess/hex.h"
#include "platform/mapi/mapi.h"
#include "quorvane3/object_model.h"

namespace quorvane {

// Bits of ScanFlags.
inline constexpr ULONG kSkipDeletedItems = 1;
inline constexpr ULONG kSkipChangedItems = 2;

// Made on the spot for each use; has no state between scans. Runs on the calling thread, with MAPI objects
// that were opened for it.
class CFindChangedItems {
public:
    // hashes  [in]  the folder's store; borrowed.
    explicit CFindChangedItems(CHashDB* hashes) noexcept : m_pHashDB(hashes) {}

    // Compares a folder with its hash store.
    //
    // Store              [in]   the folder's store.
    // Table              [in]   the folder's contents table; its position is restored.
    // Restriction        [in]   decides what is reported; may be null. The hash store is brought up to date
    //                           for every row all the same.
    // Row                [in]   with five columns or more: this row is judged instead of the table, and its
    //                           stored hash is left to the caller. May be null.
    // FolderEntryID      [in]   unused.
    // DetectFlagChanges  [in]   an item whose flags alone have changed is listed too.
    // Result             [out]  what was found, in place of what it held; undefined after a failure.
    // ScanFlags          [in]   kSkipDeletedItems, kSkipChangedItems.
    // ReportAll          [in]   every row is listed, changed or not.
    //
    // S_OK, also when single rows failed. E_POINTER: a pointer is missing. E_OUTOFMEMORY. The failure of
    // bookmark, seek, row count or snapshot of the table, or of the search for deleted items; when row count
    // or snapshot fails, or memory, the hash store stays suspended until the next complete scan.
    [[nodiscard]] HRESULT getChangedItems(IMsgStore* Store, IMAPITable* Table, IQuorvaneRestrict* Restriction,
                                          SRow* Row, BSTR FolderEntryID, bool DetectFlagChanges,
                                          ScanResult* Result, ULONG ScanFlags, bool ReportAll) noexcept;

    // Lets the host restrict the table, sets the four columns of a scan and goes to the beginning. Does
    // nothing without a restriction. What the host, SetColumns or SeekRow answered.
    [[nodiscard]] HRESULT RestrictTable(IMAPITable* Table, IQuorvaneRestrict* Restriction) noexcept;

    // Judges one row. An item that counts is appended to `Result`, or, when that is null, its new hash and
    // flags are stored. An item that is new to the store, or without flags there, gets a record with the
    // flags in any case.
    //
    // E_INVALIDARG: the row has no PR_ENTRYID, or an item's property isn't what was asked for. The failure
    // to open the item for a property that the row lacks. E_OUTOFMEMORY.
    [[nodiscard]] HRESULT ProcessOneRow(IMsgStore* Store, SRow* Row, bool DetectFlagChanges, bool ReportAll,
                                        ScanResult* Result) noexcept;

    // Reads one property of an item, which is opened at the first call and stays open in `*Message`.
    // What OpenEntry or HrGetOneProp answered.
    [[nodiscard]] static HRESULT GetPropFromMessage(IMsgStore* Store, LPBYTE EntryID, ULONG cbEntryID,
                                                    LPSPropValue* Value, ULONG Tag,
                                                    IMessage** Message) noexcept;

private:
    struct RowProperties;

    HRESULT FindChanges(IMsgStore* Store, IMAPITable* Table, IQuorvaneRestrict* Restriction, SRow* Row,
                        bool DetectFlagChanges, bool ReportAll, ScanResult& found) noexcept;
    HRESULT ScanTable(IMsgStore* Store, IMAPITable* Table, IQuorvaneRestrict* Restriction,
                      bool DetectFlagChanges, bool ReportAll, ScanResult& found) noexcept;
    void ScanBatches(IMsgStore* Store, IMAPITable* Table, bool DetectFlagChanges, bool ReportAll,
                     ScanResult& found) noexcept;
    HRESULT JudgeItem(const SBinary& identifier, const FILETIME& modified, LONG flags, bool DetectFlagChanges,
                      bool ReportAll, ScanResult* Result);

    CHashDB* m_pHashDB;
};

}  // namespace quorvane

#endif  // QUORVANE_ENGINE_CHANGE_FIND_CHANGED_ITEMS_H_
