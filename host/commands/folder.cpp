#include <algorithm>

#include "host/base/progress.h"
#include "host/commands/command.h"
#include "host/mailbox/device.h"
#include "host/mailbox/shared_folders.h"
#include "host/mailbox/trash.h"
#include "host/store/properties.h"

namespace quorvane::host {

namespace {

constexpr std::size_t kDeletedAtOnce = 100;

struct FolderOptions {
    bool json = false;
    std::string mailbox;
    std::string folder;
    std::string name;
    std::string parent;
    bool isConfirmed = false;
    ExitCode (*work)(const FolderOptions& options) = nullptr;
};

// Those that are shared keep being so, under their new paths.
void NotePaths(const Mailbox& mailbox, const MailSession& session)
{
    const exchange::DeviceKeys keys = ReadDeviceKeys(mailbox);
    SharedFolders(mailbox.HostDatabasePath().string(), keys).NotePaths(ListFolders(session));
}

ExitCode Make(const FolderOptions& options)
{
    const Mailbox mailbox = Mailbox::Open(options.mailbox);
    const MailSession session(options.mailbox);
    const std::string path = PlainPath(options.folder);
    const std::string entryId = HexOf(*MakeFolder(session, path), PR_ENTRYID);
    PrintSentences(options.json, {{"folder", path}, {"entryId", entryId}},
                   "made the folder " + Printable(path) + "\n");
    return ExitCode::kDone;
}

ExitCode MoveTo(const FolderOptions& options, const std::string& newPath)
{
    const Mailbox mailbox = Mailbox::Open(options.mailbox);
    const MailSession session(options.mailbox);
    MoveFolder(session, options.folder, newPath);
    NotePaths(mailbox, session);
    PrintSentences(options.json, {{"folder", PlainPath(options.folder)}, {"to", newPath}},
                   Printable(PlainPath(options.folder)) + " is " + Printable(newPath) + " now\n");
    return ExitCode::kDone;
}

std::string Join(const std::string& parent, const std::string& name)
{
    return parent.empty() ? name : parent + "/" + name;
}

ExitCode Rename(const FolderOptions& options)
{
    if (options.name.empty() || options.name.find('/') != std::string::npos)
        throw HostError("a folder can't be called '" + options.name +
                            "': give a name without '/' ('folder move' puts it elsewhere)",
                        ExitCode::kUsage);
    return MoveTo(options, Join(ParentPath(options.folder), options.name));
}

ExitCode MoveBelow(const FolderOptions& options)
{
    const bool isTop = options.parent.find_first_not_of('/') == std::string::npos;
    return MoveTo(options, Join(isTop ? std::string() : PlainPath(options.parent), NameIn(options.folder)));
}

// The folder and all below it, parents before children.
std::vector<FolderInfo> TreeOf(const MailSession& session, const std::string& path)
{
    std::vector<FolderInfo> tree;
    for (FolderInfo& folder : ListFolders(session))
        if (folder.path == path || folder.path.starts_with(path + "/"))
            tree.push_back(std::move(folder));
    return tree;
}

// Deletes what folders hold, so that each item lies in the trash before it goes.
class FolderEmptier {
public:
    FolderEmptier(const Mailbox& mailbox, const MailSession& session, std::size_t items)
        : mailbox_(mailbox), session_(session), trash_(mailbox), items_(items)
    {}

    void Empty(const FolderInfo& info)
    {
        const ComPtr<IMAPIFolder> folder = FindFolder(session_, info.path);
        for (std::vector<ItemInfo> some; !(some = FirstItems(*folder, kDeletedAtOnce)).empty();) {
            std::vector<Bytes> ids;
            for (const ItemInfo& item : some) {
                Keep(info.path, item);
                ids.push_back(FromHex(item.entryId));
                progress_.Show(++done_, items_, info.path);
            }
            Delete(*folder, info.path, ids);
        }
    }
    std::size_t Done() const noexcept { return done_; }

private:
    void Keep(const std::string& path, const ItemInfo& item)
    {
        const ComPtr<IMessage> message = OpenMessage(session_, item.entryId, false);
        if (!message)
            return;  // it went meanwhile
        TrashEntry entry;
        entry.item = item.entryId;
        entry.folder = path;
        entry.subject = item.subject;
        entry.member = mailbox_.Name();
        entry.since = FileTimeNow();
        trash_.Keep(entry, *message);
    }

