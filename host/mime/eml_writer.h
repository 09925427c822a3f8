// host/mime/eml_writer.h: the lines and encoded bytes of an .eml file.
#ifndef QUORVANE_HOST_MIME_EML_WRITER_H_
#define QUORVANE_HOST_MIME_EML_WRITER_H_

#include <array>
#include <ostream>
#include <string>
#include <string_view>

namespace quorvane {

class EmlWriter {
public:
    explicit EmlWriter(std::ostream& out) : out_(out) {}

    // Writes text and CRLF; `text` may hold folded lines with CRLF between them.
    void Line(std::string_view text);
    // Writes bytes as they are.
    void Raw(std::string_view bytes);
    // A field of the header block, folded already.
    void Field(std::string_view name, std::string_view value);

    // A boundary that no encoded content of this file can hold; another one at each call.
    std::string NewBoundary();

    // Whether the stream took everything so far.
    [[nodiscard]] bool Works() const { return static_cast<bool>(out_); }

private:
    std::ostream& out_;
    int boundaries_ = 0;
};

// Writes what it is fed in base64, 76 characters a line. End writes the rest; the last line has no line end.
class Base64Writer {
public:
    explicit Base64Writer(EmlWriter& out) : out_(out) {}
    void Write(std::string_view bytes);
    void End();

private:
    void WriteLine(std::string_view bytes);

    static constexpr std::size_t kBytesALine = 57;
    EmlWriter& out_;
    std::string held_;
    bool begun_ = false;
};

enum class TextEncoding { SevenBit, QuotedPrintable, Base64 };

// How a text with CRLF line ends is written best: as it is when it's short lines of ASCII, in base64 when
// it holds lone CRs or LFs or little ASCII.
TextEncoding BestTextEncoding(std::string_view text);

// The name of the encoding in Content-Transfer-Encoding.
const char* EncodingName(TextEncoding encoding) noexcept;

// Writes a whole text in the encoding that BestTextEncoding gave for it.
void WriteText(EmlWriter& out, std::string_view text, TextEncoding encoding);

}  // namespace quorvane

#endif  // QUORVANE_HOST_MIME_EML_WRITER_H_
