// quorvane3/commit_groups.h: what a host that does many things in a row may spare: commits that wait for the
// disk one by one, and packages that are closed after each item.
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

// Answered by the engine's collection of packages (IStorageFiles). Any thread may call.
//
// A package is closed between two writes, so that the host can copy it or give it away at any time. A host
// that touches none before it has removed it from the collection can have it stay open, which saves most of
// what a write of a small item costs. What was written is in the file all the same when its writer unlocks
// it; the file may be longer than what is in it.
struct IKeptPackages : IUnknown {
    // keep  [in]  TRUE: from now on packages stay open between two writes, until they are removed from the
    //             collection, FALSE is given or the collection goes. FALSE closes them; one that is just
    //             being written, when its writer unlocks it. The same twice is as good as once.
    //
    // S_OK; E_OUTOFMEMORY, of FALSE: packages that are open stay so until they are written to or removed.
    virtual HRESULT STDMETHODCALLTYPE KeepOpen(BOOL keep) = 0;
};

// {0F3C9A57-4B1E-4C62-9D0A-8E5B7C2D1F64}
inline constexpr IID IID_ICommitGroups{
    0x0f3c9a57, 0x4b1e, 0x4c62, {0x9d, 0x0a, 0x8e, 0x5b, 0x7c, 0x2d, 0x1f, 0x64}};

// {6B0E4D18-93A7-4F5C-B2C1-27D8F0A35E9B}
inline constexpr IID IID_IGatheredSaves{
    0x6b0e4d18, 0x93a7, 0x4f5c, {0xb2, 0xc1, 0x27, 0xd8, 0xf0, 0xa3, 0x5e, 0x9b}};

// {A94D2E61-7C05-4B83-9E1F-35D6B80C7F12}
inline constexpr IID IID_IKeptPackages{
    0xa94d2e61, 0x7c05, 0x4b83, {0x9e, 0x1f, 0x35, 0xd6, 0xb8, 0x0c, 0x7f, 0x12}};

}  // namespace quorvane

QUORVANE_IID(quorvane::IKeptPackages, quorvane::IID_IKeptPackages);
QUORVANE_IID(quorvane::IGatheredSaves, quorvane::IID_IGatheredSaves);
QUORVANE_IID(quorvane::ICommitGroups, quorvane::IID_ICommitGroups);

#endif  // QUORVANE3_COMMIT_GROUPS_H_
