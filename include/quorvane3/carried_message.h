// quorvane3/carried_message.h: whether the message that an item carries is whole.
//
// An item travels with its message on structured storage ("MAPI_DATA"), in the published .msg layout. What a
// copy left that was cut short, on a full disk or by a kill, opens as a message nevertheless: an empty one,
// or one without some of its recipients or attachments. This tells it from one that was meant.
#ifndef QUORVANE3_CARRIED_MESSAGE_H_
#define QUORVANE3_CARRIED_MESSAGE_H_

#include "quorvane3/com.h"
#include "quorvane3/mapi.h"
#include "quorvane3/storage.h"

namespace quorvane {

// What is missing, or kNone. Of several the first that is met.
enum class CarriedDamage {
    kNone,
    kProperties,            // a message has no properties
    kRecipientProperties,   // a recipient has none
    kAttachmentProperties,  // an attachment has none
    kRecipients,            // a message has another number of recipients than it says
    kAttachments,           // the same for attachments
    kEmbeddedMessage,       // an attachment says that it is a message, which isn't there
};

namespace carried {

inline constexpr DWORD kReadMode = STGM_READ | STGM_SHARE_EXCLUSIVE;
inline constexpr OLECHAR kProperties[] = OLESTR("__properties_version1.0");
inline constexpr OLECHAR kEmbedded[] = OLESTR("__substg1.0_3701000D");
inline constexpr OLECHAR kRecipientPrefix[] = OLESTR("__recip_version1.0_#");
inline constexpr OLECHAR kAttachmentPrefix[] = OLESTR("__attach_version1.0_#");

// The properties stream begins with a header: that of the outermost message, of an embedded one, of a
// recipient or an attachment. A message's says how many recipients and attachments it has.
inline constexpr ULONG kOutermostHeader = 32;
inline constexpr ULONG kEmbeddedHeader = 24;
inline constexpr ULONG kPartHeader = 8;
inline constexpr ULONG kRecipientCountAt = 16;
inline constexpr ULONG kAttachmentCountAt = 20;

// Behind the header lie entries of one size, each a tag, flags and a value. Nobody writes more of them than
// these.
inline constexpr ULONG kEntrySize = 16;
inline constexpr ULONG kEntryValueAt = 8;
inline constexpr ULONG kMostEntries = 65536;

// Messages embedded in one another deeper than this are written by nobody.
inline constexpr int kDeepest = 64;

// A name with this prefix and eight digits behind it.
inline bool IsNumbered(OleStringView name, OleStringView prefix) noexcept
{
    return name.size() == prefix.size() + 8 && name.substr(0, prefix.size()) == prefix;
}

inline ULONG NumberAt(const BYTE* bytes, ULONG at) noexcept
{
    return bytes[at] | bytes[at + 1] << 8 | bytes[at + 2] << 16 | static_cast<ULONG>(bytes[at + 3]) << 24;
}

// Looks through one carried message.
class MessageCheck {
public:
    HRESULT Message(IStorage& message, ULONG headerSize, int depth) noexcept
    {
        if (depth > kDeepest)
            return MAPI_E_TOO_COMPLEX;
        BYTE header[kOutermostHeader];
        ComPtr<IStream> properties;
        if (const HRESULT hr =
                ReadHeader(message, CarriedDamage::kProperties, properties, header, headerSize);
            FAILED(hr))
            return hr;
        ULONG recipients = 0;
        ULONG attachments = 0;
        if (const HRESULT hr = Parts(message, depth, recipients, attachments); FAILED(hr))
            return hr;
        if (recipients != NumberAt(header, kRecipientCountAt))
            return Damaged(CarriedDamage::kRecipients);
        return attachments == NumberAt(header, kAttachmentCountAt) ? S_OK
                                                                   : Damaged(CarriedDamage::kAttachments);
    }

    CarriedDamage Damage() const noexcept { return damage_; }

private:
    HRESULT Damaged(CarriedDamage damage) noexcept
    {
        damage_ = damage;
        return MAPI_E_CORRUPT_DATA;
    }

    // Reads the first `size` bytes of the properties stream; one that is absent or shorter is damage.
    HRESULT ReadHeader(IStorage& storage, CarriedDamage damage, ComPtr<IStream>& stream, BYTE* header,
                       ULONG size) noexcept
    {
        const HRESULT hr = storage.OpenStream(kProperties, nullptr, kReadMode, 0, stream.Put());
        if (hr == STG_E_FILENOTFOUND)
            return Damaged(damage);
        ULONG read = 0;
        const HRESULT got = FAILED(hr) ? hr : stream->Read(header, size, &read);
        if (FAILED(got))
            return got;
        return read == size ? S_OK : Damaged(damage);
    }

