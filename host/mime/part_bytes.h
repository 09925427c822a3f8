// host/mime/part_bytes.h: the content of a mail's part, piece by piece.
#ifndef QUORVANE_HOST_MIME_PART_BYTES_H_
#define QUORVANE_HOST_MIME_PART_BYTES_H_

#include <string>
#include <string_view>

#include "host/mime/gmime_ptr.h"

namespace quorvane {

// The bytes of a part, its transfer encoding undone, or the whole of a nested mail. Refers to the mail, which
// must outlive it. One thread at a time.
class PartBytes {
public:
    static constexpr std::size_t kPiece = std::size_t{16} << 10;

    // object  a GMimePart, with content or without, or a GMimeMessagePart.
    explicit PartBytes(GMimeObject* object);

    // Fills `piece` to kPiece bytes; with less, or none, only at the end. False: it stays empty.
    bool Next(std::string& piece);

private:
    GObjectPtr<GMimeStream> stream_;
};

}  // namespace quorvane

#endif  // QUORVANE_HOST_MIME_PART_BYTES_H_
