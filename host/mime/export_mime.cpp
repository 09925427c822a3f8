#include "host/mime/export_mime.h"

#include <new>
#include <optional>
#include <string>
#include <vector>

#include "host/mail/unicode.h"
#include "host/mime/charset.h"
#include "host/mime/eml_writer.h"
#include "host/mime/export_attachments.h"
#include "host/mime/export_headers.h"
#include "host/mime/mapi_read.h"
#include "host/mime/message_envelope.h"
#include "host/mime/rtf_text.h"

namespace quorvane {
namespace {

constexpr int kDeepestNesting = 32;

struct Bodies {
    std::optional<std::string> text;
    std::optional<std::string> html;
    std::string htmlCharset;
    std::string rtf;  // only when there is no other body

    [[nodiscard]] bool Any() const { return text || html; }
};

HRESULT ReadHtml(IMessage& message, ULONG codePage, Bodies& bodies)
{
    HRESULT hr = ReadBinary(message, kPrHtml, bodies.html);
    if (FAILED(hr) || bodies.html) {
        const auto htmlPage = ReadLong(message, kPrInternetCpid);
        const char* const charset = htmlPage ? CharsetOfCodePage(static_cast<ULONG>(*htmlPage)) : nullptr;
        bodies.htmlCharset = charset ? charset : "";
        return hr;
    }
    bodies.htmlCharset = "utf-8";
    return ReadText(message, kPrBodyHtmlW, codePage, bodies.html);
}

HRESULT ReadBodies(IMessage& message, ULONG codePage, Bodies& bodies)
{
    HRESULT hr = ReadText(message, PR_BODY_W, codePage, bodies.text);
    if (SUCCEEDED(hr))
        hr = ReadHtml(message, codePage, bodies);
    if (FAILED(hr) || bodies.html || (bodies.text && !bodies.text->empty()))
        return hr;
    std::optional<std::string> compressed;
    hr = ReadBinary(message, PR_RTF_COMPRESSED, compressed);
    if (SUCCEEDED(hr) && compressed)
        bodies.rtf = DecompressRtf(*compressed).value_or(*compressed);
    return hr;
}

// Writes one message, and through itself those that are embedded in it.
class MailWriter {
public:
    MailWriter(EmlWriter& out, int depth) : out_(out), depth_(depth) {}

    HRESULT Write(IMessage& message)
    {
        if (depth_ > kDeepestNesting)
            return MAPI_E_TOO_COMPLEX;
        message_ = &message;
        codePage_ = NarrowCodePage(message);
        HRESULT hr = WriteHeader();
        if (SUCCEEDED(hr))
            hr = ReadBodies(message, codePage_, bodies_);
        if (SUCCEEDED(hr))
            hr = SortAttachments();
        if (SUCCEEDED(hr))
            hr = WriteMixed();
        return SUCCEEDED(hr) && !out_.Works() ? STG_E_MEDIUMFULL : hr;
    }

private:
    HRESULT WriteHeader()
    {
        MailEnvelope envelope;
        HRESULT hr = ReadMessageEnvelope(*message_, codePage_, envelope);
        std::optional<std::string> block;
        if (SUCCEEDED(hr))
            hr = ReadText(*message_, PR_TRANSPORT_MESSAGE_HEADERS_W, codePage_, block);
        if (FAILED(hr))
            return hr;
        for (const HeaderField& field : ExportedFields(block.value_or(""), envelope))
            out_.Field(field.name, field.value);
        out_.Field("MIME-Version", "1.0");
        return S_OK;
    }

    HRESULT SortAttachments()
    {
        std::vector<AttachmentEntry> all;
        const HRESULT hr = ListAttachments(*message_, all);
        for (AttachmentEntry& entry : all) {
            entry.related = entry.related && bodies_.html;
            (entry.related ? related_ : others_).push_back(entry);
        }
        return hr;
    }

