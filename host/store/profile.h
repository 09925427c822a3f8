// host/store/profile.h: the MAPI profile of a mailbox, and the session that the program itself works in.
#ifndef QUORVANE_HOST_STORE_PROFILE_H_
#define QUORVANE_HOST_STORE_PROFILE_H_

#include <filesystem>
#include <string>

#include "quorvane3/com.h"
#include "quorvane3/mapi.h"

namespace quorvane::host {

// Whether the present settings have the program's profile, with the message store in the file `storePath`.
// Throws a HostError.
bool HasProfile(const std::filesystem::path& storePath);

// Makes it, the default one, or points it to that file, which is made where it is missing. Throws a
// HostError.
void MakeProfile(const std::filesystem::path& storePath, const std::string& displayName);

// MAPI, initialised for the process while this lives, with a session on the default profile and its default
// store. The store and all it gives may be used from any thread. Throws a HostError.
class MailSession {
public:
    explicit MailSession(const std::string& mailbox);
    MailSession(const MailSession&) = delete;
    MailSession& operator=(const MailSession&) = delete;
    ~MailSession();

    IMAPISession& Session() const noexcept { return *session_; }
    IMsgStore& Store() const noexcept { return *store_; }
    // The store's entry identifier in hexadecimal text.
    const std::string& StoreId() const noexcept { return storeId_; }

private:
    ComPtr<IMAPISession> session_;
    ComPtr<IMsgStore> store_;
    std::string storeId_;
};

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_STORE_PROFILE_H_
