// host/mime/export_bodies.h: the bodies of a message as parts of a mail.
#ifndef QUORVANE_HOST_MIME_EXPORT_BODIES_H_
#define QUORVANE_HOST_MIME_EXPORT_BODIES_H_

#include <string>

#include "host/mime/eml_writer.h"
#include "host/mime/value_reader.h"
#include "quorvane3/mapi.h"

namespace quorvane {

// What a message has as bodies; each is read when it is written. The message is to outlive it.
struct Bodies {
    ValueReader text;
    ValueReader html;
    std::string htmlCharset;  // empty: the HTML names it itself, or nobody does
    ValueReader rtf;          // compressed; only where there is no other body

    [[nodiscard]] bool Any() const { return text.Exists() || html.Exists(); }
};

// codePage: of 8-bit texts. The codes are the message's.
[[nodiscard]] HRESULT FindBodies(IMessage& message, ULONG codePage, Bodies& bodies);

// What the fields of a part say of its body.
struct BodyForm {
    std::string type;  // the value of Content-Type
    TextEncoding encoding = TextEncoding::SevenBit;
};

// Reads the text once, to find the encoding that suits it.
[[nodiscard]] HRESULT FormOfText(const ValueReader& text, BodyForm& form);
// In base64: HTML is kept to the byte, line ends included.
[[nodiscard]] BodyForm FormOfHtml(const std::string& charset);

// Writes a body's content, encoded. STG_E_MEDIUMFULL when `out` refuses bytes; the message's codes.
[[nodiscard]] HRESULT WriteBodyContent(const ValueReader& body, TextEncoding encoding, EmlWriter& out);

// Writes the whole part of a compressed RTF: the text, where it can be had; else the value as it is.
[[nodiscard]] HRESULT WriteRtf(const ValueReader& rtf, EmlWriter& out);

}  // namespace quorvane

#endif  // QUORVANE_HOST_MIME_EXPORT_BODIES_H_
