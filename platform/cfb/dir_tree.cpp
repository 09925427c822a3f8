#include "platform/cfb/dir_tree.h"

#include <algorithm>
#include <utility>

#include "platform/com/result.h"

namespace quorvane::cfb {

HRESULT DirTree::PeekElement(EntryId id, const DirEntry** entry)
{
    QV_TRY(directory_.Peek(id, entry));
    return (*entry)->IsElement() ? S_OK : STG_E_DOCFILECORRUPT;
}

HRESULT DirTree::Find(EntryId storage, const ElementName& name, EntryId* id, const DirEntry** entry)
{
    QV_TRY(directory_.Peek(storage, entry));
    *id = (*entry)->Child();
    for (std::size_t depth = 0; *id != kNoEntry; ++depth) {
        if (depth > kMaxDepth)
            return kTreeTooDeep;
        QV_TRY(PeekElement(*id, entry));
        const int order = (*entry)->Compare(name);
        if (order == 0)
            return S_OK;
        *id = order < 0 ? (*entry)->Left() : (*entry)->Right();
    }
    return STG_E_FILENOTFOUND;
}

HRESULT DirTree::Next(EntryId storage, const ElementName* after, EntryId* id, DirEntry* entry)
{
    const DirEntry* node = nullptr;
    *id = kNoEntry;
    QV_TRY(directory_.Peek(storage, &node));
    EntryId at = node->Child();
    for (std::size_t depth = 0; at != kNoEntry; ++depth) {
        if (depth > kMaxDepth)
            return kTreeTooDeep;
        QV_TRY(PeekElement(at, &node));
        const bool wanted = !after || node->Compare(*after) < 0;
        if (wanted) {
            *id = at;
            *entry = *node;
        }
        at = wanted ? node->Left() : node->Right();
    }
    return *id == kNoEntry ? STG_E_NOMOREFILES : S_OK;
}

HRESULT DirTree::BeginSurvey()
{
    EntryId capacity = 0;
    QV_TRY(directory_.Capacity(&capacity));
    seen_.resize(std::max<std::size_t>(seen_.size(), capacity));
    if (++survey_ == 0) {
        std::fill(seen_.begin(), seen_.end(), 0);
        survey_ = 1;
    }
    return S_OK;
}

bool DirTree::SeenBefore(EntryId id) noexcept
{
    return id >= seen_.size() || std::exchange(seen_[id], survey_) == survey_;
}

HRESULT DirTree::Survey(EntryId storage, Shape* shape)
{
    constexpr std::size_t kMostlyEnough = 32;
    *shape = Shape{};
    const DirEntry* entry = nullptr;
    QV_TRY(BeginSurvey());
    QV_TRY(directory_.Peek(storage, &entry));
    passed_.clear();
    shape->ids.reserve(kMostlyEnough);
    ElementName last;
    EntryId at = entry->Child();
    if (at != kNoEntry)
        directory_.Approach(at);
    std::uint32_t depth = 1;
    std::uint32_t deepest = 0;
    for (;;) {
        while (at != kNoEntry) {
            const HRESULT hr = PeekElement(at, &entry);
            if (FAILED(hr) && hr != STG_E_DOCFILECORRUPT)
                return hr;
            if (FAILED(hr) || at == storage || SeenBefore(at)) {
                shape->sound = false;
                break;
            }
            deepest = std::max(deepest, depth);
            passed_.push_back({at, depth++});
            at = entry->Left();
        }
        if (passed_.empty())
            break;
        const Passed node = passed_.back();
        passed_.pop_back();
        QV_TRY(PeekElement(node.id, &entry));
        shape->ordered = shape->ordered && (shape->ids.empty() || entry->Compare(last) < 0);
        entry->CopyName(&last);
        shape->ids.push_back(node.id);
        at = entry->Right();
        depth = node.depth + 1;
    }
    shape->deep = deepest > MostDepth(shape->ids.size());
    return S_OK;
}

HRESULT DirTree::Probe(EntryId storage, bool* deep)
{
    EntryId capacity = 0;
    const DirEntry* entry = nullptr;
    QV_TRY(directory_.Capacity(&capacity));
    QV_TRY(directory_.Peek(storage, &entry));
    const EntryId top = entry->Child();
    *deep = true;
    for (const auto link : {&DirEntry::Left, &DirEntry::Right}) {
        std::size_t depth = 0;
        for (EntryId at = top; at != kNoEntry; at = (entry->*link)()) {
            if (++depth > MostDepth(capacity))
                return S_OK;
            const HRESULT hr = PeekElement(at, &entry);
            if (hr == STG_E_DOCFILECORRUPT)
                return S_OK;
            QV_TRY(hr);
        }
    }
    *deep = false;
    return S_OK;
}

HRESULT DirTree::Sort(std::vector<EntryId>* ids)
{
    if (ids->size() > kMostSorted)
        return STG_E_DOCFILECORRUPT;
    std::vector<std::pair<ElementName, EntryId>> named;
    named.reserve(ids->size());
    for (const EntryId id : *ids) {
        const DirEntry* entry = nullptr;
        QV_TRY(PeekElement(id, &entry));
        named.emplace_back(entry->Name(), id);
    }
    std::stable_sort(named.begin(), named.end(),
                     [](const auto& a, const auto& b) { return a.first.Compare(b.first) < 0; });
    std::transform(named.begin(), named.end(), ids->begin(), [](const auto& n) { return n.second; });
    return S_OK;
}

HRESULT DirTree::Rebuild(OrderedFile& file, EntryId storage, const std::vector<EntryId>& ids,
                         std::vector<TreeEdit::Move>* moves)
{
    ElementName last;
    for (std::size_t i = 0; i < ids.size(); ++i) {
        const DirEntry* entry = nullptr;
        QV_TRY(PeekElement(ids[i], &entry));
        if (i > 0 && entry->Compare(last) == 0)
            return STG_E_DOCFILECORRUPT;
        last = entry->Name();
    }
    EntryId top = kNoEntry;
    DirEntry owner;
    const auto copy = [&](std::size_t i, EntryId left, EntryId right, Color color, EntryId* id) -> HRESULT {
        DirEntry entry;
        QV_TRY(directory_.Read(ids[i], &entry));
        entry.SetLinks(left, right, color);
        QV_TRY(directory_.Allocate(id));
        moves->push_back({ids[i], *id});
        return directory_.Write(*id, entry);
    };
    const HRESULT copied = HangBalanced(0, ids.size(), ids.size(), 0, copy, &top);
    QV_TRY(copied);
    QV_TRY(directory_.Read(storage, &owner));
    owner.SetChild(top);
    file.Order();
    QV_TRY(directory_.Write(storage, owner));
    file.Order();
    for (const TreeEdit::Move& move : *moves)
        QV_TRY(directory_.Free(move.from));
    return S_OK;
}

}  // namespace quorvane::cfb
