#include "host/sharing/message_content.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>
#include <string_view>

#include "host/base/errors.h"
#include "host/exchange/keys.h"
#include "host/exchange/wire.h"
#include "host/store/properties.h"
#include "quorvane3/com.h"

namespace quorvane::host {

namespace {

constexpr int kDeepestMessage = 64;
constexpr std::size_t kLongestValue = 256;
constexpr std::size_t kDigestShown = 32;
constexpr ULONG kReadBlock = 64 * 1024;
constexpr ULONG kFirstNamedId = 0x8000;
constexpr ULONG kLastNamedId = 0xFFFE;

// What an object's place decides and not its content.
constexpr ULONG kStoreOwned[] = {
    PROP_ID(PR_ENTRYID),         // identity of the object in its store
    PROP_ID(PR_RECORD_KEY),      // the same
    PROP_ID(PR_INSTANCE_KEY),    // identity of a table row
    PROP_ID(PR_PARENT_ENTRYID),  // the folder that it lies in
    PROP_ID(PR_STORE_ENTRYID),   // the store that it lies in
    PROP_ID(PR_STORE_RECORD_KEY),
    PROP_ID(PR_STORE_SUPPORT_MASK),
    PROP_ID(PR_MAPPING_SIGNATURE),
    PROP_ID(PR_LAST_MODIFICATION_TIME),  // the moment of the last save there
    PROP_ID(PR_CREATION_TIME),
    PROP_ID(quorvane::kPrChangeKey),
    PROP_ID(PR_MESSAGE_SIZE),  // how the store keeps it
    PROP_ID(PR_ATTACH_SIZE),
    PROP_ID(PR_ACCESS),  // what this user may do there
    PROP_ID(PR_ACCESS_LEVEL),
    PROP_ID(PR_OBJECT_TYPE),
    PROP_ID(PR_ROWID),  // numbers of rows
    PROP_ID(PR_ATTACH_NUM),
    PROP_ID(PR_MESSAGE_RECIPIENTS),  // the tables themselves, read one by one
    PROP_ID(PR_MESSAGE_ATTACHMENTS),
};

// A received message arrives unread: the read state is each member's own.
constexpr ULONG kMemberOwnFlags = MSGFLAG_READ | MSGFLAG_UNMODIFIED;

// What a reader makes of a mail, and no content: whether he answered it, how it is flagged, which picture it
// has in a list.
constexpr ULONG kReadersOwn[] = {
    PROP_TAG(PT_LONG, 0x0E17),  // PR_MSG_STATUS
    PR_MESSAGE_FLAGS,
    PROP_TAG(PT_LONG, 0x1080),     // PR_ICON_INDEX
    PROP_TAG(PT_LONG, 0x1081),     // PR_LAST_VERB_EXECUTED
    PROP_TAG(PT_SYSTIME, 0x1082),  // PR_LAST_VERB_EXECUTION_TIME
    PROP_TAG(PT_LONG, 0x1090),     // PR_FLAG_STATUS
    PROP_TAG(PT_SYSTIME, 0x1091),  // PR_FLAG_COMPLETE_TIME
    PROP_TAG(PT_LONG, 0x1095),     // PR_FOLLOWUP_ICON
    PROP_TAG(PT_LONG, 0x0E2B),     // PR_TODO_ITEM_FLAGS
};

bool IsStoreOwned(ULONG tag)
{
    return std::find(std::begin(kStoreOwned), std::end(kStoreOwned), PROP_ID(tag)) != std::end(kStoreOwned);
}

// Takes bytes in; gives them back as they are when they were few, else their digest.
class ValueDigest {
public:
    void Add(const void* data, std::size_t size)
    {
        const std::string_view bytes(static_cast<const char*>(data), size);
        size_ += size;
        if (!digest_ && size_ < kLongestValue) {
            head_ += bytes;
            return;
        }
        if (!digest_)
            digest_.emplace().Add(head_);
        digest_->Add(bytes);
    }
    std::string Text()
    {
        if (!digest_)
            return std::move(head_);
        const std::array<unsigned char, 64> digest = digest_->Finish();
        return std::to_string(size_) + " bytes, blake2b " +
               Hex(Bytes(digest.begin(), digest.begin() + kDigestShown));
    }

private:
    std::optional<exchange::Digest> digest_;  // from so many bytes on
    std::string head_;
    unsigned long long size_ = 0;
};

// The bytes of a value that isn't multi-valued.
void AddSingle(ValueDigest& digest, ULONG type, const _PV& value)
{
    switch (type) {
        case PT_STRING8:
            digest.Add(value.lpszA, std::strlen(value.lpszA));
            break;
        case PT_UNICODE:
            digest.Add(value.lpszW, std::char_traits<WCHAR>::length(value.lpszW) * sizeof(WCHAR));
            break;
        case PT_BINARY:
            digest.Add(value.bin.lpb, value.bin.cb);
            break;
        case PT_CLSID:
            digest.Add(value.lpguid, sizeof(GUID));
            break;
        case PT_BOOLEAN: {
            const char truth = value.b != 0 ? 1 : 0;
            digest.Add(&truth, 1);
            break;
        }
        case PT_I2:
            digest.Add(&value.i, sizeof value.i);
            break;
        case PT_LONG:
        case PT_R4:
            digest.Add(&value.l, sizeof value.l);
            break;
        default:  // the 8-byte types: times, numbers, currency
            digest.Add(&value.li, sizeof value.li);
            break;
    }
}

template <class Array, class Item>
void AddEach(ValueDigest& digest, const Array& array, Item item)
{
    for (ULONG i = 0; i < array.cValues; ++i) {
        const auto [data, size] = item(i);
        const std::uint64_t length = size;
        digest.Add(&length, sizeof length);
        digest.Add(data, size);
    }
}

void AddMultiple(ValueDigest& digest, ULONG type, const _PV& value)
{
    using Piece = std::pair<const void*, std::size_t>;
    switch (type) {
        case PT_STRING8:
            AddEach(digest, value.MVszA, [&](ULONG i) {
                return Piece(value.MVszA.lppszA[i], std::strlen(value.MVszA.lppszA[i]));
            });
            break;
        case PT_UNICODE:
            AddEach(digest, value.MVszW, [&](ULONG i) {
                const LPWSTR text = value.MVszW.lppszW[i];
                return Piece(text, std::char_traits<WCHAR>::length(text) * sizeof(WCHAR));
            });
            break;
        case PT_BINARY:
            AddEach(digest, value.MVbin,
                    [&](ULONG i) { return Piece(value.MVbin.lpbin[i].lpb, value.MVbin.lpbin[i].cb); });
            break;
        case PT_CLSID:
            digest.Add(value.MVguid.lpguid, value.MVguid.cValues * sizeof(GUID));
            break;
        case PT_I2:
            digest.Add(value.MVi.lpi, value.MVi.cValues * sizeof(SHORT));
            break;
        case PT_LONG:
        case PT_R4:
            digest.Add(value.MVl.lpl, value.MVl.cValues * sizeof(LONG));
            break;
        default:
            digest.Add(value.MVli.lpli, value.MVli.cValues * sizeof(LARGE_INTEGER));
            break;
    }
}

std::string ValueText(const SPropValue& value)
{
    ValueDigest digest;
    const ULONG type = PROP_TYPE(value.ulPropTag);
    if (value.ulPropTag == PR_MESSAGE_FLAGS) {
        const LONG flags = value.Value.l & ~static_cast<LONG>(kMemberOwnFlags);
        digest.Add(&flags, sizeof flags);
    } else if (type & MV_FLAG) {
        AddMultiple(digest, type & ~MV_FLAG, value.Value);
    } else {
        AddSingle(digest, type, value.Value);
    }
    return digest.Text();
}

std::string TagText(ULONG tag)
{
    char text[16];
    std::snprintf(text, sizeof text, "0x%08X", static_cast<unsigned>(tag));
    return text;
}

// Reads objects of one message and, for embedded ones, of theirs.
class ContentReader {
public:
    ContentReader(MessageContent& content, std::string shown) : content_(content), shown_(std::move(shown)) {}

