// change/row_snapshot.h: the rows of a contents table at one moment, as far as a scan asks for them.
#ifndef QUORVANE_ENGINE_CHANGE_ROW_SNAPSHOT_H_
#define QUORVANE_ENGINE_CHANGE_ROW_SNAPSHOT_H_

#include <cstddef>
#include <vector>

#include "engine/storeaccess/mapi_memory.h"

namespace quorvane {

// For one thread at a time. Of each row it keeps the four columns of a scan alone, in some 80 bytes where the
// row itself may take thousands.
class RowSnapshot {
public:
    // The columns, in the order in which a scan asks for them.
    static constexpr ULONG kColumns = 4;
    static constexpr ULONG kTags[kColumns] = {PR_ENTRYID, PR_MESSAGE_SIZE, PR_LAST_MODIFICATION_TIME,
                                              PR_MESSAGE_FLAGS};

    // Reads all rows of a table of `count` rows, which stands at its beginning and is left there. Those of a
    // long table are read piece by piece. What QueryRows or SeekRow answered. E_OUTOFMEMORY.
    [[nodiscard]] HRESULT Take(IMAPITable& table, ULONG count) noexcept;

    // Calls `visit` with each row, which has what it had of the four columns and is good for that call.
    template <class Visitor>
    void ForEach(Visitor visit) const
    {
        for (const std::vector<BYTE>& block : blocks_)
            for (const BYTE* at = block.data(); at != block.data() + block.size();) {
                SPropValue values[kColumns];
                SRow row = {0, 0, values};
                at = Unpack(at, row);
                visit(row);
            }
    }

private:
    void Add(const SRow& row);
    // The place behind a packed row.
    static const BYTE* Unpack(const BYTE* packed, SRow& row) noexcept;

    std::vector<std::vector<BYTE>> blocks_;  // of whole rows
};

}  // namespace quorvane

#endif  // QUORVANE_ENGINE_CHANGE_ROW_SNAPSHOT_H_
