#include "host/mime/import_attachments.h"

#include "host/mime/attachment_name.h"
#include "host/mime/mail_envelope.h"
#include "host/mime/mime_tags.h"
#include "host/mime/part_bytes.h"
#include "host/mime/property_list.h"
#include "host/mime/value_writer.h"
#include "quorvane3/com.h"

namespace quorvane {
namespace {

HRESULT WriteData(GMimeObject* object, IAttach& attachment)
{
    PartBytes source(object);
    ValueWriter value(attachment, PR_ATTACH_DATA_BIN);
    for (std::string piece; source.Next(piece);) {
        if (const HRESULT hr = value.Put(piece); FAILED(hr))
            return hr;
    }
    return value.End();
}

HRESULT WriteEmbedded(GMimeMessage* nested, const FillEmbedded& fill, IAttach& attachment)
{
    ComPtr<IMessage> message;
    HRESULT hr = attachment.OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IMessage, 0, MAPI_CREATE | MAPI_MODIFY,
                                         message.PutUnknown());
    if (FAILED(hr))
        return hr;
    hr = fill(nested, *message);
    return SUCCEEDED(hr) ? message->SaveChanges(0) : hr;
}

std::string ShownName(const MailPart& part, const std::string& name, GMimeMessage* nested)
{
    if (!name.empty())
        return name;
    if (nested)
        return ReadEnvelope(nested).subject.value_or("");
    if (!GMIME_IS_PART(part.object))
        return {};
    return CleanUtf8(TextOf(g_mime_part_get_content_description(GMIME_PART(part.object))));
}

void AddNames(const MailPart& part, GMimeMessage* nested, PropertyList& properties)
{
    const std::string name = PartName(part.object);
    const std::string shown = ShownName(part, name, nested);
    if (!shown.empty())
        properties.AddText(PR_DISPLAY_NAME_W, shown);
    if (name.empty())
        return;
    properties.AddText(PR_ATTACH_LONG_FILENAME_W, name);
    properties.AddText(PR_ATTACH_FILENAME_W, ShortName(name));
    if (const std::string extension = NameExtension(name); !extension.empty())
        properties.AddText(PR_ATTACH_EXTENSION_W, extension);
}

void AddType(GMimeObject* object, PropertyList& properties)
{
    GMimeContentType* const type = g_mime_object_get_content_type(object);
    if (!type)
        return;
    properties.AddText(PR_ATTACH_MIME_TAG_W, TextOf(GText(g_mime_content_type_get_mime_type(type))));
    const char* const charset = g_mime_content_type_get_parameter(type, "charset");
    if (charset && g_mime_content_type_is_type(type, "text", "*"))
        properties.AddText(kPrTextAttachmentCharsetW, charset);
}

void AddPlace(const MailPart& part, PropertyList& properties)
{
    const std::string id = TextOf(g_mime_object_get_content_id(part.object));
    std::string location;
    if (GMIME_IS_PART(part.object))
        location = TextOf(g_mime_part_get_content_location(GMIME_PART(part.object)));
    if (!id.empty())
        properties.AddText(kPrAttachContentIdW, id);
    if (!location.empty())
        properties.AddText(kPrAttachContentLocationW, location);
    if (part.related && (!id.empty() || !location.empty())) {
        properties.AddLong(kPrAttachFlags, static_cast<LONG>(kAttachFlagMhtmlRef));
        properties.AddBoolean(kPrAttachmentHidden, true);
    }
    properties.AddLong(PR_RENDERING_POSITION, kNotRendered);
}

}  // namespace

HRESULT AddAttachment(const MailPart& part, const FillEmbedded& fill, IMessage& message)
{
    GMimeMessage* nested = nullptr;
    if (GMIME_IS_MESSAGE_PART(part.object))
        nested = g_mime_message_part_get_message(GMIME_MESSAGE_PART(part.object));
    const bool embeds = nested && fill;

    ULONG number = 0;
    ComPtr<IAttach> attachment;
    HRESULT hr = message.CreateAttach(nullptr, 0, &number, attachment.Put());
    if (FAILED(hr))
        return hr;
    PropertyList properties;
    properties.AddLong(PR_ATTACH_METHOD, static_cast<LONG>(embeds ? ATTACH_EMBEDDED_MSG : ATTACH_BY_VALUE));
    AddNames(part, nested, properties);
    AddType(part.object, properties);
    AddPlace(part, properties);
    if (const std::string headers = HeaderBlock(part.object); !headers.empty())
        properties.AddText(kPrPartHeadersW, headers);
    hr = properties.SetOn(*attachment);
    if (SUCCEEDED(hr))
        hr = embeds ? WriteEmbedded(nested, fill, *attachment) : WriteData(part.object, *attachment);
    return SUCCEEDED(hr) ? attachment->SaveChanges(0) : hr;
}

}  // namespace quorvane
