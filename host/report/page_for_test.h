// host/report/page_for_test.h: reports to make pages of, and what is asked of them.
#ifndef QUORVANE_HOST_REPORT_PAGE_FOR_TEST_H_
#define QUORVANE_HOST_REPORT_PAGE_FOR_TEST_H_

#include <string>

#include "host/base/output.h"

namespace quorvane::host {

inline bool Holds(const std::string& text, const std::string& part)
{
    return text.find(part) != std::string::npos;
}

// Of a mailbox that nothing has happened in.
inline Json QuietReport()
{
    const Json none = Json::array();
    return {{"mailbox", "/mail/alice"},
            {"name", "alice"},
            {"made", "2026-11-23T12:00:00Z"},
            {"running", true},
            {"shares", none},
            {"members", none},
            {"resends", none},
            {"unsent", none},
            {"incoming", none},
            {"strangers", none},
            {"folders", none},
            {"refusals", none},
            {"awaited", none},
            {"mirrors", none},
            {"packagesFilling", 0},
            {"packagesToDeliver", 0},
            {"packagesToApply", 0},
            {"rejected", false},
            {"conflicts", none},
            {"trash", {{"days", 30}, {"count", 0}, {"entries", none}}},
            {"traffic", none},
            {"applied", none},
            {"errors", none}};
}

// Of one in which everything has, and all of whose texts are `text`.
inline Json FullReport(const std::string& text)
{
    const std::string time = "2026-11-23T11:00:00Z";
    Json report = QuietReport();
    report["name"] = report["mailbox"] = text;
    report["rejected"] = true;
    report["shares"] = {{{"folder", text},
                         {"members", {text, text}},
                         {"notAccepted", {text}},
                         {"items", 5},
                         {"flags", true}}};
    report["members"] = {{{"member", text},
                          {"device", text},
                          {"heard", text},
                          {"silent", true},
                          {"unacknowledged", 1},
                          {"applied", 1},
                          {"missing", {1, 2}},
                          {"asked", true}}};
    report["resends"] = {
        {{"folder", text}, {"member", text}, {"cancelled", false}, {"done", 1}, {"total", 3}}};
    report["unsent"] = {{{"folder", text}, {"subject", text}, {"reason", text}}};
    for (const char* const state : {"held", "refused"})
        report["incoming"].push_back(
            {{"member", text}, {"sequence", 7}, {"state", state}, {"reason", text}, {"since", text}});
    report["strangers"] = {{{"name", text}, {"packages", 2}}};
    report["folders"] = {{{"folder", text}, {"state", "invited"}, {"from", text}}};
    report["refusals"] = {{{"member", text}, {"packages", 3}, {"reason", text}, {"since", time}}};
    report["awaited"] = {text};
    report["mirrors"] = {
        {{"folder", text}, {"maildir", text}, {"mails", 9}, {"waitingDeletions", 4}, {"problem", text}}};
    report["conflicts"] = {
        {{"folder", text}, {"subject", text}, {"shown", text}, {"other", text}, {"otherSince", time}}};
    report["trash"] = {
        {"days", 30},
        {"count", 1},
        {"entries",
         {{{"subject", text}, {"folder", text}, {"why", text}, {"member", text}, {"since", text}}}}};
    report["traffic"] = {{{"day", "2026-11-22"},
                          {"sent", {{"packages", 1}, {"items", 7}, {"bytes", 1'500'000}}},
                          {"received", {{"packages", 0}, {"items", 0}, {"bytes", 0}}}},
                         {{"day", "2026-11-23"},
                          {"sent", {{"packages", 0}, {"items", 0}, {"bytes", 0}}},
                          {"received", {{"packages", 2}, {"items", 1234}, {"bytes", 999}}}}};
    report["applied"] = {{{"seconds", 1}, {"items", 60}},
                         {{"seconds", 300}, {"items", 36}},
                         {{"seconds", nullptr}, {"items", 4}}};
    report["errors"] = {{{"operation", text}, {"time", text}, {"result", text}, {"subject", text}}};
    return report;
}

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_REPORT_PAGE_FOR_TEST_H_
