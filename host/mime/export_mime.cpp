#include "host/mime/export_mime.h"

#include <new>
#include <optional>
#include <string>
#include <vector>

#include "host/mime/eml_writer.h"
#include "host/mime/export_attachments.h"
#include "host/mime/export_bodies.h"
#include "host/mime/export_headers.h"
#include "host/mime/mapi_read.h"
#include "host/mime/message_envelope.h"

namespace quorvane {
namespace {

constexpr int kDeepestNesting = 32;

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
            hr = FindBodies(message, codePage_, bodies_);
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
            entry.related = entry.related && bodies_.html.Exists();
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
        if (others_.empty() && bodies_.rtf.IsEmpty())
            return WriteRelated();
        const std::string boundary = Begin("mixed");
        HRESULT hr = S_OK;
        if (bodies_.Any() || !related_.empty()) {
            Next(boundary);
            hr = WriteRelated();
        }
        if (SUCCEEDED(hr) && !bodies_.rtf.IsEmpty()) {
            Next(boundary);
            hr = WriteRtf(bodies_.rtf, out_);
        }
        if (SUCCEEDED(hr))
            hr = WriteAttachments(others_, boundary);
        End(boundary);
        return hr;
    }

    HRESULT WriteRelated()
    {
        if (related_.empty())
            return WriteAlternative();
        const std::string boundary = Begin(
            "related", bodies_.text.Exists() ? " type=\"multipart/alternative\";" : " type=\"text/html\";");
        Next(boundary);
        HRESULT hr = WriteAlternative();
        if (SUCCEEDED(hr))
            hr = WriteAttachments(related_, boundary);
        End(boundary);
        return hr;
    }

    HRESULT WriteAlternative()
    {
        if (!bodies_.html.Exists())
            return WriteTextPart();
        if (!bodies_.text.Exists())
            return WriteHtmlPart();
        const std::string boundary = Begin("alternative");
        Next(boundary);
        HRESULT hr = WriteTextPart();
        Next(boundary);
        if (SUCCEEDED(hr))
            hr = WriteHtmlPart();
        End(boundary);
        return hr;
    }

    HRESULT WriteTextPart()
    {
        BodyForm form;
        const HRESULT hr = FormOfText(bodies_.text, form);
        return SUCCEEDED(hr) ? WriteBody(bodies_.text, form) : hr;
    }

    HRESULT WriteHtmlPart() { return WriteBody(bodies_.html, FormOfHtml(bodies_.htmlCharset)); }

    HRESULT WriteBody(const ValueReader& body, const BodyForm& form)
    {
        out_.Field("Content-Type", form.type);
        out_.Field("Content-Transfer-Encoding", EncodingName(form.encoding));
        out_.Line("");
        return WriteBodyContent(body, form.encoding, out_);
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
