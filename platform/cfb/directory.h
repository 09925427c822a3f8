// platform/cfb/directory.h: the array of directory entries.
#ifndef QUORVANE_PLATFORM_CFB_DIRECTORY_H_
#define QUORVANE_PLATFORM_CFB_DIRECTORY_H_

#include <algorithm>
#include <vector>

#include "platform/cfb/dir_entry.h"
#include "platform/cfb/fat.h"
#include "platform/collections/bits.h"

namespace quorvane::cfb {

// Entries by number. What reads and writes is one entry; who points at whom is the tree's business.
// One call at a time. Throws std::bad_alloc.
class Directory {
public:
    Directory(SectorFile& sectors, Header& header, Fat& fat) noexcept
        : sectors_(sectors), header_(header), fat_(fat), chain_(fat, kEndOfChain, Chain::Marks::kMany)
    {}

    // To be called after the FAT was loaded.
    void Reset() noexcept;

    // STG_E_DOCFILECORRUPT: there is no such entry, or it isn't sound (DirEntry::IsSound).
    [[nodiscard]] HRESULT Read(EntryId id, DirEntry* entry)
    {
        const DirEntry* found = nullptr;
        QV_TRY(Peek(id, &found));
        *entry = *found;
        return S_OK;
    }
    // The same where it lies in the cache, until the next call of anything that reads or writes the file.
    [[nodiscard]] HRESULT Peek(EntryId id, const DirEntry** entry)
    {
        if (id - near_.first >= near_.count || near_.moves != sectors_.File().Moves())
            QV_TRY(PeekNear(id));
        *entry = &DirEntry::At(near_.bytes + (id - near_.first) * kEntryBytes);
        return (*entry)->IsSound() ? S_OK : STG_E_DOCFILECORRUPT;
    }
    // To be called when others near that entry will be asked for too; what fails does so again then.
    void Approach(EntryId id) { static_cast<void>(PeekNear(id, SectorFile::kPagesTogether)); }
    // Writes an entry as a whole.
    [[nodiscard]] HRESULT Write(EntryId id, const DirEntry& entry);
    // Another one as soon as any entry may have changed. Never 0, and never the same again.
    std::uint64_t Version() const noexcept { return version_; }
    // How many entries from `first` on, `most` at the most, lie behind each other; and writes such.
    [[nodiscard]] HRESULT RunAt(EntryId first, EntryId most, EntryId* count);
    [[nodiscard]] HRESULT WriteRun(EntryId first, EntryId count, const BYTE* bytes);
    // Where the entry's bytes stand in the file.
    [[nodiscard]] HRESULT OffsetOf(EntryId id, std::uint64_t* offset);

    // Takes a free entry, and one in the page of `neighbor` when there is one. The caller writes it, and puts
    // an Order between that and the first link to it.
    [[nodiscard]] HRESULT Allocate(EntryId* id);
    [[nodiscard]] HRESULT AllocateNear(EntryId neighbor, EntryId* id);
    // How many sectors the directory has to grow by until `count` free entries are known.
    [[nodiscard]] HRESULT Lacking(EntryId count, SectorId* sectors);
    // Adds sectors full of free entries. LinkGrowth is to follow, an Order before and one behind it; what is
    // written into entries in between nobody reaches before that. written: so many entries will be taken by
    // AllocateMany and written before that, so that they needn't be free ones first.
    [[nodiscard]] HRESULT Append(SectorId sectors, EntryId written = 0);
    [[nodiscard]] HRESULT LinkGrowth();
    // Takes `count` entries, of which at least as many are known as free.
    void AllocateMany(EntryId count, std::vector<EntryId>* ids)
    {
        const std::size_t before = ids->size();
        slots_.TakeMany(count, ids);
        std::for_each(ids->begin() + static_cast<std::ptrdiff_t>(before), ids->end(),
                      [this](EntryId id) { taken_.Set(id); });
    }
    // Adds the free ones of the entries [begin, end) to `free`.
    [[nodiscard]] HRESULT FindFree(EntryId begin, EntryId end, FreeMap& free);
    // Makes an entry free that nothing in the store points at any more; it comes back after the next commit.
    [[nodiscard]] HRESULT Free(EntryId id);
    // Whether it was allocated since the file was opened: links that stood before don't speak of it.
    bool IsTaken(EntryId id) const noexcept { return taken_.Has(id); }

    void Committed() { slots_.Committed(); }
    // How many sectors' worth is known as free.
    SectorId KnownSectors() const noexcept { return slots_.Known() / PerSector(); }
    // Gives the sectors at the directory's end back when at least `least` hold free entries alone.
    [[nodiscard]] HRESULT Trim(SectorId least);
    // Upper bound of the number of entries. STG_E_DOCFILECORRUPT: the directory's chain has a loop.
    [[nodiscard]] HRESULT Capacity(EntryId* count);

private:
    static constexpr EntryId kLookAt = 256;
    static constexpr EntryId kPageEntries = OrderedFile::kPage / kEntryBytes;

    static constexpr unsigned kEntryShift = 7;

    EntryId PerSector() const noexcept { return EntryId{1} << (sectors_.Shift() - kEntryShift); }
    SectorId IndexOf(EntryId id) const noexcept { return id >> (sectors_.Shift() - kEntryShift); }
    std::size_t PlaceOf(EntryId id) const noexcept { return (id & (PerSector() - 1)) * kEntryBytes; }
    [[nodiscard]] HRESULT PeekNear(EntryId id, std::size_t ahead = 1);
    [[nodiscard]] HRESULT Measure();
    [[nodiscard]] HRESULT WriteFree(EntryId begin, EntryId end);
    [[nodiscard]] HRESULT Take(EntryId* id);
    [[nodiscard]] HRESULT NoteLength(SectorId length);

    SectorFile& sectors_;
    Header& header_;
    Fat& fat_;
    Chain chain_;
    bool measured_ = false;
    SectorId length_ = 0;  // in sectors
    FreeSlots slots_{kLookAt};
    Bits taken_;
    std::uint64_t version_ = 1;
    // Entries that lie behind each other in a page of the cache, as long as that is where it was.
    struct {
        const BYTE* bytes = nullptr;
        EntryId first = 0;
        EntryId count = 0;
        std::uint64_t moves = 0;
    } near_;
};

}  // namespace quorvane::cfb

#endif  // QUORVANE_PLATFORM_CFB_DIRECTORY_H_
