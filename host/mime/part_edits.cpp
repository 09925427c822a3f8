#include "host/mime/part_edits.h"

#include <algorithm>
#include <ostream>
#include <string>
#include <unordered_map>
#include <vector>

#include "host/mime/export_attachments.h"
#include "host/mime/export_bodies.h"
#include "host/mime/export_mime.h"
#include "host/mime/gmime_setup.h"
#include "host/mime/header_repair.h"
#include "host/mime/mail_editor.h"
#include "host/mime/mail_layout.h"
#include "host/mime/mail_structure.h"
#include "host/mime/mapi_read.h"

namespace quorvane {
namespace {

bool IsMultipart(GMimeObject* object, const char* subtype)
{
    return GMIME_IS_MULTIPART(object) && IsType(object, "multipart", subtype) &&
           g_mime_multipart_get_count(GMIME_MULTIPART(object)) > 0;
}

// Which attachments of a mail are still there, to the byte, and which of the message aren't from it.
struct AttachmentChanges {
    struct Changed {
        std::size_t said = 0;
        std::size_t now = 0;
    };
    std::vector<Changed> changed;    // one took the other's place
    std::vector<std::size_t> gone;   // of those that the mail has
    std::vector<std::size_t> added;  // of those that the message has
};

class AttachmentComparison {
public:
    AttachmentComparison(const MailContent& said, const MailContent& now)
        : said_(said.attachments), now_(now.attachments)
    {}

    // Between two that are the same those that aren't are told in their order.
    AttachmentChanges Compare()
    {
        std::unordered_map<std::string, std::vector<std::size_t>> places;
        for (std::size_t i = 0; i < said_.size(); ++i)
            places[said_[i].digest].push_back(i);
        for (std::size_t i = 0; i < now_.size(); ++i) {
            const std::vector<std::size_t>& same = places[now_[i].digest];
            // Of several the one that stands where this does.
            auto place = std::lower_bound(same.begin(), same.end(), saidAt_ + (i - nowAt_));
            if (place == same.end())
                place = std::lower_bound(same.begin(), same.end(), saidAt_);
            if (place == same.end())
                continue;
            Between(*place, i);
            saidAt_ = *place + 1;
            nowAt_ = i + 1;
        }
        Between(said_.size(), now_.size());
        return std::move(changes_);
    }

private:
    void Between(std::size_t saidEnd, std::size_t nowEnd)
    {
        while (saidAt_ < saidEnd && nowAt_ < nowEnd)
            changes_.changed.push_back({saidAt_++, nowAt_++});
        while (saidAt_ < saidEnd)
            changes_.gone.push_back(saidAt_++);
        while (nowAt_ < nowEnd)
            changes_.added.push_back(nowAt_++);
    }

    const std::vector<AttachmentContent>& said_;
    const std::vector<AttachmentContent>& now_;
    std::size_t saidAt_ = 0;
    std::size_t nowAt_ = 0;
    AttachmentChanges changes_;
};

// One mail that becomes another.
class PartEdits {
public:
    PartEdits(const MailBytes& bytes, IMessage& message, GMimeMessage* mail, const MailLayout& layout,
              const EditNested& editNested)
        : bytes_(bytes),
          message_(message),
          root_(g_mime_message_get_mime_part(mail)),
          layout_(layout),
          structure_(SplitMail(mail)),
          editNested_(editNested),
          editor_(bytes, layout, root_)
    {}

    // S_FALSE: it can't be done.
    HRESULT Make(const MailContent& said, const MailContent& now, MailBytes& edited)
    {
        if (structure_.attachments.size() != said.attachments.size())
            return S_FALSE;
        codePage_ = NarrowCodePage(message_);
        HRESULT hr = FindBodies(message_, codePage_, bodies_);
        if (SUCCEEDED(hr))
            hr = FormOfText(bodies_.text, textForm_);
        std::vector<AttachmentEntry> entries;
        if (SUCCEEDED(hr))
            hr = ListAttachments(message_, entries);
        if (FAILED(hr))
            return hr;
        for (const AttachmentEntry& entry : entries)
            related_.emplace(entry.number, entry.related);
        EditBodies(said, now);
        EditAttachments(AttachmentComparison(said, now).Compare(), now);
        return editor_.CanBeDone() ? editor_.Write(edited) : S_FALSE;
    }

private:
    using WritePart = MailEditor::WritePart;

