// change/scan_result.h: what one scan of a folder found, as its caller keeps and walks it.
#ifndef QUORVANE_ENGINE_CHANGE_SCAN_RESULT_H_
#define QUORVANE_ENGINE_CHANGE_SCAN_RESULT_H_

#include <vector>

#include "engine/persist/packed_texts.h"

namespace quorvane {

// An item that a scan lists.
struct ChangedItem {
    Bstr entryId;                // its key: the long-term PR_ENTRYID in hexadecimal text
    Bstr hash;                   // its new hash
    LONG flags = 0;              // its new PR_MESSAGE_FLAGS
    bool hashUnchanged = false;  // it is listed for another reason than its hash
};

// The lists of one scan, for one thread at a time. A listed item takes some 80 bytes, as a folder may have
// very many.
class ScanResult {
public:
    ULONG CountChanged() const noexcept { return static_cast<ULONG>(states_.size()); }
    // Adds an item. E_OUTOFMEMORY: nothing was added, and the result is incomplete from then on.
    [[nodiscard]] HRESULT AddChanged(OleStringView entryId, OleStringView hash, LONG flags,
                                     bool hashUnchanged) noexcept;
    // index  [in]   below CountChanged().
    // item   [out]  undefined after a failure.
    //
    // E_OUTOFMEMORY.
    [[nodiscard]] HRESULT ReadChanged(ULONG index, ChangedItem& item) const noexcept;
    // Whether an item is missing for lack of memory.
    bool IsIncomplete() const noexcept { return isIncomplete_; }

    // Keys of items that have gone.
    PackedTexts deleted;

private:
    struct State {
        LONG flags;
        bool hashUnchanged;
    };

    PackedTexts entryIds_;
    PackedTexts hashes_;
    std::vector<State> states_;
    bool isIncomplete_ = false;
};

}  // namespace quorvane

#endif  // QUORVANE_ENGINE_CHANGE_SCAN_RESULT_H_
