#include <fstream>

#include "host/base/files.h"
#include "host/base/path_text.h"
#include "host/base/progress.h"
#include "host/commands/command.h"
#include "host/commands/mail_format.h"
#include "host/store/msg_file.h"

namespace quorvane::host {

namespace {

struct ExportArguments {
    bool json = false;
    std::string mailbox;
    std::string folder;
    std::string directory;
    std::string format = KnowsMime() ? "eml" : "msg";
};

// "0007-subject" with what a file name can't hold replaced; the number keeps names apart.
std::string FileName(std::size_t number, const std::string& subject)
{
    constexpr std::size_t kLongestSubject = 60;
    std::string name = std::to_string(number);
    name.insert(0, name.size() < 4 ? 4 - name.size() : 0, '0');
    name += '-';
    for (const char c : Printable(subject).substr(0, kLongestSubject)) {
        const auto byte = static_cast<unsigned char>(c);
        const bool plain =
            (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-';
        name += plain && byte < 0x80 ? c : '_';
    }
    return name;
}

void WriteMail(IMAPIFolder& folder, IMessage& message, const std::filesystem::path& path)
{
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    if (!file)
        Fail("write", path.string(), DescribeErrno(errno));
    Check(ExportMailOf(folder, message, file), "write", path.string());
    file.close();
    if (!file)
        Fail("write", path.string(), DescribeErrno(errno));
}

void WriteMsg(IMessage& message, const std::filesystem::path& path)
{
    MsgFile file;
    Check(file.Create(path), "write", path.string());
    Check(CopyMessage(message, file.Message(), KEEP_OPEN_READWRITE), "write", path.string());
}

ExitCode Export(const ExportArguments& options)
{
    const Mailbox mailbox = Mailbox::Open(options.mailbox);
    const MailSession session(options.mailbox);
    const ComPtr<IMAPIFolder> folder = FindFolder(session, options.folder);
    const std::filesystem::path directory = PathOf(options.directory);
    MakeDirectory(directory);
    Progress progress("exporting");
    Json files = Json::array();
    std::size_t number = 0;
    ForEachItem(*folder, [&](const ItemInfo& item) {
        const ComPtr<IMessage> message = OpenMessage(session, item.entryId, false);
        if (!message)
            return;  // deleted since the row was read
        const std::filesystem::path path =
            directory / (FileName(++number, item.subject) + "." + options.format);
        options.format == "msg" ? WriteMsg(*message, path) : WriteMail(*folder, *message, path);
        files.push_back(path.string());
        progress.Show(0, 0, std::to_string(number) + " items");
    });
    Print(options.json, {{"folder", options.folder}, {"files", files}},
          "exported " + std::to_string(number) + " items to " + options.directory + "\n");
    return ExitCode::kDone;
}

}  // namespace

void AddExportCommand(CLI::App& program, Chosen& chosen)
{
    auto options = std::make_shared<ExportArguments>();
    CLI::App* const command =
        AddCommand(program, chosen, "export", "Write each item of a folder to a file", options, Export);
    command->add_option("MAILBOX", options->mailbox, "Directory of the mailbox")->required();
    command->add_option("FOLDER", options->folder, "Path of the folder")->required();
    command->add_option("DIR", options->directory, "Directory for the files; made if it's missing")
        ->required();
    // A build without MIME writes the one form that it knows.
    const std::vector<std::string> formats =
        KnowsMime() ? std::vector<std::string>{"eml", "msg"} : std::vector<std::string>{"msg"};
    command
        ->add_option("--format", options->format,
                     KnowsMime() ? "eml or msg" : "msg; this build writes no other")
        ->check(CLI::IsMember(formats))
        ->capture_default_str();
}

}  // namespace quorvane::host
