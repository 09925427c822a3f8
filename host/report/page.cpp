#include "host/report/page.h"

#include "host/report/html.h"
#include "host/report/page_style.h"
#include "host/report/plot.h"

namespace quorvane::host {

namespace {

constexpr char kMark[] = "<meta name=\"generator\" content=\"quorvane report\"/>";

std::string TextAt(const Json& json, const char* name)
{
    return json.at(name).get<std::string>();
}

std::int64_t NumberAt(const Json& json, const char* name)
{
    return json.at(name).get<std::int64_t>();
}

// The first digits of an id, which tell devices of one member apart.
std::string ShortId(const std::string& id)
{
    return "<code>" + Escaped(id.substr(0, 8)) + "</code>";
}

std::string Listed(const Json& names)
{
    std::string text;
    for (const Json& name : names)
        text += (text.empty() ? "" : ", ") + Foreign(name.get<std::string>());
    return text.empty() ? "nobody" : text;
}

std::string Alarm(const std::string& markup)
{
    return "<span class=\"alarm\">" + markup + "</span>";
}

// Makes the page's parts out of a report.
class PageMaker {
public:
    explicit PageMaker(const Json& report) : report_(report), made_(TextAt(report, "made")) {}

    std::string Page() const
    {
        return Head() + "<body>\n" + Header() + "<main>\n" + Waiting() + Folders() + Members() + Passed() +
               OnItsWay() + Refused() + Conflicts() + TrashSection() + Mirrors() + Errors() + "</main>\n" +
               "<footer><p>Made by <code>quorvane report</code> at " + Time(made_) +
               ". This page holds all that it shows and loads nothing.</p></footer>\n</body>\n</html>\n";
    }

private:
    std::string Head() const
    {
        return "<!DOCTYPE html>\n<html lang=\"en\" xmlns=\"http://www.w3.org/1999/xhtml\">\n<head>\n"
               "<meta charset=\"utf-8\"/>\n" +
               std::string(kMark) +
               "\n<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; style-src "
               "'unsafe-inline'\"/>\n"
               "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\"/>\n"
               "<meta name=\"color-scheme\" content=\"light dark\"/>\n<title>" +
               Escaped(TextAt(report_, "name")) + ": report of " + Escaped(made_.substr(0, 10)) +
               "</title>\n<style>" + kPageStyle + "</style>\n</head>\n";
    }

    std::string Header() const
    {
        const bool isRunning = report_.at("running").get<bool>();
        std::string tiles;
        tiles += Tile("folders", report_.at("shares").size(), "shared folders");
        tiles += Tile("waiting", WaitingLines().size(), "wait for you");
        tiles += Tile("held", CountOf("held"), "packages held");
        tiles += Tile("refused", CountOf("refused") + Refusals(), "packages refused");
        tiles += Tile("conflicts", report_.at("conflicts").size(), "edits in conflict");
        tiles += Tile("trash", NumberAt(report_.at("trash"), "count"), "in the trash");
        tiles += Tile("errors", report_.at("errors").size(), "last errors");
        return "<header>\n<h1>" + Foreign(TextAt(report_, "name")) + "</h1>\n<p class=\"faint\"><code>" +
               Escaped(TextAt(report_, "mailbox")) + "</code>, as it was at " + Time(made_) + ". " +
               (isRunning ? "<span class=\"good\">A run is under way.</span>"
                          : Alarm("No run is under way.")) +
               "</p>\n<nav aria-label=\"Overview\"><ul>\n" + tiles + "</ul></nav>\n</header>\n";
    }

    static std::string Tile(const char* section, std::int64_t count, const char* name)
    {
        return "<li><a href=\"#" + std::string(section) + "\"><b" + (count == 0 ? " class=\"nothing\"" : "") +
               ">" + Counted(count) + "</b> " + name + "</a></li>\n";
    }

    std::int64_t CountOf(const char* state) const
    {
        std::int64_t count = 0;
        for (const Json& package : report_.at("incoming"))
            count += TextAt(package, "state") == state ? 1 : 0;
        return count;
    }

    std::int64_t Refusals() const
    {
        std::int64_t count = 0;
        for (const Json& refusal : report_.at("refusals"))
            count += NumberAt(refusal, "packages");
        return count;
    }

