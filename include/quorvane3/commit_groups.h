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

// {0F3C9A57-4B1E-4C62-9D0A-8E5B7C2D1F64}
inline constexpr IID IID_ICommitGroups{
    0x0f3c9a57, 0x4b1e, 0x4c62, {0x9d, 0x0a, 0x8e, 0x5b, 0x7c, 0x2d, 0x1f, 0x64}};

}  // namespace quorvane

QUORVANE_IID(quorvane::ICommitGroups, quorvane::IID_ICommitGroups);

#endif  // QUORVANE3_COMMIT_GROUPS_H_
