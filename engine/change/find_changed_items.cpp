#include "engine/change/find_changed_items.h"

#include <algorithm>
#include <iterator>

#include "engine/change/items_col.h"
#include "engine/change/row_snapshot.h"
#include "engine/session/trace/trace.h"
#include "engine/storeaccess/item_hash.h"
#include "platform/clock/clock.h"
#include "platform/event/event.h"

namespace quorvane {
namespace {

constexpr LONG kRowsAtOnce = 20;
constexpr std::chrono::microseconds kPause{1000};
constexpr ULONG kColumnsOfWholeRow = 5;
constexpr LONG kNoFlags = -1;

// Gives a place in a table back when it goes.
class Bookmark {
public:
    explicit Bookmark(IMAPITable* table) noexcept : table_(table) {}
    Bookmark(const Bookmark&) = delete;
    Bookmark& operator=(const Bookmark&) = delete;
    ~Bookmark()
    {
        if (created_)
            table_->FreeBookmark(bookmark_);
    }

    HRESULT Create() noexcept
    {
        const HRESULT hr = table_->CreateBookmark(&bookmark_);
        created_ = SUCCEEDED(hr);
        return hr;
    }
    void GoBack() noexcept { table_->SeekRow(bookmark_, 0, nullptr); }

private:
    IMAPITable* const table_;
    BOOKMARK bookmark_ = 0;
    bool created_ = false;
};

// The item's own long-term identifier in place of a short-term one; the row's own where it can't be had.
SBinary LongTermIdentifier(IMsgStore* store, const SBinary& identifier, ComPtr<IMessage>& message,
                           PropValue& property) noexcept
{
    const bool isShortTerm = identifier.cb > 0 && identifier.lpb[0] != 0;
    if (!isShortTerm)
        return identifier;
    if (!message && store) {
        ULONG type = 0;
        ComPtr<IUnknown> object;
        const HRESULT hr = store->OpenEntry(identifier.cb, reinterpret_cast<LPENTRYID>(identifier.lpb),
                                            nullptr, 0, &type, object.Put());
        HR_IGNORE(SUCCEEDED(hr) ? object.As(message) : hr, "the row's own identifier serves then");
    }
    if (message && SUCCEEDED(mapi::HrGetOneProp(message.Get(), PR_ENTRYID, property.Put())) && property &&
        property->ulPropTag == PR_ENTRYID)
        return property->Value.bin;
    return identifier;
}

bool IsSameText(BSTR a, BSTR b) noexcept
{
    return VarBstrCmp(a, b, LOCALE_USER_DEFAULT, 0) == static_cast<HRESULT>(VARCMP_EQ);
}

}  // namespace

// What a scan asks of an item, in the order of its columns: from the row, or from the item where it lacks it.
struct CFindChangedItems::RowProperties {
    enum { kEntryId, kSize, kModified, kFlags, kCount };
    static_assert(kCount == RowSnapshot::kColumns);
    static constexpr const ULONG (&kTags)[kCount] = RowSnapshot::kTags;

    const SPropValue* values[kCount] = {};
    PropValue fetched[kCount];
    ComPtr<IMessage> message;

    HRESULT Collect(IMsgStore* store, const SRow& row) noexcept
    {
        const Traced traced{"CFindChangedItems::ProcessOneRow"};
        for (unsigned i = 0; i < kCount; ++i)
            values[i] = FindProp(row, kTags[i]);
        if (!values[kEntryId])
            return E_INVALIDARG;
        const SBinary& identifier = values[kEntryId]->Value.bin;
        for (unsigned i = kSize; i < kCount; ++i) {
            if (values[i])
                continue;
            IMessage* opened = message.Detach();
            const HRESULT hr =
                GetPropFromMessage(store, identifier.lpb, identifier.cb, fetched[i].Put(), kTags[i], &opened);
            message = ComPtr<IMessage>::Attach(opened);
            HR_TRY(traced, hr);
            values[i] = fetched[i].Get();
        }
        const bool complete = values[kSize] && values[kSize]->ulPropTag == kTags[kSize] && values[kFlags] &&
                              values[kFlags]->ulPropTag == kTags[kFlags];
        return complete ? S_OK : E_INVALIDARG;
    }

