#include "tests/support/registered_library.h"

namespace quorvane::test {

RegisteredLibrary::RegisteredLibrary() = default;
RegisteredLibrary::~RegisteredLibrary() = default;

}  // namespace quorvane::test
