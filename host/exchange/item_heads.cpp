#include "host/exchange/item_heads.h"

#include <algorithm>

namespace quorvane::host::exchange {

void ItemHeads::Insert(const Revision& revision)
{
    std::erase_if(heads_, [&](const Revision& head) { return revision.Supersedes(head); });
    heads_.insert(std::upper_bound(heads_.begin(), heads_.end(), revision, IsShownBefore), revision);
}

bool ItemHeads::Knows(const Revision& revision) const
{
    return std::any_of(heads_.begin(), heads_.end(),
                       [&](const Revision& head) { return head == revision || head.Supersedes(revision); });
}

bool ItemHeads::Lacks(const ItemHeads& theirs) const
{
    return !std::all_of(theirs.heads_.begin(), theirs.heads_.end(),
                        [this](const Revision& revision) { return Knows(revision); });
}

ItemHeads::Taken ItemHeads::Take(const Revision& revision)
{
    ItemHeads theirs;
    theirs.heads_.push_back(revision);
    return Take(theirs);
}

ItemHeads::Taken ItemHeads::Take(const ItemHeads& theirs)
{
    if (!Lacks(theirs))
        return Taken::kKnown;
    ItemHeads next = *this;
    for (const Revision& revision : theirs.heads_)
        if (!next.Knows(revision))
            next.Insert(revision);
    if (next.heads_.size() > kMost)
        Refuse("an item was changed by more devices at once than may be");
    std::swap(heads_, next.heads_);
    if (!next.heads_.empty() && heads_.front() == next.heads_.front())
        return Taken::kNotShown;
    return heads_.front() == theirs.heads_.front() ? Taken::kShown : Taken::kOther;
}

// What somebody who changes the item here has seen: what it shows, and what is nowhere else to be seen
// anyway.
Version ItemHeads::SeenBy(const IsKept& isKept) const
{
    Version seen;
    for (const Revision& head : heads_) {
        const bool isText = !head.isDeletion && head.content != Shown()->content;
        if (!isText || isKept(head))
            seen.Merge(head.version);
    }
    return seen;
}

Revision ItemHeads::Change(const ChangerId& changer, const DeviceId& by, std::uint64_t now,
                           const std::optional<ContentDigest>& content, const IsKept& isKept)
{
    Revision revision;
    revision.version = SeenBy(isKept);
    std::uint64_t before = 0;
    revision.stamp = now;
    for (const Revision& head : heads_) {
        before = std::max(before, head.version.ChangesOf(changer));
        revision.stamp = std::max(revision.stamp, head.stamp + 1);
    }
    revision.version.Raise(changer, before);
    revision.stamp = std::min(revision.stamp, Revision::kLatestStamp);
    revision.by = by;
    revision.isDeletion = !content;
    revision.content = content.value_or(ContentDigest{});
    Insert(revision);
    return revision;
}

std::vector<Revision> ItemHeads::Beaten() const
{
    std::vector<Revision> beaten;
    for (const Revision& head : heads_)
        if (!head.isDeletion && head.content != heads_.front().content)
            beaten.push_back(head);
    return beaten;
}

bool ItemHeads::IsRevived() const noexcept
{
    return !heads_.empty() && !heads_.front().isDeletion && heads_.back().isDeletion;
}

std::string ItemHeads::Write() const
{
    WireWriter bytes;
    bytes.Put(static_cast<std::uint16_t>(heads_.size()));
    for (const Revision& head : heads_)
        exchange::Write(head, bytes);
    return bytes.Bytes();
}

ItemHeads ItemHeads::Read(std::string_view bytes, std::string_view what)
{
    WireReader reader(bytes, what);
    const std::size_t count = reader.Get<std::uint16_t>();
    if (count > kMost)
        Refuse(std::string(what) + " was changed by more devices at once than may be");
    ItemHeads heads;
    for (std::size_t index = 0; index < count; ++index) {
        const Revision revision = ReadRevision(reader, what);
        const bool isInOrder = heads.heads_.empty() || IsShownBefore(heads.heads_.back(), revision);
        if (!isInOrder)
            Refuse(std::string(what) + " has its revisions out of order");
        for (const Revision& head : heads.heads_)
            if (head.Supersedes(revision) || revision.Supersedes(head))
                Refuse(std::string(what) + " has a revision that another one supersedes");
        heads.heads_.push_back(revision);
    }
    reader.End();
    return heads;
}

}  // namespace quorvane::host::exchange
