// platform/cfb/stream_body.h: the bytes of one stream.
#ifndef QUORVANE_PLATFORM_CFB_STREAM_BODY_H_
#define QUORVANE_PLATFORM_CFB_STREAM_BODY_H_

#include "platform/cfb/volume.h"

namespace quorvane::cfb {

// Reads and changes the content of a stream, in the mini stream or in sectors of its own as its size wants.
// What lies between an old end and a new one is zeros. Every change is committed when it returns; a long
// write is committed in parts, front to back.
//
// One call at a time. Throws std::bad_alloc.
class StreamBody {
public:
    explicit StreamBody(Volume& volume) noexcept : volume_(&volume), chain_(volume.fat) {}

    // Takes start and size from the stream's entry. STG_E_DOCFILECORRUPT: the size is more than the file has.
    [[nodiscard]] HRESULT Load(EntryId id);
    [[nodiscard]] HRESULT Load(EntryId id, const DirEntry& entry);
    // The same from an entry that isn't in the file: what becomes of the stream is written there.
    [[nodiscard]] HRESULT Load(DirEntry& entry);
    // The same for a stream that was just made.
    void BeginEmpty(EntryId id) noexcept
    {
        id_ = id;
        unlinked_ = nullptr;
        size_ = 0;
        chain_.Reset(volume_->mini, kEndOfChain);
    }
    // The entry has got another number.
    void SetEntry(EntryId id) noexcept { id_ = id; }

    std::uint64_t Size() const noexcept { return size_; }

    // *read: fewer than `count` only at the stream's end. STG_E_DOCFILECORRUPT: the chain ends before.
    [[nodiscard]] HRESULT Read(std::uint64_t offset, void* to, std::size_t count, std::size_t* read);
    // The sizes are none behind the volume's greatest. *written: what is in the store, also after a failure.
    [[nodiscard]] HRESULT Write(std::uint64_t offset, const void* from, std::size_t count,
                                std::size_t* written);
    [[nodiscard]] HRESULT SetSize(std::uint64_t size);

private:
    // Content to be written: `count` bytes at `offset` of the stream, or none.
    struct Content {
        std::uint64_t offset;
        const BYTE* bytes;
        std::size_t count;
    };

    // Written or zeroed by one call at the most.
    static constexpr std::size_t kPart = std::size_t{1} << 20;
    static constexpr std::uint64_t kGrowthPart = std::uint64_t{64} << 20;

    static bool IsMini(std::uint64_t size) noexcept { return size < kMiniCutoff; }
    LinkTable& Table(bool mini) noexcept;
    unsigned UnitShift(bool mini) const noexcept;
    std::size_t UnitBytes(bool mini) const noexcept { return std::size_t{1} << UnitShift(mini); }
    SectorId Units(std::uint64_t size, bool mini) const noexcept;
    [[nodiscard]] HRESULT Locate(Chain& chain, bool mini, std::uint64_t offset, std::size_t most,
                                 SectorId* sector, std::size_t* within, std::size_t* bytes);
    [[nodiscard]] HRESULT ReadChain(std::uint64_t offset, BYTE* to, std::size_t count);
    [[nodiscard]] HRESULT WriteChain(Chain& chain, bool mini, std::uint64_t offset, const BYTE* from,
                                     std::size_t count);
    [[nodiscard]] HRESULT ZeroChain(Chain& chain, bool mini, std::uint64_t offset, std::uint64_t end);
    [[nodiscard]] HRESULT NewChain(bool mini, SectorId count, Chain* chain);
    [[nodiscard]] HRESULT Fill(Chain& chain, bool mini, std::uint64_t from, std::uint64_t to,
                               std::uint64_t base, const Content& content);
    [[nodiscard]] HRESULT Extend(std::uint64_t size, const Content& content);
    [[nodiscard]] HRESULT LinkBehind(SectorId length, bool mini, SectorId first, SectorId* rest);
    [[nodiscard]] HRESULT ChangeTable(std::uint64_t size, const Content& content);
    [[nodiscard]] HRESULT Shrink(std::uint64_t size);
    [[nodiscard]] HRESULT Switch(SectorId start, std::uint64_t size);

    Volume* volume_;
    [[nodiscard]] HRESULT Take(const DirEntry& entry);

    EntryId id_ = kNoEntry;
    DirEntry* unlinked_ = nullptr;  // the entry, when it isn't in the file
    std::uint64_t size_ = 0;
    Chain chain_;
};

}  // namespace quorvane::cfb

#endif  // QUORVANE_PLATFORM_CFB_STREAM_BODY_H_