    FILETIME Modified() const noexcept
    {
        const SPropValue* const value = values[kModified];
        return value && value->ulPropTag == kTags[kModified] ? value->Value.ft : FILETIME{};
    }
};

HRESULT CFindChangedItems::getChangedItems(IMsgStore* Store, IMAPITable* Table,
                                           IQuorvaneRestrict* Restriction, SRow* Row, BSTR,
                                           bool DetectFlagChanges, ScanResult* Result, ULONG ScanFlags,
                                           bool ReportAll) noexcept
{
    const Traced traced{"CFindChangedItems::getChangedItems"};
    if (!m_pHashDB || !Table || !Result)
        return traced(E_POINTER);
    *Result = ScanResult();
    Bookmark bookmark(Table);
    HR_TRY(traced, bookmark.Create());
    HR_TRY(traced, Table->SeekRow(BOOKMARK_BEGINNING, 0, nullptr));
    if (!(ScanFlags & kSkipDeletedItems))
        HR_TRY(traced, m_pHashDB->FindDeletedSmart(Store, Table, Result->deleted));
    if (!(ScanFlags & kSkipChangedItems))
        HR_TRY(traced, FindChanges(Store, Table, Restriction, Row, DetectFlagChanges, ReportAll, *Result));
    m_pHashDB->SuspendSave = false;
    HR_IGNORE(m_pHashDB->SaveMap(), "it is traced, and the next save makes up for it");
    bookmark.GoBack();
    return S_OK;
}

HRESULT CFindChangedItems::FindChanges(IMsgStore* Store, IMAPITable* Table, IQuorvaneRestrict* Restriction,
                                       SRow* Row, bool DetectFlagChanges, bool ReportAll,
                                       ScanResult& found) noexcept
{
    const Traced traced{"CFindChangedItems::getChangedItems"};
    m_pHashDB->SuspendSave = true;
    if (!Row || Row->cValues < kColumnsOfWholeRow)
        return ScanTable(Store, Table, Restriction, DetectFlagChanges, ReportAll, found);
    HR_IGNORE(traced(ProcessOneRow(Store, Row, DetectFlagChanges, ReportAll, &found)),
              "a row that can't be judged is passed over");
    return S_OK;
}

// The restricted pass decides what is reported. The pass over the snapshot brings the store up to date for
// every row of the folder, so that what the host's restriction hides doesn't come up at a later, unrestricted
// scan.
HRESULT CFindChangedItems::ScanTable(IMsgStore* Store, IMAPITable* Table, IQuorvaneRestrict* Restriction,
                                     bool DetectFlagChanges, bool ReportAll, ScanResult& found) noexcept
{
    const Traced traced{"CFindChangedItems::getChangedItems"};
    ULONG count = 0;
    RowSnapshot snapshot;
    HR_TRY_QUIET(Table->GetRowCount(0, &count));
    HR_TRY_QUIET(snapshot.Take(*Table, count));
    if (Restriction)
        HR_IGNORE(traced(RestrictTable(Table, Restriction)), "the scan goes on over the table as it is");
    ScanBatches(Store, Table, DetectFlagChanges, ReportAll, found);
    // What couldn't be reported mustn't count as known.
    if (found.IsIncomplete())
        return E_OUTOFMEMORY;
    snapshot.ForEach([&](SRow& row) {
        HR_IGNORE(traced(ProcessOneRow(Store, &row, DetectFlagChanges, ReportAll, nullptr)),
                  "a bad row never ends a scan");
    });
    return S_OK;
}

void CFindChangedItems::ScanBatches(IMsgStore* Store, IMAPITable* Table, bool DetectFlagChanges,
                                    bool ReportAll, ScanResult& found) noexcept
{
    const Traced traced{"CFindChangedItems::getChangedItems"};
    for (;;) {
        RowSet rows;
        if (Table->QueryRows(kRowsAtOnce, 0, rows.Put()) != S_OK || rows.Count() == 0)
            return;
        Pause(kPause,
              [](std::chrono::microseconds time) noexcept { PumpingWait(static_cast<ULONG>(time.count())); });
        for (SRow& row : rows)
            HR_IGNORE(traced(ProcessOneRow(Store, &row, DetectFlagChanges, ReportAll, &found)),
                      "a bad row never ends a scan");
    }
}

HRESULT CFindChangedItems::RestrictTable(IMAPITable* Table, IQuorvaneRestrict* Restriction) noexcept
{
    const Traced traced{"CFindChangedItems::RestrictTable"};
    if (!Restriction)
        return S_OK;
    const ComPtr<CItemsCol> items = MakeComObject<CItemsCol>(Table);
    if (!items)
        return traced(E_OUTOFMEMORY);
    ComPtr<IDispatch> dispatch;
    HR_TRY(traced, items.As(dispatch));
    const Variant argument = Variant::Dispatch(dispatch.Get());
    HR_TRY(traced, InvokeById(Restriction, kRestrictTable, DISPATCH_METHOD, {&argument.Raw(), 1}));

    ULONG count = 0;
    HR_IGNORE(Table->GetRowCount(0, &count), "asked so that the table applies the restriction");
    SizedSPropTagArray(RowProperties::kCount, tags) = {RowProperties::kCount, {}};
    std::copy(std::begin(RowProperties::kTags), std::end(RowProperties::kTags), tags.aulPropTag);
    HR_TRY(traced, Table->SetColumns(reinterpret_cast<LPSPropTagArray>(&tags), 0));
    return traced(Table->SeekRow(BOOKMARK_BEGINNING, 0, nullptr));
}

HRESULT CFindChangedItems::GetPropFromMessage(IMsgStore* Store, LPBYTE EntryID, ULONG cbEntryID,
                                              LPSPropValue* Value, ULONG Tag, IMessage** Message) noexcept
{
    const Traced traced{"CFindChangedItems::GetPropFromMessage"};
    if (!*Message) {
        if (!Store)
            return traced(E_POINTER);
        ULONG type = 0;
        ComPtr<IUnknown> object;
        HR_TRY(traced, Store->OpenEntry(cbEntryID, reinterpret_cast<LPENTRYID>(EntryID), nullptr, 0, &type,
                                        object.Put()));
        HR_TRY(traced, object.As(Message));
    }
    return mapi::HrGetOneProp(*Message, Tag, Value);
}

HRESULT CFindChangedItems::ProcessOneRow(IMsgStore* Store, SRow* Row, bool DetectFlagChanges, bool ReportAll,
                                         ScanResult* Result) noexcept
{
    const Traced traced{"CFindChangedItems::ProcessOneRow"};
    if (!Row)
        return E_POINTER;
    try {
        RowProperties properties;
        HR_TRY_QUIET(properties.Collect(Store, *Row));
        PropValue longTerm;
        const SBinary identifier = LongTermIdentifier(
            Store, properties.values[RowProperties::kEntryId]->Value.bin, properties.message, longTerm);
        return JudgeItem(identifier, properties.Modified(), properties.values[RowProperties::kFlags]->Value.l,
                         DetectFlagChanges, ReportAll, Result);
    } catch (...) {
        return traced(E_OUTOFMEMORY);
    }
}

HRESULT CFindChangedItems::JudgeItem(const SBinary& identifier, const FILETIME& modified, LONG flags,
                                     bool DetectFlagChanges, bool ReportAll, ScanResult* Result)
{
    const Traced traced{"CFindChangedItems::ProcessOneRow"};
    Bstr previous;
    LONG previousFlags = kNoFlags;
    HR_TRY(traced, m_pHashDB->GetHash(identifier, previous.Put(), &previousFlags));
    const Bstr hash(ItemHash(modified));
    if (previousFlags == kNoFlags) {
        HR_IGNORE(m_pHashDB->SetHash(identifier, previous.Get(), flags), "the item is judged all the same");
        previousFlags = flags;
    }
    const bool flagsChanged = DetectFlagChanges && previousFlags != flags;
    const bool hashUnchanged = IsSameText(previous.Get(), hash.Get());
    if (hashUnchanged && !flagsChanged && !ReportAll)
        return S_OK;

    Bstr key;
    HR_TRY(traced, HexFromBinary(identifier, key));
    if (!Result)
        return m_pHashDB->SetHash(key.Get(), hash.Get(), flags);
    return traced(Result->AddChanged(key.View(), hash.View(), flags, hashUnchanged));
}

}  // namespace quorvane
