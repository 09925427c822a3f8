#include <chrono>

#include "host/base/path_text.h"
#include "host/base/terminal.h"
#include "host/commands/command.h"
#include "host/sharing/engine.h"
#include "host/store/item_marks.h"
#include "host/store/properties.h"

namespace quorvane::host {

namespace {

struct ShowOptions {
    bool json = false;
    std::string mailbox;
    std::string folder;
    std::string item;
    bool form = false;
};

// A body of any size, in UTF-8.
std::string ReadBody(IMessage& message, const std::string& shown)
{
    ComPtr<IStream> stream;
    const HRESULT hr = message.OpenProperty(PR_BODY_W, &IID_IStream, 0, 0, stream.PutUnknown());
    if (hr == MAPI_E_NOT_FOUND)
        return {};
    Check(hr, "read the item", shown);
    OleString body;
    std::vector<OLECHAR> block(32 * 1024);
    for (ULONG read = 1; read != 0;) {
        Check(stream->Read(block.data(), static_cast<ULONG>(block.size() * sizeof(OLECHAR)), &read),
              "read the item", shown);
        body.append(block.data(), read / sizeof(OLECHAR));
    }
    return ToUtf8(body);
}

Json ReadRecipients(IMessage& message, const std::string& shown)
{
    ComPtr<IMAPITable> table;
    Rows rows;
    Check(message.GetRecipientTable(MAPI_UNICODE, table.Put()), "read the item", shown);
    Check(HrQueryAllRows(table.Get(), nullptr, nullptr, nullptr, 0, rows.Put()), "read the item", shown);
    Json recipients = Json::array();
    for (ULONG i = 0; i < rows.Count(); ++i) {
        const LONG kind = LongOf(rows[i], PR_RECIPIENT_TYPE) & 15;
        recipients.push_back({{"kind", kind == MAPI_CC    ? "Cc"
                                       : kind == MAPI_BCC ? "Bcc"
                                                          : "To"},
                              {"name", host::TextOf(rows[i], PR_DISPLAY_NAME_W)},
                              {"address", host::TextOf(rows[i], PR_EMAIL_ADDRESS_W)}});
    }
    return recipients;
}

Json ReadAttachments(IMessage& message, const std::string& shown)
{
    ComPtr<IMAPITable> table;
    Rows rows;
    Check(message.GetAttachmentTable(MAPI_UNICODE, table.Put()), "read the item", shown);
    Check(HrQueryAllRows(table.Get(), nullptr, nullptr, nullptr, 0, rows.Put()), "read the item", shown);
    Json attachments = Json::array();
    for (ULONG i = 0; i < rows.Count(); ++i) {
        std::string name = host::TextOf(rows[i], PR_ATTACH_LONG_FILENAME_W);
        if (name.empty())
            name = host::TextOf(rows[i], PR_ATTACH_FILENAME_W);
        attachments.push_back({{"name", name}, {"size", LongOf(rows[i], PR_ATTACH_SIZE)}});
    }
    return attachments;
}

Json ReadItem(IMessage& message, const std::string& shown)
{
    const Marks marks = MarksOf(message);
    return {{"subject", host::TextOf(message, PR_SUBJECT_W)},
            {"sender", host::TextOf(message, PR_SENDER_NAME_W)},
            {"date", TimeText(TimeOf(message, PR_CLIENT_SUBMIT_TIME))},
            {"class", host::TextOf(message, PR_MESSAGE_CLASS_W)},
            {"recipients", ReadRecipients(message, shown)},
            {"attachments", ReadAttachments(message, shown)},
            {"read", (marks & kMarkRead) != 0},
            {"flagged", (marks & kMarkFlagged) != 0},
            {"answered", (marks & kMarkAnswered) != 0},
            {"forwarded", (marks & kMarkForwarded) != 0},
            {"draft", (marks & kMarkDraft) != 0},
            {"forDeletion", (marks & kMarkForDeletion) != 0},
            {"body", ReadBody(message, shown)}};
}

std::string Line(const std::string& name, const std::string& value)
{
    return value.empty() ? std::string() : name + ": " + Printable(value) + "\n";
}

// The lines of a text, without what would steer a terminal.
std::string PrintableLines(const std::string& text)
{
    std::string lines;
    for (std::size_t begin = 0; begin < text.size();) {
        const std::size_t end = std::min(text.find('\n', begin), text.size());
        std::string line = text.substr(begin, end - begin);
        if (line.ends_with('\r'))
            line.pop_back();
        lines += Folded(Printable(line), OutputWidth()) + '\n';
        begin = end + 1;
    }
    return lines;
}

// A body that isn't text, which a viewer shows.
const char* UnshownBodyOf(IMessage& message)
{
    for (const auto& [tag, text] :
         {std::pair{kPrHtml, "(its text is HTML alone: --form shows it)\n"},
          std::pair{PR_RTF_COMPRESSED, "(its text is RTF alone: --form shows it)\n"}}) {
        ComPtr<IStream> stream;
        if (SUCCEEDED(message.OpenProperty(tag, &IID_IStream, 0, 0, stream.PutUnknown())))
            return text;
    }
    return "";
}

std::string TextOfItem(IMessage& message, const Json& item)
{
    std::string text = Line("Subject", item["subject"]) + Line("From", item["sender"]);
    for (const Json& recipient : item["recipients"]) {
        const std::string name = recipient["name"];
        const std::string address = recipient["address"];
        text +=
            Line(recipient["kind"], address.empty() || name == address ? name : name + " <" + address + ">");
    }
    text += Line("Date", item["date"]);
    for (const Json& attachment : item["attachments"])
        text += Line("Attachment", attachment["name"]);
    std::string marks;
    for (const char* const mark : {"read", "flagged", "answered", "forwarded"})
        if (item[mark])
            marks += (marks.empty() ? "" : ", ") + std::string(mark);
    text += Line("Marked", marks);
    const std::string body = item["body"];
    return text + "\n" + (body.empty() ? UnshownBodyOf(message) : PrintableLines(body));
}

// What the engine asks of a host that only has an item shown.
class FormHost final : public ExtHandler {
public:
    explicit FormHost(const Mailbox& mailbox) noexcept : mailbox_(mailbox) {}

