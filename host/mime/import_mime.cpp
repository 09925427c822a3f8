#include "host/mime/import_mime.h"

#include <algorithm>
#include <initializer_list>
#include <new>
#include <string>

#include "host/mime/gmime_setup.h"
#include "host/mime/header_repair.h"
#include "host/mime/import_attachments.h"
#include "host/mime/import_bodies.h"
#include "host/mime/import_properties.h"
#include "host/mime/mail_envelope.h"
#include "host/mime/mail_structure.h"
#include "host/mime/original_mail.h"

namespace quorvane {
namespace {

constexpr int kDeepestEmbedding = 16;

// What finds a message again, wherever it is copied to. Random, since the same mail may be imported twice.
HRESULT AddSearchKey(PropertyList& properties)
{
    GUID key = {};
    const HRESULT hr = CoCreateGuid(&key);
    if (SUCCEEDED(hr))
        properties.AddBinary(PR_SEARCH_KEY, std::string(reinterpret_cast<const char*>(&key), sizeof(key)));
    return hr;
}

HRESULT FillMessage(GMimeMessage* mail, const std::string& headers, bool read, int depth, IMessage& message)
{
    const MailEnvelope envelope = ReadEnvelope(mail);
    const MailStructure structure = SplitMail(mail);

    PropertyList properties;
    properties.AddText(PR_MESSAGE_CLASS_W, "IPM.Note");
    properties.AddLong(PR_MESSAGE_FLAGS, static_cast<LONG>(read ? MSGFLAG_READ : 0u));
    if (!headers.empty())
        properties.AddText(PR_TRANSPORT_MESSAGE_HEADERS_W, headers);
    AddEnvelopeProperties(envelope, properties);

    HRESULT hr = AddSearchKey(properties);
    if (SUCCEEDED(hr))
        hr = properties.SetOn(message);
    if (SUCCEEDED(hr))
        hr = SetBodies(structure, message);
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

MailBytes BehindBlankLine(const MailBytes& mail)
{
    MailBytes copy("\n");
    copy.AppendFrom(mail);
    return copy;
}

// The first that is a failure.
HRESULT Worst(std::initializer_list<HRESULT> results)
{
    const auto failed = std::find_if(results.begin(), results.end(), [](HRESULT hr) { return FAILED(hr); });
    return failed == results.end() ? S_OK : *failed;
}

}  // namespace

HRESULT ImportMime(const MailBytes& bytes, const ImportOptions& options, IMessage& message) noexcept
{
    try {
        const MailBytes mail = RepairHeaders(bytes);
        MailBytes bodyOnly;
        GObjectPtr<GMimeMessage> parsed = ParseMime(mail);
        if (!parsed) {  // no header at all: everything is body
            bodyOnly = BehindBlankLine(mail);
            parsed = ParseMime(bodyOnly);
        }
        if (!parsed)
            return Worst({bytes.Result(), mail.Result(), bodyOnly.Result(), MAPI_E_CORRUPT_DATA});
        HRESULT hr =
            FillMessage(parsed.Get(), HeaderText(mail.Header()), options.read.value_or(true), 0, message);
        if (SUCCEEDED(hr) && options.original)
            hr = KeepOriginal(*options.original, message);
        // What couldn't be read is missing in the message.
        return Worst({bytes.Result(), mail.Result(), bodyOnly.Result(), hr});
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    } catch (...) {
        return E_FAIL;
    }
}

}  // namespace quorvane
