#include <algorithm>
#include <iterator>

#include "host/base/path_text.h"
#include "host/base/progress.h"
#include "host/commands/command.h"
#include "host/commands/mail_format.h"
#include "host/store/msg_file.h"

namespace quorvane::host {

namespace {

struct ImportArguments {
    bool json = false;
    bool noOriginal = false;
    std::string mailbox;
    std::string folder;
    std::vector<std::string> paths;
};

// Brings mails into one folder and keeps count.
class Importer {
public:
    Importer(IMAPIFolder& folder, bool keepOriginals) : folder_(folder), keepOriginals_(keepOriginals) {}

    // Each mail is saved whole or not at all; that all are on the disk is Finish's.
    void Import(const FoundMail& mail)
    {
        if (mail.kind == FoundMail::Kind::Mime && !KnowsMime())
            return LeaveOutMime(mail.source);
        ComPtr<IMessage> message;
        HRESULT hr = folder_.CreateMessage(nullptr, 0, message.Put());
        Check(hr, "make an item in", "the folder");
        hr = mail.kind == FoundMail::Kind::Mime ? SaveMail(mail, *message) : SaveFile(mail, *message);
        if (FAILED(hr))
            LeaveOut(mail.source, Describe(hr));
        else
            ++imported_;
    }

    void LeaveOut(const std::string& source, const std::string& reason)
    {
        NoteLeftOut(source, reason);
        lines_ += "left out " + Printable(source) + ": " + Printable(reason) + "\n";
    }

    std::size_t Imported() const noexcept { return imported_; }
    const Json& LeftOut() const noexcept { return leftOut_; }
    // What was left out, one line each; mail of a kind that this build doesn't read has one line together.
    std::string Lines() const
    {
        return mimeLeftOut_ == 0
                   ? lines_
                   : lines_ + "left out " + std::to_string(mimeLeftOut_) + " mails: " + kMsgOnly + "\n";
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

    HRESULT SaveMail(const FoundMail& mail, IMessage& message) const
    {
        const HRESULT hr = ImportMail(mail, keepOriginals_, message);
        return FAILED(hr) ? hr : message.SaveChanges(MAPI_DEFERRED_ERRORS);
    }

    static HRESULT SaveFile(const FoundMail& mail, IMessage& message)
    {
        MsgFile file;
        const HRESULT hr = file.Open(mail.path);
        return FAILED(hr) ? hr : CopyMessage(file.Message(), message, MAPI_DEFERRED_ERRORS);
    }

    IMAPIFolder& folder_;
    const bool keepOriginals_;
    std::size_t imported_ = 0;
    std::size_t mimeLeftOut_ = 0;
    Json leftOut_ = Json::array();
    std::string lines_;
};

void ImportAll(MailReader& reader, Importer& importer)
{
    Progress progress("importing");
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
        progress.Show(reader.DoneBytes(), reader.TotalBytes(),
                      std::to_string(importer.Imported()) + " items");
    }
}

ExitCode Import(const ImportArguments& options)
{
    const Mailbox mailbox = Mailbox::Open(options.mailbox);
    const MailSession session(options.mailbox);
    const ComPtr<IMAPIFolder> folder = EnsureFolder(session, options.folder);
    std::vector<std::filesystem::path> paths;
    std::transform(options.paths.begin(), options.paths.end(), std::back_inserter(paths), PathOf);
    MailReader reader(std::move(paths));
    Importer importer(*folder, !options.noOriginal);
    ImportAll(reader, importer);
    Check(session.Store().SaveChanges(0), "save the items of", options.folder);
    Print(options.json,
          {{"folder", options.folder}, {"imported", importer.Imported()}, {"leftOut", importer.LeftOut()}},
          importer.Lines() + "imported " + std::to_string(importer.Imported()) + " items into " +
              Printable(options.folder) + ", left out " + std::to_string(importer.LeftOut().size()) + "\n");
    if (importer.Imported() == 0)
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
                     KnowsMime() ? "mbox, .eml or .msg files, Maildirs, or folders of them"
                                 : ".msg files, or folders of them")
        ->required();
    if (KnowsMime())
        command->add_flag("--no-original", options->noOriginal,
                          "Don't keep the bytes of each mail beside what is read in them: half the space, but a mail "
                          "comes out as a new one of the same content, and signatures break");
}

}  // namespace quorvane::host