    // Opens a multipart: its header. The blank line after it comes with the first part.
    std::string Begin(const char* subtype, const char* parameters = "")
    {
        std::string boundary = out_.NewBoundary();
        out_.Field("Content-Type", std::string("multipart/") + subtype + ";" + parameters +
                                       "\r\n boundary=\"" + boundary + "\"");
        return boundary;
    }
    void Next(const std::string& boundary)
    {
        out_.Raw("\r\n--");
        out_.Line(boundary);
    }
    void End(const std::string& boundary)
    {
        out_.Raw("\r\n--");
        out_.Raw(boundary);
        out_.Line("--");
    }

    HRESULT WriteMixed()
    {
        if (others_.empty() && bodies_.rtf.empty())
            return WriteRelated();
        const std::string boundary = Begin("mixed");
        HRESULT hr = S_OK;
        if (bodies_.Any() || !related_.empty()) {
            Next(boundary);
            hr = WriteRelated();
        }
        if (!bodies_.rtf.empty()) {
            Next(boundary);
            WriteBytesAsAttachment("application/rtf", "body.rtf", bodies_.rtf, out_);
        }
        if (SUCCEEDED(hr))
            hr = WriteAttachments(others_, boundary);
        End(boundary);
        return hr;
    }

    HRESULT WriteRelated()
    {
        if (related_.empty()) {
            WriteAlternative();
            return S_OK;
        }
        const std::string boundary =
            Begin("related", bodies_.text ? " type=\"multipart/alternative\";" : " type=\"text/html\";");
        Next(boundary);
        WriteAlternative();
        const HRESULT hr = WriteAttachments(related_, boundary);
        End(boundary);
        return hr;
    }

    void WriteAlternative()
    {
        if (!bodies_.text || !bodies_.html) {
            if (bodies_.html)
                return WriteHtmlPart();
            return WriteTextPart();
        }
        const std::string boundary = Begin("alternative");
        Next(boundary);
        WriteTextPart();
        Next(boundary);
        WriteHtmlPart();
        End(boundary);
    }

    void WriteTextPart()
    {
        const std::string text = bodies_.text.value_or("");
        const TextEncoding encoding = BestTextEncoding(text);
        out_.Field("Content-Type", "text/plain; charset=utf-8");
        out_.Field("Content-Transfer-Encoding", EncodingName(encoding));
        out_.Line("");
        WriteText(out_, text, encoding);
    }

    // In base64: HTML is kept to the byte, line ends included.
    void WriteHtmlPart()
    {
        out_.Field("Content-Type",
                   bodies_.htmlCharset.empty() ? "text/html" : "text/html; charset=" + bodies_.htmlCharset);
        out_.Field("Content-Transfer-Encoding", EncodingName(TextEncoding::Base64));
        out_.Line("");
        WriteText(out_, *bodies_.html, TextEncoding::Base64);
    }

    HRESULT WriteAttachments(const std::vector<AttachmentEntry>& entries, const std::string& boundary)
    {
        const WriteNested nested = [this](IMessage& embedded) {
            return MailWriter(out_, depth_ + 1).Write(embedded);
        };
        for (const AttachmentEntry& entry : entries) {
            Next(boundary);
            const HRESULT hr = WriteAttachment(*message_, entry, codePage_, nested, out_);
            if (FAILED(hr))
                return hr;
        }
        return S_OK;
    }

    EmlWriter& out_;
    int depth_;
    IMessage* message_ = nullptr;
    ULONG codePage_ = 0;
    Bodies bodies_;
    std::vector<AttachmentEntry> related_;
    std::vector<AttachmentEntry> others_;
};

}  // namespace

HRESULT ExportMime(IMessage& message, std::ostream& out) noexcept
{
    try {
        EmlWriter writer(out);
        const HRESULT hr = MailWriter(writer, 0).Write(message);
        if (SUCCEEDED(hr) && !out.flush())
            return STG_E_MEDIUMFULL;
        return hr;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    } catch (...) {
        return E_FAIL;
    }
}

}  // namespace quorvane
