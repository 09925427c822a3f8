// storeaccess/testing/fake_store.h: a table, messages and a store in memory, which fail where a test says so.
#ifndef QUORVANE_ENGINE_STOREACCESS_TESTING_FAKE_STORE_H_
#define QUORVANE_ENGINE_STOREACCESS_TESTING_FAKE_STORE_H_

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "engine/storeaccess/testing/unimplemented.h"
#include "platform/com/com_object.h"

namespace quorvane::testing {

// The four properties that a scan looks at. What is absent is absent from the row or message.
struct ItemProps {
    std::optional<std::string> entryId;  // bytes
    std::optional<LONG> size;
    std::optional<FILETIME> modified;
    std::optional<LONG> flags;
    unsigned extraColumns = 0;  // more columns, which nobody looks at
};

// The properties as one MAPI buffer.
LPSPropValue MakeProps(const ItemProps& item, ULONG& count);

class FakeMessage final : public ComObject<FakeMessage, Answers<UnimplementedMessage, IMAPIProp>> {
public:
    explicit FakeMessage(ItemProps props) : props_(std::move(props)) {}
    HRESULT STDMETHODCALLTYPE GetProps(LPSPropTagArray tags, ULONG, ULONG* count,
                                       LPSPropValue* values) override;

private:
    ItemProps props_;
};

class FakeStore final : public ComObject<FakeStore, Answers<UnimplementedMsgStore, IMAPIProp>> {
public:
    // Items by the identifier under which they open.
    std::map<std::string, ItemProps> items;
    // The object that an identifier opens when it is no item of `items`.
    ComPtr<IUnknown> other;
    HRESULT openResult = S_OK;
    unsigned opens = 0;
    ULONG lastFlags = 0;  // of OpenEntry

    HRESULT STDMETHODCALLTYPE OpenEntry(ULONG idSize, LPENTRYID id, LPCIID, ULONG, ULONG* type,
                                        LPUNKNOWN* object) override;
};

class FakeTable final : public ComObject<FakeTable, Answers<UnimplementedMAPITable>> {
public:
    std::vector<ItemProps> rows;
    size_t position = 0;
    size_t visible = SIZE_MAX;   // how many rows a restriction lets through
    std::vector<ULONG> columns;  // as SetColumns gave them
    unsigned queries = 0;        // calls of QueryRows
    std::vector<LONG> askedFor;  // the counts of these calls
    unsigned bookmarks = 0;      // alive
    HRESULT bookmarkResult = S_OK;
    HRESULT countResult = S_OK;
    HRESULT snapshotResult = S_OK;  // of QueryRows with TBL_NOADVANCE
    unsigned failQueryAt = 0;       // the call of QueryRows that fails; 0 for none
    unsigned failSeekAt = 0;        // the call of SeekRow that fails; 0 for none
    HRESULT columnsResult = S_OK;

    HRESULT STDMETHODCALLTYPE SetColumns(LPSPropTagArray tags, ULONG) override;
    HRESULT STDMETHODCALLTYPE GetRowCount(ULONG, ULONG* count) override;
    HRESULT STDMETHODCALLTYPE SeekRow(BOOKMARK origin, LONG count, LONG* sought) override;
    HRESULT STDMETHODCALLTYPE CreateBookmark(BOOKMARK* bookmark) override;
    HRESULT STDMETHODCALLTYPE FreeBookmark(BOOKMARK bookmark) override;
    HRESULT STDMETHODCALLTYPE QueryRows(LONG count, ULONG flags, LPSRowSet* result) override;

private:
    size_t Shown() const { return std::min(rows.size(), visible); }

    std::map<BOOKMARK, size_t> marks_;
    unsigned seeks_ = 0;
};

}  // namespace quorvane::testing

#endif  // QUORVANE_ENGINE_STOREACCESS_TESTING_FAKE_STORE_H_
