#include "engine/storeaccess/testing/fake_store.h"

#include <algorithm>
#include <cstring>

#include "engine/storeaccess/mapi_functions.h"
#include "platform/testing/surroundings.h"

namespace quorvane::testing {
namespace {

// A program that uses these fakes finds the fake MAPI library, before anything asks for one.
[[maybe_unused]] const bool chosen = [] {
    test::SetVariable("QUORVANE_SYSTEM_DIR", QUORVANE_FAKE_MAPI_DIR "/plain");
    return true;
}();

// Copies bytes into a part of a MAPI buffer.
LPBYTE CopyBytes(void* owner, const std::string& bytes)
{
    void* copy = nullptr;
    mapi::MAPIAllocateMore(static_cast<ULONG>(bytes.size() + 1), owner, &copy);
    std::memcpy(copy, bytes.data(), bytes.size());
    return static_cast<LPBYTE>(copy);
}

}  // namespace

LPSPropValue MakeProps(const ItemProps& item, ULONG& count)
{
    void* buffer = nullptr;
    mapi::MAPIAllocateBuffer(static_cast<ULONG>((4 + item.extraColumns) * sizeof(SPropValue)), &buffer);
    auto* const values = static_cast<LPSPropValue>(buffer);
    count = 0;
    if (item.entryId) {
        values[count].ulPropTag = PR_ENTRYID;
        values[count].Value.bin.cb = static_cast<ULONG>(item.entryId->size());
        values[count++].Value.bin.lpb = CopyBytes(buffer, *item.entryId);
    }
    if (item.size) {
        values[count].ulPropTag = PR_MESSAGE_SIZE;
        values[count++].Value.l = *item.size;
    }
    if (item.modified) {
        values[count].ulPropTag = PR_LAST_MODIFICATION_TIME;
        values[count++].Value.ft = *item.modified;
    }
    if (item.flags) {
        values[count].ulPropTag = PR_MESSAGE_FLAGS;
        values[count++].Value.l = *item.flags;
    }
    for (unsigned i = 0; i < item.extraColumns; ++i) {
        values[count].ulPropTag = PROP_TAG(PT_LONG, 0x6700 + i);
        values[count++].Value.l = 0;
    }
    return values;
}

HRESULT FakeMessage::GetProps(LPSPropTagArray tags, ULONG, ULONG* count, LPSPropValue* values)
{
    ULONG have = 0;
    LPSPropValue all = MakeProps(props_, have);
    const LPSPropValue found = mapi::PpropFindProp(all, have, tags->aulPropTag[0]);
    *count = 1;
    if (found) {
        *all = *found;
        *values = all;
        return S_OK;
    }
    all->ulPropTag = CHANGE_PROP_TYPE(tags->aulPropTag[0], PT_ERROR);
    all->Value.err = MAPI_E_NOT_FOUND;
    *values = all;
    return MAPI_W_ERRORS_RETURNED;
}

HRESULT FakeStore::OpenEntry(ULONG idSize, LPENTRYID id, LPCIID, ULONG flags, ULONG* type, LPUNKNOWN* object)
{
    ++opens;
    lastFlags = flags;
    if (FAILED(openResult))
        return openResult;
    const auto found = items.find(std::string(reinterpret_cast<const char*>(id), idSize));
    if (found == items.end())
        return other ? other.CopyTo(object) : MAPI_E_NOT_FOUND;
    *type = MAPI_MESSAGE;
    *object = MakeComObject<FakeMessage>(found->second).Detach();
    return S_OK;
}

HRESULT FakeTable::SetColumns(LPSPropTagArray tags, ULONG)
{
    if (FAILED(columnsResult))
        return columnsResult;
    columns.assign(tags->aulPropTag, tags->aulPropTag + tags->cValues);
    return S_OK;
}

HRESULT FakeTable::GetRowCount(ULONG, ULONG* count)
{
    *count = static_cast<ULONG>(Shown());
    return countResult;
}

HRESULT FakeTable::SeekRow(BOOKMARK origin, LONG count, LONG*)
{
    if (++seeks_ == failSeekAt)
        return MAPI_E_CALL_FAILED;
    const size_t from = origin == BOOKMARK_BEGINNING ? 0 : marks_.at(origin);
    position = std::min(Shown(), from + static_cast<size_t>(count));
    return S_OK;
}

HRESULT FakeTable::CreateBookmark(BOOKMARK* bookmark)
{
    if (FAILED(bookmarkResult))
        return bookmarkResult;
    *bookmark = static_cast<BOOKMARK>(100 + marks_.size());
    marks_[*bookmark] = position;
    ++bookmarks;
    return S_OK;
}

HRESULT FakeTable::FreeBookmark(BOOKMARK)
{
    --bookmarks;
    return S_OK;
}

HRESULT FakeTable::QueryRows(LONG count, ULONG flags, LPSRowSet* result)
{
    askedFor.push_back(count);
    const bool stays = (flags & TBL_NOADVANCE) != 0;
    if (++queries == failQueryAt)
        return MAPI_E_CALL_FAILED;
    if (stays && FAILED(snapshotResult))
        return snapshotResult;
    const size_t end = std::min(Shown(), position + static_cast<size_t>(count));
    const auto given = static_cast<ULONG>(end - std::min(position, end));
    void* buffer = nullptr;
    mapi::MAPIAllocateBuffer(static_cast<ULONG>(CbNewSRowSet(given + 1)), &buffer);
    *result = static_cast<LPSRowSet>(buffer);
    (*result)->cRows = given;
    for (ULONG i = 0; i < given; ++i) {
        SRow& row = (*result)->aRow[i];
        row.lpProps = MakeProps(rows[position + i], row.cValues);
    }
    if (!stays)
        position = end;
    return S_OK;
}

}  // namespace quorvane::testing
