#include "msgstore/imsg/message_writer.h"

#include <algorithm>

#include "msgstore/imsg/element_names.h"
#include "msgstore/imsg/property_stream_format.h"
#include "msgstore/imsg/property_writer.h"
#include "msgstore/imsg/storage_source.h"
#include "msgstore/message/message_object.h"
#include "msgstore/props/little_endian.h"
#include "msgstore/util/guarded.h"
#include "platform/mapi/more_tags.h"

namespace quorvane {
namespace {

HRESULT WriteMessageAt(const std::shared_ptr<StorageFolder>& folder, const MessageImage& image, ULONG depth);

// The image of a message that's only known by its source, to be written where nothing was.
HRESULT ImageOf(MessageSource& source, MessageImage& image)
{
    image.recipientsChanged = true;
    image.attachmentsChanged = true;
    QV_RETURN_IF_FAILED(source.ReadProperties(image.properties));
    QV_RETURN_IF_FAILED(source.ReadRecipients(image.recipients));
    return source.ReadAttachments(image.attachments);
}

Bytes HeaderOf(const StorageFolder& folder, const MessageImage& image)
{
    const ULONG nextAttachment = image.attachments.empty() ? 0 : image.attachments.back().number + 1;
    const auto recipients = static_cast<std::uint32_t>(image.recipients.size());
    Bytes header(folder.IsOutermost() ? kOutermostHeader : kEmbeddedHeader);
    StoreLittle(header.data() + kNextRecipientAt, recipients);
    StoreLittle(header.data() + kNextAttachmentAt, static_cast<std::uint32_t>(nextAttachment));
    StoreLittle(header.data() + kRecipientCountAt, recipients);
    StoreLittle(header.data() + kAttachmentCountAt, static_cast<std::uint32_t>(image.attachments.size()));
    return header;
}

HRESULT WriteRecipient(const std::shared_ptr<StorageFolder>& message, ULONG number,
                       const PropertyBag& recipient)
{
    std::shared_ptr<StorageFolder> folder;
    QV_RETURN_IF_FAILED(message->CreateFolder(NumberedName(kRecipientPrefix, number), folder));
    PropertyWriter writer(folder);
    for (const PropertyValue& value : recipient)
        QV_RETURN_IF_FAILED(writer.Add(value));
    return writer.Finish(Bytes(kPartHeader));
}

HRESULT WriteAttachment(const std::shared_ptr<StorageFolder>& message, ULONG number,
                        const AttachmentSlot& slot, ULONG depth)
{
    PropertyBag properties;
    QV_RETURN_IF_FAILED(slot.source->ReadProperties(properties));
    std::shared_ptr<MessageSource> embedded;
    const HRESULT hr = slot.source->OpenMessage(embedded);
    if (FAILED(hr) && hr != MAPI_E_NOT_FOUND)
        return hr;
    std::shared_ptr<StorageFolder> folder;
    QV_RETURN_IF_FAILED(message->CreateFolder(NumberedName(kAttachmentPrefix, number), folder));
    properties.Put(PropertyValue::Long(PR_ATTACH_NUM, static_cast<LONG>(slot.number)));
    PropertyWriter writer(folder);
    for (const PropertyValue& value : properties)
        QV_RETURN_IF_FAILED(writer.Add(value));
    if (embedded) {
        MessageImage image;
        std::shared_ptr<StorageFolder> place;
        QV_RETURN_IF_FAILED(ImageOf(*embedded, image));
        QV_RETURN_IF_FAILED(writer.AddMessage(place));
        QV_RETURN_IF_FAILED(WriteMessageAt(place, image, depth + 1));
    }
    return writer.Finish(Bytes(kPartHeader));
}

bool StandsIn(const StorageFolder& folder, const AttachmentSlot& slot) noexcept
{
    const auto* const source = dynamic_cast<const StorageAttachment*>(slot.source.get());
    return source && source->IsIn(folder, slot.number);
}

// Parts that are written while others of their kind stand there: the new ones get numbers that are free and
// take their own when the old ones are gone.
struct Renumbered {
    ULONG written;
    ULONG wanted;
};

HRESULT RenameAll(StorageFolder& folder, OleStringView prefix, const std::vector<Renumbered>& parts)
{
    for (const Renumbered& part : parts) {
        if (part.written != part.wanted)
            QV_RETURN_IF_FAILED(
                folder.Rename(NumberedName(prefix, part.written), NumberedName(prefix, part.wanted)));
    }
    return S_OK;
}

HRESULT DestroyAll(StorageFolder& folder, OleStringView prefix, const std::vector<ULONG>& numbers)
{
    for (const ULONG number : numbers)
        QV_RETURN_IF_FAILED(folder.Destroy(NumberedName(prefix, number)));
    return S_OK;
}

// One message on its way into its folder.
class Writer {
public:
    Writer(const std::shared_ptr<StorageFolder>& folder, const MessageImage& image, ULONG depth)
        : folder_(folder), image_(image), depth_(depth)
    {}

