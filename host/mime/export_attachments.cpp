#include "host/mime/export_attachments.h"

#include <array>

#include "host/mime/mapi_read.h"
#include "host/mime/mime_tags.h"
#include "host/mime/part_fields.h"

namespace quorvane {
namespace {

constexpr const char* kNestedType = "message/rfc822";

PartFacts ReadFacts(IAttach& attachment, bool related, ULONG codePage)
{
    PartFacts facts;
    facts.type = ShortText(attachment, PR_ATTACH_MIME_TAG_W, codePage);
    facts.charset = ShortText(attachment, kPrTextAttachmentCharsetW, codePage);
    facts.name = ShortText(attachment, PR_ATTACH_LONG_FILENAME_W, codePage);
    if (facts.name.empty())
        facts.name = ShortText(attachment, PR_ATTACH_FILENAME_W, codePage);
    facts.id = ShortText(attachment, kPrAttachContentIdW, codePage);
    facts.location = ShortText(attachment, kPrAttachContentLocationW, codePage);
    facts.related = related;
    return facts;
}

void WriteFields(const std::vector<HeaderField>& fields, const char* encoding, EmlWriter& out)
{
    for (const HeaderField& field : fields)
        out.Field(field.name, field.value);
    if (encoding)
        out.Field("Content-Transfer-Encoding", encoding);
    out.Line("");
}

HRESULT StreamBase64(IStream& stream, EmlWriter& out)
{
    Base64Writer base64(out);
    std::array<char, 65536> piece;
    HRESULT hr = S_OK;
    for (ULONG got = 1; got > 0;) {
        got = 0;
        hr = stream.Read(piece.data(), static_cast<ULONG>(piece.size()), &got);
        if (FAILED(hr))
            return hr;
        base64.Write({piece.data(), got});
        if (!out.Works())
            return STG_E_MEDIUMFULL;
    }
    base64.End();
    return S_OK;
}

// The data of an attachment as a stream; an OLE object's may hang on either tag.
HRESULT OpenData(IAttach& attachment, ULONG method, ComPtr<IStream>& stream)
{
    const HRESULT hr =
        attachment.OpenProperty(PR_ATTACH_DATA_BIN, &IID_IStream, STGM_READ, 0, stream.PutUnknown());
    if (SUCCEEDED(hr) || method != ATTACH_OLE)
        return hr;
    return attachment.OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IStream, STGM_READ, 0, stream.PutUnknown());
}

HRESULT WriteData(IAttach& attachment, ULONG method, const std::string& headers, const PartFacts& facts,
                  EmlWriter& out)
{
    ComPtr<IStream> stream;
    const HRESULT hr = OpenData(attachment, method, stream);
    if (FAILED(hr) && hr != MAPI_E_NOT_FOUND)
        return hr;
    WriteFields(PartFields(headers, facts), "base64", out);
    // An attachment without data is an empty one.
    return stream ? StreamBase64(*stream, out) : S_OK;
}

// What lies elsewhere is named, not copied.
void WriteReference(const std::string& path, const PartFacts& facts, EmlWriter& out)
{
    std::string quoted;
    for (const char c : OneLine(path)) {
        if (c == '"' || c == '\\')
            quoted.push_back('\\');
        quoted.push_back(c);
    }
    out.Field("Content-Type", "message/external-body; access-type=local-file;\r\n name=\"" + quoted + "\"");
    out.Field("Content-Disposition", "attachment");
    out.Line("");
    out.Line("Content-Type: application/octet-stream");
    if (!facts.name.empty())
        out.Field("Content-Description", UnstructuredValue(facts.name));
}

HRESULT WriteEmbedded(IAttach& attachment, const std::string& headers, PartFacts facts,
                      const WriteNested& nested, EmlWriter& out)
{
    ComPtr<IMessage> message;
    const HRESULT hr = attachment.OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IMessage, 0, 0, message.PutUnknown());
    if (FAILED(hr))
        return hr;
    facts.type = kNestedType;
    WriteFields(PartFields(headers, facts), nullptr, out);
    return nested(*message);
}

bool RowIsRelated(const SRow& row)
{
    const SPropValue* const flags = FindValue(row, kPrAttachFlags);
    const SPropValue* const hidden = FindValue(row, kPrAttachmentHidden);
    const bool marked = (flags && (static_cast<ULONG>(flags->Value.l) & kAttachFlagMhtmlRef) != 0) ||
                        (hidden && hidden->Value.b != 0);
    return marked && (FindValue(row, kPrAttachContentIdW) || FindValue(row, kPrAttachContentLocationW) ||
                      FindValue(row, CHANGE_PROP_TYPE(kPrAttachContentIdW, PT_STRING8)) ||
                      FindValue(row, CHANGE_PROP_TYPE(kPrAttachContentLocationW, PT_STRING8)));
}

}  // namespace

HRESULT ListAttachments(IMessage& message, std::vector<AttachmentEntry>& entries)
{
    ComPtr<IMAPITable> table;
    const HRESULT hr = message.GetAttachmentTable(MAPI_UNICODE, table.Put());
    if (FAILED(hr))
        return hr;
    SizedSPropTagArray(7, columns) = {
        7,
        {PR_ATTACH_NUM, kPrAttachFlags, kPrAttachmentHidden, kPrAttachContentIdW, kPrAttachContentLocationW,
         CHANGE_PROP_TYPE(kPrAttachContentIdW, PT_STRING8),
         CHANGE_PROP_TYPE(kPrAttachContentLocationW, PT_STRING8)}};
    return ForEachRow(*table, reinterpret_cast<SPropTagArray*>(&columns), [&](const SRow& row) {
        const SPropValue* const number = FindValue(row, PR_ATTACH_NUM);
        if (!number)
            return MAPI_E_CORRUPT_DATA;
        entries.push_back({static_cast<ULONG>(number->Value.l), RowIsRelated(row)});
        return static_cast<HRESULT>(S_OK);
    });
}

HRESULT WriteAttachment(IMessage& message, const AttachmentEntry& entry, ULONG codePage,
                        const WriteNested& nested, EmlWriter& out)
{
    ComPtr<IAttach> attachment;
    const HRESULT hr = message.OpenAttach(entry.number, nullptr, 0, attachment.Put());
    if (FAILED(hr))
        return hr;
    const PartFacts facts = ReadFacts(*attachment, entry.related, codePage);
    const std::string headers = ShortText(*attachment, kPrPartHeadersW, codePage);
    const auto method = static_cast<ULONG>(
        ReadLong(*attachment, PR_ATTACH_METHOD).value_or(static_cast<LONG>(ATTACH_BY_VALUE)));
    switch (method) {
        case ATTACH_EMBEDDED_MSG:
            return WriteEmbedded(*attachment, headers, facts, nested, out);
        case ATTACH_BY_REFERENCE:
        case ATTACH_BY_REF_RESOLVE:
        case ATTACH_BY_REF_ONLY:
        case kAttachByWebReference: {
            std::string path = ShortText(*attachment, PR_ATTACH_LONG_PATHNAME_W, codePage);
            if (path.empty())
                path = ShortText(*attachment, PR_ATTACH_PATHNAME_W, codePage);
            WriteReference(path, facts, out);
            return S_OK;
        }
        default:
            return WriteData(*attachment, method, headers, facts, out);
    }
}

void WriteAttachmentFields(const std::string& type, const std::string& name, EmlWriter& out)
{
    PartFacts facts;
    facts.type = type;
    facts.name = name;
    WriteFields(PartFields({}, facts), "base64", out);
}

}  // namespace quorvane