    // The part that others are put beside: what is sealed stays whole.
    GMimeObject* Outermost(GMimePart* body) const
    {
        GMimeObject* const seal = layout_.SealOf(GMIME_OBJECT(body));
        return seal ? seal : GMIME_OBJECT(body);
    }

    void EditBodies(const MailContent& said, const MailContent& now)
    {
        htmlForm_ = FormOfHtml(bodies_.htmlCharset);
        const bool hadNone = !structure_.text && !structure_.html;
        if (said.text != now.text)
            EditBody(structure_.text, bodies_.text, textForm_);
        if (said.html != now.html)
            EditBody(structure_.html, bodies_.html, htmlForm_);
        const bool isTextNew = !structure_.text && said.text != now.text;
        const bool isHtmlNew = !structure_.html && said.html != now.html;
        if (hadNone && (isTextNew || isHtmlNew))
            AddOnlyBody(isTextNew, isHtmlNew);
        else if (isTextNew)
            AddAlternative(structure_.html, BodyPart(bodies_.text, textForm_), true);
        else if (isHtmlNew)
            AddAlternative(structure_.text, BodyPart(bodies_.html, htmlForm_), false);
    }

    // One that the mail has.
    void EditBody(GMimePart* part, const ValueReader& body, const BodyForm& form)
    {
        if (part && body.Exists())
            editor_.ReplaceContent(
                GMIME_OBJECT(part), form.type, EncodingName(form.encoding),
                [&body, &form](EmlWriter& out) { return WriteBodyContent(body, form.encoding, out); });
        else if (part)
            editor_.TakeOut(GMIME_OBJECT(part));
        else if (!body.Exists())
            editor_.GiveUp();
    }

    static WritePart BodyPart(const ValueReader& body, const BodyForm& form)
    {
        return [&body, &form](EmlWriter& out, std::ostream&, MailBytes&) {
            out.Field("Content-Type", form.type);
            out.Field("Content-Transfer-Encoding", EncodingName(form.encoding));
            out.Line("");
            return WriteBodyContent(body, form.encoding, out);
        };
    }

    void AddOnlyBody(bool isTextNew, bool isHtmlNew)
    {
        if ((isTextNew && isHtmlNew) || !structure_.looseText.empty())
            return editor_.GiveUp();
        WritePart body = isTextNew ? BodyPart(bodies_.text, textForm_) : BodyPart(bodies_.html, htmlForm_);
        if (IsMultipart(root_, "mixed"))
            editor_.InsertBefore(g_mime_multipart_get_part(GMIME_MULTIPART(root_), 0), std::move(body));
        else
            editor_.Wrap(root_, "multipart/mixed", {std::move(body)}, {});
    }

    // Readers show the last form that they know: the plainer one comes first.
    void AddAlternative(GMimePart* there, WritePart body, bool isPlainer)
    {
        GMimeObject* const other = Outermost(there);
        GMimeObject* const multipart = layout_.PlaceOf(other).multipart;
        const bool hasForms = multipart && IsMultipart(multipart, "alternative");
        if (!hasForms && isPlainer)
            editor_.Wrap(other, "multipart/alternative", {std::move(body)}, {});
        else if (!hasForms)
            editor_.Wrap(other, "multipart/alternative", {}, {std::move(body)});
        else if (isPlainer)
            editor_.InsertBefore(other, std::move(body));
        else
            editor_.Append(multipart, std::move(body));
    }

    void EditAttachments(const AttachmentChanges& changes, const MailContent& now)
    {
        for (const std::size_t said : changes.gone)
            editor_.TakeOut(structure_.attachments[said].object);
        for (const auto& [said, by] : changes.changed) {
            GMimeObject* const part = structure_.attachments[said].object;
            editor_.ReplacePart(part, AttachmentPart(EntryOf(now.attachments[by].number), part));
        }
        std::vector<WritePart> related;
        std::vector<WritePart> others;
        for (const std::size_t one : changes.added) {
            const AttachmentEntry entry = EntryOf(now.attachments[one].number);
            (entry.related && structure_.html ? related : others).push_back(AttachmentPart(entry, nullptr));
        }
        if (!related.empty())
            AddRelated(std::move(related));
        if (!others.empty())
            AddOthers(std::move(others));
    }

