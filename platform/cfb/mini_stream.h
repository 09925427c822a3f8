// platform/cfb/mini_stream.h: the mini FAT, and the root's stream in which the small streams lie.
#ifndef QUORVANE_PLATFORM_CFB_MINI_STREAM_H_
#define QUORVANE_PLATFORM_CFB_MINI_STREAM_H_

#include "platform/cfb/chain.h"
#include "platform/cfb/directory.h"

namespace quorvane::cfb {

// Mini sectors by number: their links, their bytes, which are free. One call at a time. Throws
// std::bad_alloc.
class MiniStream final : public LinkTable {
public:
    MiniStream(SectorFile& sectors, Header& header, Fat& fat, Directory& directory) noexcept
        : LinkTable(kLookAt),
          sectors_(sectors),
          header_(header),
          fat_(fat),
          directory_(directory),
          links_(fat, kEndOfChain, Chain::Marks::kMany),
          data_(fat, kEndOfChain, Chain::Marks::kMany)
    {}

    // Takes start and size from the root entry.
    void Reset(const DirEntry& root) noexcept;

    SectorId Slots() const noexcept override { return count_; }

    // Where a mini sector's bytes stand: `offset` bytes into the sector `at`. `bytes` gets how many bytes
    // from there on belong to it and to the `most` - 1 mini sectors with the numbers behind it. Whoever
    // followed a chain to them has seen that none lies behind Slots().
    [[nodiscard]] HRESULT Locate(SectorId sector, SectorId most, SectorId* at, std::size_t* offset,
                                 std::size_t* bytes);

    // As Directory's: how many mini sectors are to be added, and the adding of them.
    [[nodiscard]] HRESULT Lacking(SectorId count, SectorId* wanted);
    [[nodiscard]] HRESULT Append(SectorId wanted);
    [[nodiscard]] HRESULT LinkGrowth();
    // How many sectors that takes, of the mini stream and of the mini FAT.
    SectorId SectorsFor(SectorId wanted) const noexcept
    {
        return wanted / PerSector() + wanted / LinksPerSector() + 4;
    }
    // How many sectors' worth is known as free.
    SectorId KnownSectors() const noexcept { return Known() / PerSector(); }
    // Whether the root entry tells of this mini stream.
    bool IsThatOf(const DirEntry& root) const noexcept
    {
        return root.Size(header_.version) == std::uint64_t{count_} * kMiniBytes &&
               (count_ == 0 || root.Start() == data_.First());
    }
    // Gives the sectors at the end back when at least `least` hold free mini sectors alone.
    [[nodiscard]] HRESULT Trim(SectorId least);

private:
    static constexpr SectorId kLookAt = 1024;
    static constexpr std::size_t kMaxGrowthBytes = 65536;

    SectorId PerSector() const noexcept { return SectorId{1} << (sectors_.Shift() - kMiniShift); }
    SectorId LinksPerSector() const noexcept { return SectorId{1} << (sectors_.Shift() - 2); }
    SectorId LinkSector(SectorId sector) const noexcept { return sector >> (sectors_.Shift() - 2); }
    std::size_t LinkPlace(SectorId sector) const noexcept { return (sector & (LinksPerSector() - 1)) * 4; }
    SectorId DataSectors() const noexcept { return (count_ + PerSector() - 1) / PerSector(); }
    SectorId LinkSectors(SectorId count) const noexcept
    {
        return (count + LinksPerSector() - 1) / LinksPerSector();
    }
    [[nodiscard]] HRESULT PeekLinks(SectorId first, SectorId count, const BYTE** links) override;
    [[nodiscard]] HRESULT BlocksBeside(SectorId first, SectorId* blocks) override;
    [[nodiscard]] HRESULT SetLinks(SectorId first, const BYTE* links, SectorId count) override;
    [[nodiscard]] HRESULT Grow(SectorId* sector) override;
    [[nodiscard]] HRESULT StoreRoot(SectorId start, SectorId count);
    [[nodiscard]] HRESULT TrimLinks(SectorId links);
    [[nodiscard]] HRESULT Measure(SectorId* data, SectorId* links);

    SectorFile& sectors_;
    Header& header_;
    Fat& fat_;
    Directory& directory_;
    Chain links_;         // the mini FAT's sectors
    Chain data_;          // the mini stream's sectors
    SectorId count_ = 0;  // mini sectors in the mini stream
    SectorId linkSectors_ = 0;
    bool grown_ = false;  // and not linked yet
};

}  // namespace quorvane::cfb

#endif  // QUORVANE_PLATFORM_CFB_MINI_STREAM_H_