    // What a person has to say or do, as markup.
    std::vector<std::string> WaitingLines() const
    {
        std::vector<std::string> lines;
        for (const Json& folder : report_.at("folders"))
            if (TextAt(folder, "state") == "invited")
                lines.push_back(Foreign(TextAt(folder, "from")) + " invites you to " +
                                Foreign(TextAt(folder, "folder")) +
                                ": <code>quorvane accept</code>, or decline");
        for (const Json& name : report_.at("awaited"))
            lines.push_back("No device of " + Foreign(name.get<std::string>()) +
                            " is known: <code>quorvane members add</code>");
        for (const Json& stranger : report_.at("strangers"))
            lines.push_back("A device that calls itself " + Foreign(TextAt(stranger, "name")) + " has " +
                            Counted(NumberAt(stranger, "packages")) +
                            " packages for you and isn't known: <code>quorvane members</code>");
        if (!report_.at("conflicts").empty())
            lines.push_back(Counted(static_cast<std::int64_t>(report_.at("conflicts").size())) +
                            " edits were beaten by others: <a href=\"#conflicts\">in conflict</a>");
        for (const Json& item : report_.at("unsent"))
            lines.push_back(Foreign(TextAt(item, "subject")) + " of " + Foreign(TextAt(item, "folder")) +
                            " couldn't be sent: " + Foreign(TextAt(item, "reason")));
        for (const Json& mirror : report_.at("mirrors"))
            if (!TextAt(mirror, "problem").empty() || NumberAt(mirror, "waitingDeletions") > 0)
                lines.push_back("The Maildir of " + Foreign(TextAt(mirror, "folder")) +
                                " needs you: <a href=\"#mirrors\">Maildirs</a>");
        if (report_.at("rejected").get<bool>())
            lines.push_back("Packages that couldn't be used lie in the directory <code>rejected</code>");
        return lines;
    }

    std::string Waiting() const
    {
        std::string items;
        for (const std::string& line : WaitingLines())
            items += "<li>" + line + "</li>\n";
        return Section("waiting", "Waits for you",
                       items.empty() ? "<p class=\"good\">Nothing needs you.</p>\n"
                                     : "<ul class=\"todo\">\n" + items + "</ul>\n");
    }

    std::string Folders() const
    {
        HtmlTable table("Who shares what with whom",
                        {"Folder", "Items", "Shared with", "Have not accepted", "Marks"});
        for (const Json& share : report_.at("shares"))
            table.Add({Foreign(TextAt(share, "folder")), Counted(NumberAt(share, "items")),
                       Listed(share.at("members")), Listed(share.at("notAccepted")),
                       share.at("flags").get<bool>() ? "shared" : "each member's own"});
        return Section("folders", "Shared folders", table.Html("No folder is shared."));
    }

    std::string Members() const
    {
        HtmlTable table("Devices of members",
                        {"Member", "Device", "Last heard", "Not acknowledged", "State"});
        for (const Json& member : report_.at("members")) {
            std::string state = member.at("silent").get<bool>() ? Alarm("silent for long") : "in touch";
            if (TextAt(member, "heard").empty())
                state = "not heard of yet";
            if (member.contains("missing"))
                state = Alarm("packages are missing") + (member.at("asked").get<bool>() ? ", asked for" : "");
            table.Add({Foreign(TextAt(member, "member")), ShortId(TextAt(member, "device")),
                       TimeBefore(TextAt(member, "heard"), made_),
                       Counted(NumberAt(member, "unacknowledged")), state});
        }
        return Section("members", "Members", table.Html("No other device is known."));
    }

    std::string Passed() const
    {
        DaysPlot items{"items", "Items a day", Counted, {}}, bytes{"bytes", "Bytes a day", Sized, {}};
        for (const Json& day : report_.at("traffic")) {
            const Json &sent = day.at("sent"), &received = day.at("received");
            items.days.push_back({TextAt(day, "day"), NumberAt(sent, "items"), NumberAt(received, "items")});
            bytes.days.push_back({TextAt(day, "day"), NumberAt(sent, "bytes"), NumberAt(received, "bytes")});
        }
        return Section("passed", "What passed", Html(items) + Html(bytes) + Applied());
    }

    // How long others' changes took, and within which time how many of a hundred were here.
    std::string Applied() const
    {
        RowsPlot plot{"applied", "Time from change to applied", "Applied", "Changes", {}};
        std::int64_t total = 0;
        for (const Json& one : report_.at("applied")) {
            const Json& seconds = one.at("seconds");
            plot.rows.push_back(
                {seconds.is_null() ? kLongest : "within " + Lasted(seconds.get<std::int64_t>()),
                 NumberAt(one, "items")});
            total += NumberAt(one, "items");
        }
        std::int64_t count = 0;
        std::string half, most;
        for (const RowsPlot::Row& row : plot.rows) {
            count += row.number;
            if (half.empty() && 2 * count >= total)
                half = row.label;
            if (most.empty() && 20 * count >= 19 * total)
                most = row.label;
        }
        return Html(plot) +
               (total == 0 ? "<p class=\"none\">No change of others was applied in these days.</p>\n"
                           : "<p>Half of them were applied " + half + ", 95 of 100 " + most + ".</p>\n");
    }

