#include "host/mime/export_mail.h"

#include <algorithm>
#include <new>
#include <optional>
#include <set>
#include <vector>

#include "host/mail/mail_form.h"
#include "host/mime/export_headers.h"
#include "host/mime/export_mime.h"
#include "host/mime/import_mime.h"
#include "host/mime/mail_content.h"
#include "host/mime/original_mail.h"
#include "host/mime/part_edits.h"
#include "quorvane3/com.h"

namespace quorvane {
namespace {

constexpr std::size_t kWrittenPiece = std::size_t{256} << 10;

HRESULT WriteBytes(const MailBytes& bytes, std::ostream& out)
{
    std::string piece(kWrittenPiece, '\0');
    std::uint64_t at = 0;
    for (std::size_t got; (got = bytes.Read(at, piece.data(), piece.size())) > 0; at += got)
        out.write(piece.data(), static_cast<std::streamsize>(got));
    return SUCCEEDED(bytes.Result()) && !out.flush() ? STG_E_MEDIUMFULL : bytes.Result();
}

// Whether a failure tells of this machine, and not of the bytes.
bool IsOurs(HRESULT hr)
{
    return hr == E_OUTOFMEMORY || HRESULT_FACILITY(hr) == FACILITY_STORAGE;
}

// One message and the bytes that it came from.
class KeptMail {
public:
    // depth  how many others it is embedded in.
    KeptMail(IMessage& message, const MakeScratch& scratch, const MailContent& now, int depth = 0)
        : message_(message), scratch_(scratch), now_(now), depth_(depth)
    {}

    // What `bytes` say.
    HRESULT Read(const MailBytes& bytes, MailContent& said) const
    {
        ComPtr<IMessage> message;
        HRESULT hr = scratch_(message.Put());
        if (SUCCEEDED(hr) && depth_ > 0)
            return ReadEmbedded(bytes, *message, said);
        if (SUCCEEDED(hr))
            hr = ImportMime(bytes, {}, *message);
        return SUCCEEDED(hr) ? ReadMailContent(*message, said) : hr;
    }

    bool SaysTheSame(const MailContent& said) const
    {
        return said.headers == now_.headers && SaysTheSameBut(said) && SameAttachments(said, now_);
    }

    // The bytes with the parts and header fields that the message tells otherwise; nothing where that can't
    // be done.
    HRESULT Edit(const MailBytes& bytes, const MailContent& said, std::optional<MailBytes>& edited) const
    {
        if (said.headers != now_.headers)
            return S_OK;
        std::optional<MailBytes> parts;
        const bool isSame = SameBodies(said, now_) && SameAttachments(said, now_);
        const EditNested editNested = [this](const MailBytes& nested, IMessage& embedded,
                                             std::optional<MailBytes>& result) {
            return EditEmbedded(nested, embedded, result);
        };
        HRESULT hr = isSame ? S_OK : EditParts(bytes, message_, said, now_, editNested, parts);
        if (FAILED(hr) || (!isSame && !parts))
            return hr;
        const MailBytes& from = isSame ? bytes : *parts;
        const std::string header = from.Header();
        MailBytes mail(EditedHeader(header, said.envelope, now_.envelope));
        mail.AppendFrom(from, header.size());
        hr = mail.Result();
        MailContent check;
        if (SUCCEEDED(hr))
            hr = Read(mail, check);
        // But for the header block, which an edit leaves as it came.
        if (SUCCEEDED(hr) && SaysTheSameBut(check) &&
            AttachmentKeys(check, said) == AttachmentKeys(now_, said))
            edited = std::move(mail);
        return hr;
    }

private:
    // As what lies in another mail is read.
    static HRESULT ReadEmbedded(const MailBytes& bytes, IMessage& scratch, MailContent& said)
    {
        MailBytes outer("Content-Type: message/rfc822\n\n");
        outer.AppendFrom(bytes);
        HRESULT hr = ImportMime(outer, {}, scratch);
        ComPtr<IAttach> attachment;
        if (SUCCEEDED(hr))
            hr = scratch.OpenAttach(0, nullptr, 0, attachment.Put());
        ComPtr<IMessage> message;
        if (SUCCEEDED(hr))
            hr = attachment->OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IMessage, 0, 0, message.PutUnknown());
        return SUCCEEDED(hr) ? ReadMailContent(*message, said) : hr;
    }

