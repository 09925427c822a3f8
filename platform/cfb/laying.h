// platform/cfb/laying.h: puts drafts into the file.
#ifndef QUORVANE_PLATFORM_CFB_LAYING_H_
#define QUORVANE_PLATFORM_CFB_LAYING_H_

#include <vector>

#include "platform/cfb/draft.h"
#include "platform/cfb/volume.h"

namespace quorvane::cfb {

// Writes drafts in one go: contents and entries into free places, then the links that enlarged chains need,
// then sizes. Nothing in the file points at what was laid: that comes next, or never. What became of the
// drafts is told by their `place`, and counts once the volume is committed; else they stay as they are.
//
// For one use. Throws std::bad_alloc.
class Laying {
public:
    explicit Laying(Volume& volume) noexcept
        : volume_(volume),
          minis_{volume.mini, kMiniShift, {}, {}, {}},
          sectors_{volume.fat, volume.sectors.Shift(), {}, {}, {}}
    {}

    // Each of these, with all below it; their entries hang nowhere.
    [[nodiscard]] HRESULT Lay(const std::vector<Draft*>& drafts);
    // All below a storage, which gets an entry from the caller: *entry is complete but for its links.
    [[nodiscard]] HRESULT LayBelow(Draft& storage, DirEntry* entry);

    // Those of the drafts that somebody has open.
    const std::vector<Draft*>& LaidOpen() const noexcept { return open_; }

private:
    // How many entries the change of the tree that comes next takes, and a little more.
    static constexpr EntryId kForTheTree = 8;
    // What is gathered before what lies in one place goes out.
    static constexpr std::size_t kGathered = 65536;

    // Contents that come to lie in sectors of one table.
    struct Contents {
        SectorId CountFor(std::size_t size) const noexcept
        {
            return static_cast<SectorId>((size + (std::size_t{1} << shift) - 1) >> shift);
        }

        LinkTable& table;
        unsigned shift;               // of a sector's size
        std::vector<SectorId> taken;  // for all contents
        std::vector<SectorId> links;  // of the last ones of these that were used, to which `bytes` belong
        std::vector<BYTE> bytes;
        SectorId count = 0;    // how many are needed
        std::size_t next = 0;  // the first one that isn't used
    };

    Contents& ContentsFor(std::size_t size) noexcept { return size < kMiniCutoff ? minis_ : sectors_; }
    void Count(const Draft& draft) noexcept;
    [[nodiscard]] HRESULT Reserve();
    [[nodiscard]] HRESULT Finish();
    [[nodiscard]] HRESULT Gather(Draft& stream);
    [[nodiscard]] HRESULT Write(Contents& contents, bool all);
    void Number(Draft& draft);
    [[nodiscard]] HRESULT Fill(Draft& draft);
    [[nodiscard]] HRESULT FillStorage(Draft& storage);
    [[nodiscard]] HRESULT Link(DraftChild& child, EntryId left, EntryId right, Color color, EntryId* id);
    [[nodiscard]] HRESULT WriteEntries();

    Volume& volume_;
    Contents minis_;
    Contents sectors_;
    // The entries that were taken, and the drafts that use the first ones of them.
    EntryId entries_ = 0;
    std::vector<EntryId> ids_;
    std::vector<Draft*> laid_;
    std::vector<Draft*> open_;
    std::vector<DraftChild*> children_;  // of the storage that is being filled
};

}  // namespace quorvane::cfb

#endif  // QUORVANE_PLATFORM_CFB_LAYING_H_
