// msgstore/message/message_object.h: the classes behind message.h.
#ifndef QUORVANE_MSGSTORE_MESSAGE_MESSAGE_OBJECT_H_
#define QUORVANE_MSGSTORE_MESSAGE_MESSAGE_OBJECT_H_

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "msgstore/message/message_backend.h"
#include "msgstore/message/recipients.h"
#include "msgstore/props/property_object.h"

namespace quorvane {

// Messages embedded in each other deeper than this are refused with MAPI_E_TOO_COMPLEX.
inline constexpr ULONG kDeepestEmbedding = 64;

// The lock that a message shares with its attachments and the messages embedded in it.
using MessageLock = std::shared_ptr<std::recursive_mutex>;

// IMessage over a backend. What was read from the backend, and what was changed since, is held here; after
// a save everything is read anew.
class CMessage final : public MapiProp<CMessage, Answers<IMessage, IMAPIProp>> {
public:
    // depth  how many messages this one is embedded in.
    CMessage(std::shared_ptr<MessageBackend> backend, bool writable, MessageLock lock, ULONG depth,
             std::function<void()> released);
    ~CMessage();

    HRESULT STDMETHODCALLTYPE SaveChanges(ULONG flags) override;
    HRESULT STDMETHODCALLTYPE GetAttachmentTable(ULONG flags, LPMAPITABLE* table) override;
    HRESULT STDMETHODCALLTYPE OpenAttach(ULONG number, LPCIID iid, ULONG flags,
                                         LPATTACH* attachment) override;
    HRESULT STDMETHODCALLTYPE CreateAttach(LPCIID iid, ULONG flags, ULONG* number,
                                           LPATTACH* attachment) override;
    HRESULT STDMETHODCALLTYPE DeleteAttach(ULONG number, ULONG uiParam, LPMAPIPROGRESS progress,
                                           ULONG flags) override;
    HRESULT STDMETHODCALLTYPE GetRecipientTable(ULONG flags, LPMAPITABLE* table) override;
    HRESULT STDMETHODCALLTYPE ModifyRecipients(ULONG flags, LPADRLIST changes) override;
    // Saves the message and puts it among those to be sent; its submit time is now. MAPI_E_NO_SUPPORT:
    // nothing is sent from where the message is. MAPI_E_NO_RECIPIENTS. MAPI_E_SUBMITTED: it was submitted
    // before. After a failure the message is as it was.
    HRESULT STDMETHODCALLTYPE SubmitMessage(ULONG flags) override;
    HRESULT STDMETHODCALLTYPE SetReadFlag(ULONG flags) override;

    // What an attachment of this message needs of it; all under Lock().
    std::recursive_mutex& Lock() noexcept override { return *m_lock; }
    const MessageLock& SharedLock() const noexcept { return m_lock; }
    PropertyNames& Names() noexcept override { return m_backend->Names(); }
    const MapiAllocator& Allocator() noexcept override { return m_backend->Allocator(); }
    MessageBackend& Backend() noexcept { return *m_backend; }
    ULONG Depth() const noexcept { return m_depth; }
    // An attachment was saved: it replaces the one of its number, or is added if `isNew`.
    // MAPI_E_OBJECT_DELETED: it was deleted meanwhile; E_ACCESSDENIED.
    [[nodiscard]] HRESULT PublishAttachment(ULONG number, bool isNew,
                                            std::shared_ptr<AttachmentSource> source);

private:
    // An attachment with what tables and sizes need of it, read once.
    struct HeldAttachment {
        AttachmentSlot slot;
        std::optional<PropertyBag> row;
    };

    [[nodiscard]] HRESULT Stored(PropertyBag*& bag) noexcept override;
    void ListComputed(std::vector<ULONG>& tags) override;
    [[nodiscard]] HRESULT Compute(ULONG id, PropertyValue& value) override;
    bool IsKnownUnloaded(ULONG id) override;
    // While nothing of the message was read or changed.
    bool HasSavedFlags(LONG& flags) noexcept;
    [[nodiscard]] HRESULT CheckWritable() noexcept override { return m_writable ? S_OK : E_ACCESSDENIED; }
    [[nodiscard]] HRESULT CheckSettable(ULONG id) noexcept override;
    void Changed(ULONG id) override;
    [[nodiscard]] HRESULT OpenObject(ULONG tag, REFIID iid, ULONG interfaceOptions, ULONG flags,
                                     LPUNKNOWN* object) noexcept override;
    [[nodiscard]] HRESULT CopyObject(ULONG tag, IMAPIProp& target, ULONG flags) noexcept override;

    [[nodiscard]] HRESULT NeedIdentity();
    [[nodiscard]] HRESULT NeedRecipients();
    [[nodiscard]] HRESULT NeedAttachments();
    [[nodiscard]] HRESULT NeedRow(HeldAttachment& attachment);
    [[nodiscard]] HRESULT AttachmentRows(std::vector<PropertyBag>& rows);
    [[nodiscard]] HRESULT RecipientRows(std::vector<PropertyBag>& rows);
    // Where an attachment of that number stands or would.
    std::vector<HeldAttachment>::iterator PlaceOf(ULONG number) noexcept;
    std::vector<HeldAttachment>::iterator FindAttachment(ULONG number) noexcept;

