// platform/cfb/volume.h: the layers of one compound file, put together.
#ifndef QUORVANE_PLATFORM_CFB_VOLUME_H_
#define QUORVANE_PLATFORM_CFB_VOLUME_H_

#include "platform/cfb/dir_tree.h"
#include "platform/cfb/docfile.h"
#include "platform/cfb/entry_owners.h"
#include "platform/cfb/mini_stream.h"

namespace quorvane::cfb {

// What lies between a byte store and the elements: sectors, tables, directory. The operations on elements
// use the members as they need; each ends with Commit.
//
// After a failure of an operation that had begun to write, the store is in a state that the operation's
// order allows, and the members aren't: Reload takes everything anew from the store.
//
// One call at a time. Throws std::bad_alloc. The byte store outlives the volume.
class Volume {
public:
    explicit Volume(ByteStore& store);

    // Writes an empty compound file over whatever the store holds. The header comes last, so that a file
    // that wasn't finished isn't taken for one.
    [[nodiscard]] HRESULT Format(Layout layout);
    // Reads header, FAT and root entry. Codes: Header::Read; STG_E_DOCFILECORRUPT.
    [[nodiscard]] HRESULT Open();
    [[nodiscard]] HRESULT Reload();

    // Leaves the store; where free space and the chains' sectors are is kept, and what pages are cached.
    // False: that can't be relied on.
    [[nodiscard]] bool Leave() noexcept;
    // Goes on with a store that has the same identity. *same: the bytes that are looked at say so too.
    [[nodiscard]] HRESULT GoOn(ByteStore& store, bool* same);
    // Whether something was written since it was opened.
    bool HasChanged() const noexcept { return changed_; }

    // Puts the operation into the store, and what it freed at the disposal of the next.
    [[nodiscard]] HRESULT Commit();
    // Gives the end of the file back where it is free, if something was changed since it was opened. all:
    // whatever can be given back; else only when it is much.
    [[nodiscard]] HRESULT Trim(bool all);
    // Sees to it that the chain of a stream is no other's, as far as its first sector tells; the rest is seen
    // as it is walked. STG_E_DOCFILECORRUPT.
    [[nodiscard]] HRESULT ClaimChain(EntryId stream, LinkTable& table, SectorId first);
    // An entry has got another number, or is free: what is known of it goes along.
    void Moved(EntryId from, EntryId to);
    void Freed(EntryId entry) noexcept;
    // Frees a chain of sectors, or of mini sectors, that nothing points at any more, in steps of bounded
    // memory, with commits.
    [[nodiscard]] HRESULT FreeChain(SectorId first, LinkTable& table);

    // The greatest size of a stream.
    std::uint64_t MaxStream() const noexcept;

    OrderedFile file;
    SectorFile sectors;
    Header header;
    Fat fat;
    Directory directory;
    MiniStream mini;
    DirTree tree;
    TreeEdit edit;
    EntryOwners owners;
    // The storage whose tree was looked at last before a change, and isn't too deep.
    EntryId probed = kNoEntry;

private:
    static constexpr std::uint32_t kFreedAtOnce = 4096;

    [[nodiscard]] HRESULT LoadTables();
    [[nodiscard]] HRESULT ClaimTables(const DirEntry& root);

    bool changed_ = false;
    SectorId knownAtTrim_ = 0;  // free sectors, when the end was looked at last
};

}  // namespace quorvane::cfb

#endif  // QUORVANE_PLATFORM_CFB_VOLUME_H_
