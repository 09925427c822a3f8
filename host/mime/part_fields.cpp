#include "host/mime/part_fields.h"

#include "host/mail/ascii.h"
#include "host/mime/attachment_name.h"
#include "host/mime/gmime_setup.h"

namespace quorvane {
namespace {

// The part that a header block describes, without content.
GObjectPtr<GMimeObject> DescribedPart(const std::string& block)
{
    const std::string bytes = block + "\r\n";
    const auto stream =
        GObjectPtr<GMimeStream>::Attach(g_mime_stream_mem_new_with_buffer(bytes.data(), bytes.size()));
    GMimeParserOptions* const options = MimeOptions();
    const auto parser = GObjectPtr<GMimeParser>::Attach(g_mime_parser_new_with_stream(stream.Get()));
    return GObjectPtr<GMimeObject>::Attach(g_mime_parser_construct_part(parser.Get(), options));
}

bool Agrees(const std::string& block, const PartFacts& facts)
{
    if (block.empty())
        return false;
    const auto part = DescribedPart(block);
    return part && (GMIME_IS_PART(part.Get()) || GMIME_IS_MESSAGE_PART(part.Get())) &&
           EqualNoCase(TypeOf(part.Get()), facts.type) && PartName(part.Get()) == facts.name &&
           TextOf(g_mime_object_get_content_id(part.Get())) == facts.id;
}

// A field's value as GMime writes it, without the blanks around it.
std::string ValueOf(const GText& encoded)
{
    const std::string text = OneLine(TextOf(encoded));
    const std::size_t begin = text.find_first_not_of(' ');
    return begin == std::string::npos ? "" : text.substr(begin, text.find_last_not_of(' ') + 1 - begin);
}

std::string TypeValue(const PartFacts& facts)
{
    const std::size_t slash = facts.type.find('/');
    const bool usable = slash != std::string::npos && slash > 0 && slash + 1 < facts.type.size() &&
                        !facts.type.starts_with("multipart/");
    const std::string type = usable ? OneLine(facts.type) : "application/octet-stream";
    const auto content =
        GObjectPtr<GMimeContentType>::Attach(g_mime_content_type_parse(MimeOptions(), type.c_str()));
    if (!facts.charset.empty())
        g_mime_content_type_set_parameter(content.Get(), "charset", OneLine(facts.charset).c_str());
    if (!facts.name.empty())
        g_mime_content_type_set_parameter(content.Get(), "name", OneLine(facts.name).c_str());
    return ValueOf(GText(g_mime_content_type_encode(content.Get(), nullptr)));
}

std::string DispositionValue(const PartFacts& facts)
{
    MimeOptions();
    const auto disposition = GObjectPtr<GMimeContentDisposition>::Attach(g_mime_content_disposition_new());
    g_mime_content_disposition_set_disposition(disposition.Get(), facts.related ? "inline" : "attachment");
    if (!facts.name.empty())
        g_mime_content_disposition_set_parameter(disposition.Get(), "filename", OneLine(facts.name).c_str());
    return ValueOf(GText(g_mime_content_disposition_encode(disposition.Get(), nullptr)));
}

bool IsMarkedAttachment(const std::vector<HeaderField>& fields)
{
    for (const HeaderField& field : fields) {
        if (EqualNoCase(field.name, "Content-Disposition"))
            return LowerAscii(field.value).starts_with("attachment");
    }
    return false;
}

}  // namespace

std::vector<HeaderField> PartFields(const std::string& block, const PartFacts& facts)
{
    std::vector<HeaderField> fields = SplitHeaderBlock(block);
    RemoveFields(fields, {"Content-Transfer-Encoding", "Content-Length", "Content-MD5"});
    if (Agrees(block, facts)) {
        // A nameless text would be taken for a body.
        const bool isText = LowerAscii(facts.type).starts_with("text/");
        if (isText && facts.name.empty() && !facts.related && !IsMarkedAttachment(fields)) {
            RemoveFields(fields, {"Content-Disposition"});
            fields.push_back({"Content-Disposition", "attachment"});
        }
        return fields;
    }
    RemoveFields(fields, {"Content-Type", "Content-Disposition", "Content-ID", "Content-Location"});
    fields.insert(fields.begin(), {"Content-Type", TypeValue(facts)});
    fields.push_back({"Content-Disposition", DispositionValue(facts)});
    if (!facts.id.empty())
        fields.push_back({"Content-ID", "<" + OneLine(facts.id) + ">"});
    if (!facts.location.empty())
        fields.push_back({"Content-Location", OneLine(facts.location)});
    return fields;
}

}  // namespace quorvane
