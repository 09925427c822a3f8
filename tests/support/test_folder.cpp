#include "tests/support/test_folder.h"

#include <algorithm>
#include <functional>
#include <utility>

#include "tests/support/test_directory.h"

namespace quorvane::test {

namespace {

constexpr ULONG kRowsAtOnce = 100000;

std::vector<BYTE> BytesOf(const std::string& hex)
{
    std::vector<BYTE> bytes(hex.size() / 2);
    if (!FBinFromHex(const_cast<char*>(hex.c_str()), bytes.data()))
        throw std::runtime_error("not hexadecimal: " + hex);
    return bytes;
}

class MessageList {
public:
    explicit MessageList(const std::vector<std::string>& ids)
    {
        for (const std::string& id : ids)
            bytes_.push_back(BytesOf(id));
        for (auto& id : bytes_)
            binaries_.push_back({static_cast<ULONG>(id.size()), id.data()});
        list_ = {static_cast<ULONG>(binaries_.size()), binaries_.data()};
    }
    MessageList(const MessageList&) = delete;
    MessageList& operator=(const MessageList&) = delete;
    ENTRYLIST* Get() { return &list_; }

private:
    std::vector<std::vector<BYTE>> bytes_;
    std::vector<SBinary> binaries_;
    ENTRYLIST list_{};
};

class Rows {
public:
    Rows() = default;
    Rows(const Rows&) = delete;
    Rows& operator=(const Rows&) = delete;
    ~Rows()
    {
        if (rows_)
            FreeProws(rows_);
    }
    SRowSet** Put() { return &rows_; }
    SRowSet* operator->() const { return rows_; }

private:
    SRowSet* rows_ = nullptr;
};

void ForEachRow(IMAPITable& table, std::vector<ULONG> columns, const std::function<void(SRow&)>& visit)
{
    columns.insert(columns.begin(), static_cast<ULONG>(columns.size()));
    Rows rows;
    Check(HrQueryAllRows(&table, reinterpret_cast<LPSPropTagArray>(columns.data()), nullptr, nullptr,
                         kRowsAtOnce, rows.Put()),
          "read a table");
    for (ULONG i = 0; i < rows->cRows; ++i)
        visit(rows->aRow[i]);
}

std::string TextOf(const SRow& row, ULONG tag)
{
    const SPropValue* const value = PpropFindProp(row.lpProps, row.cValues, tag);
    return value ? ToUtf8(OleStringView(value->Value.lpszW)) : std::string();
}

std::string IdOf(IMAPIProp& object, ULONG tag)
{
    SPropValue* value = nullptr;
    Check(HrGetOneProp(&object, tag, &value), "read an identifier");
    const std::string id = HexOf(value->Value.bin);
    MAPIFreeBuffer(value);
    return id;
}

std::string ReadText(IMAPIProp& object, ULONG tag)
{
    SPropValue* value = nullptr;
    if (FAILED(HrGetOneProp(&object, tag, &value)))
        return {};
    const std::string text = ToUtf8(OleStringView(value->Value.lpszW));
    MAPIFreeBuffer(value);
    return text;
}

void SetText(IMAPIProp& object, ULONG tag, const std::string& text)
{
    OleString wide = FromUtf8(text);
    SPropValue value{};
    value.ulPropTag = tag;
    value.Value.lpszW = wide.data();
    Check(object.SetProps(1, &value, nullptr), "set a text");
}

void AddRecipient(IMessage& message, const std::string& name)
{
    OleString wide = FromUtf8(name);
    SPropValue* values = nullptr;
    Check(MAPIAllocateBuffer(4 * sizeof(SPropValue), reinterpret_cast<void**>(&values)), "make a recipient");
    std::fill_n(values, 4, SPropValue{});
    values[0].ulPropTag = PR_DISPLAY_NAME_W;
    values[0].Value.lpszW = wide.data();
    values[1].ulPropTag = PR_EMAIL_ADDRESS_W;
    values[1].Value.lpszW = wide.data();
    values[2].ulPropTag = PR_RECIPIENT_TYPE;
    values[2].Value.l = MAPI_TO;
    values[3].ulPropTag = PR_ROWID;
    ADRLIST list{};
    list.cEntries = 1;
    list.aEntries[0].cValues = 4;
    list.aEntries[0].rgPropVals = values;
    const HRESULT hr = message.ModifyRecipients(MODRECIP_ADD, &list);
    MAPIFreeBuffer(values);
    Check(hr, "add a recipient");
}

void AddAttachment(IMessage& message, const std::string& name, const std::string& data)
{
    ULONG number = 0;
    ComPtr<IAttach> attachment;
    Check(message.CreateAttach(nullptr, 0, &number, attachment.Put()), "make an attachment");
    SetText(*attachment.Get(), PR_ATTACH_FILENAME_W, name);
    SPropValue values[2]{};
    values[0].ulPropTag = PR_ATTACH_METHOD;
    values[0].Value.l = ATTACH_BY_VALUE;
    values[1].ulPropTag = PR_ATTACH_DATA_BIN;
    values[1].Value.bin.cb = static_cast<ULONG>(data.size());
    values[1].Value.bin.lpb = reinterpret_cast<BYTE*>(const_cast<char*>(data.data()));
    Check(attachment->SetProps(2, values, nullptr), "fill an attachment");
    Check(attachment->SaveChanges(0), "save an attachment");
}

std::string AttachmentText(IMessage& message, ULONG number)
{
    ComPtr<IAttach> attachment;
    Check(message.OpenAttach(number, nullptr, 0, attachment.Put()), "open an attachment");
    SPropValue* data = nullptr;
    Check(HrGetOneProp(attachment.Get(), PR_ATTACH_DATA_BIN, &data), "read an attachment");
    std::string text = ReadText(*attachment.Get(), PR_ATTACH_FILENAME_W) + ":";
    text.append(reinterpret_cast<const char*>(data->Value.bin.lpb), data->Value.bin.cb);
    MAPIFreeBuffer(data);
    return text;
}

}  // namespace

std::string HexOf(const SBinary& id)
{
    std::string text(2 * id.cb + 1, '\0');
    HexFromBin(id.lpb, static_cast<INT>(id.cb), text.data());
    text.pop_back();
    return text;
}

TestFolder::TestFolder(ComPtr<IMsgStore> store, ComPtr<IMAPIFolder> folder)
    : store_(std::move(store)),
      folder_(std::move(folder)),
      entryId_(IdOf(*folder_.Get(), PR_ENTRYID)),
      storeId_(IdOf(*store_.Get(), PR_ENTRYID))
{}

std::string TestFolder::Add(const std::string& subject, const std::string& body) const
{
    ComPtr<IMessage> message;
    Check(folder_->CreateMessage(nullptr, 0, message.Put()), "make a mail");
    SetText(*message.Get(), PR_MESSAGE_CLASS_W, "IPM.Note");
    SetText(*message.Get(), PR_SUBJECT_W, subject);
    SetText(*message.Get(), PR_BODY_W, body);
    AddRecipient(*message.Get(), "anna@example.org");
    AddAttachment(*message.Get(), "notes.txt", body + " (attached)");
    Check(message->SaveChanges(0), "save a mail");
    return IdOf(*message.Get(), PR_ENTRYID);
}

void TestFolder::SetSubject(const std::string& id, const std::string& subject) const
{
    const ComPtr<IMessage> message = Open(id, MAPI_MODIFY);
    SetText(*message.Get(), PR_SUBJECT_W, subject);
    Check(message->SaveChanges(0), "save a mail");
}

void TestFolder::Delete(const std::vector<std::string>& ids) const
{
    MessageList list(ids);
    Check(folder_->DeleteMessages(list.Get(), 0, nullptr, 0), "delete mails");
}

void TestFolder::Move(const std::vector<std::string>& ids, const TestFolder& to) const
{
    MessageList list(ids);
    Check(folder_->CopyMessages(list.Get(), nullptr, &to.Folder(), 0, nullptr, MESSAGE_MOVE), "move mails");
}

ComPtr<IMessage> TestFolder::Open(const std::string& id, ULONG flags) const
{
    std::vector<BYTE> bytes = BytesOf(id);
    ULONG type = 0;
    ComPtr<IUnknown> object;
    Check(store_->OpenEntry(static_cast<ULONG>(bytes.size()), reinterpret_cast<LPENTRYID>(bytes.data()),
                            nullptr, flags, &type, object.Put()),
          "open a mail");
    ComPtr<IMessage> message;
    Check(object.As(message), "open a mail");
    return message;
}

std::optional<std::string> TestFolder::Find(const std::string& subject) const
{
    ComPtr<IMAPITable> table;
    Check(folder_->GetContentsTable(0, table.Put()), "open the contents table");
    std::optional<std::string> found;
    ForEachRow(*table.Get(), {PR_ENTRYID, PR_SUBJECT_W}, [&](SRow& row) {
        const SPropValue* const id = PpropFindProp(row.lpProps, row.cValues, PR_ENTRYID);
        if (id && TextOf(row, PR_SUBJECT_W) == subject)
            found = HexOf(id->Value.bin);
    });
    return found;
}

std::vector<std::string> TestFolder::Subjects() const
{
    ComPtr<IMAPITable> table;
    Check(folder_->GetContentsTable(0, table.Put()), "open the contents table");
    std::vector<std::string> subjects;
    ForEachRow(*table.Get(), {PR_SUBJECT_W},
               [&](SRow& row) { subjects.push_back(TextOf(row, PR_SUBJECT_W)); });
    std::sort(subjects.begin(), subjects.end());
    return subjects;
}

ULONG TestFolder::Count() const
{
    return static_cast<ULONG>(Subjects().size());
}

MailContents ContentsOf(IMessage& message)
{
    MailContents contents;
    contents.subject = ReadText(message, PR_SUBJECT_W);
    contents.body = ReadText(message, PR_BODY_W);
    contents.messageClass = ReadText(message, PR_MESSAGE_CLASS_W);
    ComPtr<IMAPITable> recipients;
    Check(message.GetRecipientTable(0, recipients.Put()), "open the recipients");
    ForEachRow(*recipients.Get(), {PR_EMAIL_ADDRESS_W},
               [&](SRow& row) { contents.recipients.push_back(TextOf(row, PR_EMAIL_ADDRESS_W)); });
    ComPtr<IMAPITable> attachments;
    Check(message.GetAttachmentTable(0, attachments.Put()), "open the attachments");
    ForEachRow(*attachments.Get(), {PR_ATTACH_NUM}, [&](SRow& row) {
        const SPropValue* const number = PpropFindProp(row.lpProps, row.cValues, PR_ATTACH_NUM);
        contents.attachments.push_back(AttachmentText(message, static_cast<ULONG>(number->Value.l)));
    });
    return contents;
}

}  // namespace quorvane::test