    HRESULT DatabasePath(Bstr& path) override
    {
        path = Bstr(OleTextOf(mailbox_.SharingDatabasePath()));
        return S_OK;
    }
    HRESULT ProductCode(Bstr& code) override
    {
        code = Bstr(OleStringView(kProductCode));
        return S_OK;
    }

private:
    const Mailbox& mailbox_;
};

// A folder that the engine knows and doesn't watch: nothing is noted, and a run of the mailbox isn't
// disturbed.
ComPtr<IFolder> AddUnwatchedFolder(const EngineSession& engine, const std::string& entryId,
                                   const std::string& storeId, const std::string& shown)
{
    ComPtr<IOptions> options;
    Check(engine.Session().get_Options(options.Put()), "open the folder", shown);
    Variant found;
    Check(options->get_Item(Variant::Text(OLESTR("NoListeners")).Raw(), found.Put()), "open the folder",
          shown);
    ComPtr<IOption> noListeners;
    Check(QueryFor(found.Raw().pdispVal, noListeners), "open the folder", shown);
    Check(noListeners->put_Value(Variant::Bool(true).Raw()), "open the folder", shown);
    const Variant missing = Variant::Missing();
    ComPtr<IFolder> folder;
    Check(engine.Folders()->Add(BstrOf(entryId).Get(), BstrOf(storeId).Get(), missing.Raw(), missing.Raw(),
                                folder.Put()),
          "open the folder", shown);
    return folder;
}

// The form goes on when this returns, if it is one that does.
void DisplayItem(const ShowOptions& options, const Mailbox& mailbox, const MailSession& mail,
                 IMAPIFolder& folder, IMessage& message)
{
    FormHost host(mailbox);
    const EngineSession engine(host, options.mailbox);
    const ComPtr<IFolder> place =
        AddUnwatchedFolder(engine, HexOf(folder, PR_ENTRYID), mail.StoreId(), options.folder);
    Variant noContent = SafeArray::Attach(SafeArrayCreateVector(VT_UI1, 0, 0)).DetachAsVariant();
    ComPtr<IItem> item;
    Check(place->CreateItem(noContent.Raw(), Variant::Missing().Raw(), item.Put()), "show the item",
          options.item);
    Check(item->put_Raw(&message), "show the item", options.item);
    Check(item->Display(VARIANT_FALSE, 0), "show the item", options.item);
}

// A form outlives the engine's session, but not this process.
void WaitForForms()
{
    constexpr std::chrono::milliseconds kTurn(50);
    const ApartmentScope apartment;
    ApartmentLoop loop;
    while (DllCanUnloadNow() != S_OK)
        loop.RunFor(kTurn);
}

ExitCode Show(const ShowOptions& options)
{
    const Mailbox mailbox = Mailbox::Open(options.mailbox);
    const MailSession session(options.mailbox);
    const ComPtr<IMAPIFolder> folder = FindFolder(session, options.folder);
    const std::string entryId = FindItem(mailbox, *folder, options.item);
    const ComPtr<IMessage> message = OpenMessage(session, entryId, options.form);
    if (!message)
        Fail("open the item", options.item, "it is gone");
    if (!options.form) {
        Json item = ReadItem(*message, options.item);
        item["entryId"] = entryId;
        Print(options.json, item, options.json ? std::string() : TextOfItem(*message, item));
        return ExitCode::kDone;
    }
    DisplayItem(options, mailbox, session, *folder, *message);
    WaitForForms();
    if (options.json)
        Print(true, {{"shown", entryId}}, {});
    return ExitCode::kDone;
}

}  // namespace

void AddShowCommand(CLI::App& program, Chosen& chosen)
{
    auto options = std::make_shared<ShowOptions>();
    CLI::App* const command = AddCommand(program, chosen, "show", "Show an item", options, Show);
    command->add_option("MAILBOX", options->mailbox, "Directory of the mailbox")->required();
    command->add_option("FOLDER", options->folder, "Path of the folder")->required();
    command->add_option("ITEM", options->item, "Number in 'list', sharing ID or entry identifier")
        ->required();
    command->add_flag("--form", options->form,
                      "Open the item in the form of its class, or with the program that shows mail");
}

}  // namespace quorvane::host
