// host/mime/header_fields.h: a header block as a list of fields, and new fields of a mail.
#ifndef QUORVANE_HOST_MIME_HEADER_FIELDS_H_
#define QUORVANE_HOST_MIME_HEADER_FIELDS_H_

#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "host/mime/eml_writer.h"
#include "host/mime/mail_envelope.h"

namespace quorvane {

struct HeaderField {
    std::string name;
    std::string value;  // folded as it came, CRLF between its lines, without the last one
};

// Lines that belong to no field are left away.
std::vector<HeaderField> SplitHeaderBlock(std::string_view block);

[[nodiscard]] bool IsOneOf(std::string_view name, std::initializer_list<std::string_view> names);
[[nodiscard]] bool HasField(const std::vector<HeaderField>& fields, std::string_view name);
void RemoveFields(std::vector<HeaderField>& fields, std::initializer_list<std::string_view> names);

// Values of new fields: encoded, folded, free of line ends and control characters from the outside.
std::string UnstructuredValue(const std::string& text);
std::string AddressListValue(const std::vector<MailAddress>& people);
std::string IdentifierValue(const std::string& text);
std::string DateValue(const FILETIME& time);

// Text with each control character as a space.
std::string OneLine(std::string_view text);

}  // namespace quorvane

#endif  // QUORVANE_HOST_MIME_HEADER_FIELDS_H_
