// platform/cfb/tree_edit.h: one change of a storage's directory tree, made as a whole or not at all.
#ifndef QUORVANE_PLATFORM_CFB_TREE_EDIT_H_
#define QUORVANE_PLATFORM_CFB_TREE_EDIT_H_

#include <bit>
#include <vector>

#include "platform/cfb/directory.h"

namespace quorvane::cfb {

// Takes the place of a result when a tree is so deep that it is no balanced tree: a program that doesn't
// balance wrote it, or it has a loop. Doesn't leave this library.
inline constexpr HRESULT kTreeTooDeep = static_cast<HRESULT>(0x80030FF0u);

// Makes a tree of the least depth of the nodes [begin, end) of [0, count), whose last, incomplete level is
// red. hang (std::size_t node, EntryId left, EntryId right, Color, EntryId* id) -> HRESULT gives a node its
// links and tells its number.
template <class Hang>
[[nodiscard]] HRESULT HangBalanced(std::size_t begin, std::size_t end, std::size_t count, unsigned level,
                                   const Hang& hang, EntryId* top)
{
    *top = kNoEntry;
    if (begin == end)
        return S_OK;
    const std::size_t middle = begin + (end - begin) / 2;
    EntryId left = kNoEntry;
    EntryId right = kNoEntry;
    QV_TRY(HangBalanced(begin, middle, count, level + 1, hang, &left));
    QV_TRY(HangBalanced(middle + 1, end, count, level + 1, hang, &right));
    const bool last = level + 1 == static_cast<unsigned>(std::bit_width(count + 1));
    return hang(middle, left, right, last ? Color::kRed : Color::kBlack, top);
}

// The elements of a storage are a red-black tree of directory entries, ordered by name. An edit loads the
// nodes that it touches, changes them in memory, and writes the outcome so that one write to the byte store
// switches from the old tree to the new one:
//
//   1. The highest link whose change carries all others is found: the switch. Nodes below it whose links
//      change are written as copies into free entries, except those in the switch's own page.
//   2. The switch, with what changes in its page, is written: one write.
//   3. The entries that were replaced by copies are freed.
//
// Colors are written along where they change; a tree whose colors a kill left half changed is searched
// and edited as any other, and is a little less balanced.
//
// One change at a time, each from Begin to Apply; an edit that isn't applied changes nothing.
// Throws std::bad_alloc.
class TreeEdit {
public:
    // An entry that has another number since the edit.
    struct Move {
        EntryId from;
        EntryId to;
    };

    TreeEdit(OrderedFile& file, Directory& directory) noexcept : file_(file), directory_(directory) {}

    // Forgets what was before and begins an edit of a storage's tree.
    [[nodiscard]] HRESULT Begin(EntryId storage);
    // The same but for what has just been found.
    [[nodiscard]] HRESULT Resume(EntryId storage) { return sought_ ? S_OK : Begin(storage); }
    // Whether there is an element of that name. The next change of this edit is one of that element.
    [[nodiscard]] HRESULT Find(const ElementName& name, bool* found);
    // Adds an element. entry [in] its name and content; it hasn't been written yet. An element of the same
    // name is replaced: *replaced gets its number, kNoEntry if there was none.
    [[nodiscard]] HRESULT Insert(EntryId id, const DirEntry& entry, EntryId* replaced);
    // Takes an element out of the tree; its entry stays. STG_E_FILENOTFOUND. inPlace: without balancing, for
    // when there is no room for a copy of any entry: one link changes. STG_E_MEDIUMFULL then: the element has
    // others on both sides.
    [[nodiscard]] HRESULT Remove(const ElementName& name, bool inPlace, EntryId* removed);
    // Writes the outcome. Moves() is complete afterwards.
    [[nodiscard]] HRESULT Apply();
    const std::vector<Move>& Moves() const noexcept { return moves_; }
    // Whose tree it is.
    EntryId Storage() const noexcept { return ids_.front(); }

private:
    static constexpr std::size_t kMaxDepth = 128;
    static constexpr std::size_t kNoNode = static_cast<std::size_t>(-1);

    enum class Side : std::uint8_t { kLeft, kRight, kChild };

    struct Node {
        EntryId id;
        DirEntry entry;
        EntryId linksBefore[3];  // as they stand in the file
        Color colorBefore;
        bool fresh;
        bool scanned;
        bool written;
        bool changedBelow;
    };

    // A node of the path from the storage down, and the side on which the path goes on.
    struct Step {
        std::size_t node;
        Side side;
    };

    static Side Opposite(Side side) noexcept { return side == Side::kLeft ? Side::kRight : Side::kLeft; }
    static EntryId Link(const DirEntry& entry, Side side) noexcept;
    static EntryId LinkBefore(const Node& node, Side side) noexcept
    {
        return node.linksBefore[static_cast<std::size_t>(side)];
    }
    static std::uint64_t SeenBit(EntryId id) noexcept { return std::uint64_t{1} << (id % 64); }
    Node& AddNode(EntryId id, bool fresh);
    static void NoteLinks(Node& node) noexcept;
    static void SetLink(DirEntry& entry, Side side, EntryId id) noexcept;
    EntryId LinkOf(const Step& step) const noexcept { return Link(nodes_[step.node].entry, step.side); }
    void SetLinkOf(const Step& step, EntryId id) noexcept { SetLink(nodes_[step.node].entry, step.side, id); }

    std::size_t Loaded(EntryId id) const noexcept;
    [[nodiscard]] HRESULT Get(EntryId id, std::size_t* node);
    [[nodiscard]] HRESULT Descend(const ElementName& name, std::size_t* found);
    [[nodiscard]] HRESULT IsRed(EntryId id, bool* red);

    [[nodiscard]] HRESULT BalanceInsertion(std::size_t node);
    EntryId Lift(const Step& step) noexcept;
    void LiftOverGrandparent() noexcept;
    [[nodiscard]] HRESULT UnlinkInner(std::size_t node, EntryId* orphan, Color* removed);
    [[nodiscard]] HRESULT BalanceRemoval(EntryId orphan);
    void LiftRedSibling(std::size_t sibling);
    void BorrowFromSibling(std::size_t sibling, bool outerIsRed) noexcept;
    [[nodiscard]] HRESULT Paint(EntryId id, Color color);

    [[nodiscard]] HRESULT Scan(EntryId id, bool* changed);
    bool ChangedAt(const Step& step) const noexcept;
    bool FindSwitch(Step* top) const noexcept;
    [[nodiscard]] HRESULT Place(EntryId id, const Step& top, EntryId* placed);
    [[nodiscard]] HRESULT WriteSwitch(const Step& top);

    OrderedFile& file_;
    Directory& directory_;
    std::vector<Node> nodes_;
    std::vector<EntryId> ids_;   // of nodes_, for a quick search
    std::uint64_t idsSeen_ = 0;  // a bit for each remainder of an id that is among them
    bool sought_ = false;        // path_ and found_ are what a search has just come to
    std::size_t found_ = 0;
    std::vector<Step> path_;
    std::vector<std::size_t> inPlace_;
    std::vector<Move> moves_;
};

}  // namespace quorvane::cfb

#endif  // QUORVANE_PLATFORM_CFB_TREE_EDIT_H_
