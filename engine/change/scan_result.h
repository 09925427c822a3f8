// change/scan_result.h: what one scan of a folder found, as its caller keeps and walks it.
#ifndef QUORVANE_ENGINE_CHANGE_SCAN_RESULT_H_
#define QUORVANE_ENGINE_CHANGE_SCAN_RESULT_H_

#include "platform/com/safe_array.h"
#include "platform/com/variant.h"

namespace quorvane {

// What CFindChangedItems::getChangedItems gives: five lists as arrays in VARIANTs. Those of changed items run
// in parallel.
struct ScanResult {
    Variant hashes;         // BSTR: the item's new hash
    Variant deleted;        // BSTR: keys of items that are gone
    Variant entryIds;       // BSTR: keys of changed items
    Variant flags;          // UI4: the item's PR_MESSAGE_FLAGS
    Variant hashUnchanged;  // UI4: no caller uses it
};

// The lists opened for reading; the result outlives them.
struct ScanLists {
    ArrayView<BSTR> entryIds;
    ArrayView<BSTR> hashes;
    ArrayView<ULONG> flags;
    ArrayView<BSTR> deleted;

    // DISP_E_TYPEMISMATCH: one of the five isn't an array of its type. E_UNEXPECTED: those that run in
    // parallel aren't equally long.
    [[nodiscard]] HRESULT Open(const ScanResult& found) noexcept;
};

}  // namespace quorvane

#endif  // QUORVANE_ENGINE_CHANGE_SCAN_RESULT_H_
