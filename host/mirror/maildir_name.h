// host/mirror/maildir_name.h: the name of a file in a Maildir: what tells it from others, and what was made
// of the mail.
#ifndef QUORVANE_HOST_MIRROR_MAILDIR_NAME_H_
#define QUORVANE_HOST_MIRROR_MAILDIR_NAME_H_

#include <string>
#include <string_view>

#include "host/store/item_marks.h"

namespace quorvane::host {

// "1763876543.M1P2.host,U=7:2,FS": the unique name, with all that programs have put into it, and the info
// part.
struct MaildirName {
    std::string base;      // up to ":2,"
    std::string info;      // behind it; empty too where there is no ":2,"
    bool hasInfo = false;  // there is a ":2,"

    explicit MaildirName(std::string_view name);
    std::string Text() const { return hasInfo ? base + ":2," + info : base; }
};

// The marks that the letters of an info part tell: S read, F flagged, R answered, P passed on, D a draft,
// T to be deleted. Keywords (a to z) and what stands behind the letters tell none.
Marks MarksOfInfo(std::string_view info) noexcept;

// An info part with the letters of `marks`, in the order that Maildirs ask for; what else stands in it is
// kept.
std::string InfoWith(std::string_view info, Marks marks);

// A unique name in a folder that a file is moved to: without the ",U=" and number by which a program knows it
// in the folder that it comes from.
std::string BaseElsewhere(std::string_view base);

// A name that no other file has: "1763876543.R0123456789abcdef.quorvane".
std::string NewBase();

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_MIRROR_MAILDIR_NAME_H_
