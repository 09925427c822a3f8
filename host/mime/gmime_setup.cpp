#include "host/mime/gmime_setup.h"

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

GObjectPtr<GMimeMessage> ParseMime(std::string_view bytes)
{
    GMimeParserOptions* const options = MimeOptions();
    const auto stream =
        GObjectPtr<GMimeStream>::Attach(g_mime_stream_mem_new_with_buffer(bytes.data(), bytes.size()));
    const auto parser = GObjectPtr<GMimeParser>::Attach(g_mime_parser_new_with_stream(stream.Get()));
    // Parts refer to the stream's bytes instead of copying them.
    g_mime_parser_set_persist_stream(parser.Get(), TRUE);
    return GObjectPtr<GMimeMessage>::Attach(g_mime_parser_construct_message(parser.Get(), options));
}

std::string DecodedContent(GMimePart* part)
{
    GMimeDataWrapper* const content = g_mime_part_get_content(part);
    if (!content)
        return {};
    const auto memory = GObjectPtr<GMimeStream>::Attach(g_mime_stream_mem_new());
    g_mime_data_wrapper_write_to_stream(content, memory.Get());
    const GByteArray* const bytes = g_mime_stream_mem_get_byte_array(GMIME_STREAM_MEM(memory.Get()));
    if (!bytes || !bytes->data)
        return {};
    return {reinterpret_cast<const char*>(bytes->data), bytes->len};
}

std::string DecodedHeader(const char* value)
{
    if (!value)
        return {};
    const GText unfolded(g_mime_utils_header_unfold(value));
    return TextOf(GText(g_mime_utils_header_decode_text(MimeOptions(), unfolded.get())));
}

}  // namespace quorvane
