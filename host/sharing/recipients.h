// host/sharing/recipients.h: for whom the engine collects a package.
#ifndef QUORVANE_HOST_SHARING_RECIPIENTS_H_
#define QUORVANE_HOST_SHARING_RECIPIENTS_H_

#include <optional>
#include <string>
#include <string_view>

namespace quorvane::host {

// The recipients texts under which the engine collects packages: the entry identifier of a shared folder, for
// all its members; or one member, who is given items of it.
std::string MemberRecipients(const std::string& member, const std::string& folderId);

// That of a report of a folder for one device (comparisons.h); and the device, empty for any other text.
std::string ReportRecipients(const std::string& device);
std::string ParseReportRecipients(std::string_view recipients);

struct MemberTarget {
    std::string member;
    std::string folderId;
};
std::optional<MemberTarget> ParseMemberRecipients(std::string_view recipients);

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_SHARING_RECIPIENTS_H_
