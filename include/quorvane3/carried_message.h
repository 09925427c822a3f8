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

// Messages embedded in one another deeper than this are written by nobody.
inline constexpr int kDeepest = 64;

// A name with this prefix and eight digits behind it.
inline bool IsNumbered(OleStringView name, OleStringView prefix) noexcept
{
    return name.size() == prefix.size() + 8 && name.substr(0, prefix.size()) == prefix;
}

// Reads the first `size` bytes of the properties stream; one that is absent or shorter is damage.
inline HRESULT ReadHeader(IStorage& storage, BYTE* header, ULONG size) noexcept
{
    ComPtr<IStream> stream;
    const HRESULT hr = storage.OpenStream(kProperties, nullptr, kReadMode, 0, stream.Put());
    if (hr == STG_E_FILENOTFOUND)
        return MAPI_E_CORRUPT_DATA;
    ULONG read = 0;
    const HRESULT got = FAILED(hr) ? hr : stream->Read(header, size, &read);
    if (FAILED(got))
        return got;
    return read == size ? S_OK : MAPI_E_CORRUPT_DATA;
}

inline ULONG NumberAt(const BYTE* header, ULONG at) noexcept
{
    return header[at] | header[at + 1] << 8 | header[at + 2] << 16 | static_cast<ULONG>(header[at + 3]) << 24;
}

HRESULT CheckMessage(IStorage& message, ULONG headerSize, int depth) noexcept;

// An attachment's own properties, and the message in it if there is one. An object of another kind has no
// properties stream, and is nobody's business here.
inline HRESULT CheckAttachment(IStorage& attachment, int depth) noexcept
{
    ComPtr<IStorage> object;
    HRESULT hr = attachment.OpenStorage(kEmbedded, nullptr, kReadMode, nullptr, 0, object.Put());
    if (FAILED(hr))
        return hr == STG_E_FILENOTFOUND ? S_OK : hr;
    ComPtr<IStream> properties;
    hr = object->OpenStream(kProperties, nullptr, kReadMode, 0, properties.Put());
    if (FAILED(hr))
        return hr == STG_E_FILENOTFOUND ? S_OK : hr;
    properties.Reset();
    return CheckMessage(*object, kEmbeddedHeader, depth + 1);
}

inline HRESULT CheckPart(IStorage& message, const OLECHAR* name, bool isAttachment, int depth) noexcept
{
    ComPtr<IStorage> part;
    if (const HRESULT hr = message.OpenStorage(name, nullptr, kReadMode, nullptr, 0, part.Put()); FAILED(hr))
        return hr;
    BYTE header[kPartHeader];
    if (const HRESULT hr = ReadHeader(*part, header, sizeof header); FAILED(hr))
        return hr;
    return isAttachment ? CheckAttachment(*part, depth) : S_OK;
}

// Looks at every recipient and attachment, and counts them.
inline HRESULT CheckParts(IStorage& message, int depth, ULONG& recipients, ULONG& attachments) noexcept
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
            hr = CheckPart(message, element.pwcsName, isAttachment, depth);
        CoTaskMemFree(element.pwcsName);
    }
    return hr;
}

inline HRESULT CheckMessage(IStorage& message, ULONG headerSize, int depth) noexcept
{
    if (depth > kDeepest)
        return MAPI_E_TOO_COMPLEX;
    BYTE header[kOutermostHeader];
    if (const HRESULT hr = ReadHeader(message, header, headerSize); FAILED(hr))
        return hr;
    ULONG recipients = 0;
    ULONG attachments = 0;
    if (const HRESULT hr = CheckParts(message, depth, recipients, attachments); FAILED(hr))
        return hr;
    const bool agrees = recipients == NumberAt(header, kRecipientCountAt) &&
                        attachments == NumberAt(header, kAttachmentCountAt);
    return agrees ? S_OK : MAPI_E_CORRUPT_DATA;
}

}  // namespace carried

// Looks through an item's message, and the messages embedded in it, without changing anything.
//
// data  [in]  the item's "MAPI_DATA", open at least for reading; nothing in it is open.
//
// S_OK: whole. MAPI_E_CORRUPT_DATA: it has no properties stream, or says that it has another number of
// recipients or attachments than are there, or one of these has no properties. Others (STG_E_*,
// MAPI_E_TOO_COMPLEX: embedded more than 64 deep) come as it is read. Any thread.
[[nodiscard]] inline HRESULT CheckCarriedMessage(IStorage& data) noexcept
{
    return carried::CheckMessage(data, carried::kOutermostHeader, 0);
}

}  // namespace quorvane

#endif  // QUORVANE3_CARRIED_MESSAGE_H_
