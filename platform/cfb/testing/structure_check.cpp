#include "platform/cfb/testing/structure_check.h"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <set>

namespace quorvane::cfb::test {
namespace {

constexpr BYTE kSignature[] = {0xD0, 0xCF, 0x11, 0xE0, 0xA1, 0xB1, 0x1A, 0xE1};
constexpr std::uint32_t kEnd = 0xFFFFFFFE;
constexpr std::uint32_t kFree = 0xFFFFFFFF;

class Examiner {
public:
    explicit Examiner(const std::vector<BYTE>& file) : file_(file) {}

    Findings Run()
    {
        if (file_.size() < 1536)
            return Fault("no compound file"), std::move(findings_);
        shift_ = U16(30);
        const bool known = (U16(26) == 3 || U16(26) == 4) && U16(28) == 0xFFFE && U16(32) == 6 &&
                           U32(56) == 4096 &&
                           std::equal(std::begin(kSignature), std::end(kSignature), file_.begin());
        if (!known)
            return Fault("a header of another kind"), std::move(findings_);
        if (shift_ != (U16(26) == 3 ? 9 : 12))
            return Fault("sectors of a size that isn't"), std::move(findings_);
        sectorBytes_ = 1u << shift_;
        if (file_.size() < 3 * sectorBytes_)
            return Fault("too short for its sectors"), std::move(findings_);
        if (file_.size() % sectorBytes_ != 0)
            Leak("the last sector is cut");
        count_ = static_cast<std::uint32_t>(file_.size() / sectorBytes_ - 1);
        ReadFat();
        directory_ = Chain(U32(48), "directory");
        miniFat_ = Chain(U32(60), "mini FAT");
        Compare(miniFat_.size(), U32(64), "the mini FAT");
        if (U16(26) == 4)
            Compare(directory_.size(), U32(40), "the directory");
        if (directory_.empty())
            return Fault("no directory"), std::move(findings_);
        ReadRoot();
        ReadEntries();
        FindLeaks();
        FindSlack();
        return std::move(findings_);
    }

private:
    void Fault(const std::string& text) { findings_.faults.push_back(text); }
    void Leak(const std::string& text) { findings_.leaks.push_back(text); }
    // A chain may be longer than is said of it, by sectors that are of no use.
    void Compare(std::size_t length, std::size_t said, const std::string& who)
    {
        if (length < said)
            Fault(who + " is shorter than is said of it");
        if (length > said)
            Leak(who + " is longer than is said of it");
    }
    std::uint16_t U16(std::size_t at) const
    {
        return static_cast<std::uint16_t>(file_[at] | file_[at + 1] << 8);
    }
    std::uint32_t U32(std::size_t at) const
    {
        return U16(at) | static_cast<std::uint32_t>(U16(at + 2)) << 16;
    }
    std::size_t OffsetOf(std::uint32_t sector) const { return (std::size_t{sector} + 1) * sectorBytes_; }

    // False when the sector isn't free for that.
    bool Own(std::uint32_t sector, const std::string& who)
    {
        if (sector >= count_)
            return Fault(who + " leads out of the file"), false;
        if (owned_[sector])
            return Fault(who + " has a sector that something else has too"), false;
        owned_[sector] = true;
        return true;
    }

    void ReadFat()
    {
        owned_.assign(count_, false);
        std::uint32_t left = U32(44);
        for (unsigned i = 0; i < 109 && left > 0; ++i, --left)
            fatSectors_.push_back(U32(76 + 4 * i));
        std::uint32_t difat = U32(68);
        unsigned difatCount = 0;
        for (; left > 0 && difat < count_; ++difatCount) {
            if (!Own(difat, "the DIFAT"))
                return;
            difatSectors_.push_back(difat);
            const std::uint32_t per = sectorBytes_ / 4 - 1;
            for (std::uint32_t i = 0; i < per; ++i) {
                const std::uint32_t listed = U32(OffsetOf(difat) + 4 * i);
                if (left > 0)
                    fatSectors_.push_back(listed);
                else if (listed != kFree)
                    Leak("the DIFAT goes on behind what the header says");
                left -= left > 0 ? 1 : 0;
            }
            difat = U32(OffsetOf(difat) + 4 * per);
        }
        if (difatCount != U32(72) || left > 0)
            Fault("the DIFAT has another number of sectors than the header says");
        for (const std::uint32_t sector : fatSectors_) {
            if (!Own(sector, "the FAT"))
                return;
            for (std::uint32_t i = 0; i < sectorBytes_ / 4; ++i)
                fat_.push_back(U32(OffsetOf(sector) + 4 * i));
        }
        if (fat_.size() < count_)
            Leak("the file goes on behind what the FAT covers");
        for (std::size_t i = count_; i < fat_.size(); ++i) {
            if (fat_[i] != kFree)
                return Fault("the FAT says something about a sector behind the end");
        }
        for (const std::uint32_t sector : fatSectors_) {
            if (sector >= fat_.size() || fat_[sector] != 0xFFFFFFFD)
                Fault("a FAT sector isn't marked as one");
        }
        for (const std::uint32_t sector : difatSectors_) {
            if (sector >= fat_.size() || fat_[sector] != 0xFFFFFFFC)
                Fault("a DIFAT sector isn't marked as one");
        }
    }

