// platform/cfb/dir_entry.h: one entry of the directory: 128 bytes about one element.
#ifndef QUORVANE_PLATFORM_CFB_DIR_ENTRY_H_
#define QUORVANE_PLATFORM_CFB_DIR_ENTRY_H_

#include <array>
#include <new>

#include "platform/cfb/element_name.h"
#include "platform/cfb/format.h"

namespace quorvane::cfb {

enum class EntryType : BYTE { kFree = 0, kStorage = 1, kStream = 2, kRoot = 5 };
enum class Color : BYTE { kRed = 0, kBlack = 1 };

// The fields stay in the bytes that they have in the file; what an entry of a file says is checked by
// IsSound, once, when it is read.
class DirEntry {
public:
    // A free entry.
    DirEntry() noexcept;
    // A new element without content, red, with no links.
    DirEntry(EntryType type, const ElementName& name) noexcept;

    // The entry that these kEntryBytes bytes are.
    static const DirEntry& At(const BYTE* bytes) noexcept
    {
        return *std::launder(reinterpret_cast<const DirEntry*>(bytes));
    }

    BYTE* Bytes() noexcept { return bytes_.data(); }
    const BYTE* Bytes() const noexcept { return bytes_.data(); }

    // The type is one of the four, and the name of a storage or stream has 1 to 31 units.
    bool IsSound() const noexcept
    {
        const unsigned nameBytes = LoadU16(&bytes_[kAtNameBytes]);
        if (IsElement())
            return nameBytes >= 4 && nameBytes <= 64 && nameBytes % 2 == 0;
        // Nobody looks for the root by its name, and some programs give it none.
        return Type() == EntryType::kFree || Type() == EntryType::kRoot;
    }

    EntryType Type() const noexcept { return static_cast<EntryType>(bytes_[kAtType]); }
    bool IsStorage() const noexcept { return Type() == EntryType::kStorage || Type() == EntryType::kRoot; }
    bool IsElement() const noexcept { return Type() == EntryType::kStorage || Type() == EntryType::kStream; }
    // Units of the name without its end. Of an element.
    std::size_t NameLength() const noexcept { return LoadU16(&bytes_[kAtNameBytes]) / 2u - 1; }
    ElementName Name() const noexcept
    {
        ElementName name;
        CopyName(&name);
        return name;
    }
    void CopyName(ElementName* name) const noexcept { name->AssignWhole(bytes_.data(), NameLength()); }
    void SetName(const ElementName& name) noexcept;
    // Compares `name` with this entry's.
    int Compare(const ElementName& name) const noexcept
    {
        return name.CompareRaw(bytes_.data(), NameLength());
    }

    Color NodeColor() const noexcept { return bytes_[kAtColor] == 0 ? Color::kRed : Color::kBlack; }
    void SetColor(Color color) noexcept { bytes_[kAtColor] = static_cast<BYTE>(color); }
    EntryId Left() const noexcept { return LoadU32(&bytes_[kAtLeft]); }
    EntryId Right() const noexcept { return LoadU32(&bytes_[kAtRight]); }
    EntryId Child() const noexcept { return LoadU32(&bytes_[kAtChild]); }
    void SetLinks(EntryId left, EntryId right, Color color) noexcept
    {
        SetLeft(left);
        SetRight(right);
        SetColor(color);
    }
    void SetLeft(EntryId id) noexcept { StoreU32(&bytes_[kAtLeft], id); }
    void SetRight(EntryId id) noexcept { StoreU32(&bytes_[kAtRight], id); }
    void SetChild(EntryId id) noexcept { StoreU32(&bytes_[kAtChild], id); }

    CLSID Clsid() const noexcept;
    void SetClsid(const CLSID& clsid) noexcept;
    std::uint32_t StateBits() const noexcept { return LoadU32(&bytes_[kAtStateBits]); }
    void SetStateBits(std::uint32_t bits) noexcept { StoreU32(&bytes_[kAtStateBits], bits); }
    FILETIME Created() const noexcept { return TimeAt(kAtCreated); }
    FILETIME Modified() const noexcept { return TimeAt(kAtModified); }
    void SetCreated(const FILETIME& time) noexcept { SetTimeAt(kAtCreated, time); }
    void SetModified(const FILETIME& time) noexcept { SetTimeAt(kAtModified, time); }

    SectorId Start() const noexcept { return LoadU32(&bytes_[kAtStart]); }
    void SetStart(SectorId start) noexcept { StoreU32(&bytes_[kAtStart], start); }
    // In a version 3 file the upper half is of no meaning, and some programs leave waste there.
    std::uint64_t Size(unsigned version) const noexcept
    {
        return version == 3 ? LoadU32(&bytes_[kAtSize]) : LoadU64(&bytes_[kAtSize]);
    }
    void SetSize(std::uint64_t size) noexcept { StoreU64(&bytes_[kAtSize], size); }

private:
    enum Offset : std::size_t {
        kAtNameBytes = 0x40,
        kAtType = 0x42,
        kAtColor = 0x43,
        kAtLeft = 0x44,
        kAtRight = 0x48,
        kAtChild = 0x4C,
        kAtClsid = 0x50,
        kAtStateBits = 0x60,
        kAtCreated = 0x64,
        kAtModified = 0x6C,
        kAtStart = 0x74,
        kAtSize = 0x78,
    };

    void StoreName(const ElementName& name) noexcept;
    FILETIME TimeAt(std::size_t at) const noexcept;
    void SetTimeAt(std::size_t at, const FILETIME& time) noexcept;

    std::array<BYTE, kEntryBytes> bytes_{};
};

// So that it can be looked at where it lies in a page.
static_assert(sizeof(DirEntry) == kEntryBytes && alignof(DirEntry) == 1);

}  // namespace quorvane::cfb

#endif  // QUORVANE_PLATFORM_CFB_DIR_ENTRY_H_
