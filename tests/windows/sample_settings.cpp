// In the component of the sample's script: from its loading on the process's user has the settings of a
// directory of the tests' (QUORVANE_TEST_SETTINGS).
#include <cstdlib>

#include "platform/testing/surroundings.h"

namespace quorvane::test {
namespace {

[[maybe_unused]] const bool kSettingsAreOurs = [] {
    KeepSettingsIn(std::getenv("QUORVANE_TEST_SETTINGS"));
    return true;
}();

}  // namespace
}  // namespace quorvane::test
