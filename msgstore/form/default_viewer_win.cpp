#include "msgstore/form/form_registry.h"

namespace quorvane {

std::string_view DefaultViewer() noexcept
{
    return {};
}

}  // namespace quorvane
