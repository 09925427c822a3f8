// OpenIMsgSession, CloseIMsgSession and OpenIMsgOnIStg.
#include "msgstore/imsg/storage_backend.h"
#include "msgstore/message/message.h"
#include "msgstore/util/guarded.h"

// A session groups messages. They don't depend on it: one that's still open when its session is closed goes
// on, and so closing never pulls a message from under its user.
struct _MSGSESS {};

namespace quorvane {
namespace {

constexpr ULONG kNoStorageCommit = 1;

// Calls back when the message ends, as its opener asked for.
std::function<void()> CallOnRelease(MSGCALLRELEASE* release, ULONG callerData,
                                    const std::shared_ptr<IMessage*>& message)
{
    if (!release)
        return {};
    return [release, callerData, message] { release(callerData, *message); };
}

}  // namespace
}  // namespace quorvane

using namespace quorvane;

STDAPI_(SCODE) OpenIMsgSession(LPMALLOC, ULONG, LPMSGSESS* session)
{
    if (!session)
        return MAPI_E_INVALID_PARAMETER;
    *session = new (std::nothrow) _MSGSESS;
    return *session ? S_OK : MAPI_E_NOT_ENOUGH_MEMORY;
}

STDAPI_(void) CloseIMsgSession(LPMSGSESS session)
{
    delete session;
}

STDAPI_(SCODE)
OpenIMsgOnIStg(LPMSGSESS, LPALLOCATEBUFFER, LPALLOCATEMORE, LPFREEBUFFER, LPMALLOC, LPVOID, LPSTORAGE storage,
               MSGCALLRELEASE* release, ULONG callerData, ULONG flags, LPMESSAGE* message)
{
    if (!storage || !message)
        return MAPI_E_INVALID_PARAMETER;
    *message = nullptr;
    return Guarded([&]() -> HRESULT {
        std::shared_ptr<StorageBackend> backend;
        QV_RETURN_IF_FAILED(StorageBackend::Open(*storage, (flags & kNoStorageCommit) == 0, backend));
        const bool writable = backend->IsWritable();
        auto self = std::make_shared<IMessage*>(nullptr);
        QV_RETURN_IF_FAILED(
            MakeMessage(std::move(backend), writable, CallOnRelease(release, callerData, self), message));
        *self = *message;
        return S_OK;
    });
}
