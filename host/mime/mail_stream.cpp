#include "host/mime/mail_stream.h"

#include <algorithm>

namespace quorvane {
namespace {

// GMime makes substreams of a stream: each is an object of its own over the same bytes, with bounds.
struct MailStream {
    GMimeStream parent;
    const MailBytes* bytes;
};

struct MailStreamClass {
    GMimeStreamClass parent;
};

MailStream* Self(GMimeStream* stream)
{
    return reinterpret_cast<MailStream*>(stream);
}

gint64 EndOf(GMimeStream* stream)
{
    const auto size = static_cast<gint64>(Self(stream)->bytes->Size());
    return stream->bound_end == -1 ? size : std::min(size, stream->bound_end);
}

ssize_t ReadMail(GMimeStream* stream, char* buffer, size_t count)
{
    const gint64 left = EndOf(stream) - stream->position;
    if (left <= 0)
        return 0;
    const std::size_t wanted = std::min(count, static_cast<std::size_t>(left));
    const std::size_t got =
        Self(stream)->bytes->Read(static_cast<std::uint64_t>(stream->position), buffer, wanted);
    stream->position += static_cast<gint64>(got);
    return got == 0 && wanted > 0 ? -1 : static_cast<ssize_t>(got);
}

ssize_t RefuseWrite(GMimeStream*, const char*, size_t)
{
    return -1;
}

int DoNothing(GMimeStream*)
{
    return 0;
}

gboolean IsAtEnd(GMimeStream* stream)
{
    return stream->position >= EndOf(stream);
}

int GoToBegin(GMimeStream* stream)
{
    stream->position = stream->bound_start;
    return 0;
}

gint64 Seek(GMimeStream* stream, gint64 offset, GMimeSeekWhence whence)
{
    gint64 base = 0;
    if (whence == GMIME_STREAM_SEEK_CUR)
        base = stream->position;
    else if (whence == GMIME_STREAM_SEEK_END)
        base = EndOf(stream);
    const gint64 place = base + offset;
    if (place < stream->bound_start || place > EndOf(stream))
        return -1;
    stream->position = place;
    return place;
}

gint64 Tell(GMimeStream* stream)
{
    return stream->position;
}

gint64 Length(GMimeStream* stream)
{
    return EndOf(stream) - stream->bound_start;
}

GType MailStreamType();

GMimeStream* MakeStream(const MailBytes* bytes, gint64 begin, gint64 end)
{
    auto* const made = static_cast<GMimeStream*>(g_object_new(MailStreamType(), nullptr));
    Self(made)->bytes = bytes;
    g_mime_stream_construct(made, begin, end);
    return made;
}

GMimeStream* Substream(GMimeStream* stream, gint64 begin, gint64 end)
{
    return MakeStream(Self(stream)->bytes, begin, end);
}

void FillClass(gpointer type, gpointer)
{
    auto* const stream = static_cast<GMimeStreamClass*>(type);
    stream->read = ReadMail;
    stream->write = RefuseWrite;
    stream->flush = DoNothing;
    stream->close = DoNothing;
    stream->eos = IsAtEnd;
    stream->reset = GoToBegin;
    stream->seek = Seek;
    stream->tell = Tell;
    stream->length = Length;
    stream->substream = Substream;
}

GType MailStreamType()
{
    static const GType type =
        g_type_register_static_simple(GMIME_TYPE_STREAM, "QuorvaneMailStream", sizeof(MailStreamClass),
                                      FillClass, sizeof(MailStream), nullptr, static_cast<GTypeFlags>(0));
    return type;
}

}  // namespace

GObjectPtr<GMimeStream> StreamOf(const MailBytes& bytes)
{
    if (bytes.IsInMemory())
        return GObjectPtr<GMimeStream>::Attach(
            g_mime_stream_mem_new_with_buffer(bytes.Memory().data(), bytes.Memory().size()));
    return GObjectPtr<GMimeStream>::Attach(MakeStream(&bytes, 0, -1));
}

}  // namespace quorvane