    HRESULT Run()
    {
        PropertyWriter properties(folder_);
        QV_RETURN_IF_FAILED(properties.Begin());
        QV_RETURN_IF_FAILED(WriteRecipients());
        QV_RETURN_IF_FAILED(WriteAttachments());
        QV_RETURN_IF_FAILED(WriteProperties(properties));
        QV_RETURN_IF_FAILED(DestroyAll(*folder_, kRecipientPrefix, oldRecipients_));
        QV_RETURN_IF_FAILED(RenameAll(*folder_, kRecipientPrefix, recipients_));
        QV_RETURN_IF_FAILED(DestroyAll(*folder_, kAttachmentPrefix, oldAttachments_));
        return RenameAll(*folder_, kAttachmentPrefix, attachments_);
    }

private:
    HRESULT WriteRecipients()
    {
        std::vector<ULONG> held;
        QV_RETURN_IF_FAILED(NumbersIn(*folder_, kRecipientPrefix, held));
        if (!image_.recipientsChanged && held.size() == image_.recipients.size())
            return S_OK;
        const ULONG base = held.empty() ? 0 : FirstFree(held, static_cast<ULONG>(image_.recipients.size()));
        for (ULONG i = 0; i < image_.recipients.size(); ++i) {
            QV_RETURN_IF_FAILED(WriteRecipient(folder_, base + i, image_.recipients[i]));
            recipients_.push_back({base + i, i});
        }
        oldRecipients_ = std::move(held);
        return S_OK;
    }

    // A number from which on `count` numbers are free, above those that will be wanted.
    static ULONG FirstFree(const std::vector<ULONG>& held, ULONG count) noexcept
    {
        constexpr ULONG kHighest = 0x7FFFFFFF;
        const ULONG above = std::max(held.back(), count);
        if (above < kHighest - count)
            return above + 1;
        // A number close to the end stands there: look for a gap, which numbers in the millions leave.
        ULONG base = count + 1;
        for (const ULONG number : held) {
            if (number >= base && number - base < count)
                base = number + 1;
        }
        return base;
    }

    HRESULT WriteAttachments()
    {
        std::vector<ULONG> held;
        QV_RETURN_IF_FAILED(NumbersIn(*folder_, kAttachmentPrefix, held));
        std::vector<AttachmentSlot> fresh;
        for (const AttachmentSlot& slot : image_.attachments) {
            if (!StandsIn(*folder_, slot))
                fresh.push_back(slot);
            else
                held.erase(std::remove(held.begin(), held.end(), slot.number), held.end());
        }
        std::vector<ULONG> taken = held;
        taken.push_back(0);
        for (const AttachmentSlot& slot : image_.attachments)
            taken.push_back(slot.number);
        std::sort(taken.begin(), taken.end());
        ULONG spare = FirstFree(taken, static_cast<ULONG>(fresh.size()));
        for (const AttachmentSlot& slot : fresh) {
            const bool occupied = std::binary_search(held.begin(), held.end(), slot.number);
            const ULONG number = occupied ? spare++ : slot.number;
            QV_RETURN_IF_FAILED(WriteAttachment(folder_, number, slot, depth_));
            attachments_.push_back({number, slot.number});
        }
        oldAttachments_ = std::move(held);
        return S_OK;
    }

    HRESULT WriteProperties(PropertyWriter& writer)
    {
        PropertyBag all = image_.properties;
        for (const PropertyValue& value : image_.computed) {
            if (!all.FindId(value.id()) || value.tag == PR_MESSAGE_FLAGS || value.tag == PR_HASATTACH ||
                value.tag == PR_MESSAGE_SIZE)
                all.Put(value);
        }
        // Readers learn from it that texts may be in Unicode.
        if (!all.FindId(PROP_ID(PR_STORE_SUPPORT_MASK)))
            all.Put(PropertyValue::Long(PR_STORE_SUPPORT_MASK, static_cast<LONG>(kSupport)));
        for (const PropertyValue& value : all)
            QV_RETURN_IF_FAILED(writer.Add(value));
        return writer.Finish(HeaderOf(*folder_, image_));
    }

    static constexpr ULONG kSupport = kStoreUnicodeOk | STORE_MODIFY_OK | STORE_CREATE_OK | STORE_ATTACH_OK |
                                      STORE_OLE_OK | STORE_MV_PROPS_OK;

    const std::shared_ptr<StorageFolder>& folder_;
    const MessageImage& image_;
    const ULONG depth_;
    std::vector<Renumbered> recipients_;
    std::vector<ULONG> oldRecipients_;
    std::vector<Renumbered> attachments_;
    std::vector<ULONG> oldAttachments_;
};

HRESULT WriteMessageAt(const std::shared_ptr<StorageFolder>& folder, const MessageImage& image, ULONG depth)
{
    if (depth > kDeepestEmbedding)
        return MAPI_E_TOO_COMPLEX;
    return Writer(folder, image, depth).Run();
}

}  // namespace

HRESULT WriteMessage(const std::shared_ptr<StorageFolder>& folder, const MessageImage& image)
{
    const std::lock_guard lock(folder->Lock());
    return WriteMessageAt(folder, image, 0);
}

}  // namespace quorvane
