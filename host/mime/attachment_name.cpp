#include "host/mime/attachment_name.h"

#include <algorithm>

#include "host/mail/ascii.h"
#include "quorvane3/com.h"

namespace quorvane {
namespace {

std::string Plain(const std::string& text, std::size_t most)
{
    std::string plain;
    std::copy_if(text.begin(), text.end(), std::back_inserter(plain), [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
               c == '_';
    });
    return plain.substr(0, most);
}

}  // namespace

std::string PartName(GMimeObject* part)
{
    if (GMIME_IS_PART(part))
        return CleanUtf8(TextOf(g_mime_part_get_filename(GMIME_PART(part))));
    std::string name = TextOf(g_mime_object_get_content_disposition_parameter(part, "filename"));
    if (name.empty())
        name = TextOf(g_mime_object_get_content_type_parameter(part, "name"));
    return CleanUtf8(name);
}

std::string NameExtension(const std::string& name)
{
    const std::size_t dot = name.find_last_of("./\\");
    if (dot == std::string::npos || name[dot] != '.' || dot + 1 == name.size())
        return {};
    return name.substr(dot);
}

std::string ShortName(const std::string& name)
{
    if (name.empty())
        return {};
    const std::string extension = NameExtension(name);
    std::string stem = name.substr(0, name.size() - extension.size());
    stem = stem.substr(stem.find_last_of("/\\") + 1);  // npos + 1 is 0
    std::string shortStem = Plain(stem, 8);
    if (shortStem.empty())
        shortStem = "FILE";
    else if (shortStem.size() < stem.size())
        shortStem = shortStem.substr(0, 6) + "~1";
    const std::string shortExtension = Plain(extension, 3);
    return UpperAscii(shortExtension.empty() ? shortStem : shortStem + "." + shortExtension);
}

}  // namespace quorvane
