#include "platform/testing/surroundings.h"

#include <random>
#include <stdexcept>
#include <string>

#include "platform/registry/registry.h"

namespace quorvane::test {

std::filesystem::path MakeTestDirectory()
{
    std::random_device random;
    // A directory for temporary files that a test chose for its time may be gone.
    static const std::filesystem::path parent = std::filesystem::temp_directory_path();
    for (int attempt = 0; attempt < 100; ++attempt) {
        std::filesystem::path directory = parent / ("quorvane-test-" + std::to_string(random()));
        if (std::filesystem::create_directory(directory))
            return directory;
    }
    throw std::runtime_error("no directory for a test");
}

void PutUserSetting(const std::string& key, const std::string& name, const std::string& text)
{
    RegistryKey open;
    if (FAILED(open.Create(RegistryHive::CurrentUser, key)) ||
        FAILED(open.Set(name, RegistryValue::OfText(text))))
        throw std::runtime_error("cannot put " + name + " into " + key);
}

}  // namespace quorvane::test
