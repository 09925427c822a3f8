// quorvane3/message_store.h: what a host must know of the project's own message store beyond MAPI.
//
// The store is a message service of the published kind: a host makes a profile (MAPIAdminProfiles,
// IProfAdmin::CreateProfile), adds the service kMessageStoreService (IMsgServiceAdmin::CreateMsgService) and
// configures it (IMsgServiceAdmin::ConfigureMsgService) with the properties below. From then on MAPILogonEx
// and IMAPISession::OpenMsgStore reach the store.
#ifndef QUORVANE3_MESSAGE_STORE_H_
#define QUORVANE3_MESSAGE_STORE_H_

#include "quorvane3/com.h"
#include "quorvane3/mapi.h"

namespace quorvane {

// The name of the message service, for CreateMsgService.
inline constexpr char kMessageStoreService[] = "QVSTORE";

// The path of the store's file, in the ANSI code page. Required by ConfigureMsgService, which makes the file
// when there is none (its directory must exist). Also a property of the store object.
inline constexpr ULONG kPrMessageStorePath = PROP_TAG(PT_STRING8, 0x6600);

// Boolean: the store's contents tables and their notifications hand out short-term entry identifiers, whose
// first byte isn't 0. The identifiers that objects tell of themselves stay long-term. Optional for
// ConfigureMsgService; it is kept in the store's file and can be read and set on the store object (SetProps,
// SaveChanges).
inline constexpr ULONG kPrMessageStoreShortTermIds = PROP_TAG(PT_BOOLEAN, 0x6601);

// The name (MNID_STRING) of a binary property for what a message was made of, such as the mail that was
// imported. It is a property as any other and goes where the message goes, but PR_MESSAGE_SIZE, and with it
// what contents tables tell and sort by, doesn't count it: it is no part of what the message says.
inline constexpr GUID kOriginalMailSet = {
    0x6B1F0C52, 0x93D4, 0x4E0A, {0xB7, 0xA8, 0x5D, 0x2C, 0x41, 0xE9, 0x8F, 0x36}};
inline constexpr OLECHAR kOriginalMailName[] = OLESTR("OriginalMail");

// Saving many messages: IMAPIProp::SaveChanges(MAPI_DEFERRED_ERRORS) on a message of the store is atomic, is
// seen by everyone at once and outlives the process, but doesn't wait for the disk: a power failure may take
// it back, never in part. Every later save without the flag, of any object of the store, makes all deferred
// ones durable; IMsgStore::SaveChanges(0) does just that. Who has them gathered (IGatheredSaves,
// quorvane3/commit_groups.h) saves faster, and is the first to see them.

// Answered by the project's own message store (IMsgStore). Any thread may call.
//
// Subscriptions (IMsgStore::Advise, IMAPITable::Advise) hear of what this process changes at once, and of
// what others change within 100 ms, as the store looks for that by itself. A host that knows of it sooner
// says so.
struct IChangesOfOthers : IUnknown {
    // Has the store look for what other processes have changed, and tell it to the subscriptions of this one.
    // Doesn't wait for it: sinks are called on the threads that call them always. Costs little where nothing
    // has changed.
    //
    // S_OK.
    virtual HRESULT STDMETHODCALLTYPE LookForChanges() = 0;
};

// {A9D27C14-5E80-4B3A-8F16-C07B94E2D358}
inline constexpr IID IID_IChangesOfOthers{
    0xa9d27c14, 0x5e80, 0x4b3a, {0x8f, 0x16, 0xc0, 0x7b, 0x94, 0xe2, 0xd3, 0x58}};

}  // namespace quorvane

QUORVANE_IID(quorvane::IChangesOfOthers, quorvane::IID_IChangesOfOthers);

#endif  // QUORVANE3_MESSAGE_STORE_H_
