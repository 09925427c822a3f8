// quorvane3/commit_groups.h: commits that don't wait for the disk one by one.
#ifndef QUORVANE3_COMMIT_GROUPS_H_
#define QUORVANE3_COMMIT_GROUPS_H_

#include "quorvane3/com.h"

namespace quorvane {

// Answered by the engine's session, for the sharing database, and by the project's own message store
// (IMsgStore), for the messages that are saved. Any thread may call.
//
// Each commit is on the disk when the call that made it returns. A host that can make good what a power
// failure takes back may put that off for a while: a commit still outlives the process at once, and none is
// ever lost in part, but it is on the disk only with the next one that waits. What the message store deletes
// waits in any case, and all that was put off there with it.
struct ICommitGroups : IUnknown {
    // putOff  [in]  TRUE: from now on commits don't wait, until FALSE is given or the object goes. Of the
    //               store for everyone in this process who has it open; where several have put it off, until
    //               the last has ended it. The same twice is as good as once.
    //
    // S_OK. E_NOTIMPL: the database can't.
    virtual HRESULT STDMETHODCALLTYPE PutOffWaiting(BOOL putOff) = 0;
};

// Answered by the project's own message store (IMsgStore). Any thread may call.
//
// While saves are gathered, those of messages with MAPI_DEFERRED_ERRORS of some 40 ms each are one commit,
// which costs little more than that of one message. Everybody in the process sees them at once, and others
// when they are committed; a process that ends before loses them. Each is still atomic.
struct IGatheredSaves : IUnknown {
    // gather  [in]  TRUE: from now on they are gathered, until FALSE is given or the object goes. Of the
    //               store for everyone in this process who has it open; where several have asked for it,
    //               until the last has ended it. The same twice is as good as once. FALSE commits what was
    //               gathered last.
    //
    // S_OK. Others: a commit failed, as on a full disk. What it was to hold is lost, and each call of the
    // store fails until all objects of it in this process are released: they may tell of messages that aren't
    // there.
    virtual HRESULT STDMETHODCALLTYPE Gather(BOOL gather) = 0;
};

// {0F3C9A57-4B1E-4C62-9D0A-8E5B7C2D1F64}
inline constexpr IID IID_ICommitGroups{
    0x0f3c9a57, 0x4b1e, 0x4c62, {0x9d, 0x0a, 0x8e, 0x5b, 0x7c, 0x2d, 0x1f, 0x64}};

// {6B0E4D18-93A7-4F5C-B2C1-27D8F0A35E9B}
inline constexpr IID IID_IGatheredSaves{
    0x6b0e4d18, 0x93a7, 0x4f5c, {0xb2, 0xc1, 0x27, 0xd8, 0xf0, 0xa3, 0x5e, 0x9b}};

}  // namespace quorvane

QUORVANE_IID(quorvane::IGatheredSaves, quorvane::IID_IGatheredSaves);
QUORVANE_IID(quorvane::ICommitGroups, quorvane::IID_ICommitGroups);

#endif  // QUORVANE3_COMMIT_GROUPS_H_
