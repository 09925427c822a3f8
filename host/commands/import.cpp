#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <optional>
#include <random>

#include "host/base/files.h"
#include "host/base/path_text.h"
#include "host/base/progress.h"
#include "host/commands/command.h"
#include "host/commands/mail_format.h"
#include "host/sharing/known_mail.h"
#include "host/store/msg_file.h"
#include "quorvane3/commit_groups.h"

namespace quorvane::host {

namespace {

struct ImportArguments {
    bool json = false;
    bool noOriginal = false;
    bool again = false;
    std::string mailbox;
    std::string folder;
    std::vector<std::string> paths;
};

// Brings mails into one folder and keeps count.
class Importer {
public:
    // known  what the folder holds already and isn't to come in again; null: everything comes in.
    Importer(IMAPIFolder& folder, bool keepOriginals, KnownMail* known)
        : folder_(folder), keepOriginals_(keepOriginals), known_(known)
    {}

    // Each mail is saved whole or not at all; that all are on the disk is Finish's.
    void Import(const FoundMail& mail)
    {
        if (mail.kind == FoundMail::Kind::Mime && !KnowsMime())
            return LeaveOutMime(mail.source);
        ComPtr<IMessage> message;
        HRESULT hr = folder_.CreateMessage(nullptr, 0, message.Put());
        Check(hr, "make an item in", "the folder");
        MsgFile file;
        hr = mail.kind == FoundMail::Kind::Mime ? ImportMail(mail, keepOriginals_, *message)
                                                : CopyFile(file, mail.path, *message);
        if (FAILED(hr))
            return LeaveOut(mail.source, Describe(hr));
        if (known_ && !known_->Take(*message).empty()) {
            ++knownCount_;
            return;
        }
        hr = message->SaveChanges(MAPI_DEFERRED_ERRORS);
        if (FAILED(hr))
            return LeaveOut(mail.source, Describe(hr));
        ++imported_;
        if (!mail.doubt.empty())
            NoteDoubt(mail.source, mail.doubt);
    }

    void LeaveOut(const std::string& source, const std::string& reason)
    {
        NoteLeftOut(source, reason);
        lines_ += "left out " + Printable(source) + ": " + Printable(reason) + "\n";
    }

    std::size_t Imported() const noexcept { return imported_; }
    // How many were there already.
    std::size_t Known() const noexcept { return knownCount_; }
    // Mails that may be more than one, as the reader says.
    const Json& Doubts() const noexcept { return doubts_; }
    const Json& LeftOut() const noexcept { return leftOut_; }
    // What was left out, one line each; mail of a kind that this build doesn't read has one line together.
    std::string Lines() const
    {
        return mimeLeftOut_ == 0
                   ? lines_
                   : lines_ + "left out " + Counted(mimeLeftOut_, "mail") + ": " + kMsgOnly + "\n";
    }
    // Why there may be nothing.
    const char* WhyNothing() const noexcept
    {
        return mimeLeftOut_ > 0 ? kMsgOnly : "nothing that was found could be read as mail";
    }

private:
    static constexpr char kMsgOnly[] = "this build reads .msg files, and no mail in MIME";

    void NoteLeftOut(const std::string& source, const std::string& reason)
    {
        leftOut_.push_back({{"source", source}, {"reason", reason}});
    }

    void LeaveOutMime(const std::string& source)
    {
        NoteLeftOut(source, kMsgOnly);
        ++mimeLeftOut_;
    }

    void NoteDoubt(const std::string& source, const std::string& doubt)
    {
        doubts_.push_back({{"source", source}, {"reason", doubt}});
        lines_ += "look at " + Printable(source) + ": " + doubt + "\n";
    }

    static HRESULT CopyFile(MsgFile& file, const std::filesystem::path& path, IMessage& message)
    {
        const HRESULT hr = file.Open(path);
        return FAILED(hr) ? hr
                          : file.Message().CopyTo(0, nullptr, nullptr, 0, nullptr, &IID_IMessage, &message, 0,
                                                  nullptr);
    }

    IMAPIFolder& folder_;
    const bool keepOriginals_;
    KnownMail* const known_;
    std::size_t imported_ = 0;
    std::size_t knownCount_ = 0;
    Json doubts_ = Json::array();
    std::size_t mimeLeftOut_ = 0;
    Json leftOut_ = Json::array();
    std::string lines_;
};

// The bytes on the standard input as a file, which goes with this.
class StandardInput {
public:
    StandardInput()
        : directory_(std::filesystem::temp_directory_path() /
                     ("import-" + std::to_string(std::random_device{}())))
    {
        MakePrivateDirectory(directory_);
        std::ofstream file(Path(), std::ios::binary);
        std::string piece(std::size_t{64} << 10, '\0');
        for (std::size_t got; (got = std::fread(piece.data(), 1, piece.size(), stdin)) > 0;)
            file.write(piece.data(), static_cast<std::streamsize>(got));
        file.close();
        if (!file || std::ferror(stdin))
            Fail("read", "the standard input",
                 std::ferror(stdin) ? "it ended early" : "there is no room for a copy");
    }
    ~StandardInput()
    {
        std::error_code ignored;  // what is left is a copy of what the user has
        std::filesystem::remove_all(directory_, ignored);
    }
    StandardInput(const StandardInput&) = delete;
    StandardInput& operator=(const StandardInput&) = delete;

