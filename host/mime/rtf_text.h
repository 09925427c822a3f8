// host/mime/rtf_text.h: RTF as stores keep it (MS-OXRTFCP).
#ifndef QUORVANE_HOST_MIME_RTF_TEXT_H_
#define QUORVANE_HOST_MIME_RTF_TEXT_H_

#include <optional>
#include <string>
#include <string_view>

namespace quorvane {

// Expands the value of PR_RTF_COMPRESSED; nothing when it is damaged. At most 64 MB come out: a value that
// says more of itself is refused.
std::optional<std::string> DecompressRtf(std::string_view value);

// Whether a value that begins so may be expanded: false when it is refused whatever comes next.
[[nodiscard]] bool CanExpandRtf(std::string_view beginning);

}  // namespace quorvane

#endif  // QUORVANE_HOST_MIME_RTF_TEXT_H_
