// host/mime/eml_writer.h: the lines and encoded bytes of an .eml file.
#ifndef QUORVANE_HOST_MIME_EML_WRITER_H_
#define QUORVANE_HOST_MIME_EML_WRITER_H_

#include <cstdint>
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

// Finds how a text with CRLF line ends is written best: as it is when it's short lines of ASCII, in base64
// when it holds lone CRs or LFs or little ASCII. The text comes in pieces, cut anywhere.
class TextSurvey {
public:
    void Put(std::string_view piece) noexcept;
    [[nodiscard]] TextEncoding Best() const noexcept;

private:
    void PutOne(char c) noexcept;

    std::uint64_t size_ = 0;
    std::uint64_t foreign_ = 0;  // characters that aren't plain ASCII
    std::size_t lineLength_ = 0;
    std::size_t like_ = 0;  // how much of "From " the line begins with
    bool afterCr_ = false;
    bool loneLineEnd_ = false;
    bool plain_ = true;
};

// The name of the encoding in Content-Transfer-Encoding.
const char* EncodingName(TextEncoding encoding) noexcept;

// Writes a text in the encoding that its TextSurvey gave. It comes in pieces, cut anywhere; End writes the
// rest.
class TextWriter {
public:
    TextWriter(EmlWriter& out, TextEncoding encoding) : out_(out), encoding_(encoding), base64_(out) {}
    void Write(std::string_view piece);
    void End();

private:
    void Quote(char c);
    void QuoteHeld(bool last);

    EmlWriter& out_;
    TextEncoding encoding_;
    Base64Writer base64_;
    // Of quoted-printable:
    std::string line_;
    bool holds_ = false;  // a character whose form depends on whether it is its line's last
    char held_ = '\0';
};

}  // namespace quorvane

#endif  // QUORVANE_HOST_MIME_EML_WRITER_H_
