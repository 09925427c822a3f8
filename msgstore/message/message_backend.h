// msgstore/message/message_backend.h: where a message comes from and where it's saved to.
//
// A message, an attachment and a message embedded in one are read through sources: by those of a store
// or a storage, lazily, and by those of CMessage and CAttach, which stand for changes not yet saved.
// A backend is the source of a whole message together with the place that saves it.
//
// Threading: CMessage calls a backend and its sources under the message's lock, one call at a time. Two
// messages over one place call at the same time; LargeValue::ReadAt comes from any thread.
#ifndef QUORVANE_MSGSTORE_MESSAGE_MESSAGE_BACKEND_H_
#define QUORVANE_MSGSTORE_MESSAGE_MESSAGE_BACKEND_H_

#include <memory>
#include <vector>

#include "msgstore/props/property_bag.h"
#include "msgstore/props/property_names.h"
#include "msgstore/util/memory.h"

namespace quorvane {

class AttachmentSource;

// One attachment of a message under its PR_ATTACH_NUM. Numbers are given out by CMessage, are never used
// twice in one opened message, and are kept by the backend.
struct AttachmentSlot {
    ULONG number = 0;
    std::shared_ptr<AttachmentSource> source;
};

// A message's parts. Each call reads anew; the out-parameter is unspecified after a failure.
class MessageSource {
public:
    virtual ~MessageSource() = default;

    // The stored properties, large values out of line. Not in it: what Identity of the backend gives and
    // what CMessage computes.
    [[nodiscard]] virtual HRESULT ReadProperties(PropertyBag& properties) noexcept = 0;

    // One bag a recipient, in order, each with its PR_ROWID (different from all others).
    [[nodiscard]] virtual HRESULT ReadRecipients(std::vector<PropertyBag>& recipients) noexcept = 0;

    // All attachments in ascending order of number.
    [[nodiscard]] virtual HRESULT ReadAttachments(std::vector<AttachmentSlot>& attachments) noexcept = 0;
};

// An attachment's parts.
class AttachmentSource {
public:
    virtual ~AttachmentSource() = default;

    // The stored properties; without PR_ATTACH_NUM and PR_ATTACH_SIZE, which CMessage supplies. A storage
    // as PR_ATTACH_DATA_OBJ is a value out of line, the image of a compound file; an embedded message
    // isn't among the properties.
    [[nodiscard]] virtual HRESULT ReadProperties(PropertyBag& properties) noexcept = 0;

    // The embedded message. MAPI_E_NOT_FOUND: the attachment holds none.
    [[nodiscard]] virtual HRESULT OpenMessage(std::shared_ptr<MessageSource>& message) noexcept = 0;
};

// A whole message as it is to be saved. Sources that the same backend gave out and that are unchanged
// stand for what's there already: a backend knows its own (dynamic_cast) and leaves their data in place;
// likewise its own LargeValue objects. All others it reads and writes.
struct MessageImage {
    PropertyBag properties;                   // all stored properties
    std::vector<PropertyBag> recipients;      // all, each with its PR_ROWID
    std::vector<AttachmentSlot> attachments;  // all, in ascending order of number
    bool recipientsChanged = false;           // false: as ReadRecipients last gave them
    bool attachmentsChanged = false;          // false: as ReadAttachments last gave them
    // What CMessage computed, ready for table columns: PR_DISPLAY_TO_W, PR_DISPLAY_CC_W,
    // PR_DISPLAY_BCC_W, PR_HASATTACH, PR_SUBJECT_PREFIX_W, PR_NORMALIZED_SUBJECT_W, PR_MESSAGE_SIZE and
    // PR_MESSAGE_FLAGS (with MSGFLAG_HASATTACH in it).
    PropertyBag computed;
};

class MessageBackend : public MessageSource {
public:
    // The names of the identifiers from 0x8000 on. Not null; lives as long as the backend.
    virtual PropertyNames& Names() noexcept = 0;

    // Properties that the place supplies and no caller can write: PR_ENTRYID, PR_PARENT_ENTRYID,
    // PR_STORE_ENTRYID, PR_RECORD_KEY, PR_STORE_RECORD_KEY, PR_INSTANCE_KEY,
    // PR_LAST_MODIFICATION_TIME, PR_STORE_SUPPORT_MASK, PR_MDB_PROVIDER..., as far as it has them. They
    // hide stored properties of the same identifiers. Asked at the first use and after each save.
    [[nodiscard]] virtual HRESULT Identity(PropertyBag& identity) noexcept = 0;

    // PR_MESSAGE_FLAGS as the message was saved, where that is known without its properties. False: it isn't.
    virtual bool SavedFlags(LONG& /*flags*/) noexcept { return false; }

    // MAPI_ACCESS_* bits for PR_ACCESS.
    virtual ULONG Access() noexcept = 0;

    // False until the first Save succeeded or, if the message was there when it was opened, never.
    virtual bool Exists() noexcept = 0;

    // Writes the whole message in one transaction: all of it is there afterwards, or nothing changed.
    //
    // image  [in]  read through its sources, which may fail; their failure is returned.
    // flags  [in]  those of SaveChanges; FORCE_SAVE: also over a change made by someone else since.
    //
    // S_OK; MAPI_E_OBJECT_CHANGED: someone else saved the message since it was read, and no FORCE_SAVE;
    // MAPI_E_OBJECT_DELETED: it's gone; E_ACCESSDENIED, MAPI_E_NOT_ENOUGH_DISK, MAPI_E_DISK_ERROR...
    // Afterwards CMessage reads everything anew that it's asked for.
    [[nodiscard]] virtual HRESULT Save(const MessageImage& image, ULONG flags) noexcept = 0;

    // Whether messages are sent from this place; Submit is called where they are.
    virtual bool CanSubmit() const noexcept { return false; }

    // Writes the message as Save does and puts it among those to be sent, in the same transaction. The image
    // has MSGFLAG_SUBMIT in its flags. As Save.
    [[nodiscard]] virtual HRESULT Submit(const MessageImage&, ULONG /*flags*/) noexcept
    {
        return MAPI_E_NO_SUPPORT;
    }

    // PidTagMessageStatus as it is at the moment. MAPI_E_NOT_FOUND: a message of this place has none.
    [[nodiscard]] virtual HRESULT Status(LONG& /*status*/) noexcept { return MAPI_E_NOT_FOUND; }

    // Whether a message that's saved without PR_SEARCH_KEY or PR_CREATION_TIME is given them.
    virtual bool GivesKeys() noexcept { return true; }

    // What results are handed out with.
    virtual const MapiAllocator& Allocator() noexcept
    {
        static const MapiAllocator own;
        return own;
    }
};

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_MESSAGE_MESSAGE_BACKEND_H_
