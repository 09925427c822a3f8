#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <string_view>

#include "host/base/compound_file.h"
#include "host/base/path_text.h"
#include "host/base/progress.h"
#include "host/commands/command.h"
#include "host/exchange/card.h"
#include "host/exchange/error.h"
#include "host/exchange/seal.h"
#include "host/mailbox/peers.h"
#include "host/sharing/message_content.h"
#include "host/sharing/transport.h"
#include "host/store/msg_file.h"
#include "host/store/properties.h"
#include "quorvane3/object_model.h"

namespace quorvane::host {

namespace {

struct InspectOptions {
    bool json = false;
    std::string file;
    std::string mailbox;
};

constexpr std::string_view kSealedMagic = "QV3PACK";
constexpr std::uint64_t kMegabyte = 1'000'000;
constexpr int kDeepestStorage = 64;
constexpr std::size_t kMostElements = 1'000'000;

const char* ActionText(std::int32_t action)
{
    switch (action) {
        case qv_ac_Added:
            return "added";
        case qv_ac_Modified:
            return "modified";
        case qv_ac_Deleted:
            return "deleted";
        default:
            return "none";
    }
}

// The tree of any compound file, in text and JSON.
class TreePrinter {
public:
    explicit TreePrinter(std::string shown) : shown_(std::move(shown)) {}

    Json Walk(IStorage& storage, int depth)
    {
        if (depth > kDeepestStorage)
            Fail("read", shown_, "storages are nested too deeply");
        Json json = Json::array();
        for (const Element& element : ListElements(storage, shown_)) {
            if (++count_ > kMostElements)
                Fail("read", shown_, "it holds too many elements");
            progress_.Show(count_, 0, Counted(count_, "element"));
            json.push_back(Describe(storage, element, depth));
        }
        return json;
    }
    const std::string& Text() const noexcept { return text_; }

private:
    Json Describe(IStorage& parent, const Element& element, int depth)
    {
        const std::string name = Printable(ToUtf8(element.name));
        text_.append(static_cast<std::size_t>(depth) * 2, ' ').append(name);
        if (!element.isStorage) {
            text_ += "  " + std::to_string(element.size) + "\n";
            return {{"name", name}, {"size", element.size}};
        }
        text_ += "/\n";
        const ComPtr<IStorage> storage = OpenSubStorage(parent, element.name);
        if (!storage)
            Fail("read", shown_, "the storage '" + name + "' can't be opened");
        return {{"name", name}, {"elements", Walk(*storage, depth + 1)}};
    }

