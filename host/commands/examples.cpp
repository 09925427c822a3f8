#include <utility>

#include "host/commands/command_tables.h"

namespace quorvane::host {

namespace {

// In `--help`, the manual pages, and each run by tests/program/examples_test.py, which puts in what the words
// ID, DEVICE and NUMBER stand for.
const std::pair<const char*, std::vector<std::string>> kExamples[] = {
    {"",
     {"quorvane init ~/mail/carol --name carol --exchange /mnt/exchange",
      "quorvane import ~/mail/alice Projects ~/Maildir", "quorvane share ~/mail/alice Projects --with bob",
      "quorvane run ~/mail/alice", "quorvane list ~/mail/alice Projects from:carol date:2026-11 is:unread"}},
    {"setup",
     {"quorvane setup --yes",
      "quorvane setup ~/mail/dave --name dave --mail ~/Maildir --exchange /mnt/exchange --yes",
      "quorvane setup ~/mail/alice --no-service --yes"}},
    {"init", {"quorvane init ~/mail/carol --name carol --exchange /mnt/exchange"}},
    {"run",
     {"quorvane run ~/mail/alice", "quorvane run ~/mail/alice --until-idle --accept-from bob",
      "quorvane run ~/mail/alice --exchange /mnt/exchange -v"}},
    {"status",
     {"quorvane status ~/mail/alice", "quorvane status ~/mail/alice --json",
      "quorvane status ~/mail/alice --watch"}},
    {"doctor", {"quorvane doctor ~/mail/alice"}},
    {"check", {"quorvane check ~/mail/alice", "quorvane check ~/mail/alice --repair"}},
    {"backup", {"quorvane backup ~/mail/alice ~/backups/alice"}},
    {"restore", {"quorvane restore ~/backups/old ~/mail/restored"}},
    {"folder",
     {"quorvane folder make ~/mail/alice Projects/2027",
      "quorvane folder rename ~/mail/alice Projects Work"}},
    {"folder make", {"quorvane folder make ~/mail/alice Projects/2027"}},
    {"folder rename", {"quorvane folder rename ~/mail/alice Projects Work"}},
    {"folder move",
     {"quorvane folder move ~/mail/alice Archive/2025 Projects",
      "quorvane folder move ~/mail/alice Archive/2025 /"}},
    {"folder delete",
     {"quorvane folder delete ~/mail/alice Empty", "quorvane folder delete ~/mail/alice Archive --yes"}},
    {"import",
     {"quorvane import ~/mail/alice Projects ~/Maildir",
      "quorvane import ~/mail/alice Projects/Old ~/old-mail.mbox letter.eml",
      "quorvane import ~/mail/alice Inbox - < letter.eml"}},
    {"export",
     {"quorvane export ~/mail/alice Projects ~/projects",
      "quorvane export ~/mail/alice Projects ~/projects --format mbox"}},
    {"list",
     {"quorvane list ~/mail/alice", "quorvane list ~/mail/alice Projects --sort date --reverse",
      "quorvane list ~/mail/alice Projects from:carol date:2026-11 is:unread"}},
    {"show", {"quorvane show ~/mail/alice Projects 1"}},
    {"edit",
     {"quorvane edit ~/mail/alice Projects 1 --subject 'The plan, second draft'",
      "quorvane edit ~/mail/alice Projects 1 --read --flag"}},
    {"move", {"quorvane move ~/mail/alice Projects 1 Archive/2025"}},
    {"delete", {"quorvane delete ~/mail/alice Projects 1 2"}},
    {"trash", {"quorvane trash ~/mail/alice", "quorvane trash ~/mail/alice --days 90"}},
    {"undelete", {"quorvane undelete ~/mail/alice 1"}},
    {"mirror",
     {"quorvane mirror ~/mail/alice Inbox ~/Maildir", "quorvane mirror ~/mail/alice",
      "quorvane mirror ~/mail/alice Trips ~/Trips --tree nested",
      "quorvane mirror ~/mail/alice Plans --remove", "quorvane mirror ~/mail/alice Plans --remove --below"}},
    {"members", {"quorvane members ~/mail/alice", "quorvane members add ~/mail/alice carol"}},
    {"members add",
     {"quorvane members add ~/mail/alice carol", "quorvane members add ~/mail/alice carol --device DEVICE"}},
    {"members drop", {"quorvane members drop ~/mail/alice DEVICE"}},
    {"members remove", {"quorvane members remove ~/mail/alice bob"}},
    {"members link", {"quorvane members link ~/mail/alice DEVICE"}},
    {"members unlink", {"quorvane members unlink ~/mail/alice DEVICE"}},
    {"share",
     {"quorvane share ~/mail/alice Projects --with bob",
      "quorvane share ~/mail/alice Archive --tree --with bob",
      "quorvane share ~/mail/alice Plans --with bob --flags"}},
    {"invitations", {"quorvane invitations ~/mail/bob"}},
    {"accept",
     {"quorvane accept ~/mail/bob ID", "quorvane accept ~/mail/bob ID --tree",
      "quorvane accept ~/mail/bob ID --as Work/Projects", "quorvane accept ~/mail/bob ID --into Drafts"}},
    {"decline", {"quorvane decline ~/mail/bob ID"}},
    {"leave", {"quorvane leave ~/mail/bob Shared", "quorvane leave ~/mail/bob Shared --tree"}},
    {"unshare",
     {"quorvane unshare ~/mail/alice Shared", "quorvane unshare ~/mail/alice Shared --with bob",
      "quorvane unshare ~/mail/alice Shared --tree"}},
    {"resend",
     {"quorvane resend ~/mail/alice Shared --to bob",
      "quorvane resend ~/mail/alice Shared --to bob --since 2026-11-01"}},
    {"cancel", {"quorvane cancel ~/mail/alice Shared"}},
    {"conflicts", {"quorvane conflicts ~/mail/alice"}},
    {"verify", {"quorvane verify ~/mail/alice", "quorvane verify ~/mail/alice Shared --wait 0"}},
    {"log",
     {"quorvane log ~/mail/alice", "quorvane log ~/mail/alice --failures --since 2026-11-01",
      "quorvane log ~/mail/alice --follow"}},
    {"report",
     {"quorvane report ~/mail/alice -o report.html", "quorvane report ~/mail/alice --json --days 7"}},
    {"compare", {"quorvane compare ~/mail/alice Shared ~/mail/bob Shared"}},
    {"inspect", {"quorvane inspect letter.msg", "quorvane inspect /mnt/exchange/DEVICE/out/NUMBER.qvx"}},
};

}  // namespace

std::vector<std::string> ExamplesOf(const std::string& command)
{
    for (const auto& [name, examples] : kExamples)
        if (command == name)
            return examples;
    return {};
}

}  // namespace quorvane::host
