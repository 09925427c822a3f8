#include <algorithm>
#include <ctime>
#include <exception>
#include <fstream>
#include <string_view>

#include "host/base/path_text.h"
#include "host/base/progress.h"
#include "host/base/system_file.h"
#include "host/commands/command.h"
#include "host/commands/export_files.h"
#include "host/commands/mail_format.h"
#include "host/mail/mbox_writer.h"
#include "host/store/msg_file.h"
#include "host/store/properties.h"

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

std::time_t UnixTime(std::uint64_t fileTime)
{
    constexpr std::uint64_t kTicksASecond = 10000000;
    constexpr std::int64_t kFrom1601To1970 = 11644473600;
    return static_cast<std::time_t>(static_cast<std::int64_t>(fileTime / kTicksASecond) - kFrom1601To1970);
}

// The last name of a folder's path, as a file's.
std::string MboxName(const std::string& folder)
{
    std::string name;
    for (const char c : Printable(folder.substr(folder.rfind('/') + 1)))
        name += static_cast<unsigned char>(c) < 32 ||
                        std::string_view("/\\:*?\"<>|").find(c) != std::string_view::npos
                    ? '_'
                    : c;
    return (name.empty() || name.front() == '.' ? "_" + name : name) + ".mbox";
}

// Writes the items of a folder in one of the forms.
class Exporter {
public:
    // That an item can't be read, and nothing was written of it.
    class DamagedItem : public std::exception {};

    Exporter(IMAPIFolder& folder, const std::string& directory) : folder_(folder), files_(PathOf(directory))
    {}
    virtual ~Exporter() = default;
    Exporter(const Exporter&) = delete;
    Exporter& operator=(const Exporter&) = delete;

    virtual void Write(IMessage& message, const ItemInfo& item) = 0;
    virtual void Finish() {}

    // Paths of the files that lie in the directory, whole.
    const Json& Written() const noexcept { return written_; }

protected:
    // Writes the mail to Aside.
    void WriteMail(IMessage& message) const
    {
        std::ofstream file = OpenAside();
        const HRESULT hr = ExportMailOf(folder_, message, file);
        if (hr == MAPI_E_CORRUPT_DATA)
            throw DamagedItem();
        Check(hr, "write", files_.Aside().string());
        CloseAside(file);
    }
    std::ofstream OpenAside() const
    {
        std::ofstream file(files_.Aside(), std::ios::binary | std::ios::trunc);
        if (!file)
            Fail("write", files_.Aside().string(), DescribeErrno(errno));
        return file;
    }
    void CloseAside(std::ofstream& file) const
    {
        file.close();
        if (!file)
            Fail("write", files_.Aside().string(), DescribeErrno(errno));
    }
    void Keep(const std::string& name) { written_.push_back(files_.Keep(name).string()); }
    const ExportFiles& Files() const noexcept { return files_; }

private:
    IMAPIFolder& folder_;
    ExportFiles files_;
    Json written_ = Json::array();
};

class EmlExporter : public Exporter {
public:
    using Exporter::Exporter;
    void Write(IMessage& message, const ItemInfo& item) override
    {
        WriteMail(message);
        Keep(FileName(++number_, item.subject) + ".eml");
    }

private:
    std::size_t number_ = 0;
};

class MsgExporter : public Exporter {
public:
    using Exporter::Exporter;
    void Write(IMessage& message, const ItemInfo& item) override
    {
        {
            MsgFile file;
            Check(file.Create(Files().Aside()), "write", Files().Aside().string());
            const HRESULT hr = CopyMessage(message, file.Message(), KEEP_OPEN_READWRITE);
            if (hr == MAPI_E_CORRUPT_DATA)
                throw DamagedItem();
            Check(hr, "write", Files().Aside().string());
        }
        Keep(FileName(++number_, item.subject) + ".msg");
    }

private:
    std::size_t number_ = 0;
};

// All in one file, which has the folder's name. Each mail is written to a file of its own first: one that
// turns out to be damaged leaves no half of it.
class MboxExporter : public Exporter {
public:
    MboxExporter(IMAPIFolder& folder, const std::string& directory, const std::string& path)
        : Exporter(folder, directory),
          name_(MboxName(path)),
          path_(Files().Aside().parent_path() / "box"),
          file_(path_, std::ios::binary | std::ios::trunc),
          box_(file_)
    {}
    void Write(IMessage& message, const ItemInfo& item) override
    {
        WriteMail(message);
        std::ostream& mail = box_.Begin(UnixTime(item.sent));
        if (std::ifstream whole(Files().Aside(), std::ios::binary);
            whole.peek() != std::char_traits<char>::eof())
            mail << whole.rdbuf();
        box_.End();
        if (!file_)
            Fail("write", path_.string(), DescribeErrno(errno));
    }
    void Finish() override
    {
        file_.close();
        if (!file_)
            Fail("write", path_.string(), DescribeErrno(errno));
        RenameOver(path_, Files().Aside());
        Keep(name_);
    }

private:
    std::string name_;
    std::filesystem::path path_;
    std::ofstream file_;
    MboxWriter box_;
};

