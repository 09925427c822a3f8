#include "host/mime/mail_layout.h"

#include <algorithm>
#include <array>
#include <string>
#include <vector>

#include "host/mail/mail_check.h"
#include "host/mime/gmime_setup.h"

namespace quorvane {
namespace {

constexpr int kDeepestLayout = 16;
constexpr std::size_t kReadAtOnce = std::size_t{64} << 10;

// The lines of a mail's bytes between two offsets.
class MailLines {
public:
    MailLines(const MailBytes& bytes, std::uint64_t begin, std::uint64_t end)
        : bytes_(bytes), end_(begin), limit_(end)
    {}

    // Goes to the next line; false at the end, and where nothing can be read.
    bool Next()
    {
        begin_ = end_;
        shown_.clear();
        for (bool isWhole = false; !isWhole && end_ < limit_;) {
            const std::string_view rest = Ahead();
            if (rest.empty())
                return false;
            const std::size_t length = LineLength(rest);
            isWhole = rest[length - 1] == '\n';
            shown_.append(rest.substr(0, std::min(length, kShown - shown_.size())));
            end_ += length;
        }
        return end_ > begin_;
    }

    // The line's bytes, its line end included; of a long line the first 4 KB.
    [[nodiscard]] std::string_view Text() const { return shown_; }
    [[nodiscard]] std::uint64_t Begin() const { return begin_; }
    [[nodiscard]] std::uint64_t End() const { return end_; }

private:
    static constexpr std::size_t kShown = 4096;

    // What is known of the bytes from the line's end so far on; empty at the end.
    std::string_view Ahead()
    {
        if (end_ < pieceAt_ || end_ >= pieceAt_ + pieceSize_) {
            pieceAt_ = end_;
            // Of many small parts not each reads what follows it.
            const auto wanted = std::min<std::uint64_t>(piece_.size(), limit_ - end_);
            pieceSize_ = bytes_.Read(end_, piece_.data(), static_cast<std::size_t>(wanted));
        }
        const auto from = static_cast<std::size_t>(end_ - pieceAt_);
        return {piece_.data() + from, pieceSize_ - from};
    }

    const MailBytes& bytes_;
    std::uint64_t begin_ = 0;
    std::uint64_t end_;
    const std::uint64_t limit_;
    std::string shown_;
    std::array<char, kReadAtOnce> piece_;
    std::uint64_t pieceAt_ = 0;
    std::size_t pieceSize_ = 0;
};

enum class LineKind { kOther, kDelimiter, kClose };

LineKind KindOf(std::string_view line, const std::string& boundary)
{
    if (!line.starts_with("--") || !line.substr(2).starts_with(boundary))
        return LineKind::kOther;
    line.remove_prefix(2 + boundary.size());
    const bool closes = line.starts_with("--");
    line.remove_prefix(closes ? 2 : 0);
    if (line.find_first_not_of(" \t\r\n") != std::string_view::npos)
        return LineKind::kOther;
    return closes ? LineKind::kClose : LineKind::kDelimiter;
}

bool IsSealing(GMimeObject* object)
{
    return IsType(object, "multipart", "signed") || IsType(object, "multipart", "encrypted");
}

class LayoutFinder {
public:
    explicit LayoutFinder(const MailBytes& bytes) : bytes_(bytes) {}

    // Notes the place of a part and finds those of its parts; false where the lines tell of other ones.
    bool Add(GMimeObject* object, PartPlace place, int depth)
    {
        place.body = BodyOf(place);
        const int count =
            GMIME_IS_MULTIPART(object) ? g_mime_multipart_get_count(GMIME_MULTIPART(object)) : 0;
        place.close = place.end;
        place.isSealing = IsSealing(object);
        const std::vector<PartPlace> parts = count == 0 ? std::vector<PartPlace>() : Split(object, place);
        places.emplace(object, place);
        if (count == 0)
            return true;
        if (depth == kDeepestLayout || parts.size() != static_cast<std::size_t>(count))
            return false;
        for (int i = 0; i < count; ++i)
            if (!Add(g_mime_multipart_get_part(GMIME_MULTIPART(object), i),
                     parts[static_cast<std::size_t>(i)], depth + 1))
                return false;
        return true;
    }

    std::unordered_map<GMimeObject*, PartPlace> places;

private:
    std::uint64_t BodyOf(const PartPlace& place) const
    {
        MailLines lines(bytes_, place.begin, place.end);
        while (lines.Next() && !IsBlankLine(lines.Text())) {
        }
        return lines.End();
    }

    // Gives the places of a multipart's parts, and notes where it is closed.
    std::vector<PartPlace> Split(GMimeObject* multipart, PartPlace& whole) const
    {
        const std::string boundary = TextOf(g_mime_multipart_get_boundary(GMIME_MULTIPART(multipart)));
        MailLines lines(bytes_, whole.body, whole.end);
        std::vector<PartPlace> parts;
        for (LineKind kind = LineKind::kOther; kind != LineKind::kClose && lines.Next();) {
            kind = KindOf(lines.Text(), boundary);
            if (kind == LineKind::kOther)
                continue;
            if (!parts.empty()) {
                parts.back().end = BeforeLineEnd(lines.Begin(), parts.back().begin);
                parts.back().next = lines.Begin();
            }
            if (kind == LineKind::kDelimiter)
                parts.push_back({lines.Begin(), lines.End(), 0, whole.end, whole.end, multipart});
            whole.isClosed = kind == LineKind::kClose;
            whole.close = whole.isClosed ? lines.Begin() : whole.end;
        }
        return parts;
    }

    // Where the line end begins that stands before `offset`, not before `floor`.
    std::uint64_t BeforeLineEnd(std::uint64_t offset, std::uint64_t floor) const
    {
        const auto length = static_cast<std::size_t>(std::min<std::uint64_t>(2, offset - floor));
        std::array<char, 2> last;
        const std::string_view text(last.data(), bytes_.Read(offset - length, last.data(), length));
        if (text.ends_with("\r\n"))
            return offset - 2;
        return text.ends_with('\n') ? offset - 1 : offset;
    }

    const MailBytes& bytes_;
};

}  // namespace

std::optional<MailLayout> MailLayout::Of(const MailBytes& bytes, GMimeMessage* mail)
{
    GMimeObject* const root = g_mime_message_get_mime_part(mail);
    LayoutFinder finder(bytes);
    if (!root || !finder.Add(root, {0, 0, 0, bytes.Size(), bytes.Size()}, 0) || FAILED(bytes.Result()))
        return std::nullopt;
    MailLayout layout;
    layout.places_ = std::move(finder.places);
    return layout;
}

GMimeObject* MailLayout::SealOf(GMimeObject* part) const
{
    GMimeObject* seal = nullptr;
    while ((part = PlaceOf(part).multipart))
        if (PlaceOf(part).isSealing)
            seal = part;
    return seal;
}

}  // namespace quorvane
