#include "platform/cfb/open_element.h"

namespace quorvane::cfb {

void OpenElementPtr::Destroy() noexcept
{
    Arena& memory = element_->memory;
    std::destroy_at(element_);
    memory.Give(element_, sizeof(OpenElement));
}

OpenElement* OpenElements::Find(EntryId id) const noexcept
{
    OpenElement* at = buckets_[id % kBuckets];
    while (at && at->id != id)
        at = at->nextInBucket;
    return at;
}

void OpenElements::Put(OpenElement& element) noexcept
{
    if (element.id == kNoEntry)
        return;  // a draft
    OpenElement*& bucket = BucketOf(element.id);
    element.nextInBucket = bucket;
    bucket = &element;
}

void OpenElements::Take(OpenElement& element) noexcept
{
    OpenElement** link = &BucketOf(element.id);
    while (*link && *link != &element)
        link = &(*link)->nextInBucket;
    if (!*link)
        return;
    *link = element.nextInBucket;
    element.nextInBucket = nullptr;
}

void OpenElements::Add(OpenElement& element, OpenElement* parent) noexcept
{
    Put(element);
    if (!parent)
        return;
    element.parent = parent;
    element.depth = parent->depth + 1;
    element.nextSibling = parent->firstChild;
    if (parent->firstChild)
        parent->firstChild->previousSibling = &element;
    parent->firstChild = &element;
}

void OpenElements::Landed(OpenElement& element, EntryId id) noexcept
{
    element.draft->open = nullptr;
    element.draft = nullptr;
    element.id = id;
    element.ForgetTree();
    Put(element);
}

void OpenElements::Detach(OpenElement& element) noexcept
{
    if (element.previousSibling)
        element.previousSibling->nextSibling = element.nextSibling;
    else if (element.parent)
        element.parent->firstChild = element.nextSibling;
    if (element.nextSibling)
        element.nextSibling->previousSibling = element.previousSibling;
    element.parent = element.nextSibling = element.previousSibling = nullptr;
}

void OpenElements::Revert(OpenElement& element) noexcept
{
    while (element.firstChild)
        Revert(*element.firstChild);
    Detach(element);
    if (element.draft)
        element.draft->open = nullptr;
    else
        Take(element);
    element.draft = nullptr;
    if (element.top)
        Drop(*std::exchange(element.top, nullptr));
    element.reverted = true;
    element.list.clear();
}

void OpenElements::RevertEntry(EntryId id) noexcept
{
    if (OpenElement* const element = Find(id))
        Revert(*element);
}

void OpenElements::Moved(EntryId from, EntryId to) noexcept
{
    OpenElement* const element = Find(from);
    if (!element)
        return;
    Take(*element);
    element->id = to;
    element->body.SetEntry(to);
    Put(*element);
}

void OpenElements::Renumber(OpenElement& root) noexcept
{
    buckets_.fill(nullptr);
    for (OpenElement* at = &root; at;) {
        Put(*at);
        if (at->firstChild) {
            at = at->firstChild;
            continue;
        }
        while (at && !at->nextSibling)
            at = at->parent;
        at = at ? at->nextSibling : nullptr;
    }
}

}  // namespace quorvane::cfb
