// quorvane3/mapi_helpers.h: owners of what MAPI gives, and the steps that every host of MAPI begins with.
//
// These call the linked MAPI library: off Windows the project's message store, `mapi32`.
#ifndef QUORVANE3_MAPI_HELPERS_H_
#define QUORVANE3_MAPI_HELPERS_H_

#include <new>
#include <span>
#include <string>
#include <utility>

#include "quorvane3/com.h"
#include "quorvane3/mapi.h"

namespace quorvane {

// MAPI of the process, for a scope. Interfaces are released before it ends.
class MapiScope {
public:
    MapiScope() noexcept
    {
        MAPIINIT_0 init{MAPI_INIT_VERSION, MAPI_MULTITHREAD_NOTIFICATIONS};
        result_ = MAPIInitialize(&init);
    }
    MapiScope(const MapiScope&) = delete;
    MapiScope& operator=(const MapiScope&) = delete;
    ~MapiScope()
    {
        if (SUCCEEDED(result_))
            MAPIUninitialize();
    }

    // What MAPIInitialize answered; nothing of MAPI may be used after a failure.
    [[nodiscard]] HRESULT Result() const noexcept { return result_; }

private:
    HRESULT result_;
};

// Owns one buffer that MAPI allocated, with all that hangs on it, or none.
template <class T>
class MapiMemory {
public:
    MapiMemory() noexcept = default;
    MapiMemory(MapiMemory&& other) noexcept : buffer_(std::exchange(other.buffer_, nullptr)) {}
    MapiMemory& operator=(MapiMemory&& other) noexcept
    {
        std::swap(buffer_, other.buffer_);
        return *this;
    }
    ~MapiMemory() { MAPIFreeBuffer(buffer_); }

    T* Get() const noexcept { return buffer_; }
    T* operator->() const noexcept { return buffer_; }
    T& operator*() const noexcept { return *buffer_; }
    explicit operator bool() const noexcept { return buffer_ != nullptr; }
    // The place for an out-parameter; what was held is freed first.
    T** Put() noexcept
    {
        MAPIFreeBuffer(std::exchange(buffer_, nullptr));
        return &buffer_;
    }

private:
    T* buffer_ = nullptr;
};

// Owns the rows that a table gave, or none. Iterates over SRow.
class MapiRows {
public:
    MapiRows() noexcept = default;
    MapiRows(const MapiRows&) = delete;
    MapiRows& operator=(const MapiRows&) = delete;
    ~MapiRows() { Reset(); }

    // The place for an out-parameter; what was held is freed first.
    SRowSet** Put() noexcept
    {
        Reset();
        return &rows_;
    }
    std::span<SRow> All() const noexcept
    {
        return rows_ ? std::span<SRow>(rows_->aRow, rows_->cRows) : std::span<SRow>();
    }
    auto begin() const noexcept { return All().begin(); }
    auto end() const noexcept { return All().end(); }

private:
    void Reset() noexcept
    {
        if (SRowSet* const old = std::exchange(rows_, nullptr))
            FreeProws(old);
    }

    SRowSet* rows_ = nullptr;
};

// All rows of a table in these columns, a whole table at once: for tables that are known to be short.
template <ULONG... Tags>
[[nodiscard]] HRESULT ReadRows(IMAPITable& table, MapiRows& rows) noexcept
{
    SizedSPropTagArray(sizeof...(Tags), columns) = {sizeof...(Tags), {Tags...}};
    return HrQueryAllRows(&table, reinterpret_cast<LPSPropTagArray>(&columns), nullptr, nullptr, 0,
                          rows.Put());
}

// The text form of a binary identifier, as the object model takes it.
//
// text  [out]  two uppercase digits a byte; untouched after a failure.
//
// E_OUTOFMEMORY.
[[nodiscard]] inline HRESULT HexText(const SBinary& binary, Bstr& text) noexcept
{
    try {
        std::string digits(2 * static_cast<std::size_t>(binary.cb) + 1, '\0');
        HexFromBin(binary.lpb, static_cast<INT>(binary.cb), digits.data());
        digits.pop_back();
        text = Bstr(OleString(digits.begin(), digits.end()));
        return S_OK;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

// The same of an object's binary property, such as PR_ENTRYID or PR_STORE_ENTRYID. The object's failure.
[[nodiscard]] inline HRESULT HexProperty(IMAPIProp& object, ULONG tag, Bstr& text) noexcept
{
    MapiMemory<SPropValue> value;
    const HRESULT hr = HrGetOneProp(&object, tag, value.Put());
    return FAILED(hr) ? hr : HexText(value->Value.bin, text);
}

// A session of one's own with the default profile. MAPILogonEx's codes; `session` is empty after a failure.
[[nodiscard]] inline HRESULT LogonToMapi(ComPtr<IMAPISession>& session) noexcept
{
    return MAPILogonEx(0, nullptr, nullptr, MAPI_EXTENDED | MAPI_USE_DEFAULT | MAPI_NEW_SESSION,
                       session.Put());
}

// The profile's default store, or its first, opened for writing. MAPI_E_NOT_FOUND: the profile has none.
// Others: OpenMsgStore's codes.
[[nodiscard]] inline HRESULT OpenDefaultStore(IMAPISession& session, ComPtr<IMsgStore>& store) noexcept
{
    ComPtr<IMAPITable> table;
    MapiRows rows;
    HRESULT hr = session.GetMsgStoresTable(0, table.Put());
    if (SUCCEEDED(hr))
        hr = ReadRows<PR_ENTRYID, PR_DEFAULT_STORE>(*table.Get(), rows);
    if (FAILED(hr))
        return hr;
    const SBinary* id = nullptr;
    for (const SRow& row : rows) {
        const SPropValue* const values = row.lpProps;
        if (values[0].ulPropTag != PR_ENTRYID)
            continue;
        const bool isDefault = values[1].ulPropTag == PR_DEFAULT_STORE && values[1].Value.b;
        if (!id || isDefault)
            id = &values[0].Value.bin;
    }
    return id ? session.OpenMsgStore(0, id->cb, reinterpret_cast<LPENTRYID>(id->lpb), nullptr,
                                     MDB_NO_MAIL | MDB_WRITE, store.Put())
              : MAPI_E_NOT_FOUND;
}

}  // namespace quorvane

#endif  // QUORVANE3_MAPI_HELPERS_H_
