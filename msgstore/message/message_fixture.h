// msgstore/message/message_fixture.h: what the tests of messages share.
#ifndef QUORVANE_MSGSTORE_MESSAGE_MESSAGE_FIXTURE_H_
#define QUORVANE_MSGSTORE_MESSAGE_MESSAGE_FIXTURE_H_

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "msgstore/message/compare_messages.h"
#include "msgstore/message/memory_backend.h"
#include "msgstore/message/message.h"
#include "platform/com/com_ptr.h"

namespace quorvane {

// Short forms of MAPI's calls, each of which expects success.
namespace say {

inline void Text(IMAPIProp& object, ULONG tag, OleString text)
{
    SPropValue value{};
    value.ulPropTag = tag;
    value.Value.lpszW = text.data();
    EXPECT_EQ(HrSetOneProp(&object, &value), S_OK);
}

inline HRESULT Number(IMAPIProp& object, ULONG tag, LONG number)
{
    SPropValue value{};
    value.ulPropTag = tag;
    value.Value.l = number;
    return HrSetOneProp(&object, &value);
}

inline OleString TextOf(IMAPIProp& object, ULONG tag)
{
    MapiBuffer<SPropValue> value;
    const HRESULT hr = HrGetOneProp(&object, tag, value.Put());
    EXPECT_EQ(hr, S_OK);
    return SUCCEEDED(hr) ? OleString(value->Value.lpszW) : OleString();
}

inline LONG NumberOf(IMAPIProp& object, ULONG tag)
{
    MapiBuffer<SPropValue> value;
    const HRESULT hr = HrGetOneProp(&object, tag, value.Put());
    EXPECT_EQ(hr, S_OK);
    return SUCCEEDED(hr) ? value->Value.l : 0;
}

inline HRESULT Find(IMAPIProp& object, ULONG tag)
{
    MapiBuffer<SPropValue> value;
    return HrGetOneProp(&object, tag, value.Put());
}

inline void Write(IMAPIProp& object, ULONG tag, const std::string& bytes)
{
    ComPtr<IStream> stream;
    ASSERT_EQ(object.OpenProperty(tag, &IID_IStream, 0, MAPI_CREATE | MAPI_MODIFY, stream.PutUnknown()),
              S_OK);
    EXPECT_EQ(stream->Write(bytes.data(), static_cast<ULONG>(bytes.size()), nullptr), S_OK);
    EXPECT_EQ(stream->Commit(0), S_OK);
}

inline std::string Read(IMAPIProp& object, ULONG tag)
{
    ComPtr<IStream> stream;
    EXPECT_EQ(object.OpenProperty(tag, &IID_IStream, 0, 0, stream.PutUnknown()), S_OK);
    std::string bytes;
    char block[5000];
    for (ULONG read = 1; stream && read > 0;) {
        EXPECT_EQ(stream->Read(block, sizeof(block), &read), S_OK);
        bytes.append(block, read);
    }
    return bytes;
}

// Adds a recipient of a kind and a name.
inline void Recipient(IMessage& message, LONG type, OleString name)
{
    SPropValue values[2] = {};
    values[0].ulPropTag = PR_RECIPIENT_TYPE;
    values[0].Value.l = type;
    values[1].ulPropTag = PR_DISPLAY_NAME_W;
    values[1].Value.lpszW = name.data();
    ADRLIST list{1, {{0, 2, values}}};
    EXPECT_EQ(message.ModifyRecipients(MODRECIP_ADD, &list), S_OK);
}

// Adds an attachment with a name and data, saved into the message.
inline ULONG Attachment(IMessage& message, OleString name, const std::string& data)
{
    ULONG number = 0;
    ComPtr<IAttach> attachment;
    EXPECT_EQ(message.CreateAttach(nullptr, 0, &number, attachment.Put()), S_OK);
    Text(*attachment, PR_ATTACH_LONG_FILENAME_W, std::move(name));
    EXPECT_EQ(Number(*attachment, PR_ATTACH_METHOD, ATTACH_BY_VALUE), S_OK);
    Write(*attachment, PR_ATTACH_DATA_BIN, data);
    EXPECT_EQ(attachment->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
    return number;
}

inline ULONG Count(IMessage& message, HRESULT (STDMETHODCALLTYPE IMessage::*table)(ULONG, LPMAPITABLE*))
{
    ComPtr<IMAPITable> rows;
    ULONG count = 0;
    EXPECT_EQ((message.*table)(0, rows.Put()), S_OK);
    EXPECT_EQ(rows->GetRowCount(0, &count), S_OK);
    return count;
}

inline ULONG Attachments(IMessage& message)
{
    return Count(message, &IMessage::GetAttachmentTable);
}

inline ULONG Recipients(IMessage& message)
{
    return Count(message, &IMessage::GetRecipientTable);
}

inline ULONG NamedId(IMAPIProp& object, const GUID& set, LONG number, ULONG flags = MAPI_CREATE)
{
    GUID own = set;
    MAPINAMEID name{};
    name.lpguid = &own;
    name.ulKind = MNID_ID;
    name.Kind.lID = number;
    LPMAPINAMEID names = &name;
    MapiBuffer<SPropTagArray> tags;
    EXPECT_GE(object.GetIDsFromNames(1, &names, flags, tags.Put()), 0);
    return tags ? tags->aulPropTag[0] : 0;
}

inline ULONG NamedId(IMAPIProp& object, const GUID& set, OleString text, ULONG flags = MAPI_CREATE)
{
    GUID own = set;
    MAPINAMEID name{};
    name.lpguid = &own;
    name.ulKind = MNID_STRING;
    name.Kind.lpwstrName = text.data();
    LPMAPINAMEID names = &name;
    MapiBuffer<SPropTagArray> tags;
    EXPECT_GE(object.GetIDsFromNames(1, &names, flags, tags.Put()), 0);
    return tags ? tags->aulPropTag[0] : 0;
}

// Copies all of a message as the engine does.
inline HRESULT CopyAll(IMessage& from, IMessage& to)
{
    return from.CopyTo(0, nullptr, nullptr, 0, nullptr, &IID_IMessage, &to, MAPI_DIALOG, nullptr);
}

inline std::vector<std::string> Differences(IMessage& first, IMessage& second,
                                            const CompareOptions& options = {})
{
    std::vector<std::string> differences;
    EXPECT_EQ(CompareMessages(first, second, options, differences), S_OK);
    return differences;
}

}  // namespace say

// A message in memory.
class MessageTest : public ::testing::Test {
protected:
    MessageTest() { message_ = Open(backend_); }

    static ComPtr<IMessage> Open(std::shared_ptr<MessageBackend> backend, bool writable = true)
    {
        ComPtr<IMessage> message;
        EXPECT_EQ(MakeMessage(std::move(backend), writable, {}, message.Put()), S_OK);
        return message;
    }

    // Saves and opens again what was saved.
    void Reopen()
    {
        ASSERT_EQ(message_->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
        message_ = Open(backend_);
    }

    std::shared_ptr<MemoryBackend> backend_ = std::make_shared<MemoryBackend>();
    ComPtr<IMessage> message_;
};

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_MESSAGE_MESSAGE_FIXTURE_H_
