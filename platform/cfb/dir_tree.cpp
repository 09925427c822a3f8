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
    QV_TRY(Build(ids, 0, ids.size(), 0, moves, &top));
    QV_TRY(directory_.Read(storage, &owner));
    owner.SetChild(top);
    file.Order();
    QV_TRY(directory_.Write(storage, owner));
    file.Order();
    for (const TreeEdit::Move& move : *moves)
        QV_TRY(directory_.Free(move.from));
    return S_OK;
}

// Copies ids[begin, end) into a tree of the least depth, whose last, incomplete level is red.
HRESULT DirTree::Build(const std::vector<EntryId>& ids, std::size_t begin, std::size_t end, unsigned level,
                       std::vector<TreeEdit::Move>* moves, EntryId* top)
{
    *top = kNoEntry;
    if (begin == end)
        return S_OK;
    const std::size_t middle = begin + (end - begin) / 2;
    const unsigned lastLevel = static_cast<unsigned>(std::bit_width(ids.size() + 1)) - 1;
    EntryId left = 0;
    EntryId right = 0;
    QV_TRY(Build(ids, begin, middle, level + 1, moves, &left));
    QV_TRY(Build(ids, middle + 1, end, level + 1, moves, &right));
    DirEntry entry;
    QV_TRY(directory_.Read(ids[middle], &entry));
    entry.SetLeft(left);
    entry.SetRight(right);
    entry.SetColor(level == lastLevel ? Color::kRed : Color::kBlack);
    QV_TRY(directory_.Allocate(top));
    moves->push_back({ids[middle], *top});
    return directory_.Write(*top, entry);
}

}  // namespace quorvane::cfb
