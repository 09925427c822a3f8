#include "host/mime/part_edits.h"

#include <algorithm>
#include <ostream>
#include <streambuf>
#include <string>
#include <vector>

#include "host/mime/export_bodies.h"
#include "host/mime/export_headers.h"
#include "host/mime/gmime_setup.h"
#include "host/mime/header_repair.h"
#include "host/mime/mail_layout.h"
#include "host/mime/mail_structure.h"
#include "host/mime/mapi_read.h"

namespace quorvane {
namespace {

constexpr std::size_t kEditPiece = std::size_t{256} << 10;

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

// Bytes that go, and the body that comes in their place.
struct PartEdit {
    std::uint64_t begin = 0;
    std::uint64_t end = 0;
    std::string header;  // with the blank line behind it; empty: nothing comes
    const ValueReader* body = nullptr;
    TextEncoding encoding = TextEncoding::SevenBit;
};

std::string ReadBytes(const MailBytes& bytes, std::uint64_t begin, std::uint64_t end)
{
    std::string text(static_cast<std::size_t>(end - begin), '\0');
    text.resize(bytes.Read(begin, text.data(), text.size()));
    return text;
}

class PartEditor {
public:
    PartEditor(const MailBytes& bytes, const MailLayout& layout) : bytes_(bytes), layout_(layout)
    {
        const std::string header = bytes.Header();
        hasCrlf_ = header.find("\r\n") != std::string::npos;
    }

    // False once one of the edits can't be made.
    [[nodiscard]] bool CanBeDone() const { return canBeDone_; }
    void GiveUp() { canBeDone_ = false; }

    void TakeOut(GMimeObject* part)
    {
        const PartPlace& place = layout_.PlaceOf(part);
        canBeDone_ = canBeDone_ && place.isInMultipart && !place.isSealed;
        edits_.push_back({place.delimiter, place.next, {}, nullptr, {}});
    }

    // form: of `body`, which is to outlive this.
    void Replace(GMimeObject* part, const ValueReader& body, const BodyForm& form)
    {
        const PartPlace& place = layout_.PlaceOf(part);
        canBeDone_ = canBeDone_ && !place.isSealed && place.body - place.begin <= kLargestHeader;
        if (!canBeDone_)
            return;
        const std::string header = MailBytes(ReadBytes(bytes_, place.begin, place.body)).Header();
        edits_.push_back({place.begin, place.end,
                          HeaderOfContent(header, form.type, EncodingName(form.encoding)) + LineEnd(), &body,
                          form.encoding});
    }

    HRESULT Write(MailBytes& edited)
    {
        std::sort(edits_.begin(), edits_.end(),
                  [](const PartEdit& a, const PartEdit& b) { return a.begin < b.begin; });
        std::uint64_t at = 0;
        for (const PartEdit& edit : edits_) {
            Copy(at, edit.begin, edited);
            at = edit.end;
            if (!edit.body)
                continue;
            edited.Append(edit.header);
            MailBuffer buffer(edited, hasCrlf_);
            std::ostream stream(&buffer);
            EmlWriter writer(stream);
            if (const HRESULT hr = WriteBodyContent(*edit.body, edit.encoding, writer); FAILED(hr))
                return hr;
        }
        Copy(at, bytes_.Size(), edited);
        return FAILED(bytes_.Result()) ? bytes_.Result() : edited.Result();
    }

private:
    static constexpr std::uint64_t kLargestHeader = std::uint64_t{16} << 20;

    [[nodiscard]] const char* LineEnd() const { return hasCrlf_ ? "\r\n" : "\n"; }

    void Copy(std::uint64_t from, std::uint64_t to, MailBytes& edited) const
    {
        while (from < to && SUCCEEDED(bytes_.Result())) {
            const std::string piece = ReadBytes(bytes_, from, std::min(to, from + kEditPiece));
            edited.Append(piece);
            from += piece.size();
        }
    }

    const MailBytes& bytes_;
    const MailLayout& layout_;
    bool hasCrlf_ = false;
    bool canBeDone_ = true;
    std::vector<PartEdit> edits_;
};

// A body that says something else now, or is gone.
void EditBody(GMimePart* part, const ValueReader& body, const BodyForm& form, PartEditor& editor)
{
    if (!part)
        editor.GiveUp();
    else if (body.Exists())
        editor.Replace(GMIME_OBJECT(part), body, form);
    else
        editor.TakeOut(GMIME_OBJECT(part));
}

// False where the message has one that the mail hasn't.
bool TakeOutAttachments(const MailStructure& structure, const MailContent& said, const MailContent& now,
                        PartEditor& editor)
{
    if (structure.attachments.size() != said.attachments.size())
        return false;
    auto kept = now.attachments.begin();
    for (std::size_t i = 0; i < said.attachments.size(); ++i) {
        if (kept != now.attachments.end() && kept->digest == said.attachments[i].digest)
            ++kept;
        else
            editor.TakeOut(structure.attachments[i].object);
    }
    return kept == now.attachments.end();
}

}  // namespace

HRESULT EditParts(const MailBytes& bytes, IMessage& message, const MailContent& said, const MailContent& now,
                  std::optional<MailBytes>& edited)
{
    const MailBytes repaired = RepairHeaders(bytes);
    const GObjectPtr<GMimeMessage> mail = ParseMime(repaired);
    if (!mail || repaired.Size() != bytes.Size())
        return S_OK;
    const std::optional<MailLayout> layout = MailLayout::Of(bytes, mail.Get());
    if (!layout)
        return S_OK;
    const MailStructure structure = SplitMail(mail.Get());
    PartEditor editor(bytes, *layout);
    Bodies bodies;
    HRESULT hr = FindBodies(message, NarrowCodePage(message), bodies);
    BodyForm form;
    if (SUCCEEDED(hr))
        hr = FormOfText(bodies.text, form);
    if (said.text != now.text)
        EditBody(structure.text, bodies.text, form, editor);
    if (said.html != now.html)
        EditBody(structure.html, bodies.html, FormOfHtml(bodies.htmlCharset), editor);
    if (FAILED(hr) || !TakeOutAttachments(structure, said, now, editor) || !editor.CanBeDone())
        return hr;
    MailBytes result;
    hr = editor.Write(result);
    if (SUCCEEDED(hr))
        edited = std::move(result);
    return hr;
}

}  // namespace quorvane
