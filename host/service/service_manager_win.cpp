#include "host/service/service_manager.h"

namespace quorvane::host {

ServiceManager::ServiceManager() = default;

void ServiceManager::Tell(const std::string&) const {}

}  // namespace quorvane::host