    [[nodiscard]] HRESULT ComputeAccess(ULONG id, PropertyValue& value) noexcept;
    [[nodiscard]] HRESULT ComputeDisplayList(ULONG id, PropertyValue& value);
    [[nodiscard]] HRESULT ComputeSubjectPart(ULONG id, PropertyValue& value);
    [[nodiscard]] HRESULT ComputeFlags(PropertyValue& value);
    [[nodiscard]] HRESULT HasVisibleAttachment(bool& has);
    [[nodiscard]] HRESULT TotalSize(std::uint64_t& size);
    std::uint64_t SizeOfOriginal();
    bool ShowsStored(ULONG id) noexcept;

    [[nodiscard]] HRESULT SaveLocked(ULONG flags);
    [[nodiscard]] HRESULT SubmitLocked(PropertyBag& bag);
    ULONG Flags(const PropertyBag& bag) const noexcept;
    [[nodiscard]] HRESULT MakeImage(MessageImage& image);
    [[nodiscard]] HRESULT AddKeys();
    void Forget() noexcept;

    [[nodiscard]] HRESULT CopyRecipients(IMessage& target, ULONG flags);
    [[nodiscard]] HRESULT CopyAttachments(IMessage& target, ULONG flags);
    [[nodiscard]] HRESULT CopyAttachment(ULONG number, IMessage& target);

    const std::shared_ptr<MessageBackend> m_backend;
    const MessageLock m_lock;  // guards all that follows
    const ULONG m_depth;
    const std::function<void()> m_released;
    bool m_writable;
    bool m_changed = false;
    PropertyBag m_bag;
    bool m_hasBag = false;
    std::optional<PropertyBag> m_identity;
    std::optional<Recipients> m_recipients;
    bool m_recipientsChanged = false;
    std::optional<std::vector<HeldAttachment>> m_attachments;
    bool m_attachmentsChanged = false;
    ULONG m_nextNumber = 0;
};

// IAttach: a working copy of one attachment, published into its message at SaveChanges.
class CAttach final : public MapiProp<CAttach, Answers<IAttach, IMAPIProp>> {
public:
    // source  null for a new attachment.
    CAttach(ComPtr<CMessage> message, ULONG number, std::shared_ptr<AttachmentSource> source, bool writable);

    HRESULT STDMETHODCALLTYPE SaveChanges(ULONG flags) override;

    // What the message embedded in this attachment needs of it; under Lock().
    std::recursive_mutex& Lock() noexcept override { return m_message->Lock(); }
    PropertyNames& Names() noexcept override { return m_message->Names(); }
    const MapiAllocator& Allocator() noexcept override { return m_message->Allocator(); }
    CMessage& Message() noexcept { return *m_message; }
    [[nodiscard]] HRESULT PublishEmbedded(std::shared_ptr<MessageSource> embedded);

private:
    [[nodiscard]] HRESULT Stored(PropertyBag*& bag) noexcept override;
    void ListComputed(std::vector<ULONG>& tags) override;
    [[nodiscard]] HRESULT Compute(ULONG id, PropertyValue& value) override;
    [[nodiscard]] HRESULT CheckWritable() noexcept override { return m_writable ? S_OK : E_ACCESSDENIED; }
    [[nodiscard]] HRESULT CheckSettable(ULONG id) noexcept override;
    void Changed(ULONG id) override;
    [[nodiscard]] HRESULT OpenObject(ULONG tag, REFIID iid, ULONG interfaceOptions, ULONG flags,
                                     LPUNKNOWN* object) noexcept override;
    bool DropObject(ULONG id) override;
    [[nodiscard]] HRESULT CopyObject(ULONG tag, IMAPIProp& target, ULONG flags) noexcept override;

    [[nodiscard]] HRESULT Load();
    [[nodiscard]] HRESULT OpenEmbedded(ULONG flags, LPUNKNOWN* object);
    [[nodiscard]] HRESULT OpenStorage(ULONG flags, LPUNKNOWN* object);
    [[nodiscard]] HRESULT OpenObjectStream(ULONG flags, LPUNKNOWN* object);
    [[nodiscard]] HRESULT CopyEmbedded(IMAPIProp& target);
    [[nodiscard]] HRESULT CopyStorage(IMAPIProp& target);

    const ComPtr<CMessage> m_message;
    const ULONG m_number;
    std::shared_ptr<AttachmentSource> m_source;
    bool m_writable;
    bool m_isNew;
    bool m_changed = false;
    bool m_loaded = false;
    PropertyBag m_bag;
    std::shared_ptr<MessageSource> m_embedded;
};

// An attachment's row in its message's table: all that is stored but its data, and what it has by being
// there.
[[nodiscard]] HRESULT ReadAttachmentRow(AttachmentSource& source, ULONG number, ULONG depth,
                                        PropertyBag& row);
// The bytes of an attachment's properties and of the messages embedded in it.
[[nodiscard]] HRESULT SizeOfAttachment(AttachmentSource& source, ULONG depth, std::uint64_t& size);

// Values that were written out of line and turned out small go in line, as places keep them. They are the
// written ones alone; what a place keeps out of line stays so.
[[nodiscard]] HRESULT TakeSmallValuesIn(PropertyBag& bag);

FILETIME TimeNow() noexcept;

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_MESSAGE_MESSAGE_OBJECT_H_
