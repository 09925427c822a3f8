// host/profile.h: the MAPI profile of a mailbox, and the session that the program itself works in.
#ifndef QUORVANE_HOST_PROFILE_H_
#define QUORVANE_HOST_PROFILE_H_

#include <string>

#include "quorvane3/com.h"
#include "quorvane3/mapi.h"

namespace quorvane::host {

// Makes the default profile of the present settings, with one message store in the file `storePath`, which is
// made too. Throws a HostError.
void CreateProfile(const std::string& storePath, const std::string& displayName);

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

#endif  // QUORVANE_HOST_PROFILE_H_
