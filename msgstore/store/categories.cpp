#include "msgstore/store/categories.h"

#include "msgstore/props/little_endian.h"

namespace quorvane {
namespace {

constexpr std::uint32_t kStateVersion = 1;

void AppendSized(Bytes& bytes, const Bytes& part)
{
    AppendLittle(bytes, static_cast<std::uint32_t>(part.size()));
    bytes.insert(bytes.end(), part.begin(), part.end());
}

// Takes values off the front of a state.
class StateReader {
public:
    explicit StateReader(std::span<const BYTE> bytes) noexcept : bytes_(bytes) {}

    template <class Unsigned>
    bool Take(Unsigned& value) noexcept
    {
        if (bytes_.size() < sizeof(Unsigned))
            return false;
        value = LoadLittle<Unsigned>(bytes_.data());
        bytes_ = bytes_.subspan(sizeof(Unsigned));
        return true;
    }
    bool Take(Bytes& part)
    {
        std::uint32_t size = 0;
        if (!Take(size) || size > bytes_.size())
            return false;
        part.assign(bytes_.begin(), bytes_.begin() + size);
        bytes_ = bytes_.subspan(size);
        return true;
    }
    std::size_t Left() const noexcept { return bytes_.size(); }

private:
    std::span<const BYTE> bytes_;
};

}  // namespace

std::vector<Bytes> Categories::PathsOf(const RowReader& reader) const
{
    std::vector<Bytes> paths;
    Bytes path;
    for (const SortColumn& column : columns_) {
        const PropertyValue* const value = reader.Find(column.tag);
        AppendSized(path, value ? SortKey(*value) : Bytes());
        paths.push_back(path);
    }
    return paths;
}

std::int64_t Categories::Know(const Bytes& path, std::size_t level)
{
    const auto [known, isNew] = numbers_.emplace(path, -static_cast<std::int64_t>(headings_.size()) - 1);
    if (isNew)
        headings_.push_back({path, level, level < expanded_, false, 0, 0, {}});
    return known->second;
}

// The heading says what the first of its rows does.
void Categories::Open(const RowReader& reader, std::int64_t id)
{
    Heading& heading = At(id);
    heading.isThere = true;
    heading.count = heading.unread = 0;
    heading.row.Clear();
    for (std::size_t level = 0; level <= heading.level; ++level) {
        if (const PropertyValue* const value = reader.Find(columns_[level].tag))
            heading.row.Put(*value);
    }
    const Bytes key = InstanceKey(id);
    heading.row.Put(PropertyValue::Binary(PR_INSTANCE_KEY, key.data(), key.size()));
    heading.row.Put(PropertyValue::Long(PR_DEPTH, static_cast<LONG>(heading.level)));
}

void Categories::Finish()
{
    for (Heading& heading : headings_) {
        heading.row.Put(PropertyValue::Long(PR_CONTENT_COUNT, heading.count));
        heading.row.Put(PropertyValue::Long(PR_CONTENT_UNREAD, heading.unread));
        heading.row.Put(PropertyValue::Long(
            PR_ROW_TYPE, heading.expanded ? LONG{TBL_EXPANDED_CATEGORY} : LONG{TBL_COLLAPSED_CATEGORY}));
    }
}

HRESULT Categories::Arrange(RowReader& reader, std::vector<std::int64_t>& ids)
{
    for (Heading& heading : headings_)
        heading.isThere = false;
    std::vector<std::int64_t> shown;
    std::vector<std::int64_t> open;  // the headings above the row, the outermost first
    std::vector<Bytes> before;
    for (const std::int64_t id : ids) {
        const HRESULT moved = reader.MoveTo(id);
        QV_RETURN_IF_FAILED(moved);
        if (moved == S_FALSE)
            continue;
        std::vector<Bytes> paths = PathsOf(reader);
        std::size_t same = 0;
        while (same < before.size() && before[same] == paths[same])
            ++same;
        open.resize(same);
        bool visible = true;
        for (const std::int64_t heading : open)
            visible = visible && At(heading).expanded;
        for (std::size_t level = same; level < paths.size(); ++level) {
            open.push_back(Know(paths[level], level));
            Open(reader, open.back());
            if (visible)
                shown.push_back(open.back());
            visible = visible && At(open.back()).expanded;
        }
        const PropertyValue* const flags = reader.Find(PR_MESSAGE_FLAGS);
        const bool isUnread = !flags || (flags->AsInteger() & MSGFLAG_READ) == 0;
        for (const std::int64_t heading : open) {
            ++At(heading).count;
            At(heading).unread += isUnread ? 1 : 0;
        }
        if (visible)
            shown.push_back(id);
        before = std::move(paths);
        QV_RETURN_IF_FAILED(reader.TakeFailure());
    }
    Finish();
    ids = std::move(shown);
    return S_OK;
}

const Categories::Heading* Categories::Find(std::int64_t id) const noexcept
{
    const bool isKnown = id < 0 && static_cast<std::uint64_t>(-(id + 1)) < headings_.size();
    return isKnown ? &headings_[static_cast<std::size_t>(-(id + 1))] : nullptr;
}

const PropertyBag* Categories::Row(std::int64_t id) const noexcept
{
    const Heading* const heading = Find(id);
    return heading && heading->isThere ? &heading->row : nullptr;
}

bool Categories::IsExpanded(std::int64_t id) const noexcept
{
    const Heading* const heading = Find(id);
    return heading && heading->expanded;
}

void Categories::SetExpanded(std::int64_t id, bool expanded)
{
    if (Find(id))
        At(id).expanded = expanded;
}

// Little-endian: the version (4 bytes), the number of a row or 0 (8), the path of a heading that was meant or
// none (its size, 4, before it), the count of headings (4), and for each its path likewise and its level (4).
Bytes Categories::SaveState(std::int64_t row) const
{
    const Heading* const meant = Find(row);
    Bytes bytes;
    AppendLittle(bytes, kStateVersion);
    AppendLittle(bytes, static_cast<std::uint64_t>(meant ? 0 : row));
    AppendSized(bytes, meant ? meant->path : Bytes());
    std::uint32_t count = 0;
    Bytes changed;
    for (const Heading& heading : headings_) {
        if (heading.expanded == (heading.level < expanded_))
            continue;
        ++count;
        AppendSized(changed, heading.path);
        AppendLittle(changed, static_cast<std::uint32_t>(heading.level));
    }
    AppendLittle(bytes, count);
    bytes.insert(bytes.end(), changed.begin(), changed.end());
    return bytes;
}

HRESULT Categories::LoadState(std::span<const BYTE> state, std::int64_t& row)
{
    StateReader reader(state);
    std::uint32_t version = 0;
    std::uint64_t number = 0;
    Bytes meant;
    std::uint32_t count = 0;
    if (!reader.Take(version) || version != kStateVersion || !reader.Take(number) || !reader.Take(meant) ||
        !reader.Take(count))
        return MAPI_E_INVALID_PARAMETER;
    std::vector<std::pair<Bytes, std::uint32_t>> changed;
    for (std::uint32_t i = 0; i < count; ++i) {
        auto& [path, level] = changed.emplace_back();
        if (!reader.Take(path) || !reader.Take(level) || level >= columns_.size())
            return MAPI_E_INVALID_PARAMETER;
    }
    if (reader.Left() != 0)
        return MAPI_E_INVALID_PARAMETER;
    for (Heading& heading : headings_)
        heading.expanded = heading.level < expanded_;
    for (const auto& [path, level] : changed)
        At(Know(path, level)).expanded = level >= expanded_;
    const auto found = numbers_.find(meant);
    row = found != numbers_.end() ? found->second : static_cast<std::int64_t>(number);
    return S_OK;
}

namespace {

class CategorizedReader final : public RowReader {
public:
    CategorizedReader(std::unique_ptr<RowReader> reader, const Categories& categories)
        : reader_(std::move(reader)),
          categories_(categories),
          depth_(PropertyValue::Long(PR_DEPTH, static_cast<LONG>(categories.Depth())))
    {}

    HRESULT MoveTo(std::int64_t id) override
    {
        heading_ = id < 0 ? categories_.Row(id) : nullptr;
        if (id < 0)
            return heading_ ? S_OK : S_FALSE;
        return reader_->MoveTo(id);
    }
    HRESULT TakeFailure() noexcept override { return reader_->TakeFailure(); }
    const PropertyValue* Find(ULONG tag) const override
    {
        if (heading_)
            return heading_->Find(tag);
        return tag == PR_DEPTH ? &depth_ : reader_->Find(tag);
    }
    const std::vector<PropertyBag>* SubRows(ULONG tag) const override
    {
        return heading_ ? nullptr : reader_->SubRows(tag);
    }

private:
    const std::unique_ptr<RowReader> reader_;
    const Categories& categories_;
    const PropertyValue depth_;
    const PropertyBag* heading_ = nullptr;  // of the row, if it is one
};

}  // namespace

std::unique_ptr<RowReader> MakeCategorizedReader(std::unique_ptr<RowReader> reader,
                                                 const Categories& categories)
{
    return std::make_unique<CategorizedReader>(std::move(reader), categories);
}

}  // namespace quorvane