    AttachmentEntry EntryOf(ULONG number) const
    {
        const auto found = related_.find(number);
        return {number, found != related_.end() && found->second};
    }

    // former  the part that it is to replace; may be null.
    WritePart AttachmentPart(const AttachmentEntry& entry, GMimeObject* former)
    {
        return [this, entry, former](EmlWriter& out, std::ostream& stream, MailBytes& bytes) {
            const WriteNested nested = [&](IMessage& embedded) {
                return WriteMail(embedded, former, stream, bytes);
            };
            return WriteAttachment(message_, entry, codePage_, nested, out);
        };
    }

    // An embedded message: of the mail that it was, as far as it still is that.
    HRESULT WriteMail(IMessage& embedded, GMimeObject* former, std::ostream& stream, MailBytes& to) const
    {
        std::optional<MailBytes> edited;
        if (former && GMIME_IS_MESSAGE_PART(former)) {
            const PartPlace& place = layout_.PlaceOf(former);
            MailBytes bytes;
            bytes.AppendFrom(bytes_, place.body, place.end);
            HRESULT hr = bytes.Result();
            if (SUCCEEDED(hr))
                hr = editNested_(bytes, embedded, edited);
            if (FAILED(hr))
                return hr;
        }
        if (!edited)
            return ExportMime(embedded, stream);
        to.AppendFrom(*edited);
        return to.Result();
    }

    // Beside the HTML that shows them.
    void AddRelated(std::vector<WritePart> parts)
    {
        GMimeObject* const html = Outermost(structure_.html);
        GMimeObject* multipart = layout_.PlaceOf(html).multipart;
        while (multipart && IsMultipart(multipart, "alternative"))
            multipart = layout_.PlaceOf(multipart).multipart;
        if (!multipart || !IsMultipart(multipart, "related"))
            return editor_.Wrap(html, "multipart/related; type=\"" + TypeOf(html) + "\"", {},
                                std::move(parts));
        for (WritePart& part : parts)
            editor_.Append(multipart, std::move(part));
    }

    void AddOthers(std::vector<WritePart> parts)
    {
        if (!IsMultipart(root_, "mixed"))
            return editor_.Wrap(root_, "multipart/mixed", {}, std::move(parts));
        for (WritePart& part : parts)
            editor_.Append(root_, std::move(part));
    }

    const MailBytes& bytes_;
    IMessage& message_;
    GMimeObject* const root_;
    const MailLayout& layout_;
    const MailStructure structure_;
    const EditNested& editNested_;
    MailEditor editor_;
    ULONG codePage_ = 0;
    Bodies bodies_;
    BodyForm textForm_;
    BodyForm htmlForm_;
    std::unordered_map<ULONG, bool> related_;  // by the attachment's number
};

}  // namespace

HRESULT EditParts(const MailBytes& bytes, IMessage& message, const MailContent& said, const MailContent& now,
                  const EditNested& editNested, std::optional<MailBytes>& edited)
{
    const MailBytes repaired = RepairHeaders(bytes);
    const GObjectPtr<GMimeMessage> mail = ParseMime(repaired);
    const std::optional<MailLayout> layout = mail ? MailLayout::Of(repaired, mail.Get()) : std::nullopt;
    // Of bytes that couldn't be read or set aside nothing can be told.
    for (const HRESULT hr : {bytes.Result(), repaired.Result()})
        if (FAILED(hr))
            return hr;
    if (!layout)
        return S_OK;
    MailBytes result;
    const HRESULT hr = PartEdits(repaired, message, mail.Get(), *layout, editNested).Make(said, now, result);
    if (hr == S_OK)
        edited = std::move(result);
    return FAILED(hr) ? hr : S_OK;
}

}  // namespace quorvane
