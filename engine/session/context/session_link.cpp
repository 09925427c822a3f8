#include "engine/session/context/session_link.h"

#include <new>

#include "engine/session/context/session_context.h"

namespace quorvane {

std::shared_ptr<SessionLink> SessionLink::Create(SessionContext& session) noexcept
{
    try {
        std::shared_ptr<SessionLink> link(new SessionLink(session));
        link->uses_ = NotificationGate::Create();
        return link->uses_ ? link : nullptr;
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

void SessionLink::End() noexcept
{
    uses_->CloseAndWait();
    const MutexLock lock(mutex_);
    for (SessionHandle* handle = first_; handle; handle = handle->next_)
        handle->LetGo();
}

void SessionLink::Add(SessionHandle& handle) noexcept
{
    const MutexLock lock(mutex_);
    handle.next_ = first_;
    if (first_)
        first_->previous_ = &handle;
    first_ = &handle;
}

void SessionLink::Remove(SessionHandle& handle) noexcept
{
    const MutexLock lock(mutex_);
    (handle.previous_ ? handle.previous_->next_ : first_) = handle.next_;
    if (handle.next_)
        handle.next_->previous_ = handle.previous_;
}

SessionHandle::SessionHandle(SessionContext* session) : link_(session ? session->Link() : nullptr)
{
    if (session && !link_)
        throw std::bad_alloc();
    if (link_)
        link_->Add(*this);
}

void SessionHandle::Leave() noexcept
{
    if (link_)
        link_->Remove(*this);
}

std::shared_ptr<SessionLink> SessionContext::Link() noexcept
{
    const MutexLock lock(linkMutex_);
    if (!link_)
        link_ = SessionLink::Create(*this);
    return link_;
}

void SessionContext::EndLink() noexcept
{
    std::shared_ptr<SessionLink> link;
    {
        const MutexLock lock(linkMutex_);
        link = link_;
    }
    if (link)
        link->End();
}

}  // namespace quorvane
