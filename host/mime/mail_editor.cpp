#include "host/mime/mail_editor.h"

#include <algorithm>
#include <ostream>
#include <streambuf>
#include <tuple>

#include "host/mime/export_headers.h"
#include "host/mime/gmime_setup.h"
#include "host/mime/import_bodies.h"

namespace quorvane {
namespace {

constexpr std::uint64_t kLargestHeader = std::uint64_t{16} << 20;

std::string QuotedBoundary(const std::string& boundary)
{
    std::string quoted = "\"";
    for (const char c : boundary) {
        if (c == '"' || c == '\\')
            quoted += '\\';
        quoted += c;
    }
    return quoted + "\"";
}

}  // namespace

// A stream's bytes go to the end of a mail, with its line ends.
class MailBuffer : public std::streambuf {
public:
    MailBuffer(MailBytes& mail, bool hasCrlf) : mail_(mail), hasCrlf_(hasCrlf) {}

protected:
    std::streamsize xsputn(const char* bytes, std::streamsize count) override
    {
        std::string text(bytes, static_cast<std::size_t>(count));
        if (!hasCrlf_)
            std::erase(text, '\r');
        mail_.Append(text);
        return SUCCEEDED(mail_.Result()) ? count : 0;
    }
    int_type overflow(int_type c) override
    {
        const char byte = traits_type::to_char_type(c);
        return xsputn(&byte, 1) == 1 ? c : traits_type::eof();
    }

private:
    MailBytes& mail_;
    const bool hasCrlf_;
};

// Bytes that go, and what comes in their place.
struct MailEditor::Splice {
    std::uint64_t begin = 0;
    std::uint64_t end = 0;
    std::function<HRESULT()> write;
    int depth = 0;  // of what ends a part: how deep that lies, from 1

    // What is put in comes before what is exchanged at the same place; the end of a part before that of the
    // one that it lies in.
    [[nodiscard]] bool operator<(const Splice& other) const noexcept
    {
        const auto key = [](const Splice& one) {
            return std::tuple(one.begin, one.end > one.begin, one.depth > 0, -one.depth);
        };
        return key(*this) < key(other);
    }
};

// Where the edited mail is written to.
class MailEditor::Writer {
public:
    Writer(const MailEditor& editor, MailBytes& edited)
        : editor_(editor), edited_(edited), buffer_(edited, editor.hasCrlf_), stream_(&buffer_), out_(stream_)
    {}

    std::string NewBoundary() { return out_.NewBoundary(); }

    // A stream says no more of what it was too little memory for than that it failed.
    [[nodiscard]] HRESULT Result() const
    {
        return SUCCEEDED(edited_.Result()) && !out_.Works() ? E_OUTOFMEMORY : edited_.Result();
    }

    HRESULT Before(const Change& change, const std::string& boundary)
    {
        return All(change.before, [&](const WritePart& part) { return Delimited(part, boundary); });
    }

    // A part up to its content, or all of it where that is another; in the multiparts that it is wrapped in.
    HRESULT Begin(GMimeObject* part, const Change& change, const std::vector<std::string>& boundaries)
    {
        const bool isNewHeader = editor_.IsNewHeader(part, change);
        std::string header = isNewHeader ? editor_.NewHeader(part, change) : std::string();
        if (part == editor_.root_)
            BeginMail(change, header);
        for (std::size_t i = boundaries.size(); i-- > 0;)
            if (const HRESULT hr = Open(change.wrappings[i], boundaries[i]); FAILED(hr))
                return hr;
        if (change.whole)
            return Put(change.whole);
        if (isNewHeader) {
            edited_.Append(header);
            out_.Line("");
        }
        return change.content ? change.content(out_) : S_OK;
    }

    HRESULT Appended(const Change& change, const PartPlace& place, const std::string& boundary)
    {
        const HRESULT hr = All(change.appended, [&](const WritePart& part) {
            return place.isClosed ? Delimited(part, boundary) : Following(part, boundary);
        });
        if (SUCCEEDED(hr) && !place.isClosed)
            Close(boundary, !place.multipart);
        return hr;
    }

