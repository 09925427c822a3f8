#include "platform/cfb/draft.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <type_traits>
#include <utility>

namespace quorvane::cfb {

ElementName DraftChild::Name() const noexcept
{
    if (!IsPlaced())
        return static_cast<const Draft*>(this)->entry.Name();
    ElementName name;
    wide ? name.AssignRaw(StoredName(), length) : name.AssignNarrow(StoredName(), length);
    return name;
}

int DraftChild::Compare(const ElementName& name) const noexcept
{
    if (!IsPlaced())
        return static_cast<const Draft*>(this)->entry.Compare(name);
    return wide ? name.CompareRaw(StoredName(), length) : name.CompareNarrow(StoredName(), length);
}

bool DraftChild::IsInFile() const noexcept
{
    if (IsPlaced())
        return true;
    const auto& draft = static_cast<const Draft&>(*this);
    bool found = draft.inSectors;
    draft.children.Each([&](const DraftChild& child) { found = found || child.IsInFile(); });
    return found;
}

DraftChild* DraftChildren::Find(const ElementName& name) const noexcept
{
    DraftChild* child = top_;
    while (child) {
        const int order = child->Compare(name);
        if (order == 0)
            return child;
        child = order < 0 ? child->left : child->right;
    }
    return nullptr;
}

DraftChild* DraftChildren::After(const ElementName* name) const noexcept
{
    DraftChild* after = nullptr;
    for (DraftChild* child = top_; child;) {
        const bool follows = !name || child->Compare(*name) < 0;
        if (follows)
            after = child;
        child = follows ? child->left : child->right;
    }
    return after;
}

void DraftChildren::Add(DraftChild& child, const ElementName& name, bool behindAll) noexcept
{
    const auto follows = [&](const DraftChild& other) { return !behindAll && other.Compare(name) < 0; };
    DraftChild** link = &top_;
    while (*link && (*link)->rank >= child.rank)
        link = follows(**link) ? &(*link)->left : &(*link)->right;
    // What hung here is split: what comes before the name, and what behind it.
    DraftChild* rest = std::exchange(*link, &child);
    DraftChild** before = &child.left;
    DraftChild** behind = &child.right;
    while (rest) {
        if (follows(*rest)) {
            *behind = rest;
            behind = &rest->left;
            rest = rest->left;
        } else {
            *before = rest;
            before = &rest->right;
            rest = rest->right;
        }
    }
    *before = *behind = nullptr;
    ++count_;
    if (behindAll)
        last_ = &child;
}

DraftChild** DraftChildren::LinkTo(const DraftChild& child, const ElementName& name) noexcept
{
    DraftChild** link = &top_;
    while (*link != &child)
        link = (*link)->Compare(name) < 0 ? &(*link)->left : &(*link)->right;
    return link;
}

void DraftChildren::FindLast() noexcept
{
    last_ = top_;
    while (last_ && last_->right)
        last_ = last_->right;
}

void DraftChildren::Remove(DraftChild& child, const ElementName& name) noexcept
{
    DraftChild** link = LinkTo(child, name);
    DraftChild* before = child.left;
    DraftChild* behind = child.right;
    while (before && behind) {
        const bool first = before->rank >= behind->rank;
        *link = first ? before : behind;
        link = first ? &before->right : &behind->left;
        (first ? before : behind) = *link;
    }
    *link = before ? before : behind;
    --count_;
    if (last_ == &child)
        FindLast();
}

void DraftChildren::Replace(DraftChild& child, DraftChild& by, const ElementName& name) noexcept
{
    by.left = child.left;
    by.right = child.right;
    by.rank = child.rank;
    *LinkTo(child, name) = &by;
    if (last_ == &child)
        last_ = &by;
}

void Draft::LinkInto(Draft& storage) noexcept
{
    next = std::exchange(storage.firstDraft, this);
    if (next)
        next->previous = this;
}

void Draft::UnlinkFrom(Draft& storage) noexcept
{
    (previous ? previous->next : storage.firstDraft) = next;
    if (next)
        next->previous = previous;
    next = previous = nullptr;
}

// What an arena asks of what lies in it.
static_assert(std::is_trivially_destructible_v<Draft> && alignof(Draft) <= alignof(void*));

Draft* Drafts::Make(EntryType type, const ElementName& name)
{
    auto* const draft = new (memory_.Take(sizeof(Draft))) Draft(type, name);
    draft->rank = DrawRank();
    return draft;
}

DraftChild* Drafts::MakePlaced(const ElementName& name)
{
    DraftChild placed;
    const OLECHAR* const end = name.Text() + name.Length();
    placed.id = kRootEntry;
    placed.rank = DrawRank();
    placed.length = name.Length() & kMaxName;
    placed.wide = std::any_of(name.Text(), end, [](OLECHAR unit) { return unit > 0xFF; });
    auto* const child = new (placed_.Take(sizeof placed + placed.NameBytes())) DraftChild(placed);
    auto* const bytes = reinterpret_cast<BYTE*>(child + 1);
    if (placed.wide)
        StoreUnits(bytes, name.Text(), name.Length());
    else
        std::transform(name.Text(), end, bytes, [](OLECHAR unit) { return static_cast<BYTE>(unit); });
    return child;
}

std::uint32_t Drafts::DrawRank() noexcept
{
    lot_ ^= lot_ << 13;
    lot_ ^= lot_ >> 17;
    lot_ ^= lot_ << 5;
    return lot_ >> 6;  // as many bits as a rank has
}

void Drafts::Discard(DraftChild& child) noexcept
{
    if (child.IsPlaced()) {
        placed_.Give(&child, sizeof(DraftChild) + child.NameBytes());
        return;
    }
    auto& draft = static_cast<Draft&>(child);
    draft.children.Each([this](DraftChild& below) { Discard(below); });
    DropBytes(draft);
    memory_.Give(&draft, sizeof(Draft));
}

void Drafts::Reserve(Draft& stream, std::size_t capacity)
{
    if (capacity <= stream.capacity)
        return;
    // The first write most often brings all that there is.
    const std::size_t wanted = std::max(capacity, std::size_t{stream.capacity} * 2);
    auto* const bytes = static_cast<BYTE*>(memory_.Take(wanted));
    std::copy_n(stream.bytes, stream.size, bytes);
    const auto size = stream.size;
    DropBytes(stream);
    stream.bytes = bytes;
    stream.size = size;
    stream.capacity = static_cast<std::uint32_t>(wanted);
}

void Drafts::SetSize(Draft& stream, std::size_t size)
{
    Reserve(stream, size);
    if (size > stream.size)
        std::memset(stream.bytes + stream.size, 0, size - stream.size);
    stream.size = static_cast<std::uint32_t>(size);
}

void Drafts::Write(Draft& stream, std::size_t offset, const void* from, std::size_t count)
{
    if (offset > stream.size)
        SetSize(stream, offset);
    Reserve(stream, offset + count);
    std::memcpy(stream.bytes + offset, from, count);
    stream.size = std::max(stream.size, static_cast<std::uint32_t>(offset + count));
}

void Drafts::DropBytes(Draft& stream) noexcept
{
    if (stream.capacity > 0)
        memory_.Give(stream.bytes, stream.capacity);
    stream.bytes = nullptr;
    stream.size = stream.capacity = 0;
}

}  // namespace quorvane::cfb
