// host/store/msg_file.h: messages in .msg files.
#ifndef QUORVANE_HOST_STORE_MSG_FILE_H_
#define QUORVANE_HOST_STORE_MSG_FILE_H_

#include <filesystem>

#include "quorvane3/com.h"
#include "quorvane3/mapi.h"
#include "quorvane3/storage.h"

namespace quorvane::host {

// A message on a compound file, for as long as this lives.
class MsgFile {
public:
    MsgFile() noexcept = default;
    MsgFile(const MsgFile&) = delete;
    MsgFile& operator=(const MsgFile&) = delete;
    ~MsgFile();

    // Opens a file to read its message, or makes a new file with an empty one. STG_E_* and MAPI_E_*.
    [[nodiscard]] HRESULT Open(const std::filesystem::path& path);
    [[nodiscard]] HRESULT Create(const std::filesystem::path& path);

    // Opens the message on a storage that the caller has at hand.
    [[nodiscard]] HRESULT OpenOn(IStorage& storage);

    IMessage& Message() const noexcept { return *message_; }

private:
    ComPtr<IStorage> storage_;
    LPMSGSESS session_ = nullptr;
    ComPtr<IMessage> message_;
};

// Copies everything of a message to another and saves that with `saveFlags`.
[[nodiscard]] HRESULT CopyMessage(IMessage& source, IMessage& target, ULONG saveFlags);

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_STORE_MSG_FILE_H_