    std::string OnItsWay() const
    {
        HtmlTable held("Packages that wait for something else", {"From", "Package", "State", "Since", "Why"});
        for (const Json& package : report_.at("incoming"))
            if (TextAt(package, "state") != "refused")
                held.Add(
                    {Foreign(TextAt(package, "member")), Counted(NumberAt(package, "sequence")),
                     Escaped(TextAt(package, "state")), Time(TextAt(package, "since")),
                     TextAt(package, "reason").empty() ? "its turn" : Foreign(TextAt(package, "reason"))});
        HtmlTable owed("What members are yet to get", {"Folder", "Member", "Items", "State"});
        for (const Json& resend : report_.at("resends"))
            owed.Add({Foreign(TextAt(resend, "folder")), Foreign(TextAt(resend, "member")),
                      Counted(NumberAt(resend, "done")) + " of " + Counted(NumberAt(resend, "total")),
                      StateOf(resend)});
        return Section("held", "On its way",
                       "<p>Packages being filled: " + Counted(NumberAt(report_, "packagesFilling")) +
                           ", to deliver: " + Counted(NumberAt(report_, "packagesToDeliver")) +
                           ", to apply: " + Counted(NumberAt(report_, "packagesToApply")) + ".</p>\n" +
                           held.Html("No package is held.") + owed.Html("Nobody waits for items."));
    }

    std::string StateOf(const Json& resend) const
    {
        if (resend.at("cancelled").get<bool>())
            return "cancelled";
        for (const Json& name : report_.at("awaited"))
            if (name == resend.at("member"))
                return "waits for a known device";
        return "goes on with a run";
    }

    std::string Refused() const
    {
        HtmlTable table("Packages that were refused", {"From", "Packages", "Since", "Why"});
        for (const Json& package : report_.at("incoming"))
            if (TextAt(package, "state") == "refused")
                table.Add({Foreign(TextAt(package, "member")), "1", Time(TextAt(package, "since")),
                           Foreign(TextAt(package, "reason"))});
        for (const Json& refusal : report_.at("refusals"))
            table.Add({Foreign(TextAt(refusal, "member")), Counted(NumberAt(refusal, "packages")),
                       Time(TextAt(refusal, "since")), Foreign(TextAt(refusal, "reason"))});
        return Section("refused", "Refused", table.Html("Nothing was refused."));
    }

    std::string Conflicts() const
    {
        HtmlTable table("Items that several members changed at once; both forms are kept",
                        {"Subject", "Folder", "Shown is by", "Also by", "Since"});
        for (const Json& one : report_.at("conflicts"))
            table.Add({Foreign(TextAt(one, "subject")), Foreign(TextAt(one, "folder")),
                       Foreign(TextAt(one, "shown")), Foreign(TextAt(one, "other")),
                       Time(TextAt(one, "otherSince"))});
        return Section("conflicts", "In conflict", table.Html("Nothing is in conflict."));
    }

    std::string TrashSection() const
    {
        const Json& trash = report_.at("trash");
        HtmlTable table("The latest; 'quorvane undelete' puts them back",
                        {"Subject", "Folder", "Why", "By", "Since"});
        for (const Json& entry : trash.at("entries"))
            table.Add({Foreign(TextAt(entry, "subject")), Foreign(TextAt(entry, "folder")),
                       Escaped(TextAt(entry, "why")), Foreign(TextAt(entry, "member")),
                       Time(TextAt(entry, "since"))});
        return Section("trash", "In the trash",
                       "<p>" + Counted(NumberAt(trash, "count")) + " items, kept for " +
                           Counted(NumberAt(trash, "days")) + " days.</p>\n" +
                           table.Html("The trash is empty."));
    }

    std::string Mirrors() const
    {
        HtmlTable table("Folders that are tied to Maildirs", {"Folder", "Maildir", "Mails", "State"});
        for (const Json& mirror : report_.at("mirrors")) {
            const std::int64_t waiting = NumberAt(mirror, "waitingDeletions");
            const std::string problem = TextAt(mirror, "problem");
            std::string state = problem.empty() ? "in step" : Alarm(Foreign(problem));
            if (waiting > 0)
                state += "; " + Alarm(Counted(waiting) + " deletions wait for --confirm");
            table.Add({Foreign(TextAt(mirror, "folder")),
                       "<code>" + Escaped(TextAt(mirror, "maildir")) + "</code>",
                       Counted(NumberAt(mirror, "mails")), state});
        }
        return Section("mirrors", "Maildirs", table.Html("No folder is tied to a Maildir."));
    }

    std::string Errors() const
    {
        HtmlTable table("Calls of the engine that a failure passed, the latest first",
                        {"Operation", "Time", "Result", "Item"});
        const Json& errors = report_.at("errors");
        for (auto error = errors.rbegin(); error != errors.rend(); ++error)
            table.Add({"<code>" + Escaped(TextAt(*error, "operation")) + "</code>",
                       Time(TextAt(*error, "time")), Foreign(TextAt(*error, "result")),
                       TextAt(*error, "subject").empty() ? "none" : Foreign(TextAt(*error, "subject"))});
        return Section("errors", "Last errors", table.Html("No failure was traced."));
    }

    static constexpr char kLongest[] = "after longer";

    const Json& report_;
    const std::string made_;
};

}  // namespace

std::string PageOf(const Json& report)
{
    return PageMaker(report).Page();
}

bool IsPage(std::string_view beginning)
{
    return beginning.starts_with("<!DOCTYPE html>") &&
           beginning.substr(0, kTellingBytes).find(kMark) != std::string_view::npos;
}

}  // namespace quorvane::host