    std::string shown_;
    std::string text_;
    std::size_t count_ = 0;
    Progress progress_{"reading"};
};

ExitCode InspectPackage(const InspectOptions& options, IStorage& root)
{
    std::map<OleString, std::string> subjects;
    const std::vector<Element> elements = ListElements(root, options.file);
    const auto total = static_cast<std::size_t>(std::count_if(
        elements.begin(), elements.end(), [](const Element& element) { return element.isStorage; }));
    std::size_t read = 0;
    std::optional<Progress> progress("reading");
    const Package package =
        ReadPackage(root, options.file, [&](const PackageRecord& record, IStorage& storage) {
            ++read;
            progress->Show(read, total, Counted(read, "item"));
            MsgFile message;
            subjects[record.element] = SUCCEEDED(message.OpenOn(storage))
                                           ? TextOf(message.Message(), PR_SUBJECT_W)
                                           : "(the message is damaged)";
        });
    progress.reset();
    Json json = {{"kind", "package"}, {"folders", Json::array()}, {"items", Json::array()}};
    std::string text = "package: " + Counted(package.folders.size(), "folder") + ", " +
                       Counted(package.items.size(), "item") + "\n";
    for (const PackageRecord& folder : package.folders) {
        json["folders"].push_back({{"id", folder.id}, {"customInfo", folder.customInfo}});
        text += "folder " + Printable(folder.id) + "  " + Printable(folder.customInfo) + "\n";
    }
    for (const PackageRecord& item : package.items) {
        const std::string subject = subjects[item.element];
        json["items"].push_back({{"id", item.id},
                                 {"folder", item.folderId},
                                 {"action", ActionText(item.action)},
                                 {"customInfo", item.customInfo},
                                 {"message", item.hasMessage},
                                 {"subject", subject}});
        text +=
            "item " + Printable(item.id) + "  " + ActionText(item.action) + "  " + Printable(subject) + "\n";
    }
    Print(options.json, json, text);
    return ExitCode::kDone;
}

ExitCode InspectMessage(const InspectOptions& options, IStorage& root)
{
    MsgFile file;
    Check(file.OpenOn(root), "read the message in", options.file);
    const MessageContent content = ReadContent(file.Message(), options.file);
    const std::string subject = TextOf(file.Message(), PR_SUBJECT_W);
    Json names = Json::array();
    for (const auto& [name, value] : content)
        names.push_back(name);
    std::string text = "message: " + Printable(subject) +
                       "\nclass: " + Printable(TextOf(file.Message(), PR_MESSAGE_CLASS_W)) +
                       "\nfrom: " + Printable(TextOf(file.Message(), PR_SENDER_NAME_W)) +
                       "\nsent: " + TimeText(TimeOf(file.Message(), PR_CLIENT_SUBMIT_TIME)) + "\nholds:\n";
    for (const auto& [name, value] : content)
        text += "  " + Printable(name) + "\n";
    Print(options.json, {{"kind", "message"}, {"subject", subject}, {"holds", names}}, text);
    return ExitCode::kDone;
}

bool IsSealed(const std::filesystem::path& path)
{
    char magic[kSealedMagic.size()] = {};
    std::ifstream(path, std::ios::binary).read(magic, sizeof magic);
    return std::string_view(magic, sizeof magic) == kSealedMagic;
}

const char* KindText(exchange::PackageKind kind)
{
    switch (kind) {
        case exchange::PackageKind::kItems:
            return "items";
        case exchange::PackageKind::kMembership:
            return "membership";
        case exchange::PackageKind::kFlags:
            return "flags";
        default:
            return "report";
    }
}

// The sender's card: the one that the mailbox knows, or the one that lies beside the package in an exchange.
std::optional<exchange::Card> CardOf(const InspectOptions& options, const exchange::DeviceId& sender)
{
    if (!options.mailbox.empty()) {
        Peers peers(Mailbox::Open(options.mailbox).HostDatabasePath().string());
        const auto peer = peers.Find(sender);
        return peer ? peer->card : std::nullopt;
    }
    const auto path = std::filesystem::absolute(PathOf(options.file));
    const auto home = exchange::OutsideDirectory::Open(path.parent_path().parent_path());
    const auto file = home ? home->OpenFile("card") : nullptr;
    if (!file || file->Size() > exchange::kLongestCard)
        return std::nullopt;
    std::string bytes(file->Size(), '\0');
    file->ReadAt(0, bytes.data(), bytes.size());
    try {
        return exchange::ReadCard(bytes, sender);
    } catch (const exchange::Error&) {
        return std::nullopt;  // somebody else's
    }
}

// What anybody sees of a sealed package, and whether its sender signed all of it.
ExitCode InspectSealed(const InspectOptions& options)
{
    const auto file = OpenOwnFile(std::filesystem::absolute(PathOf(options.file)));
    exchange::SealedPackage package(*file, "'" + options.file + "'");
    const exchange::PackageLabel& label = package.Label();
    const auto card = CardOf(options, label.sender);
    std::string signature = "not checked, as the sender's card isn't known";
    ExitCode code = ExitCode::kDone;
    try {
        if (card) {
            Progress progress("checking", Progress::Unit::kBytes);
            package.Verify(card->signing, [&](std::uint64_t read) {
                progress.Show(read, package.Size(), std::to_string(read / kMegabyte) + " MB");
            });
            signature = "holds";
        }
    } catch (const exchange::Error& error) {
        signature = error.what();
        code = ExitCode::kFailed;
    }
    const std::string epoch = Hex(Bytes(label.epoch.begin(), label.epoch.end()));
    const std::string sender = TextOf(label.sender);
    Json receivers = Json::array();
    std::string text = std::string("sealed package of ") + KindText(label.kind) + "\nsender: " + sender +
                       (card ? " '" + Printable(card->name) + "'" : "") + "\nepoch: " + epoch +
                       "\nnumber: " + std::to_string(label.sequence) +
                       "\nsize: " + std::to_string(package.Size()) + ", of its content " +
                       std::to_string(package.ContentSize()) + "\nsignature: " + signature + "\n";
    for (const auto& [device, previous] : package.Receivers()) {
        receivers.push_back({{"device", TextOf(device)}, {"previous", previous}});
        text += "for " + TextOf(device) + ", after number " + std::to_string(previous) + "\n";
    }
    Print(options.json,
          {{"kind", "sealed package"},
           {"version", 1},
           {"sender", sender},
           {"member", card ? Json(card->name) : Json()},
           {"epoch", epoch},
           {"sequence", label.sequence},
           {"content", KindText(label.kind)},
           {"size", package.Size()},
           {"contentSize", package.ContentSize()},
           {"receivers", receivers},
           {"signature", signature}},
          text);
    return code;
}

ExitCode Inspect(const InspectOptions& options)
{
    if (IsSealed(PathOf(options.file)))
        return InspectSealed(options);
    const ComPtr<IStorage> root = OpenCompoundFile(PathOf(options.file));
    if (IsPackage(*root))
        return InspectPackage(options, *root);
    if (OpenSubStream(*root, OLESTR("__properties_version1.0")))
        return InspectMessage(options, *root);
    Json tree;
    std::string text;
    {
        TreePrinter printer(options.file);
        tree = printer.Walk(*root, 0);
        text = printer.Text();
    }
    Print(options.json, {{"kind", "compound file"}, {"elements", tree}}, text);
    return ExitCode::kDone;
}

}  // namespace

void AddInspectCommand(CLI::App& program, Chosen& chosen)
{
    auto options = std::make_shared<InspectOptions>();
    CLI::App* const command =
        AddCommand(program, chosen, "inspect",
                   "Show what is inside a package, a .msg or any compound file, and what anybody sees of a "
                   "sealed package",
                   options, Inspect);
    command->add_option("FILE", options->file, "The file")->required();
    command->add_option(
        "--mailbox", options->mailbox,
        "Whose known devices tell whether a sealed package's signature holds; else the card beside it");
}

}  // namespace quorvane::host
