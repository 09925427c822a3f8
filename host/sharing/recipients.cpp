#include "host/sharing/recipients.h"

#include "host/exchange/member_name.h"

namespace quorvane::host {

namespace {

constexpr std::string_view kToPrefix = "to:";
constexpr std::string_view kReportPrefix = "report:";

}  // namespace

std::string MemberRecipients(const std::string& member, const std::string& folderId)
{
    return std::string(kToPrefix) + member + ":" + folderId;
}

std::string ReportRecipients(const std::string& device)
{
    return std::string(kReportPrefix) + device;
}

std::string ParseReportRecipients(std::string_view recipients)
{
    return recipients.starts_with(kReportPrefix) ? std::string(recipients.substr(kReportPrefix.size()))
                                                 : std::string();
}

std::optional<MemberTarget> ParseMemberRecipients(std::string_view recipients)
{
    if (!recipients.starts_with(kToPrefix))
        return std::nullopt;
    recipients.remove_prefix(kToPrefix.size());
    const std::size_t colon = recipients.find(':');
    if (colon == std::string_view::npos || !IsMemberName(recipients.substr(0, colon)))
        return std::nullopt;
    return MemberTarget{std::string(recipients.substr(0, colon)), std::string(recipients.substr(colon + 1))};
}

}  // namespace quorvane::host