    void ReadMessage(IMessage& message, const std::string& prefix, int depth)
    {
        if (depth > kDeepestMessage)
            Fail("read the item", shown_, "messages are nested too deeply");
        ReadProperties(message, prefix);
        ReadRecipients(message, prefix);
        ReadAttachments(message, prefix, depth);
    }

private:
    void ReadProperties(IMAPIProp& object, const std::string& prefix)
    {
        MapiMemory<SPropTagArray> tags;
        Check(object.GetPropList(MAPI_UNICODE, tags.Put()), "read the item", shown_);
        ULONG wanted = 0;
        for (ULONG i = 0; i < tags->cValues; ++i)
            if (!IsStoreOwned(tags->aulPropTag[i]) && PROP_TYPE(tags->aulPropTag[i]) != PT_OBJECT)
                tags->aulPropTag[wanted++] = tags->aulPropTag[i];
        tags->cValues = wanted;
        if (wanted == 0)
            return;
        ULONG count = 0;
        MapiMemory<SPropValue> values;
        Check(object.GetProps(tags.Get(), 0, &count, values.Put()), "read the item", shown_);
        for (ULONG i = 0; i < std::min(count, wanted); ++i)
            content_[prefix + PropertyName(object, tags->aulPropTag[i])] =
                TextOfValue(object, tags->aulPropTag[i], values.Get()[i]);
    }

