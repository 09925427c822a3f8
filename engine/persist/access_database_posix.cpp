#include "engine/persist/database_backend.h"

namespace quorvane {

HRESULT OpenAccessDatabase(OleStringView, const std::string&, std::unique_ptr<DatabaseBackend>&) noexcept
{
    return S_FALSE;
}

}  // namespace quorvane
