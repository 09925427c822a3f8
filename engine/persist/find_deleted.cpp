#include <string_view>

#include "engine/persist/debug_timer.h"
#include "engine/persist/hash_db.h"
#include "engine/persist/hash_file.h"
#include "engine/persist/hash_text.h"
#include "engine/persist/packed_set.h"
#include "engine/session/trace/trace.h"
#include "engine/storeaccess/hex.h"
#include "platform/com/com_ptr.h"

namespace quorvane {
namespace {

constexpr ULONG kRowsAtOnce = 200;
constexpr Traced kFindTraced{"CHashDB::FindDeletedSmart"};

// The item's own long-term identifier in place of a short-term one. False when it can't be had: the item
// can't be opened, or has none.
bool LongTermIdentifier(IMsgStore* store, const SBinary& shortTerm, PropValue& identifier) noexcept
{
    ComPtr<IUnknown> object;
    ULONG type = 0;
    if (!store || FAILED(store->OpenEntry(shortTerm.cb, reinterpret_cast<LPENTRYID>(shortTerm.lpb), nullptr,
                                          0, &type, object.Put())))
        return false;
    ComPtr<IMAPIProp> item;
    return SUCCEEDED(object.As(item)) &&
           SUCCEEDED(mapi::HrGetOneProp(item.Get(), PR_ENTRYID, identifier.Put())) && identifier &&
           identifier->ulPropTag == PR_ENTRYID;
}

// Adds the key of one row. E_FAIL: the row has no PR_ENTRYID. A row whose key can't be had adds nothing.
HRESULT SeeRow(IMsgStore* store, const SRow& row, PackedSet& seen)
{
    const SPropValue* const column = FindProp(row, PR_ENTRYID);
    if (!column)
        return E_FAIL;
    SBinary identifier = column->Value.bin;
    PropValue longTerm;
    const bool isShortTerm = identifier.cb > 0 && identifier.lpb[0] != 0;
    if (isShortTerm) {
        if (!LongTermIdentifier(store, identifier, longTerm))
            return S_OK;
        identifier = longTerm->Value.bin;
    }
    Bstr key;
    if (SUCCEEDED(kFindTraced(HexFromBinary(identifier, key))))
        seen.Add(PackHashText(key.View()));
    return S_OK;
}

// Rows that can't be read count as gone, so that a failure of the table ends the reading like its end.
HRESULT SeeTable(IMsgStore* store, IMAPITable* table, PackedSet& seen)
{
    for (;;) {
        RowSet rows;
        if (table->QueryRows(kRowsAtOnce, 0, rows.Put()) != S_OK || rows.Count() == 0)
            return S_OK;
        for (const SRow& row : rows)
            HR_TRY_QUIET(SeeRow(store, row, seen));
    }
}

}  // namespace

HRESULT CHashDB::FindDeletedSmart(IMsgStore* Store, IMAPITable* Table, PackedTexts& Deleted) noexcept
{
    try {
        const DebugTimer timer;
        PackedSet seen;
        HR_TRY_QUIET(SeeTable(Store, Table, seen));
        HRESULT appended = S_OK;
        {
            const MutexLock lock(m_csLock);
            m_pFile->ForEachKey([&](std::string_view key) {
                if (SUCCEEDED(appended) && !seen.Has(key))
                    appended = Deleted.AppendPacked(key);
            });
        }
        HR_TRY(kFindTraced, appended);
        HR_TRY(kFindTraced, Table->SeekRow(BOOKMARK_BEGINNING, 0, nullptr));
        if (kDebugBuild)
            Trace(kFindTraced.Function(), __LINE__, "FindDeleted done in %d milliseconds\n",
                  timer.Milliseconds());
        return S_OK;
    } catch (...) {
        return kFindTraced(E_OUTOFMEMORY);
    }
}

}  // namespace quorvane
