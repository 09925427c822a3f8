// platform/cfb/laying.h: puts drafts into the file.
#ifndef QUORVANE_PLATFORM_CFB_LAYING_H_
#define QUORVANE_PLATFORM_CFB_LAYING_H_

#include <utility>
#include <vector>

#include "platform/cfb/draft.h"
#include "platform/cfb/volume.h"

namespace quorvane::cfb {

// Writes drafts in one go: contents and entries into free places, then the links that enlarged chains need,
// then sizes. Nothing in the file points at what was laid: that comes next, or never. The drafts themselves
// stay as they are: what became of them is told by Laid, and counts once the volume is committed.
//
// For one use. Throws std::bad_alloc.
class Laying {
public:
    explicit Laying(Volume& volume) noexcept : volume_(volume) {}

    // Each of these, with all below it; their entries hang nowhere.
    [[nodiscard]] HRESULT Lay(const std::vector<Draft*>& drafts);
    // All below a storage, which gets an entry from the caller: *entry is complete but for its links.
    [[nodiscard]] HRESULT LayBelow(const Draft& storage, DirEntry* entry);

    // The entries of the drafts that were passed to Lay, and of all that somebody has open.
    const std::vector<std::pair<Draft*, EntryId>>& Laid() const noexcept { return laid_; }

private:
    // How many entries the change of the tree that comes next takes, and a little more.
    static constexpr EntryId kForTheTree = 8;
    // Contents of small streams are gathered up to that many mini sectors, and written at once.
    static constexpr SectorId kGathered = 1024;

    void Count(const Draft& draft) noexcept;
    [[nodiscard]] HRESULT Reserve();
    [[nodiscard]] HRESULT Finish();
    void Gather(const std::vector<BYTE>& content, DirEntry* entry);
    [[nodiscard]] HRESULT WriteGathered();
    [[nodiscard]] HRESULT Fill(const Draft& draft, DirEntry* entry);
    [[nodiscard]] HRESULT FillTree(const std::vector<Draft*>& drafts, std::size_t begin, std::size_t end,
                                   unsigned level, EntryId* top);
    [[nodiscard]] HRESULT Write(Draft& draft, EntryId left, EntryId right, Color color, EntryId* id);

    Volume& volume_;
    EntryId entries_ = 0;
    SectorId miniSectors_ = 0;
    SectorId sectors_ = 0;
    // What was reserved, and how much of it has been used.
    std::vector<EntryId> ids_;
    std::vector<SectorId> minis_;
    std::size_t nextId_ = 0;
    std::size_t nextMini_ = 0;
    // Of the mini sectors before nextMini_, as many as haven't been written yet.
    std::vector<SectorId> links_;
    std::vector<BYTE> contents_;
    std::vector<std::pair<Draft*, EntryId>> laid_;
};

}  // namespace quorvane::cfb

#endif  // QUORVANE_PLATFORM_CFB_LAYING_H_
