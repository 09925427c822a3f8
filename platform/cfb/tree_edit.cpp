#include "platform/cfb/tree_edit.h"

#include <algorithm>
#include <utility>

#include "platform/com/result.h"

namespace quorvane::cfb {

EntryId TreeEdit::Link(const DirEntry& entry, Side side) noexcept
{
    switch (side) {
        case Side::kLeft:
            return entry.Left();
        case Side::kRight:
            return entry.Right();
        case Side::kChild:
            break;
    }
    return entry.Child();
}

void TreeEdit::SetLink(DirEntry& entry, Side side, EntryId id) noexcept
{
    if (side == Side::kLeft)
        entry.SetLeft(id);
    else if (side == Side::kRight)
        entry.SetRight(id);
    else
        entry.SetChild(id);
}

std::size_t TreeEdit::Loaded(EntryId id) const noexcept
{
    if (id == kNoEntry || (idsSeen_ & SeenBit(id)) == 0)
        return kNoNode;
    const auto found = std::find(ids_.begin(), ids_.end(), id);
    return found == ids_.end() ? kNoNode : static_cast<std::size_t>(found - ids_.begin());
}

HRESULT TreeEdit::Get(EntryId id, std::size_t* node)
{
    *node = Loaded(id);
    if (*node != kNoNode)
        return *node > 0 ? S_OK : STG_E_DOCFILECORRUPT;  // the storage itself among its elements
    *node = nodes_.size();
    Node& added = AddNode(id, false);
    HRESULT hr = directory_.Read(id, &added.entry);
    if (SUCCEEDED(hr) && added.entry.Type() != EntryType::kStorage &&
        added.entry.Type() != EntryType::kStream)
        hr = STG_E_DOCFILECORRUPT;
    if (FAILED(hr)) {
        nodes_.pop_back();
        ids_.pop_back();
        return hr;
    }
    NoteLinks(added);
    return S_OK;
}

// Adds a node whose entry is still to come.
TreeEdit::Node& TreeEdit::AddNode(EntryId id, bool fresh)
{
    ids_.push_back(id);
    idsSeen_ |= SeenBit(id);
    Node& node = nodes_.emplace_back();
    node.id = id;
    node.fresh = fresh;
    node.scanned = node.written = node.changedBelow = false;
    return node;
}

// Takes links and color as those that the file has.
void TreeEdit::NoteLinks(Node& node) noexcept
{
    node.linksBefore[0] = node.entry.Left();
    node.linksBefore[1] = node.entry.Right();
    node.linksBefore[2] = node.entry.Child();
    node.colorBefore = node.entry.NodeColor();
}

HRESULT TreeEdit::Begin(EntryId storage)
{
    nodes_.clear();
    ids_.clear();
    idsSeen_ = 0;
    sought_ = false;
    inPlace_.clear();
    moves_.clear();
    Node& node = AddNode(storage, false);
    QV_TRY(directory_.Read(storage, &node.entry));
    NoteLinks(node);
    return S_OK;
}

HRESULT TreeEdit::Find(const ElementName& name, bool* found)
{
    QV_TRY(Descend(name, &found_));
    *found = found_ != kNoNode;
    sought_ = true;
    return S_OK;
}

HRESULT TreeEdit::IsRed(EntryId id, bool* red)
{
    *red = false;
    if (id == kNoEntry)
        return S_OK;
    std::size_t node = 0;
    QV_TRY(Get(id, &node));
    *red = nodes_[node].entry.NodeColor() == Color::kRed;
    return S_OK;
}

HRESULT TreeEdit::Paint(EntryId id, Color color)
{
    std::size_t node = 0;
    QV_TRY(Get(id, &node));
    nodes_[node].entry.SetColor(color);
    return S_OK;
}

// Walks to the element of that name, or to the place where it would hang: the last step of the path.
HRESULT TreeEdit::Descend(const ElementName& name, std::size_t* found)
{
    *found = kNoNode;
    path_.assign(1, Step{0, Side::kChild});
    while (LinkOf(path_.back()) != kNoEntry) {
        if (path_.size() > kMaxDepth)
            return kTreeTooDeep;
        std::size_t node = 0;
        QV_TRY(Get(LinkOf(path_.back()), &node));
        const int order = nodes_[node].entry.Compare(name);
        if (order == 0) {
            *found = node;
            return S_OK;
        }
        path_.push_back(Step{node, order < 0 ? Side::kLeft : Side::kRight});
    }
    return S_OK;
}

HRESULT TreeEdit::Insert(EntryId id, const DirEntry& entry, EntryId* replaced)
{
    std::size_t found = found_;
    if (!std::exchange(sought_, false))
        QV_TRY(Descend(entry.Name(), &found));
    *replaced = kNoEntry;
    SetLinkOf(path_.back(), id);
    Node& added = AddNode(id, true);
    DirEntry& fresh = added.entry;
    fresh = entry;
    NoteLinks(added);
    if (found != kNoNode) {
        const DirEntry& old = nodes_[found].entry;
        fresh.SetLeft(old.Left());
        fresh.SetRight(old.Right());
        fresh.SetColor(old.NodeColor());
        *replaced = nodes_[found].id;
        return S_OK;
    }
    fresh.SetLeft(kNoEntry);
    fresh.SetRight(kNoEntry);
    fresh.SetColor(Color::kRed);
    return BalanceInsertion(nodes_.size() - 1);
}

// Red-black insertion: a red node under a red parent is passed upwards, or ends in one rotation.
HRESULT TreeEdit::BalanceInsertion(std::size_t node)
{
    while (path_.size() > 1) {
        const Step parent = path_.back();
        if (nodes_[parent.node].entry.NodeColor() == Color::kBlack)
            return S_OK;
        if (path_.size() == 2) {
            nodes_[parent.node].entry.SetColor(Color::kBlack);
            return S_OK;
        }
        const Step grandparent = path_[path_.size() - 2];
        const EntryId uncle = Link(nodes_[grandparent.node].entry, Opposite(grandparent.side));
        bool red = false;
        QV_TRY(IsRed(uncle, &red));
        if (!red) {
            LiftOverGrandparent();
            return S_OK;
        }
        QV_TRY(Paint(uncle, Color::kBlack));
        nodes_[parent.node].entry.SetColor(Color::kBlack);
        nodes_[grandparent.node].entry.SetColor(Color::kRed);
        node = grandparent.node;
        path_.resize(path_.size() - 2);
    }
    nodes_[node].entry.SetColor(Color::kBlack);
    return S_OK;
}

// Lets the node that hangs on a node's side take its place: the node hangs on the other side of that then.
// Tells the number of what is to hang in its place.
EntryId TreeEdit::Lift(const Step& step) noexcept
{
    const EntryId id = LinkOf(step);
    DirEntry& lifted = nodes_[Loaded(id)].entry;
    SetLinkOf(step, Link(lifted, Opposite(step.side)));
    SetLink(lifted, Opposite(step.side), nodes_[step.node].id);
    return id;
}

void TreeEdit::LiftOverGrandparent() noexcept
{
    const Step parent = path_.back();
    const Step grandparent = path_[path_.size() - 2];
    if (parent.side != grandparent.side)
        SetLinkOf(grandparent, Lift(parent));
    nodes_[grandparent.node].entry.SetColor(Color::kRed);
    const EntryId top = Lift(grandparent);
    nodes_[Loaded(top)].entry.SetColor(Color::kBlack);
    SetLinkOf(path_[path_.size() - 3], top);
}

HRESULT TreeEdit::Remove(const ElementName& name, bool inPlace, EntryId* removed)
{
    std::size_t node = found_;
    if (!std::exchange(sought_, false))
        QV_TRY(Descend(name, &node));
    if (node == kNoNode)
        return STG_E_FILENOTFOUND;
    *removed = nodes_[node].id;
    const DirEntry& entry = nodes_[node].entry;
    EntryId orphan = entry.Left() != kNoEntry ? entry.Left() : entry.Right();
    Color gone = entry.NodeColor();
    if (entry.Left() == kNoEntry || entry.Right() == kNoEntry)
        SetLinkOf(path_.back(), orphan);
    else if (inPlace)
        return STG_E_MEDIUMFULL;
    else
        QV_TRY(UnlinkInner(node, &orphan, &gone));
    return inPlace || gone == Color::kRed ? S_OK : BalanceRemoval(orphan);
}

// The next node in order, which has no left link, takes the place of a node with two.
HRESULT TreeEdit::UnlinkInner(std::size_t node, EntryId* orphan, Color* removed)
{
    const std::size_t at = path_.size();
    path_.push_back(Step{node, Side::kRight});
    std::size_t next = 0;
    QV_TRY(Get(LinkOf(path_.back()), &next));
    while (nodes_[next].entry.Left() != kNoEntry) {
        if (path_.size() > kMaxDepth)
            return kTreeTooDeep;
        path_.push_back(Step{next, Side::kLeft});
        QV_TRY(Get(LinkOf(path_.back()), &next));
    }
    *orphan = nodes_[next].entry.Right();
    *removed = nodes_[next].entry.NodeColor();
    SetLinkOf(path_.back(), *orphan);
    const DirEntry& old = nodes_[node].entry;
    nodes_[next].entry.SetLeft(old.Left());
    nodes_[next].entry.SetRight(old.Right());
    nodes_[next].entry.SetColor(old.NodeColor());
    SetLinkOf(path_[at - 1], nodes_[next].id);
    path_[at].node = next;
    return S_OK;
}

// Red-black removal: the path's end lacks one black node.
HRESULT TreeEdit::BalanceRemoval(EntryId orphan)
{
    for (;;) {
        bool red = false;
        QV_TRY(IsRed(orphan, &red));
        if (red)
            return Paint(orphan, Color::kBlack);
        if (path_.size() == 1)
            return S_OK;
        if (path_.size() > kMaxDepth)
            return kTreeTooDeep;
        const Step parent = path_.back();
        const EntryId siblingId = Link(nodes_[parent.node].entry, Opposite(parent.side));
        if (siblingId == kNoEntry) {  // in no tree of our own: somebody's colors were wrong
            orphan = nodes_[parent.node].id;
            path_.pop_back();
            continue;
        }
        std::size_t sibling = 0;
        QV_TRY(Get(siblingId, &sibling));
        if (nodes_[sibling].entry.NodeColor() == Color::kRed) {
            LiftRedSibling(sibling);
            continue;
        }
        bool innerIsRed = false;
        bool outerIsRed = false;
        QV_TRY(IsRed(Link(nodes_[sibling].entry, parent.side), &innerIsRed));
        QV_TRY(IsRed(Link(nodes_[sibling].entry, Opposite(parent.side)), &outerIsRed));
        if (innerIsRed || outerIsRed) {
            BorrowFromSibling(sibling, outerIsRed);
            return S_OK;
        }
        nodes_[sibling].entry.SetColor(Color::kRed);
        orphan = nodes_[parent.node].id;
        path_.pop_back();
    }
}

void TreeEdit::LiftRedSibling(std::size_t sibling)
{
    const Step parent = path_.back();
    nodes_[sibling].entry.SetColor(Color::kBlack);
    nodes_[parent.node].entry.SetColor(Color::kRed);
    SetLinkOf(path_[path_.size() - 2], Lift(Step{parent.node, Opposite(parent.side)}));
    path_.back() = Step{sibling, parent.side};
    path_.push_back(parent);
}

void TreeEdit::BorrowFromSibling(std::size_t sibling, bool outerIsRed) noexcept
{
    const Step parent = path_.back();
    const Step across{parent.node, Opposite(parent.side)};
    if (!outerIsRed)
        SetLinkOf(across, Lift(Step{sibling, parent.side}));
    DirEntry& top = nodes_[Loaded(LinkOf(across))].entry;
    top.SetColor(nodes_[parent.node].entry.NodeColor());
    nodes_[parent.node].entry.SetColor(Color::kBlack);
    nodes_[Loaded(Link(top, across.side))].entry.SetColor(Color::kBlack);
    SetLinkOf(path_[path_.size() - 2], Lift(across));
}

// Finds what changes below an entry. STG_E_DOCFILECORRUPT: two links lead to one entry.
HRESULT TreeEdit::Scan(EntryId id, bool* changed)
{
    *changed = false;
    const std::size_t at = Loaded(id);
    if (at == kNoNode)
        return S_OK;
    if (nodes_[at].scanned)
        return STG_E_DOCFILECORRUPT;
    nodes_[at].scanned = true;
    bool left = false;
    bool right = false;
    QV_TRY(Scan(nodes_[at].entry.Left(), &left));
    QV_TRY(Scan(nodes_[at].entry.Right(), &right));
    const Node& node = nodes_[at];
    *changed = left || right || node.fresh || node.entry.Left() != LinkBefore(node, Side::kLeft) ||
               node.entry.Right() != LinkBefore(node, Side::kRight);
    nodes_[at].changedBelow = *changed;
    return S_OK;
}

bool TreeEdit::ChangedAt(const Step& step) const noexcept
{
    const EntryId now = LinkOf(step);
    const std::size_t below = Loaded(now);
    return now != LinkBefore(nodes_[step.node], step.side) ||
           (below != kNoNode && nodes_[below].changedBelow);
}

// False when no link changes.
bool TreeEdit::FindSwitch(Step* top) const noexcept
{
    *top = Step{0, Side::kChild};
    if (!ChangedAt(*top))
        return false;
    for (;;) {
        if (LinkOf(*top) != LinkBefore(nodes_[top->node], top->side))
            return true;
        const std::size_t below = Loaded(LinkOf(*top));
        const bool left = ChangedAt(Step{below, Side::kLeft});
        const bool right = ChangedAt(Step{below, Side::kRight});
        if (left == right)
            return true;
        *top = Step{below, left ? Side::kLeft : Side::kRight};
    }
}

HRESULT TreeEdit::Place(EntryId id, const Step& top, EntryId* placed)
{
    *placed = id;
    const std::size_t at = Loaded(id);
    if (at == kNoNode || !nodes_[at].changedBelow)
        return S_OK;
    EntryId left = 0;
    EntryId right = 0;
    QV_TRY(Place(nodes_[at].entry.Left(), top, &left));
    QV_TRY(Place(nodes_[at].entry.Right(), top, &right));
    Node& node = nodes_[at];
    node.entry.SetLeft(left);
    node.entry.SetRight(right);
    if (!node.fresh) {
        if (left == LinkBefore(node, Side::kLeft) && right == LinkBefore(node, Side::kRight))
            return S_OK;
        std::uint64_t here = 0;
        std::uint64_t there = 0;
        QV_TRY(directory_.OffsetOf(id, &here));
        QV_TRY(directory_.OffsetOf(nodes_[top.node].id, &there));
        if (OrderedFile::SamePage(here, there)) {
            inPlace_.push_back(at);
            return S_OK;
        }
        QV_TRY(directory_.AllocateNear(nodes_[top.node].id, placed));
        moves_.push_back(Move{id, *placed});
    }
    node.written = true;
    return directory_.Write(*placed, node.entry);
}

HRESULT TreeEdit::WriteSwitch(const Step& top)
{
    for (const std::size_t at : inPlace_) {
        QV_TRY(directory_.Write(nodes_[at].id, nodes_[at].entry));
        nodes_[at].written = true;
    }
    QV_TRY(directory_.Write(nodes_[top.node].id, nodes_[top.node].entry));
    nodes_[top.node].written = true;
    return S_OK;
}

HRESULT TreeEdit::Apply()
{
    bool changed = false;
    Step top{};
    QV_TRY(Scan(nodes_[0].entry.Child(), &changed));
    if (FindSwitch(&top)) {
        EntryId placed = kNoEntry;
        QV_TRY(Place(LinkOf(top), top, &placed));
        SetLinkOf(top, placed);
        file_.Order();
        QV_TRY(WriteSwitch(top));
    }
    for (const Node& node : nodes_) {
        if (node.scanned && !node.written && node.entry.NodeColor() != node.colorBefore)
            QV_TRY(directory_.Write(node.id, node.entry));
    }
    file_.Order();
    for (const Move& move : moves_)
        QV_TRY(directory_.Free(move.from));
    return S_OK;
}

}  // namespace quorvane::cfb
