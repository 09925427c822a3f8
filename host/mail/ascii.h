// host/mail/ascii.h: the names of mail's own grammar, whose case means nothing: ASCII letters alone.
#ifndef QUORVANE_HOST_MAIL_ASCII_H_
#define QUORVANE_HOST_MAIL_ASCII_H_

#include <string>
#include <string_view>

namespace quorvane {

std::string LowerAscii(std::string_view text);
std::string UpperAscii(std::string_view text);
[[nodiscard]] bool EqualNoCase(std::string_view a, std::string_view b) noexcept;

}  // namespace quorvane

#endif  // QUORVANE_HOST_MAIL_ASCII_H_