    std::string TextOfValue(IMAPIProp& object, ULONG tag, const SPropValue& value)
    {
        if (PROP_TYPE(value.ulPropTag) != PT_ERROR)
            return ValueText(value);
        return value.Value.err == MAPI_E_NOT_ENOUGH_MEMORY ? StreamText(object, tag)
                                                           : Describe(value.Value.err);
    }

    // A value that is too large to be handed out at once.
    std::string StreamText(IMAPIProp& object, ULONG tag)
    {
        ComPtr<IStream> stream;
        Check(object.OpenProperty(tag, &IID_IStream, 0, 0, stream.PutUnknown()), "read the item", shown_);
        ValueDigest digest;
        std::vector<char> block(kReadBlock);
        for (;;) {
            ULONG count = 0;
            Check(stream->Read(block.data(), kReadBlock, &count), "read the item", shown_);
            if (count == 0)
                return digest.Text();
            digest.Add(block.data(), count);
        }
    }

    // The tag, or for a named property the name, which is the same in every store.
    static std::string PropertyName(IMAPIProp& object, ULONG tag)
    {
        const std::string text = TagText(tag);
        if (PROP_ID(tag) < kFirstNamedId || PROP_ID(tag) > kLastNamedId)
            return text;
        SizedSPropTagArray(1, one) = {1, {tag}};
        auto* tags = reinterpret_cast<LPSPropTagArray>(&one);
        ULONG count = 0;
        MapiMemory<LPMAPINAMEID> names;
        if (FAILED(object.GetNamesFromIDs(&tags, nullptr, 0, &count, names.Put())) || count != 1 ||
            !*names.Get() || !(*names.Get())->lpguid)
            return text;
        const MAPINAMEID& name = **names.Get();
        OLECHAR guid[40] = {};
        StringFromGUID2(*name.lpguid, guid, 40);
        char type[8];
        std::snprintf(type, sizeof type, ":%04X", static_cast<unsigned>(PROP_TYPE(tag)));
        return ToUtf8(guid) + "/" +
               (name.ulKind == MNID_ID ? std::to_string(name.Kind.lID) : ToUtf8(name.Kind.lpwstrName)) + type;
    }