    // Closes what a part is wrapped in.
    HRESULT End(const Change& change, const std::vector<std::string>& boundaries, bool endsMail)
    {
        HRESULT hr = S_OK;
        for (std::size_t i = 0; SUCCEEDED(hr) && i < boundaries.size(); ++i) {
            hr = All(change.wrappings[i].behind,
                     [&](const WritePart& part) { return Following(part, boundaries[i]); });
            Close(boundaries[i], endsMail && i + 1 == boundaries.size());
        }
        return hr;
    }

private:
    template <class Write>
    static HRESULT All(const std::vector<WritePart>& parts, Write write)
    {
        HRESULT hr = S_OK;
        for (auto part = parts.begin(); SUCCEEDED(hr) && part != parts.end(); ++part)
            hr = write(*part);
        return hr;
    }

    HRESULT Put(const WritePart& part) { return part(out_, stream_, edited_); }
    // With its delimiter line before it and a line end behind it.
    HRESULT Delimited(const WritePart& part, const std::string& boundary)
    {
        out_.Line("--" + boundary);
        const HRESULT hr = Put(part);
        out_.Line("");
        return hr;
    }
    // The same with the line end before it.
    HRESULT Following(const WritePart& part, const std::string& boundary)
    {
        out_.Raw("\r\n--" + boundary + "\r\n");
        return Put(part);
    }
    HRESULT Open(const Wrapping& wrapping, const std::string& boundary)
    {
        out_.Field("Content-Type", wrapping.type + ";\r\n boundary=\"" + boundary + "\"");
        out_.Line("");
        const HRESULT hr =
            All(wrapping.before, [&](const WritePart& part) { return Delimited(part, boundary); });
        out_.Line("--" + boundary);
        return hr;
    }
    void Close(const std::string& boundary, bool endsMail)
    {
        out_.Raw("\r\n--" + boundary + "--");
        if (endsMail)
            out_.Line("");
    }
    // Writes the mail's own fields; those of its content stay in `header`.
    void BeginMail(const Change& change, std::string& header)
    {
        SplitHeader split = SplitContentFields(header);
        if (!change.whole && change.wrappings.empty()) {
            header = std::move(split.all);
            return;
        }
        edited_.Append(split.mail);
        if (!split.hasVersion)
            out_.Field("MIME-Version", "1.0");
        header = std::move(split.content);
    }

