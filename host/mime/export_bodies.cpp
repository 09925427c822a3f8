#include "host/mime/export_bodies.h"

#include <optional>
#include <string_view>

#include "host/mime/charset.h"
#include "host/mime/export_attachments.h"
#include "host/mime/mapi_read.h"
#include "host/mime/rtf_text.h"

namespace quorvane {
namespace {

HRESULT FindHtml(IMessage& message, ULONG codePage, Bodies& bodies)
{
    const HRESULT hr = bodies.html.OpenBinary(message, kPrHtml);
    if (FAILED(hr) || bodies.html.Exists()) {
        const auto htmlPage = ReadLong(message, kPrInternetCpid);
        const char* const charset = htmlPage ? CharsetOfCodePage(static_cast<ULONG>(*htmlPage)) : nullptr;
        bodies.htmlCharset = charset ? charset : "";
        return hr;
    }
    bodies.htmlCharset = "utf-8";
    return bodies.html.OpenText(message, kPrBodyHtmlW, codePage);
}

HRESULT CopyValue(const ValueReader& from, TextWriter& to, const EmlWriter& out)
{
    const HRESULT hr = from.Read([&](std::string_view piece) {
        to.Write(piece);
        return out.Works();
    });
    return SUCCEEDED(hr) && !out.Works() ? STG_E_MEDIUMFULL : hr;
}

}  // namespace

HRESULT FindBodies(IMessage& message, ULONG codePage, Bodies& bodies)
{
    HRESULT hr = bodies.text.OpenText(message, PR_BODY_W, codePage);
    if (SUCCEEDED(hr))
        hr = FindHtml(message, codePage, bodies);
    if (FAILED(hr) || bodies.html.Exists() || !bodies.text.IsEmpty())
        return hr;
    return bodies.rtf.OpenBinary(message, PR_RTF_COMPRESSED);
}

HRESULT FormOfText(const ValueReader& text, BodyForm& form)
{
    TextSurvey survey;
    const HRESULT hr = text.Read([&](std::string_view piece) {
        survey.Put(piece);
        return true;
    });
    form = {"text/plain; charset=utf-8", survey.Best()};
    return hr;
}

BodyForm FormOfHtml(const std::string& charset)
{
    return {charset.empty() ? "text/html" : "text/html; charset=" + charset, TextEncoding::Base64};
}

HRESULT WriteBodyContent(const ValueReader& body, TextEncoding encoding, EmlWriter& out)
{
    TextWriter writer(out, encoding);
    const HRESULT hr = CopyValue(body, writer, out);
    writer.End();
    return hr;
}

HRESULT WriteRtf(const ValueReader& rtf, EmlWriter& out)
{
    bool expandable = false;
    HRESULT hr = rtf.Read([&](std::string_view beginning) {
        expandable = CanExpandRtf(beginning);
        return false;
    });
    std::string text;
    if (SUCCEEDED(hr) && expandable)
        hr = rtf.ReadAll(text);
    if (FAILED(hr))
        return hr;
    WriteAttachmentFields("application/rtf", "body.rtf", out);
    const auto expanded = expandable ? DecompressRtf(text) : std::nullopt;
    if (!expanded)
        return WriteBodyContent(rtf, TextEncoding::Base64, out);
    TextWriter writer(out, TextEncoding::Base64);
    writer.Write(*expanded);
    writer.End();
    return S_OK;
}

}  // namespace quorvane
