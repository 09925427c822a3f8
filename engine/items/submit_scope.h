// items/submit_scope.h: the time in which a received item is written to the store.
#ifndef QUORVANE_ENGINE_ITEMS_SUBMIT_SCOPE_H_
#define QUORVANE_ENGINE_ITEMS_SUBMIT_SCOPE_H_

#include "engine/session/context/session_context.h"

namespace quorvane {

// Holds the session's submit lock, with "ItemSubmitEvent" reset; takes both back on every way out. Order:
// reset the event, then enter the lock; set the event, then leave the lock.
class SubmitScope {
public:
    explicit SubmitScope(SessionContext& session) QV_NO_THREAD_SAFETY_ANALYSIS : session_(session)
    {
        session_.ItemSubmitEvent().Reset();
        session_.SubmitLock().Lock();
    }
    SubmitScope(const SubmitScope&) = delete;
    SubmitScope& operator=(const SubmitScope&) = delete;
    ~SubmitScope() QV_NO_THREAD_SAFETY_ANALYSIS
    {
        session_.ItemSubmitEvent().Set();
        session_.SubmitLock().Unlock();
    }

private:
    SessionContext& session_;
};

}  // namespace quorvane

#endif  // QUORVANE_ENGINE_ITEMS_SUBMIT_SCOPE_H_
