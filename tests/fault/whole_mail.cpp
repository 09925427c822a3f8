#include "tests/fault/whole_mail.h"

#include <algorithm>
#include <cctype>
#include <vector>

#include "quorvane3/com.h"
#include "tests/support/test_directory.h"

namespace quorvane::test {

namespace {

// A store keeps values of more than 32 KB in rows of their own.
constexpr std::size_t kLargeText = 20'000;
constexpr std::size_t kLargeData = 40'000;
constexpr ULONG kRecipients = 2;
constexpr ULONG kAttachments = 2;  // data, and an embedded message

template <class T>
class MapiMemory {
public:
    MapiMemory() = default;
    MapiMemory(const MapiMemory&) = delete;
    MapiMemory& operator=(const MapiMemory&) = delete;
    ~MapiMemory() { MAPIFreeBuffer(buffer_); }
    T** Put() { return &buffer_; }
    T* operator->() const { return buffer_; }

private:
    T* buffer_ = nullptr;
};

struct Rows {
    Rows() = default;
    Rows(const Rows&) = delete;
    Rows& operator=(const Rows&) = delete;
    ~Rows() { FreeProws(set); }
    SRowSet* set = nullptr;
};

void ReadRows(IMAPITable& table, ULONG tag, Rows& rows)
{
    SizedSPropTagArray(1, columns) = {1, {tag}};
    Check(HrQueryAllRows(&table, reinterpret_cast<LPSPropTagArray>(&columns), nullptr, nullptr, 0, &rows.set),
          "read a table");
}

void SetText(IMAPIProp& object, ULONG tag, std::size_t size, char letter)
{
    OleString text(size, static_cast<OLECHAR>(letter));
    SPropValue value{};
    value.ulPropTag = tag;
    value.Value.lpszW = text.data();
    Check(object.SetProps(1, &value, nullptr), "set a text");
}

void SetLong(IMAPIProp& object, ULONG tag, LONG number)
{
    SPropValue value{};
    value.ulPropTag = tag;
    value.Value.l = number;
    Check(object.SetProps(1, &value, nullptr), "set a number");
}

void SetRecipients(IMessage& message, char letter)
{
    OleString name(1, static_cast<OLECHAR>(letter));
    SPropValue values[kRecipients][2]{};
    struct {
        ULONG count = kRecipients;
        ADRENTRY entries[kRecipients]{};
    } list;
    for (ULONG i = 0; i < kRecipients; ++i) {
        values[i][0].ulPropTag = PR_RECIPIENT_TYPE;
        values[i][0].Value.l = MAPI_TO;
        values[i][1].ulPropTag = PR_DISPLAY_NAME_W;
        values[i][1].Value.lpszW = name.data();
        list.entries[i] = {0, 2, values[i]};
    }
    Check(message.ModifyRecipients(0, reinterpret_cast<LPADRLIST>(&list)), "set the recipients");
}

void DeleteAttachments(IMessage& message)
{
    ComPtr<IMAPITable> table;
    Check(message.GetAttachmentTable(0, table.Put()), "list the attachments");
    Rows rows;
    ReadRows(*table.Get(), PR_ATTACH_NUM, rows);
    for (ULONG i = 0; i < rows.set->cRows; ++i)
        Check(message.DeleteAttach(rows.set->aRow[i].lpProps[0].Value.ul, 0, nullptr, 0),
              "delete an attachment");
}

ComPtr<IAttach> MakeAttachment(IMessage& message, LONG method)
{
    ULONG number = 0;
    ComPtr<IAttach> attachment;
    Check(message.CreateAttach(nullptr, 0, &number, attachment.Put()), "make an attachment");
    SetLong(*attachment.Get(), PR_ATTACH_METHOD, method);
    return attachment;
}

void AddData(IMessage& message, char letter)
{
    const ComPtr<IAttach> attachment = MakeAttachment(message, ATTACH_BY_VALUE);
    std::string data(kLargeData, letter);
    SPropValue value{};
    value.ulPropTag = PR_ATTACH_DATA_BIN;
    value.Value.bin = {static_cast<ULONG>(data.size()), reinterpret_cast<BYTE*>(data.data())};
    Check(attachment->SetProps(1, &value, nullptr), "fill an attachment");
    Check(attachment->SaveChanges(0), "save an attachment");
}

void AddEmbedded(IMessage& message, char letter)
{
    const ComPtr<IAttach> attachment = MakeAttachment(message, ATTACH_EMBEDDED_MSG);
    ComPtr<IMessage> embedded;
    Check(attachment->OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IMessage, 0, MAPI_CREATE | MAPI_MODIFY,
                                   embedded.PutUnknown()),
          "make an embedded message");
    SetText(*embedded.Get(), PR_SUBJECT_W, 1, letter);
    Check(embedded->SaveChanges(0), "save an embedded message");
    Check(attachment->SaveChanges(0), "save an attachment");
}

// Collects the letters that the parts of a message show; a part that is no single letter counts as '?'.
class Letters {
public:
    template <class Character>
    void Add(const Character* text, std::size_t size, std::size_t expected)
    {
        const bool isWhole = size == expected && std::all_of(text, text + size, [&](Character character) {
                                 return character == text[0];
                             });
        Add(isWhole ? static_cast<char>(text[0]) : '?');
    }
    void Add(char letter) { seen_ += letter; }

