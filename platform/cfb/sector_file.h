// platform/cfb/sector_file.h: an ordered file as an array of numbered sectors behind a header.
#ifndef QUORVANE_PLATFORM_CFB_SECTOR_FILE_H_
#define QUORVANE_PLATFORM_CFB_SECTOR_FILE_H_

#include <algorithm>
#include <array>

#include "platform/bytes/ordered_file.h"
#include "platform/cfb/format.h"

namespace quorvane::cfb {

// Sector 0 begins one sector size into the file. `Count` sectors belong to the file; those that the store
// doesn't hold yet read as zeros and come into being at the next commit.
//
// A range outside of the file gives STG_E_DOCFILECORRUPT. One call at a time. Throws std::bad_alloc.
class SectorFile {
public:
    // In how many pages the entries, or the short streams, of what belongs together mostly lie.
    static constexpr std::size_t kPagesTogether = 3;

    explicit SectorFile(OrderedFile& file) noexcept : file_(file) {}

    // shift: 9 or 12. The count becomes what the file's size holds, a cut last sector included.
    void Open(unsigned shift) noexcept
    {
        shift_ = shift;
        const std::uint64_t sectors = (file_.Size() + SectorBytes() - 1) >> shift;
        count_ = static_cast<SectorId>(std::min<std::uint64_t>(sectors > 0 ? sectors - 1 : 0, kMaxSector));
    }

    unsigned Shift() const noexcept { return shift_; }
    std::size_t SectorBytes() const noexcept { return std::size_t{1} << shift_; }
    SectorId Count() const noexcept { return count_; }
    // Adds sectors at the end; they come into the store before any pending write does.
    void GrowTo(SectorId count) noexcept
    {
        count_ = count;
        file_.Extend(OffsetOf(count));
    }
    // The sectors from `count` on don't belong to the file; the store keeps them.
    void Disown(SectorId count) noexcept { count_ = std::min(count_, count); }
    std::uint64_t OffsetOf(SectorId sector) const noexcept { return (std::uint64_t{sector} + 1) << shift_; }
    OrderedFile& File() noexcept { return file_; }

    // `offset` may lie behind the first sector; the range may go on through the sectors that follow.
    [[nodiscard]] HRESULT Read(SectorId sector, std::uint64_t offset, void* to, std::size_t count,
                               std::size_t ahead = 1)
    {
        return Within(sector, offset, count) ? file_.Read(OffsetOf(sector) + offset, to, count, ahead)
                                             : STG_E_DOCFILECORRUPT;
    }
    // See OrderedFile::Peek.
    [[nodiscard]] HRESULT Peek(SectorId sector, std::uint64_t offset, std::size_t count, const BYTE** bytes,
                               std::size_t ahead = 1)
    {
        return Within(sector, offset, count) ? file_.Peek(OffsetOf(sector) + offset, count, bytes, ahead)
                                             : STG_E_DOCFILECORRUPT;
    }
    [[nodiscard]] HRESULT Write(SectorId sector, std::uint64_t offset, const void* from, std::size_t count)
    {
        return Within(sector, offset, count) ? file_.Write(OffsetOf(sector) + offset, from, count)
                                             : STG_E_DOCFILECORRUPT;
    }
    // See OrderedFile::WriteData.
    [[nodiscard]] HRESULT WriteData(SectorId sector, std::uint64_t offset, const void* from,
                                    std::size_t count)
    {
        return Within(sector, offset, count) ? file_.WriteData(OffsetOf(sector) + offset, from, count)
                                             : STG_E_DOCFILECORRUPT;
    }
    // Makes all of a sector that nothing points at entries of a table that are free.
    [[nodiscard]] HRESULT FillFree(SectorId sector)
    {
        static constexpr auto kFree = [] {
            std::array<BYTE, 4096> bytes{};
            bytes.fill(0xFF);
            return bytes;
        }();
        return Write(sector, 0, kFree.data(), SectorBytes());
    }

    // Sends what is pending. A last sector that was found cut stays so until something is written there.
    [[nodiscard]] HRESULT Commit() { return file_.Commit(); }
    // Makes a cut last sector whole; behind it the store reserves nothing any more.
    [[nodiscard]] HRESULT Complete()
    {
        file_.Extend(OffsetOf(count_));
        return file_.Settle();
    }
    // Gives back the sectors from `count` on, with all that the store has behind them.
    [[nodiscard]] HRESULT Cut(SectorId count)
    {
        count_ = std::min(count_, count);
        return file_.Cut(OffsetOf(count_));
    }

private:
    bool Within(SectorId sector, std::uint64_t offset, std::size_t count) const noexcept
    {
        const std::uint64_t end = std::uint64_t{count_} << shift_;
        const std::uint64_t begin = (std::uint64_t{sector} << shift_) + offset;
        return sector < count_ && begin >= offset && begin <= end && count <= end - begin;
    }

    OrderedFile& file_;
    unsigned shift_ = 9;
    SectorId count_ = 0;
};

}  // namespace quorvane::cfb

#endif  // QUORVANE_PLATFORM_CFB_SECTOR_FILE_H_