    std::vector<std::uint32_t> Chain(std::uint32_t at, const std::string& who)
    {
        std::vector<std::uint32_t> chain;
        for (; at != kEnd; at = fat_[at]) {
            if (at >= count_ || at >= fat_.size() || chain.size() > count_) {
                Fault("the chain of the " + who + " leads nowhere");
                break;
            }
            if (!Own(at, who))
                break;
            chain.push_back(at);
        }
        return chain;
    }

    std::size_t EntryAt(std::uint32_t id) const
    {
        const std::uint32_t per = sectorBytes_ / 128;
        return OffsetOf(directory_[id / per]) + id % per * 128;
    }

    void ReadRoot()
    {
        const std::size_t root = EntryAt(0);
        if (file_[root + 66] != 5)
            Fault("the first entry isn't the root");
        const std::uint32_t size = U32(root + 120);
        const auto stream = Chain(U32(root + 116), "mini stream");
        Compare(stream.size(), (size + sectorBytes_ - 1) / sectorBytes_, "the mini stream");
        minis_ = size / 64;
        miniOwned_.assign(minis_, false);
        for (const std::uint32_t sector : miniFat_) {
            for (std::uint32_t i = 0; i < sectorBytes_ / 4; ++i)
                mini_.push_back(U32(OffsetOf(sector) + 4 * i));
        }
        if (mini_.size() < minis_)
            Fault("the mini FAT is shorter than the mini stream");
    }

    void ReadEntries()
    {
        const auto total = static_cast<std::uint32_t>(directory_.size() * (sectorBytes_ / 128));
        seen_.assign(total, false);
        seen_[0] = true;
        std::vector<std::uint32_t> storages{0};
        while (!storages.empty()) {
            const std::uint32_t storage = storages.back();
            storages.pop_back();
            last_.clear();
            hasLast_ = false;
            Visit(U32(EntryAt(storage) + 76), &storages);
            if (findings_.faults.empty())
                CheckColors(U32(EntryAt(storage) + 76));
        }
        for (std::uint32_t id = 1; id < total; ++id) {
            if (!seen_[id] && file_[EntryAt(id) + 66] != 0)
                Leak("entry " + std::to_string(id));
        }
    }

    // Walks through the tree of a storage in the order of its links, however deep it is.
    void Visit(std::uint32_t id, std::vector<std::uint32_t>* storages)
    {
        struct Open {
            std::uint32_t id;
            unsigned depth;
        };
        std::vector<Open> open;
        unsigned depth = 1;
        for (;;) {
            for (; id != kFree && Enter(id, depth); id = U32(EntryAt(id) + 68))
                open.push_back({id, depth++});
            if (open.empty())
                return;
            Tell(open.back().id, storages);
            id = U32(EntryAt(open.back().id) + 72);
            depth = open.back().depth + 1;
            open.pop_back();
        }
    }

    // No red entry below a red one, and as many black ones on each way down.
    void CheckColors(std::uint32_t top)
    {
        struct Way {
            std::uint32_t id;
            unsigned blacks;
            bool red;  // the entry above
        };
        std::vector<Way> ways{{top, 0, false}};
        std::set<unsigned> lengths;
        while (!ways.empty()) {
            const Way way = ways.back();
            ways.pop_back();
            if (way.id == kFree) {
                lengths.insert(way.blacks);
                continue;
            }
            const std::size_t at = EntryAt(way.id);
            const bool red = file_[at + 67] == 0;
            if (red && way.red)
                findings_.colors.push_back("a red entry below a red one: " + std::to_string(way.id));
            for (const std::size_t link : {68, 72})
                ways.push_back({U32(at + link), way.blacks + (red ? 0 : 1), red});
        }
        if (lengths.size() > 1)
            findings_.colors.push_back("ways with other numbers of black entries below " +
                                       std::to_string(top));
    }

    bool Enter(std::uint32_t id, unsigned depth)
    {
        if (id >= seen_.size() || seen_[id]) {
            Fault("a link between entries leads to where it mustn't: " + std::to_string(id));
            return false;
        }
        seen_[id] = true;
        findings_.depth = std::max(findings_.depth, depth);
        ++findings_.elements;
        return true;
    }

