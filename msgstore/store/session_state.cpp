#include "msgstore/store/session_state.h"

#include <algorithm>

namespace quorvane {

SessionState::SessionState(std::string profile, std::vector<StoreService> services)
    : profile_(std::move(profile)), services_(std::move(services)), hub_(std::make_shared<NotificationHub>())
{}

SessionState::~SessionState()
{
    hub_->Stop();
}

const StoreService* SessionState::FindService(const ObjectGuid& store) const noexcept
{
    const auto found = std::find_if(services_.begin(), services_.end(), [&](const StoreService& service) {
        return service.store == store && !service.path.empty();
    });
    return found != services_.end() ? &*found : nullptr;
}

HRESULT SessionState::OpenStore(const ObjectGuid& store, std::shared_ptr<StoreCore>& core) noexcept
{
    const StoreService* const service = FindService(store);
    if (!service)
        return MAPI_E_UNKNOWN_ENTRYID;
    std::shared_ptr<StoreCore> opened;
    QV_RETURN_IF_FAILED(StoreCore::Open(service->path, false, opened));
    if (opened->Guid() != store)
        return MAPI_E_UNCONFIGURED;
    core = std::move(opened);
    return S_OK;
}

}  // namespace quorvane
