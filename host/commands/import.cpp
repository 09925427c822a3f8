#include "host/command.h"
#include "host/mime/import_mime.h"
#include "host/mime/mail_reader.h"
#include "host/msg_file.h"
#include "host/progress.h"

namespace quorvane::host {

namespace {

struct ImportArguments {
    bool json = false;
    std::string mailbox;
    std::string folder;
    std::vector<std::string> paths;
};

// Brings mails into one folder and keeps count.
class Importer {
public:
    explicit Importer(IMAPIFolder& folder) : folder_(folder) {}

    // Each mail is saved whole or not at all; that all are on the disk is Finish's.
    void Import(const FoundMail& mail)
    {
        ComPtr<IMessage> message;
        HRESULT hr = folder_.CreateMessage(nullptr, 0, message.Put());
        Check(hr, "make an item in", "the folder");
        hr = mail.kind == FoundMail::Kind::Mime ? ImportMail(mail, *message) : ImportFile(mail, *message);
        if (FAILED(hr))
            LeaveOut(mail.source, Describe(hr));
        else
            ++imported_;
    }

    void LeaveOut(const std::string& source, const std::string& reason)
    {
        leftOut_.push_back({{"source", source}, {"reason", reason}});
        lines_ += "left out " + Printable(source) + ": " + Printable(reason) + "\n";
    }

    std::size_t Imported() const noexcept { return imported_; }
    const Json& LeftOut() const noexcept { return leftOut_; }
    const std::string& Lines() const noexcept { return lines_; }

private:
    static HRESULT ImportMail(const FoundMail& mail, IMessage& message)
    {
        const HRESULT hr = ImportMime(mail.bytes, ImportOptions{mail.read}, message);
        return FAILED(hr) ? hr : message.SaveChanges(MAPI_DEFERRED_ERRORS);
    }

    static HRESULT ImportFile(const FoundMail& mail, IMessage& message)
    {
        MsgFile file;
        const HRESULT hr = file.Open(mail.path);
        return FAILED(hr) ? hr : CopyMessage(file.Message(), message, MAPI_DEFERRED_ERRORS);
    }

    IMAPIFolder& folder_;
    std::size_t imported_ = 0;
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
    MailReader reader(std::vector<std::filesystem::path>(options.paths.begin(), options.paths.end()));
    Importer importer(*folder);
    ImportAll(reader, importer);
    Check(session.Store().SaveChanges(0), "save the items of", options.folder);
    Print(options.json,
          {{"folder", options.folder}, {"imported", importer.Imported()}, {"leftOut", importer.LeftOut()}},
          importer.Lines() + "imported " + std::to_string(importer.Imported()) + " items into " +
              Printable(options.folder) + ", left out " + std::to_string(importer.LeftOut().size()) + "\n");
    if (importer.Imported() == 0)
        Fail("import into", options.folder, "nothing that was found could be read as mail");
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
    command->add_option("PATH", options->paths, "mbox, .eml or .msg files, Maildirs, or folders of them")
        ->required();
}

}  // namespace quorvane::host