    char Common() const
    {
        const bool isOne = !seen_.empty() && std::all_of(seen_.begin(), seen_.end(),
                                                         [&](char letter) { return letter == seen_[0]; });
        return isOne ? seen_[0] : '?';
    }

private:
    std::string seen_;
};

void AddText(Letters& letters, IMAPIProp& object, ULONG tag, std::size_t expected)
{
    ComPtr<IStream> stream;
    if (FAILED(object.OpenProperty(tag, &IID_IStream, 0, 0, stream.PutUnknown())))
        return letters.Add('?');
    std::vector<OLECHAR> text(expected + 1);
    ULONG read = 0;
    Check(stream->Read(text.data(), static_cast<ULONG>(text.size() * sizeof(OLECHAR)), &read), "read a text");
    letters.Add(text.data(), read / sizeof(OLECHAR), expected);
}

void AddRecipients(Letters& letters, IMessage& message)
{
    ComPtr<IMAPITable> table;
    Check(message.GetRecipientTable(0, table.Put()), "list the recipients");
    Rows rows;
    ReadRows(*table.Get(), PR_DISPLAY_NAME_W, rows);
    if (rows.set->cRows != kRecipients)
        letters.Add('?');
    for (ULONG i = 0; i < rows.set->cRows; ++i)
        letters.Add(static_cast<char>(rows.set->aRow[i].lpProps[0].Value.lpszW[0]));
}

void AddAttachment(Letters& letters, IAttach& attachment)
{
    ComPtr<IMessage> embedded;
    if (SUCCEEDED(attachment.OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IMessage, 0, 0, embedded.PutUnknown())))
        return AddText(letters, *embedded.Get(), PR_SUBJECT_W, 1);
    ComPtr<IStream> stream;
    if (FAILED(attachment.OpenProperty(PR_ATTACH_DATA_BIN, &IID_IStream, 0, 0, stream.PutUnknown())))
        return letters.Add('?');
    std::string data(kLargeData + 1, '\0');
    ULONG read = 0;
    Check(stream->Read(data.data(), static_cast<ULONG>(data.size()), &read), "read an attachment");
    letters.Add(data.data(), read, kLargeData);
}

void AddAttachments(Letters& letters, IMessage& message)
{
    ComPtr<IMAPITable> table;
    Check(message.GetAttachmentTable(0, table.Put()), "list the attachments");
    Rows rows;
    ReadRows(*table.Get(), PR_ATTACH_NUM, rows);
    if (rows.set->cRows != kAttachments)
        letters.Add('?');
    for (ULONG i = 0; i < rows.set->cRows; ++i) {
        ComPtr<IAttach> attachment;
        Check(message.OpenAttach(rows.set->aRow[i].lpProps[0].Value.ul, nullptr, 0, attachment.Put()),
              "open an attachment");
        AddAttachment(letters, *attachment.Get());
    }
}

bool IsRead(IMessage& message)
{
    MapiMemory<SPropValue> flags;
    Check(HrGetOneProp(&message, PR_MESSAGE_FLAGS, flags.Put()), "read the flags");
    return (flags->Value.ul & MSGFLAG_READ) != 0;
}

}  // namespace

void FillWhole(IMessage& message, char letter)
{
    SetText(message, PR_MESSAGE_CLASS_W, 1, letter);
    SetText(message, PR_SUBJECT_W, 1, letter);
    SetText(message, PR_BODY_W, kLargeText, letter);
    SetRecipients(message, letter);
    DeleteAttachments(message);
    AddData(message, letter);
    AddEmbedded(message, letter);
}

char LetterOf(IMessage& message)
{
    Letters letters;
    AddText(letters, message, PR_MESSAGE_CLASS_W, 1);
    AddText(letters, message, PR_SUBJECT_W, 1);
    AddText(letters, message, PR_BODY_W, kLargeText);
    AddRecipients(letters, message);
    AddAttachments(letters, message);
    const char letter = letters.Common();
    return IsRead(message) ? static_cast<char>(std::toupper(letter)) : letter;
}

std::string LettersOf(IMAPIFolder& folder)
{
    ComPtr<IMAPITable> table;
    Check(folder.GetContentsTable(0, table.Put()), "list the mails");
    Rows rows;
    ReadRows(*table.Get(), PR_ENTRYID, rows);
    std::string letters;
    for (ULONG i = 0; i < rows.set->cRows; ++i) {
        const SBinary& id = rows.set->aRow[i].lpProps[0].Value.bin;
        ULONG type = 0;
        ComPtr<IMessage> message;
        Check(folder.OpenEntry(id.cb, reinterpret_cast<LPENTRYID>(id.lpb), &IID_IMessage, 0, &type,
                               message.PutUnknown()),
              "open a mail");
        letters += LetterOf(*message.Get());
    }
    std::sort(letters.begin(), letters.end());
    return letters;
}

}  // namespace quorvane::test