// The read state is in the names, as far as a Maildir can tell it.
class MaildirExporter : public Exporter {
public:
    MaildirExporter(IMAPIFolder& folder, const std::string& directory) : Exporter(folder, directory)
    {
        for (const char* const part : {"cur", "new", "tmp"})
            Files().MakeFolder(part);
    }
    void Write(IMessage& message, const ItemInfo& item) override
    {
        constexpr std::size_t kDigitsOfGuid = 32;
        WriteMail(message);
        const std::string id =
            item.entryId.substr(item.entryId.size() - std::min(item.entryId.size(), kDigitsOfGuid));
        const std::string name =
            std::to_string(std::max<std::time_t>(UnixTime(item.sent), 0)) + "." + id + ".quorvane";
        const bool read = (item.flags & static_cast<LONG>(MSGFLAG_READ)) != 0;
        Keep(read ? "cur/" + name + ":2,S" : "new/" + name);
    }
};

std::unique_ptr<Exporter> MakeExporter(IMAPIFolder& folder, const ExportArguments& options)
{
    if (options.format == "msg")
        return std::make_unique<MsgExporter>(folder, options.directory);
    if (options.format == "mbox")
        return std::make_unique<MboxExporter>(folder, options.directory, options.folder);
    if (options.format == "maildir")
        return std::make_unique<MaildirExporter>(folder, options.directory);
    return std::make_unique<EmlExporter>(folder, options.directory);
}

ExitCode Export(const ExportArguments& options)
{
    const Mailbox mailbox = Mailbox::Open(options.mailbox);
    const MailSession session(options.mailbox);
    const ComPtr<IMAPIFolder> folder = FindFolder(session, options.folder);
    const std::unique_ptr<Exporter> exporter = MakeExporter(*folder, options);
    Progress progress("exporting");
    const auto total = static_cast<std::size_t>(std::max<LONG>(LongOf(*folder, PR_CONTENT_COUNT), 0));
    std::size_t number = 0;
    Json damaged = Json::array();
    std::string lines;
    ForEachItem(*folder, [&](const ItemInfo& item) {
        const ComPtr<IMessage> message = OpenMessage(session, item.entryId, false);
        if (!message)
            return;  // deleted since the row was read
        try {
            exporter->Write(*message, item);
            ++number;
            progress.Show(number, total, Counted(number, "item"));
        } catch (const Exporter::DamagedItem&) {
            damaged.push_back({{"subject", item.subject}, {"entryId", item.entryId}});
            lines += "left out '" + Printable(item.subject) + "': it is damaged\n";
        }
    });
    exporter->Finish();
    PrintSentences(
        options.json,
        {{"folder", options.folder}, {"items", number}, {"files", exporter->Written()}, {"damaged", damaged}},
        lines + "exported " + Counted(number, "item") + " to " + options.directory + "\n");
    return damaged.empty() ? ExitCode::kDone : ExitCode::kFailed;
}

}  // namespace

void AddExportCommand(CLI::App& program, Chosen& chosen)
{
    auto options = std::make_shared<ExportArguments>();
    CLI::App* const command = AddCommand(
        program, chosen, "export",
        "Write the items of a folder to files; what has a name there stays as it is", options, Export);
    command->add_option("MAILBOX", options->mailbox, "Directory of the mailbox")->required();
    command->add_option("FOLDER", options->folder, "Path of the folder")->required();
    command->add_option("DIR", options->directory, "Directory for the files; made if it's missing")
        ->required();
    // A build without MIME writes the one form that it knows.
    const std::vector<std::string> formats = KnowsMime()
                                                 ? std::vector<std::string>{"eml", "msg", "mbox", "maildir"}
                                                 : std::vector<std::string>{"msg"};
    command
        ->add_option(
            "--format", options->format,
            KnowsMime()
                ? "eml or msg: a file for each item; mbox: one file with the folder's name; maildir: DIR "
                  "becomes a Maildir"
                : "msg; this build writes no other")
        ->check(CLI::IsMember(formats))
        ->capture_default_str();
}

}  // namespace quorvane::host
