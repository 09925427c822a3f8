// session/context/session_link.h: what an object that a host may keep beyond its session holds of it.
//
// A host that answers after the end of a session still has the item that it was asked about. So an item holds
// its session by a handle that the ending session clears:
//
//     HRESULT CItem::get_Folder(IFolder** pVal)
//     {
//         const SessionUse use(m_pSession);
//         HR_TRY(traced, use.Result());      // E_UNEXPECTED: the session is gone
//         ... m_pSession->Database() ...     // it stays until `use` goes
//
// The end waits for the uses under way, turns further ones away, and then has every item let go of what it
// holds of MAPI's, while MAPI is still there.
#ifndef QUORVANE_ENGINE_SESSION_CONTEXT_SESSION_LINK_H_
#define QUORVANE_ENGINE_SESSION_CONTEXT_SESSION_LINK_H_

#include "engine/session/context/notification_gate.h"

namespace quorvane {

class SessionContext;
class SessionHandle;

// The one of a session, shared by it and its handles. Any thread may call.
class SessionLink {
public:
    // Null: no memory.
    static std::shared_ptr<SessionLink> Create(SessionContext& session) noexcept;

    // Clears all handles. Calls into the calling thread's apartment are answered while it waits, as a use
    // under way may be waiting for a host that lives there. Must not be called from within a use. A second
    // call does nothing.
    void End() noexcept;

private:
    friend class SessionHandle;
    friend class SessionUse;

    explicit SessionLink(SessionContext& session) noexcept : session_(session) {}
    void Add(SessionHandle& handle) noexcept;
    void Remove(SessionHandle& handle) noexcept;

    SessionContext& session_;
    std::shared_ptr<NotificationGate> uses_;
    Mutex mutex_;
    SessionHandle* first_ QV_GUARDED_BY(mutex_) = nullptr;
};

// The handle of one object; a member of it, or a base.
class SessionHandle {
public:
    // session  [in]  null: the handle is clear from the beginning.
    //
    // Throws std::bad_alloc.
    explicit SessionHandle(SessionContext* session);
    SessionHandle(const SessionHandle&) = delete;
    SessionHandle& operator=(const SessionHandle&) = delete;

    // Within a SessionUse alone, or on a thread that the session waits for before it ends.
    SessionContext& operator*() const noexcept { return link_->session_; }
    SessionContext* operator->() const noexcept { return &link_->session_; }

protected:
    // The object's destructor calls Leave first.
    ~SessionHandle() = default;
    // After this LetGo isn't called any more.
    void Leave() noexcept;

private:
    friend class SessionLink;
    friend class SessionUse;

    // The session ends, and nobody is using the object: let go of MAPI's. Objects can neither be made nor go
    // meanwhile.
    virtual void LetGo() noexcept = 0;

    const std::shared_ptr<SessionLink> link_;
    SessionHandle* previous_ = nullptr;
    SessionHandle* next_ = nullptr;
};

// Keeps the session from ending, for a scope.
class SessionUse {
public:
    explicit SessionUse(const SessionHandle& handle) noexcept
        : pass_(handle.link_ ? handle.link_->uses_ : nullptr)
    {}

    // S_OK. E_UNEXPECTED: the session has ended, or there was none.
    HRESULT Result() const noexcept { return pass_.IsHeld() ? S_OK : E_UNEXPECTED; }

private:
    const GatePass pass_;
};

}  // namespace quorvane

#endif  // QUORVANE_ENGINE_SESSION_CONTEXT_SESSION_LINK_H_
