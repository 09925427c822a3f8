#include "host/mime/mail_structure.h"

#include <algorithm>
#include <string_view>

#include "host/mail/ascii.h"
#include "host/mime/gmime_setup.h"

namespace quorvane {
namespace {

// GMime parses no deeper than this either.
constexpr int kDeepestTree = 1024;

std::string TypeParameter(GMimeObject* object, const char* name)
{
    return TextOf(g_mime_object_get_content_type_parameter(object, name));
}

bool HasName(GMimeObject* object)
{
    return GMIME_IS_PART(object) && g_mime_part_get_filename(GMIME_PART(object)) != nullptr;
}

bool IsMarkedAttachment(GMimeObject* object)
{
    const char* const disposition = g_mime_object_get_disposition(object);
    return disposition && EqualNoCase(disposition, "attachment");
}

// The part of a multipart/related that the others belong to.
int RelatedRoot(GMimeMultipart* multipart)
{
    const std::string start = TypeParameter(GMIME_OBJECT(multipart), "start");
    if (start.empty())
        return 0;
    const std::string id = start.front() == '<' ? start.substr(1, start.find('>') - 1) : start;
    GMimeObject* const root = g_mime_multipart_get_subpart_from_content_id(multipart, id.c_str());
    return std::max(root ? g_mime_multipart_index_of(multipart, root) : 0, 0);
}

class Splitter {
public:
    MailStructure Split(GMimeObject* root)
    {
        single_ = !GMIME_IS_MULTIPART(root);
        Visit(root, {});
        if (!result_.text && !result_.html && result_.looseText.empty())
            AdoptOtherText();
        for (MailPart& part : result_.attachments)
            part.related = part.related && result_.html;
        return std::move(result_);
    }

private:
    struct Place {
        bool related = false;      // beside the root of a multipart/related
        bool alternative = false;  // a form of what others are forms of as well
        int depth = 0;
    };

    void Visit(GMimeObject* object, const Place& place)
    {
        if (GMIME_IS_MULTIPART(object) && place.depth < kDeepestTree)
            return VisitMultipart(GMIME_MULTIPART(object), place);
        if (!place.related && TakeAsBody(object, place.alternative))
            return;
        if (GMIME_IS_PART(object) || GMIME_IS_MESSAGE_PART(object))
            result_.attachments.push_back({object, place.related});
    }

    void VisitMultipart(GMimeMultipart* multipart, const Place& place)
    {
        const int count = g_mime_multipart_get_count(multipart);
        if (count == 0)
            return TakeLooseText(multipart);
        GMimeObject* const self = GMIME_OBJECT(multipart);
        const bool isRelated = IsType(self, "multipart", "related");
        const bool isAlternative = IsType(self, "multipart", "alternative");
        const int root = isRelated ? RelatedRoot(multipart) : 0;
        if (isRelated)
            Visit(g_mime_multipart_get_part(multipart, root),
                  {place.related, place.alternative, place.depth + 1});
        for (int i = 0; i < count; ++i) {
            if (isRelated && i == root)
                continue;
            Visit(g_mime_multipart_get_part(multipart, i),
                  {place.related || isRelated, isAlternative, place.depth + 1});
            // What follows the body in a mere sequence is no other form of it.
            if (!isRelated && !isAlternative)
                bodyDone_ = result_.text || result_.html;
        }
    }

    bool TakeAsBody(GMimeObject* object, bool alternative)
    {
        if (bodyDone_ || !GMIME_IS_PART(object) || IsMarkedAttachment(object))
            return false;
        if (HasName(object) && !single_ && !alternative)
            return false;
        GMimePart* const part = GMIME_PART(object);
        if (!result_.text && IsType(object, "text", "plain"))
            result_.text = part;
        else if (!result_.html && IsType(object, "text", "html"))
            result_.html = part;
        else
            return false;
        return true;
    }

    void TakeLooseText(GMimeMultipart* multipart)
    {
        result_.looseText += TextOf(g_mime_multipart_get_prologue(multipart));
        result_.looseText += TextOf(g_mime_multipart_get_epilogue(multipart));
    }

    void AdoptOtherText()
    {
        if (result_.attachments.empty())
            return;
        GMimeObject* const object = result_.attachments.front().object;
        const bool isText = GMIME_IS_PART(object) && IsType(object, "text", "*") &&
                            !IsMarkedAttachment(object) && !HasName(object) &&
                            !result_.attachments.front().related;
        const bool hasOtherUse = IsType(object, "text", "calendar") || IsType(object, "text", "vcard") ||
                                 IsType(object, "text", "x-vcard") || IsType(object, "text", "rtf");
        if (!isText || hasOtherUse)
            return;
        (IsType(object, "text", "html") ? result_.html : result_.text) = GMIME_PART(object);
        result_.attachments.erase(result_.attachments.begin());
    }

    MailStructure result_;
    bool single_ = false;
    bool bodyDone_ = false;
};

}  // namespace

MailStructure SplitMail(GMimeMessage* message)
{
    GMimeObject* const root = message ? g_mime_message_get_mime_part(message) : nullptr;
    return root ? Splitter().Split(root) : MailStructure();
}

}  // namespace quorvane
