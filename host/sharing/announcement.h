// host/sharing/announcement.h: the texts that the program sends along with folders.
//
// A folder's CustomInfo is a free text of the host (an item's: item_text.h). The program writes one JSON value
// into it:
//
//     {"name": "Projects/2026", "from": "alice", "members": ["alice", "bob", "carol"],
//      "devices": {"bob": ["0123456789abcdef0123456789abcdef"]}}
#ifndef QUORVANE_HOST_SHARING_ANNOUNCEMENT_H_
#define QUORVANE_HOST_SHARING_ANNOUNCEMENT_H_

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/mailbox/records.h"

namespace quorvane::host {

struct Announcement {
    std::string name;  // the folder's path at the sender
    std::string from;
    std::vector<std::string> members;  // all of them, the sender included
    std::map<std::string, std::vector<std::string>> devices;  // of other members, as far as the sender knows them
};

std::string FormatAnnouncement(const Announcement& announcement);
// Nothing when the text isn't one: no member name that is no such name, no empty folder name.
std::optional<Announcement> ParseAnnouncement(std::string_view text);

// The recipients texts under which the engine collects packages: the entry identifier of a shared folder, for
// all its members; or one member, who is told of a folder or given items of it.
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

#endif  // QUORVANE_HOST_SHARING_ANNOUNCEMENT_H_
