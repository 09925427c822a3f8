// host/report/page.h: what is known of a mailbox, as one page.
#ifndef QUORVANE_HOST_REPORT_PAGE_H_
#define QUORVANE_HOST_REPORT_PAGE_H_

#include <string>
#include <string_view>

#include "host/base/output.h"

namespace quorvane::host {

// An HTML document that needs nothing else: no script, no network (its own policy forbids both), in light and
// dark, for any width. It is well-formed XML as well.
//
// report: what `quorvane report --json` prints (packaging/schemas/report.json). Its texts may be anybody's.
std::string PageOf(const Json& report);

// Whether a file that begins so was made by PageOf.
bool IsPage(std::string_view beginning);

// So many bytes of a file tell it.
inline constexpr std::size_t kTellingBytes = 512;

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_REPORT_PAGE_H_
