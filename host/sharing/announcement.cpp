#include "host/sharing/announcement.h"

#include "host/base/output.h"
#include "host/exchange/keys.h"
#include "host/mailbox/item_text.h"
#include "host/mailbox/mailbox.h"

namespace quorvane::host {

namespace {

constexpr std::string_view kToPrefix = "to:";
constexpr std::string_view kReportPrefix = "report:";
constexpr std::size_t kLongestFolderName = 1000;
constexpr std::size_t kMostMembers = 10'000;
constexpr std::size_t kMostDevicesOfOne = 100;

bool IsFolderName(const std::string& name)
{
    return !name.empty() && name.size() <= kLongestFolderName && Printable(name) == name &&
           name.find_first_not_of('/') != std::string::npos;
}

// False when it isn't devices by members' names.
bool ReadDevices(const Json& json, std::map<std::string, std::vector<std::string>>& devices)
{
    if (!json.is_object() || json.size() > kMostMembers)
        return false;
    for (const auto& [member, ids] : json.items()) {
        if (!IsMemberName(member) || !ids.is_array() || ids.size() > kMostDevicesOfOne)
            return false;
        for (const Json& id : ids) {
            if (!id.is_string() || !exchange::ParseDeviceId(id.get_ref<const std::string&>()))
                return false;
            devices[member].push_back(id.get<std::string>());
        }
    }
    return true;
}

}  // namespace

std::string FormatAnnouncement(const Announcement& announcement)
{
    return Json{{"name", announcement.name},
                {"from", announcement.from},
                {"members", announcement.members},
                {"devices", announcement.devices}}
        .dump();
}

std::optional<Announcement> ParseAnnouncement(std::string_view text)
{
    const Json json = ParseObject(text);
    if (json.is_discarded())
        return std::nullopt;
    const auto name = TextField(json, "name");
    const auto from = TextField(json, "from");
    const auto members = json.find("members");
    if (!name || !IsFolderName(*name) || !from || !IsMemberName(*from) || members == json.end() ||
        !members->is_array() || members->size() > kMostMembers)
        return std::nullopt;
    Announcement result{*name, *from, {}, {}};
    const auto devices = json.find("devices");
    if (devices != json.end() && !ReadDevices(*devices, result.devices))
        return std::nullopt;
    for (const Json& member : *members) {
        if (!member.is_string() || !IsMemberName(member.get_ref<const std::string&>()))
            return std::nullopt;
        result.members.push_back(member.get<std::string>());
    }
    return result;
}

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
    return recipients.starts_with(kReportPrefix) ? std::string(recipients.substr(kReportPrefix.size())) : std::string();
}

std::optional<MemberTarget> ParseMemberRecipients(std::string_view recipients)
{
    if (!recipients.starts_with(kToPrefix))
        return std::nullopt;
    recipients.remove_prefix(kToPrefix.size());
    const std::size_t colon = recipients.find(':');
    if (colon == std::string_view::npos || !IsMemberName(recipients.substr(0, colon)))
        return std::nullopt;
    return MemberTarget{std::string(recipients.substr(0, colon)),
                              std::string(recipients.substr(colon + 1))};
}

}  // namespace quorvane::host