    // But for the header block and the attachments.
    bool SaysTheSameBut(const MailContent& said) const
    {
        return SameEnvelope(said.envelope, now_.envelope) && SameBodies(said, now_);
    }

    // What tells attachments from each other; of those that the mail had all counts. What was added may stand
    // elsewhere.
    static std::vector<std::string> AttachmentKeys(const MailContent& content, const MailContent& said)
    {
        std::set<std::string> known;
        for (const AttachmentContent& one : said.attachments)
            known.insert(one.digest);
        std::vector<std::string> keys;
        for (const AttachmentContent& one : content.attachments)
            keys.push_back(known.contains(one.digest) ? one.digest : one.essence);
        std::sort(keys.begin(), keys.end());
        return keys;
    }

    // A mail within this one; nothing as well where it can't be read.
    HRESULT EditEmbedded(const MailBytes& bytes, IMessage& embedded, std::optional<MailBytes>& edited) const
    {
        if (depth_ == kDeepestEdit)
            return S_OK;
        MailContent now;
        HRESULT hr = ReadMailContent(embedded, now);
        if (FAILED(hr))
            return hr;
        const KeptMail kept(embedded, scratch_, now, depth_ + 1);
        MailContent said;
        hr = kept.Read(bytes, said);
        if (SUCCEEDED(hr) && kept.SaysTheSame(said)) {
            edited.emplace();
            edited->AppendFrom(bytes);
            hr = edited->Result();
        } else if (SUCCEEDED(hr)) {
            hr = kept.Edit(bytes, said, edited);
        }
        return FAILED(hr) && !IsOurs(hr) ? S_OK : hr;
    }

    static constexpr int kDeepestEdit = 16;

    IMessage& message_;
    const MakeScratch& scratch_;
    const MailContent& now_;  // what it says
    const int depth_;
};

// S_OK: the mail was written. S_FALSE: `bytes` don't tell it, and nothing was written.
HRESULT WriteFrom(const MailBytes& original, const MailBytes& bytes, const KeptMail& kept, std::ostream& out)
{
    MailContent said;
    HRESULT hr = kept.Read(bytes, said);
    if (FAILED(hr))
        return IsOurs(hr) ? hr : S_FALSE;
    if (kept.SaysTheSame(said))
        return WriteBytes(original, out);
    std::optional<MailBytes> edited;
    hr = kept.Edit(bytes, said, edited);
    if (FAILED(hr))
        return IsOurs(hr) ? hr : S_FALSE;
    return edited ? WriteBytes(*edited, out) : S_FALSE;
}

// The same two results.
HRESULT WriteKept(IMessage& message, const MakeScratch& scratch, std::ostream& out)
{
    MailBytes original;
    HRESULT hr = ReadOriginal(message, original);
    if (FAILED(hr))
        return IsOurs(hr) ? hr : S_FALSE;
    MailContent now;
    hr = ReadMailContent(message, now);
    if (FAILED(hr))
        return S_FALSE;  // ExportMime tells, if it meets the same
    const KeptMail kept(message, scratch, now);
    hr = WriteFrom(original, original, kept, out);
    if (hr != S_FALSE)
        return hr;
    // A file may hold more than the mail, or hold it in another form.
    const std::optional<MailBytes> within = MailWithin(original);
    return within ? WriteFrom(original, *within, kept, out) : S_FALSE;
}

}  // namespace

HRESULT ExportMail(IMessage& message, const MakeScratch& scratch, std::ostream& out) noexcept
{
    try {
        const HRESULT hr = WriteKept(message, scratch, out);
        return hr == S_FALSE ? ExportMime(message, out) : hr;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    } catch (...) {
        return E_FAIL;
    }
}

}  // namespace quorvane
