#include "host/mime/gmime_setup.h"

#include "host/mime/mail_stream.h"

namespace quorvane {
namespace {

GMimeParserOptions* StartGMime()
{
    g_mime_init();
    GMimeParserOptions* const options = g_mime_parser_options_new();
    g_mime_parser_options_set_address_compliance_mode(options, GMIME_RFC_COMPLIANCE_LOOSE);
    g_mime_parser_options_set_allow_addresses_without_domain(options, TRUE);
    g_mime_parser_options_set_parameter_compliance_mode(options, GMIME_RFC_COMPLIANCE_LOOSE);
    g_mime_parser_options_set_rfc2047_compliance_mode(options, GMIME_RFC_COMPLIANCE_LOOSE);
    const char* fallbacks[] = {"utf-8", "windows-1252", "iso-8859-1", nullptr};
    g_mime_parser_options_set_fallback_charsets(options, fallbacks);
    return options;
}

}  // namespace

GMimeParserOptions* MimeOptions()
{
    static GMimeParserOptions* const options = StartGMime();
    return options;
}

GObjectPtr<GMimeMessage> ParseMime(const MailBytes& bytes)
{
    GMimeParserOptions* const options = MimeOptions();
    const auto stream = StreamOf(bytes);
    const auto parser = GObjectPtr<GMimeParser>::Attach(g_mime_parser_new_with_stream(stream.Get()));
    // Parts refer to the stream's bytes instead of copying them.
    g_mime_parser_set_persist_stream(parser.Get(), TRUE);
    return GObjectPtr<GMimeMessage>::Attach(g_mime_parser_construct_message(parser.Get(), options));
}

bool IsType(GMimeObject* object, const char* type, const char* subtype)
{
    GMimeContentType* const its = g_mime_object_get_content_type(object);
    return its && g_mime_content_type_is_type(its, type, subtype);
}

std::string TypeOf(GMimeObject* object)
{
    GMimeContentType* const its = g_mime_object_get_content_type(object);
    return its ? TextOf(GText(g_mime_content_type_get_mime_type(its))) : std::string();
}

std::string DecodedHeader(const char* value)
{
    if (!value)
        return {};
    const GText unfolded(g_mime_utils_header_unfold(value));
    return TextOf(GText(g_mime_utils_header_decode_text(MimeOptions(), unfolded.get())));
}

}  // namespace quorvane
