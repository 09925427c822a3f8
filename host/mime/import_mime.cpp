#include "host/mime/import_mime.h"

#include <new>
#include <random>
#include <string>

#include "host/mime/gmime_setup.h"
#include "host/mime/header_repair.h"
#include "host/mime/import_attachments.h"
#include "host/mime/import_properties.h"
#include "host/mime/mail_envelope.h"
#include "host/mime/mail_structure.h"

namespace quorvane {
namespace {

constexpr int kDeepestEmbedding = 16;

// What finds a message again, wherever it is copied to. Random, since the same mail may be imported twice.
std::string NewSearchKey()
{
    std::random_device random;
    std::string key;
    while (key.size() < sizeof(GUID))
        key.push_back(static_cast<char>(random() & 0xFF));
    return key;
}

HRESULT FillMessage(GMimeMessage* mail, const std::string& headers, bool read, int depth, IMessage& message)
{
    const MailEnvelope envelope = ReadEnvelope(mail);
    const MailStructure structure = SplitMail(mail);

    PropertyList properties;
    properties.AddText(PR_MESSAGE_CLASS_W, "IPM.Note");
    properties.AddLong(PR_MESSAGE_FLAGS, static_cast<LONG>(read ? MSGFLAG_READ : 0u));
    properties.AddBinary(PR_SEARCH_KEY, NewSearchKey());
    if (!headers.empty())
        properties.AddText(PR_TRANSPORT_MESSAGE_HEADERS_W, headers);
    AddEnvelopeProperties(envelope, properties);
    AddBodyProperties(structure, properties);

    HRESULT hr = properties.SetOn(message);
    if (SUCCEEDED(hr))
        hr = AddRecipients(envelope.recipients, message);
    FillEmbedded fill;
    if (depth < kDeepestEmbedding)
        fill = [depth](GMimeMessage* nested, IMessage& embedded) {
            return FillMessage(nested, HeaderBlock(GMIME_OBJECT(nested)), true, depth + 1, embedded);
        };
    for (std::size_t i = 0; SUCCEEDED(hr) && i < structure.attachments.size(); ++i)
        hr = AddAttachment(structure.attachments[i], fill, message);
    return hr;
}

}  // namespace

HRESULT ImportMime(std::string_view bytes, const ImportOptions& options, IMessage& message) noexcept
{
    try {
        const std::string mail = RepairHeaders(bytes);
        GObjectPtr<GMimeMessage> parsed = ParseMime(mail);
        if (!parsed)
            parsed = ParseMime("\n" + mail);  // no header at all: everything is body
        if (!parsed)
            return MAPI_E_CORRUPT_DATA;
        return FillMessage(parsed.Get(), HeaderBlock(std::string_view(mail)), options.read.value_or(true), 0,
                           message);
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    } catch (...) {
        return E_FAIL;
    }
}

}  // namespace quorvane