    std::filesystem::path Path() const { return directory_ / "standard input"; }

private:
    std::filesystem::path directory_;
};

// The paths as they were named, that of `input` in place of "-". Throws a HostError where one leads nowhere:
// before anything is imported, as a misspelt name is easily overlooked among many.
std::vector<std::filesystem::path> PathsOf(const std::vector<std::string>& names,
                                           std::optional<StandardInput>& input)
{
    std::vector<std::filesystem::path> paths;
    for (const std::string& name : names) {
        if (name == "-" && KnowsMime()) {
            if (!input)
                paths.push_back(input.emplace().Path());
            continue;
        }
        paths.push_back(PathOf(name));
        std::error_code failure;
        if (!std::filesystem::exists(std::filesystem::symlink_status(paths.back(), failure)))
            Fail("import", name, "there is no such file");
    }
    return paths;
}

void ImportAll(MailReader& reader, Importer& importer)
{
    Progress progress("importing", Progress::Unit::kBytes);
    FoundMail mail;
    LeftOutFile leftOut;
    for (;;) {
        switch (reader.Next(mail, leftOut)) {
            case MailReader::Step::End:
                return;
            case MailReader::Step::LeftOut:
                importer.LeaveOut(leftOut.source, leftOut.reason);
                break;
            case MailReader::Step::Found:
                importer.Import(mail);
                break;
        }
        progress.Show(reader.DoneBytes(), reader.TotalBytes(), Counted(importer.Imported(), "item"));
    }
}

ExitCode Import(const ImportArguments& options)
{
    const Mailbox mailbox = Mailbox::Open(options.mailbox);
    const MailSession session(options.mailbox);
    std::optional<StandardInput> input;
    MailReader reader(PathsOf(options.paths, input));
    const ComPtr<IMAPIFolder> folder = EnsureFolder(session, options.folder);
    std::optional<KnownMail> known;
    if (!options.again)
        known.emplace(session, *folder);
    Importer importer(*folder, !options.noOriginal, known ? &*known : nullptr);
    // What a kill takes back is imported by the next try.
    ComPtr<IGatheredSaves> saves;
    if (SUCCEEDED(session.Store().QueryInterface(IID_IGatheredSaves, saves.PutVoid())))
        Check(saves->Gather(TRUE), "save the items of", options.folder);
    ImportAll(reader, importer);
    Check(session.Store().SaveChanges(0), "save the items of", options.folder);
    PrintSentences(
        options.json,
        {{"folder", options.folder},
         {"imported", importer.Imported()},
         {"known", importer.Known()},
         {"leftOut", importer.LeftOut()},
         {"doubts", importer.Doubts()}},
        importer.Lines() + "imported " + Counted(importer.Imported(), "item") + " into " +
            Printable(options.folder) + ", left out " + std::to_string(importer.LeftOut().size()) +
            (importer.Known() == 0 ? "" : ", " + std::to_string(importer.Known()) + " were there already") +
            "\n");
    if (importer.Imported() == 0 && importer.Known() == 0)
        Fail("import into", options.folder, importer.WhyNothing());
    return ExitCode::kDone;
}

}  // namespace

void AddImportCommand(CLI::App& program, Chosen& chosen)
{
    auto options = std::make_shared<ImportArguments>();
    CLI::App* const command =
        AddCommand(program, chosen, "import", "Bring mail into a folder, which is made if it's missing",
                   options, Import);
    command->add_option("MAILBOX", options->mailbox, "Directory of the mailbox")->required();
    command->add_option("FOLDER", options->folder, "Path of the folder, as in 'Projects/2026'")->required();
    command
        ->add_option("PATH", options->paths,
                     KnowsMime()
                         ? "mbox, .eml or .msg files, Maildirs, or folders of them; - for the standard input"
                         : ".msg files, or folders of them")
        ->required();
    command->add_flag(
        "--again", options->again,
        "Bring in what the folder holds already as well; without it an import that was stopped is "
        "finished by the same command");
    if (KnowsMime())
        command->add_flag(
            "--no-original", options->noOriginal,
            "Don't keep the bytes of each mail beside what is read in them: half the space, but a mail "
            "comes out as a new one of the same content, and signatures break");
}

}  // namespace quorvane::host
