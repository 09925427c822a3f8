#include "host/mime/part_bytes.h"

namespace quorvane {
namespace {

GObjectPtr<GMimeStream> WrittenMail(GMimeMessage* message)
{
    auto memory = GObjectPtr<GMimeStream>::Attach(g_mime_stream_mem_new());
    if (message)
        g_mime_object_write_to_stream(GMIME_OBJECT(message), nullptr, memory.Get());
    g_mime_stream_reset(memory.Get());
    return memory;
}

}  // namespace

PartBytes::PartBytes(GMimeObject* object)
{
    if (GMIME_IS_MESSAGE_PART(object)) {
        stream_ = WrittenMail(g_mime_message_part_get_message(GMIME_MESSAGE_PART(object)));
        return;
    }
    GMimeDataWrapper* const content = g_mime_part_get_content(GMIME_PART(object));
    GMimeStream* const raw = content ? g_mime_data_wrapper_get_stream(content) : nullptr;
    if (!raw)
        return;
    g_mime_stream_reset(raw);
    stream_ = GObjectPtr<GMimeStream>::Attach(g_mime_stream_filter_new(raw));
    const auto decoder = GObjectPtr<GMimeFilter>::Attach(
        g_mime_filter_basic_new(g_mime_data_wrapper_get_encoding(content), FALSE));
    g_mime_stream_filter_add(GMIME_STREAM_FILTER(stream_.Get()), decoder.Get());
}

bool PartBytes::Next(std::string& piece)
{
    piece.resize(kPiece);
    std::size_t got = 0;
    while (stream_ && got < piece.size()) {
        const ssize_t count = g_mime_stream_read(stream_.Get(), piece.data() + got, piece.size() - got);
        if (count <= 0)
            break;
        got += static_cast<std::size_t>(count);
    }
    piece.resize(got);
    return got > 0;
}

}  // namespace quorvane