    void Tell(std::uint32_t id, std::vector<std::uint32_t>* storages)
    {
        const std::size_t at = EntryAt(id);
        CheckOrder(at);
        if (file_[at + 66] == 1)
            storages->push_back(id);
        else if (file_[at + 66] == 2)
            ReadStream(at, id);
        else
            Fault("an entry in the tree is of no type for that");
    }

    void CheckOrder(std::size_t at)
    {
        const unsigned bytes = U16(at + 64);
        if (bytes < 4 || bytes > 64)
            return Fault("a name of no length");
        std::vector<unsigned> key{bytes};
        for (unsigned i = 0; i + 2 < bytes; i += 2) {
            const unsigned unit = U16(at + i);
            if (unit >= 0x80) {
                hasLast_ = false;  // the order of such names isn't examined
                return;
            }
            key.push_back(unit >= 'a' && unit <= 'z' ? unit - 32 : unit);
        }
        if (hasLast_ && !(last_ < key))
            Fault("names are out of order");
        last_ = key;
        hasLast_ = true;
    }

    void ReadStream(std::size_t at, std::uint32_t id)
    {
        const std::uint32_t size = U32(at + 120);
        const std::uint32_t start = U32(at + 116);
        const std::string who = "stream of entry " + std::to_string(id);
        if (size == 0)
            return;
        if (size >= 4096) {
            if (Chain(start, who).size() < (size + sectorBytes_ - 1) / sectorBytes_)
                Fault("the chain of the " + who + " is short");
            return;
        }
        std::uint32_t length = 0;
        for (std::uint32_t mini = start; mini != kEnd; mini = mini_[mini], ++length) {
            if (mini >= minis_ || mini >= mini_.size())
                return Fault("the mini chain of the " + who + " leads nowhere");
            if (miniOwned_[mini])
                return Fault("the " + who + " has a mini sector that something else has too");
            miniOwned_[mini] = true;
        }
        if (length < (size + 63) / 64)
            Fault("the mini chain of the " + who + " is short");
    }

    void FindLeaks()
    {
        for (std::uint32_t i = 0; i < std::min<std::size_t>(count_, fat_.size()); ++i) {
            if (owned_[i] && fat_[i] == kFree)
                Fault("a sector in use is marked as free");
            if (!owned_[i] && fat_[i] != kFree)
                Leak("sector " + std::to_string(i));
        }
        for (std::uint32_t i = 0; i < std::min<std::size_t>(minis_, mini_.size()); ++i) {
            if (!miniOwned_[i] && mini_[i] != kFree)
                Leak("mini sector " + std::to_string(i));
        }
    }

    void FindSlack()
    {
        if (count_ > 0 && fat_.size() >= count_ && fat_[count_ - 1] == kFree)
            findings_.slack.push_back("the last sector is free");
        const std::uint32_t perSector = sectorBytes_ / 64;
        std::uint32_t free = 0;
        while (free < minis_ && minis_ <= mini_.size() && mini_[minis_ - free - 1] == kFree)
            ++free;
        if (free >= perSector)
            findings_.slack.push_back("the last sector of the mini stream is free");
        const std::uint32_t perDirectory = sectorBytes_ / 128;
        bool used = directory_.size() == 1;
        for (std::uint32_t i = 0; i < perDirectory; ++i)
            used = used || file_[OffsetOf(directory_.back()) + i * 128 + 66] != 0;
        if (!used)
            findings_.slack.push_back("the last sector of the directory is free");
    }

    const std::vector<BYTE>& file_;
    Findings findings_;
    unsigned shift_ = 9;
    std::uint32_t sectorBytes_ = 512;
    std::uint32_t count_ = 0;
    std::uint32_t minis_ = 0;
    std::vector<std::uint32_t> fatSectors_;
    std::vector<std::uint32_t> difatSectors_;
    std::vector<std::uint32_t> fat_;
    std::vector<std::uint32_t> mini_;
    std::vector<std::uint32_t> directory_;
    std::vector<std::uint32_t> miniFat_;
    std::vector<bool> owned_;
    std::vector<bool> miniOwned_;
    std::vector<bool> seen_;
    std::vector<unsigned> last_;
    bool hasLast_ = false;
};

}  // namespace

Findings Examine(const std::vector<BYTE>& file)
{
    return Examiner(file).Run();
}

std::string Text(const std::vector<std::string>& lines)
{
    std::string text;
    for (std::size_t i = 0; i < std::min<std::size_t>(lines.size(), 10); ++i)
        text += lines[i] + "\n";
    return text;
}

}  // namespace quorvane::cfb::test
