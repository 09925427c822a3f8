// items/message_storage.h: messages on structured storage, as "MAPI_DATA" and the Stream property carry them.
#ifndef QUORVANE_ENGINE_ITEMS_MESSAGE_STORAGE_H_
#define QUORVANE_ENGINE_ITEMS_MESSAGE_STORAGE_H_

#include <utility>

#include "platform/com/com_ptr.h"
#include "platform/mapi/mapi.h"

namespace quorvane {

inline constexpr OLECHAR kMessageDataName[] = OLESTR("MAPI_DATA");

// The mode in which the engine makes every storage and stream, and the one in which it opens storages.
inline constexpr DWORD kCreateMode = STGM_CREATE | STGM_READWRITE | STGM_SHARE_EXCLUSIVE;
inline constexpr DWORD kOpenMode = STGM_READWRITE | STGM_SHARE_EXCLUSIVE;

// Owns one message session, or none.
class MessageSession {
public:
    MessageSession() noexcept = default;
    MessageSession(MessageSession&& other) noexcept : handle_(std::exchange(other.handle_, nullptr)) {}
    MessageSession& operator=(MessageSession&& other) noexcept
    {
        std::swap(handle_, other.handle_);
        return *this;
    }
    ~MessageSession() { Close(); }

    // E_OUTOFMEMORY and what OpenIMsgSession gives.
    [[nodiscard]] HRESULT Open() noexcept;
    void Close() noexcept;
    LPMSGSESS Get() const noexcept { return handle_; }

private:
    LPMSGSESS handle_ = nullptr;
};

// Opens the message on a storage; an empty storage gives an empty message.
//
// session  [in]   may be null.
// storage  [in]   stays open as long as the message.
// message  [out]  empty after a failure.
[[nodiscard]] HRESULT OpenMessageOnStorage(LPMSGSESS session, IStorage& storage,
                                           ComPtr<IMessage>& message) noexcept;

// Reads all that a storage holds and forgets it: what is damaged is found before anything rests on it.
//
// storage  [in]  nothing in it is open.
//
// S_OK: all of it can be read. MAPI_E_TOO_COMPLEX: storages lie in one another too deeply. Others (STG_E_*)
// as they come.
[[nodiscard]] HRESULT ReadThrough(IStorage& storage) noexcept;

// A compound file in memory that goes with its last reference.
struct MemoryStorage {
    ComPtr<ILockBytes> bytes;
    ComPtr<IStorage> storage;

    [[nodiscard]] HRESULT Create() noexcept;
};

}  // namespace quorvane

#endif  // QUORVANE_ENGINE_ITEMS_MESSAGE_STORAGE_H_
