// msgstore/store/session_state.h: what the objects of one logon share.
#ifndef QUORVANE_MSGSTORE_STORE_SESSION_STATE_H_
#define QUORVANE_MSGSTORE_STORE_SESSION_STATE_H_

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "msgstore/store/notification_hub.h"

namespace quorvane {

// A message service of a profile: one store.
struct StoreService {
    ObjectGuid uid{};         // of the service in its profile
    std::string displayName;  // UTF-8
    std::string path;         // of the store's file; empty until it's configured
    ObjectGuid store{};       // the store's GUID as it was when the service was configured
};

// Kept by every object of the session; when the last of them goes, the session ends. Any thread may call.
class SessionState {
public:
    SessionState(std::string profile, std::vector<StoreService> services);
    SessionState(const SessionState&) = delete;
    SessionState& operator=(const SessionState&) = delete;
    ~SessionState();

    const std::string& Profile() const noexcept { return profile_; }
    const std::vector<StoreService>& Services() const noexcept { return services_; }
    NotificationHub& Hub() noexcept { return *hub_; }

    // Opens the profile's store with that GUID.
    //
    // MAPI_E_UNKNOWN_ENTRYID: the profile has none; MAPI_E_NOT_FOUND: its file is missing;
    // MAPI_E_UNCONFIGURED: another store is in its place; others of StoreCore::Open.
    [[nodiscard]] HRESULT OpenStore(const ObjectGuid& store, std::shared_ptr<StoreCore>& core) noexcept;
    const StoreService* FindService(const ObjectGuid& store) const noexcept;

private:
    const std::string profile_;
    const std::vector<StoreService> services_;
    const std::shared_ptr<NotificationHub> hub_;
};

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_STORE_SESSION_STATE_H_