    const MailEditor& editor_;
    MailBytes& edited_;
    MailBuffer buffer_;
    std::ostream stream_;
    EmlWriter out_;
};

MailEditor::MailEditor(const MailBytes& bytes, const MailLayout& layout, GMimeObject* root)
    : bytes_(bytes), layout_(layout), root_(root)
{
    const std::string header = bytes.Header();
    hasCrlf_ = header.find("\r\n") != std::string::npos;
    tellsItsSize_ = SplitContentFields(header).all != header;
}

MailEditor::Change& MailEditor::ChangeOf(GMimeObject* part)
{
    const PartPlace& place = layout_.PlaceOf(part);
    canBeDone_ = canBeDone_ && place.body - place.begin <= kLargestHeader;
    for (GMimeObject* outer = place.multipart; outer; outer = layout_.PlaceOf(outer).multipart)
        if (layout_.PlaceOf(outer).isSealing)
            changes_[outer].isUnsealed = true;
    return changes_[part];
}

void MailEditor::TakeOut(GMimeObject* part)
{
    canBeDone_ = canBeDone_ && layout_.PlaceOf(part).multipart;
    ChangeOf(part).isGone = true;
}

void MailEditor::ReplaceContent(GMimeObject* part, std::string type, std::string encoding,
                                WriteContent content)
{
    Change& change = ChangeOf(part);
    change.type = std::move(type);
    change.encoding = std::move(encoding);
    change.content = std::move(content);
}

void MailEditor::ReplacePart(GMimeObject* part, WritePart by)
{
    ChangeOf(part).whole = std::move(by);
}

void MailEditor::InsertBefore(GMimeObject* part, WritePart another)
{
    canBeDone_ = canBeDone_ && layout_.PlaceOf(part).multipart;
    ChangeOf(part).before.push_back(std::move(another));
}

void MailEditor::Append(GMimeObject* multipart, WritePart another)
{
    Change& change = ChangeOf(multipart);
    change.isUnsealed = layout_.PlaceOf(multipart).isSealing;
    change.appended.push_back(std::move(another));
}

void MailEditor::Wrap(GMimeObject* part, std::string type, std::vector<WritePart> before,
                      std::vector<WritePart> behind)
{
    ChangeOf(part).wrappings.push_back({std::move(type), std::move(before), std::move(behind)});
}

std::string MailEditor::HeaderOf(GMimeObject* part) const
{
    const PartPlace& place = layout_.PlaceOf(part);
    MailBytes header;
    header.AppendFrom(bytes_, place.begin, place.body);
    return header.Header();
}

bool MailEditor::IsNewHeader(GMimeObject* part, const Change& change) const
{
    const bool isOfMail = part == root_ && (tellsItsSize_ || change.whole || !change.wrappings.empty());
    return isOfMail || change.content || change.isUnsealed;
}

std::string MailEditor::NewHeader(GMimeObject* part, const Change& change) const
{
    std::string header = HeaderOf(part);
    const bool hasLines = !header.empty();
    if (change.content)
        header = HeaderOfContent(header, change.type, change.encoding);
    if (change.isUnsealed) {
        const std::string boundary = TextOf(g_mime_multipart_get_boundary(GMIME_MULTIPART(part)));
        header = HeaderOfType(header, "multipart/mixed; boundary=" + QuotedBoundary(boundary));
    }
    return hasLines || !hasCrlf_ ? header : WithCrlf(header);
}

int MailEditor::DepthOf(GMimeObject* part) const
{
    int depth = 0;
    for (; part; part = layout_.PlaceOf(part).multipart)
        ++depth;
    return depth;
}

void MailEditor::AddSplices(GMimeObject* part, const Change& change, Writer& writer,
                            std::vector<Splice>& splices) const
{
    const PartPlace& place = layout_.PlaceOf(part);
    const auto boundaryOf = [](GMimeObject* multipart) {
        return TextOf(g_mime_multipart_get_boundary(GMIME_MULTIPART(multipart)));
    };
    if (!change.before.empty())
        splices.push_back({place.delimiter, place.delimiter, [&, boundary = boundaryOf(place.multipart)] {
                               return writer.Before(change, boundary);
                           }});
    if (change.isGone)
        return splices.push_back({place.delimiter, place.next, [] { return S_OK; }});
    std::vector<std::string> boundaries;  // of what it is wrapped in
    for (std::size_t i = 0; i < change.wrappings.size(); ++i)
        boundaries.push_back(writer.NewBoundary());
    const bool isOther = change.whole || change.content;
    const std::uint64_t headerEnd = IsNewHeader(part, change) ? place.body : place.begin;
    splices.push_back({place.begin, isOther ? place.end : headerEnd,
                       [&, part, boundaries] { return writer.Begin(part, change, boundaries); }});
    if (!change.appended.empty())
        splices.push_back(
            {place.close, place.close,
             [&, boundary = boundaryOf(part)] { return writer.Appended(change, place, boundary); },
             DepthOf(part)});
    if (!boundaries.empty())
        splices.push_back({place.end, place.end,
                           [&, boundaries] { return writer.End(change, boundaries, !place.multipart); },
                           DepthOf(part)});
}

HRESULT MailEditor::Write(MailBytes& edited) const
{
    Writer writer(*this, edited);
    std::vector<Splice> splices;
    for (const auto& [part, change] : changes_)
        AddSplices(part, change, writer, splices);
    const Change none;
    if (tellsItsSize_ && !changes_.contains(root_))
        AddSplices(root_, none, writer, splices);
    std::stable_sort(splices.begin(), splices.end());
    std::uint64_t at = 0;
    for (const Splice& splice : splices) {
        if (splice.begin < at)
            return MAPI_E_CORRUPT_DATA;
        edited.AppendFrom(bytes_, at, splice.begin);
        if (const HRESULT hr = splice.write(); FAILED(hr))
            return hr;
        at = splice.end;
    }
    edited.AppendFrom(bytes_, at);
    return writer.Result();
}

}  // namespace quorvane