    void ReadRecipients(IMessage& message, const std::string& prefix)
    {
        ComPtr<IMAPITable> table;
        Check(message.GetRecipientTable(MAPI_UNICODE, table.Put()), "read the recipients of", shown_);
        MapiMemory<SPropTagArray> columns;
        Check(table->QueryColumns(TBL_ALL_COLUMNS, columns.Put()), "read the recipients of", shown_);
        Rows rows;
        Check(HrQueryAllRows(table.Get(), columns.Get(), nullptr, nullptr, 0, rows.Put()),
              "read the recipients of", shown_);
        for (ULONG i = 0; i < rows.Count(); ++i) {
            const std::string place = prefix + "recipient " + std::to_string(i + 1) + "/";
            for (ULONG j = 0; j < rows[i].cValues; ++j) {
                const SPropValue& value = rows[i].lpProps[j];
                if (PROP_TYPE(value.ulPropTag) != PT_ERROR && !IsStoreOwned(value.ulPropTag))
                    content_[place + PropertyName(message, value.ulPropTag)] = ValueText(value);
            }
        }
    }

    void ReadAttachments(IMessage& message, const std::string& prefix, int depth)
    {
        ComPtr<IMAPITable> table;
        Check(message.GetAttachmentTable(0, table.Put()), "read the attachments of", shown_);
        SizedSPropTagArray(1, columns) = {1, {PR_ATTACH_NUM}};
        Rows rows;
        Check(HrQueryAllRows(table.Get(), reinterpret_cast<LPSPropTagArray>(&columns), nullptr, nullptr, 0,
                             rows.Put()),
              "read the attachments of", shown_);
        for (ULONG i = 0; i < rows.Count(); ++i) {
            ComPtr<IAttach> attachment;
            Check(message.OpenAttach(static_cast<ULONG>(LongOf(rows[i], PR_ATTACH_NUM)), nullptr, 0,
                                     attachment.Put()),
                  "read the attachments of", shown_);
            ReadAttachment(*attachment, prefix + "attachment " + std::to_string(i + 1) + "/", depth);
        }
    }

    void ReadAttachment(IAttach& attachment, const std::string& prefix, int depth)
    {
        ReadProperties(attachment, prefix);
        if (LongOf(attachment, PR_ATTACH_METHOD) != static_cast<LONG>(ATTACH_EMBEDDED_MSG))
            return;
        ComPtr<IMessage> embedded;
        if (SUCCEEDED(
                attachment.OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IMessage, 0, 0, embedded.PutUnknown())))
            ReadMessage(*embedded, prefix + "message/", depth + 1);
        else
            content_[prefix + "message/"] = "cannot be opened";
    }

    MessageContent& content_;
    std::string shown_;
};

}  // namespace

MessageContent ReadContent(IMessage& message, const std::string& shown)
{
    MessageContent content;
    ContentReader(content, shown).ReadMessage(message, {}, 0);
    return content;
}

exchange::ContentDigest DigestOf(MessageContent content)
{
    for (const ULONG tag : kReadersOwn)
        content.erase(TagText(tag));
    exchange::WireWriter bytes;
    for (const auto& [name, value] : content)
        bytes.Put(static_cast<std::uint32_t>(name.size()))
            .Put(name)
            .Put(static_cast<std::uint32_t>(value.size()))
            .Put(value);
    exchange::Digest digest;
    digest.Add(bytes.Bytes());
    const auto whole = digest.Finish();
    exchange::ContentDigest result;
    std::copy_n(whole.begin(), result.size(), result.begin());
    return result;
}

std::vector<std::string> Differences(const MessageContent& a, const MessageContent& b)
{
    std::vector<std::string> names;
    for (const auto& [name, value] : a) {
        const auto other = b.find(name);
        if (other == b.end() || other->second != value)
            names.push_back(name);
    }
    for (const auto& [name, value] : b)
        if (!a.contains(name))
            names.push_back(name);
    return names;
}

}  // namespace quorvane::host