    // Looks at every recipient and attachment, and counts them.
    HRESULT Parts(IStorage& message, int depth, ULONG& recipients, ULONG& attachments) noexcept
    {
        ComPtr<IEnumSTATSTG> elements;
        HRESULT hr = message.EnumElements(0, nullptr, 0, elements.Put());
        while (SUCCEEDED(hr)) {
            STATSTG element{};
            hr = elements->Next(1, &element, nullptr);
            if (hr != S_OK)
                return hr == S_FALSE ? S_OK : hr;
            const OleStringView name = element.pwcsName ? element.pwcsName : OLESTR("");
            const bool isStorage = element.type == STGTY_STORAGE;
            const bool isRecipient = isStorage && IsNumbered(name, kRecipientPrefix);
            const bool isAttachment = isStorage && IsNumbered(name, kAttachmentPrefix);
            recipients += isRecipient ? 1 : 0;
            attachments += isAttachment ? 1 : 0;
            if (isRecipient || isAttachment)
                hr = Part(message, element.pwcsName, isAttachment, depth);
            CoTaskMemFree(element.pwcsName);
        }
        return hr;
    }

    HRESULT Part(IStorage& message, const OLECHAR* name, bool isAttachment, int depth) noexcept
    {
        ComPtr<IStorage> part;
        if (const HRESULT hr = message.OpenStorage(name, nullptr, kReadMode, nullptr, 0, part.Put());
            FAILED(hr))
            return hr;
        BYTE header[kPartHeader];
        ComPtr<IStream> properties;
        const auto damage =
            isAttachment ? CarriedDamage::kAttachmentProperties : CarriedDamage::kRecipientProperties;
        if (const HRESULT hr = ReadHeader(*part, damage, properties, header, sizeof header); FAILED(hr))
            return hr;
        return isAttachment ? Attachment(*part, *properties, depth) : S_OK;
    }

    // The message in an attachment, if there is one or ought to be. An object of another kind has no
    // properties stream, and is nobody's business here.
    HRESULT Attachment(IStorage& attachment, IStream& properties, int depth) noexcept
    {
        ComPtr<IStorage> object;
        const HRESULT hr = attachment.OpenStorage(kEmbedded, nullptr, kReadMode, nullptr, 0, object.Put());
        if (hr == STG_E_FILENOTFOUND)
            return SaysMessage(properties) ? Damaged(CarriedDamage::kEmbeddedMessage) : S_OK;
        if (FAILED(hr))
            return hr;
        return IsOtherObject(*object) && !SaysMessage(properties)
                   ? S_OK
                   : Message(*object, kEmbeddedHeader, depth + 1);
    }

    static bool IsOtherObject(IStorage& object) noexcept
    {
        ComPtr<IStream> stream;
        return object.OpenStream(kProperties, nullptr, kReadMode, 0, stream.Put()) == STG_E_FILENOTFOUND;
    }

    // Whether an attachment's properties, which stand behind the header, say that it is a message.
    static bool SaysMessage(IStream& properties) noexcept
    {
        BYTE entry[kEntrySize];
        ULONG read = 0;
        for (ULONG count = 0; count < kMostEntries; ++count) {
            if (FAILED(properties.Read(entry, kEntrySize, &read)) || read != kEntrySize)
                return false;
            if (NumberAt(entry, 0) == PR_ATTACH_METHOD)
                return NumberAt(entry, kEntryValueAt) == ATTACH_EMBEDDED_MSG;
        }
        return false;
    }

    CarriedDamage damage_ = CarriedDamage::kNone;
};

}  // namespace carried

// Looks through an item's message, and the messages embedded in it, without changing anything.
//
// data    [in]  the item's "MAPI_DATA", open at least for reading; nothing in it is open.
// damage  [out] what is missing, with MAPI_E_CORRUPT_DATA; else kNone. May be null.
//
// S_OK: whole. MAPI_E_CORRUPT_DATA: something is missing. Others (STG_E_*, MAPI_E_TOO_COMPLEX: embedded more
// than 64 deep) come as it is read. Any thread.
[[nodiscard]] inline HRESULT CheckCarriedMessage(IStorage& data, CarriedDamage* damage = nullptr) noexcept
{
    carried::MessageCheck check;
    const HRESULT hr = check.Message(data, carried::kOutermostHeader, 0);
    if (damage)
        *damage = hr == MAPI_E_CORRUPT_DATA ? check.Damage() : CarriedDamage::kNone;
    return hr;
}

}  // namespace quorvane

#endif  // QUORVANE3_CARRIED_MESSAGE_H_
