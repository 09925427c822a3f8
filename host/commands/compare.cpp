#include <algorithm>
#include <set>

#include "host/base/progress.h"
#include "host/commands/command.h"
#include "host/mailbox/sharing_rows.h"
#include "host/sharing/message_content.h"
#include "host/store/properties.h"

namespace quorvane::host {

namespace {

struct CompareOptions {
    bool json = false;
    std::string mailboxes[2];
    std::string folders[2];
};

struct ComparedItem {
    std::string subject;
    MessageContent content;
};

// One side: its items by sharing ID, and how many have none.
struct Side {
    std::map<std::string, ComparedItem> items;
    std::size_t unshared = 0;
};

// The process serves one mailbox at a time: each side is read to its end before the other is opened.
Side ReadSide(const std::string& mailboxPath, const std::string& folderPath)
{
    const Mailbox mailbox = Mailbox::Open(mailboxPath);
    const MailSession session(mailboxPath);
    const auto rows = ReadSharingRows(mailbox);
    Side side;
    const ComPtr<IMAPIFolder> folder = FindFolder(session, folderPath);
    const auto total = static_cast<std::size_t>(std::max<LONG>(LongOf(*folder, PR_CONTENT_COUNT), 0));
    Progress progress("reading " + mailboxPath);
    std::size_t number = 0;
    ForEachItem(*folder, [&](const ItemInfo& item) {
        ++number;
        progress.Show(number, total, Counted(number, "item"));
        const auto row = rows.find(item.entryId);
        if (row == rows.end()) {
            ++side.unshared;
            return;
        }
        const ComPtr<IMessage> message = OpenMessage(session, item.entryId, false);
        if (message)
            side.items[row->second.id] = {item.subject, ReadContent(*message, row->second.id)};
    });
    return side;
}

class Comparison {
public:
    Comparison(const CompareOptions& options, const Side& a, const Side& b) : options_(options)
    {
        for (const auto& [id, item] : a.items) {
            const auto other = b.items.find(id);
            if (other == b.items.end())
                Add(id, item.subject, "missing in " + Place(1), {});
            else
                CompareItems(id, item, other->second);
        }
        for (const auto& [id, item] : b.items)
            if (!a.items.contains(id))
                Add(id, item.subject, "missing in " + Place(0), {});
        AddUnshared(0, a.unshared);
        AddUnshared(1, b.unshared);
    }

    ExitCode Report() const
    {
        Print(options_.json, {{"identical", identical_}, {"differences", differences_}},
              lines_ + std::to_string(identical_) + " identical, " + std::to_string(differences_.size()) +
                  " different\n");
        return differences_.empty() ? ExitCode::kDone : ExitCode::kFailed;
    }

private:
    std::string Place(int side) const { return options_.mailboxes[side] + ":" + options_.folders[side]; }

    void CompareItems(const std::string& id, const ComparedItem& a, const ComparedItem& b)
    {
        const std::vector<std::string> names = Differences(a.content, b.content);
        if (names.empty())
            ++identical_;
        else
            Add(id, a.subject, "differs", names);
    }

    void Add(const std::string& id, const std::string& subject, const std::string& what,
             const std::vector<std::string>& names)
    {
        differences_.push_back({{"id", id}, {"subject", subject}, {"what", what}, {"names", names}});
        lines_ += id + " '" + Printable(subject) + "' " + what;
        for (const std::string& name : names)
            lines_ += " " + name;
        lines_ += "\n";
    }

    void AddUnshared(int side, std::size_t count)
    {
        if (count > 0)
            Add("-", "",
                Counted(static_cast<std::uint64_t>(count), "item") + " without a sharing ID in " +
                    Place(side),
                {});
    }

    const CompareOptions& options_;
    std::size_t identical_ = 0;
    Json differences_ = Json::array();
    std::string lines_;
};

ExitCode Compare(const CompareOptions& options)
{
    const Side a = ReadSide(options.mailboxes[0], options.folders[0]);
    const Side b = ReadSide(options.mailboxes[1], options.folders[1]);
    return Comparison(options, a, b).Report();
}

}  // namespace

void AddCompareCommand(CLI::App& program, Chosen& chosen)
{
    auto options = std::make_shared<CompareOptions>();
    CLI::App* const command = AddCommand(
        program, chosen, "compare",
        "Compare all items of two shared folders by sharing ID: every property, recipient and attachment",
        options, Compare);
    command->add_option("MAILBOX", options->mailboxes[0], "Directory of the first mailbox")->required();
    command->add_option("FOLDER", options->folders[0], "Folder in the first mailbox")->required();
    command->add_option("MAILBOX2", options->mailboxes[1], "Directory of the second mailbox")->required();
    command->add_option("FOLDER2", options->folders[1], "Folder in the second mailbox")->required();
}

}  // namespace quorvane::host