    static void Delete(IMAPIFolder& folder, const std::string& path, std::vector<Bytes>& ids)
    {
        std::vector<SBinary> binaries;
        for (Bytes& id : ids)
            binaries.push_back({static_cast<ULONG>(id.size()), id.data()});
        ENTRYLIST list{static_cast<ULONG>(binaries.size()), binaries.data()};
        Check(folder.DeleteMessages(&list, 0, nullptr, 0), "delete items of", path);
    }

    const Mailbox& mailbox_;
    const MailSession& session_;
    Trash trash_;
    const std::size_t items_;
    std::size_t done_ = 0;
    Progress progress_{"deleting"};
};

// What a member deletes is deleted at the others: who only wants to be rid of a folder leaves it first.
void RefuseShared(const Mailbox& mailbox, const std::vector<FolderInfo>& tree)
{
    Records records(mailbox.HostDatabasePath().string());
    for (const FolderInfo& folder : tree)
        if (records.FindShareByEntryId(folder.entryId))
            Fail("delete the folder", folder.path,
                 "it is shared: 'quorvane leave' or 'unshare' ends that, and deletes nothing at its members");
}

std::size_t ItemsIn(const std::vector<FolderInfo>& tree)
{
    std::size_t items = 0;
    for (const FolderInfo& folder : tree)
        items += static_cast<std::size_t>(std::max<LONG>(folder.items, 0));
    return items;
}

ExitCode DeleteTree(const FolderOptions& options)
{
    const Mailbox mailbox = Mailbox::Open(options.mailbox);
    const MailSession session(options.mailbox);
    const std::string path = PlainPath(options.folder);
    CheckMayGo(session, path);
    const std::vector<FolderInfo> tree = TreeOf(session, path);
    RefuseShared(mailbox, tree);
    const std::size_t items = ItemsIn(tree);
    if (!options.isConfirmed && (items > 0 || tree.size() > 1))
        Fail("delete the folder", path,
             "it holds " + Counted(items, "item") + " and " + Counted(tree.size() - 1, "folder") +
                 ": --yes deletes them with it, the items go to the trash");
    FolderEmptier emptier(mailbox, session, items);
    Json folders = Json::array();
    for (auto folder = tree.rbegin(); folder != tree.rend(); ++folder) {
        emptier.Empty(*folder);
        DeleteFolder(session, folder->path);
        folders.push_back(folder->path);
    }
    PrintSentences(options.json, {{"deleted", folders}, {"items", emptier.Done()}},
                   "deleted " + Printable(path) +
                       (emptier.Done() > 0 ? "; " + Counted(emptier.Done(), "item") +
                                                 (emptier.Done() == 1 ? " lies" : " lie") +
                                                 " in the trash ('quorvane trash')\n"
                                           : "\n"));
    return ExitCode::kDone;
}

ExitCode Folder(const FolderOptions& options)
{
    return options.work(options);
}

// One of the command's own commands.
CLI::App* AddPart(CLI::App& command, const std::shared_ptr<FolderOptions>& options, const char* name,
                  const char* help, ExitCode (*work)(const FolderOptions& options))
{
    CLI::App* const part = command.add_subcommand(name, help);
    part->fallthrough();
    part->add_option("MAILBOX", options->mailbox, "Directory of the mailbox")->required();
    part->add_option("FOLDER", options->folder, "Path of the folder, as in 'Projects/2026'")->required();
    part->callback([options, work] { options->work = work; });
    return part;
}

}  // namespace

void AddFolderCommand(CLI::App& program, Chosen& chosen)
{
    auto options = std::make_shared<FolderOptions>();
    CLI::App* const command =
        AddCommand(program, chosen, "folder", "Make, rename, move and delete folders", options, Folder);
    command->require_subcommand(1);
    AddPart(*command, options, "make", "Make a folder, and those that are missing on the way", Make);
    AddPart(*command, options, "rename", "Give a folder another name; one that is shared stays so", Rename)
        ->add_option("NAME", options->name, "Its new name, without those of the folders that it is in")
        ->required();
    AddPart(*command, options, "move", "Put a folder with all that is in it into another one", MoveBelow)
        ->add_option("PARENT", options->parent, "Path of the folder to put it into; / for none")
        ->required();
    AddPart(*command, options, "delete",
            "Delete a folder; items in it go to the trash. One that is shared has to be left first",
            DeleteTree)
        ->add_flag("--yes", options->isConfirmed, "Even if something is in it");
}

}  // namespace quorvane::host
