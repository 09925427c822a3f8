#include "tests/oledb_provider/registered_provider.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "platform/com/own_module.h"
#include "tests/oledb_provider/access_file.h"

namespace quorvane::test {
namespace {

// The library, which lies beside the running program.
HMODULE LoadProvider()
{
    OleString path;
    if (FAILED(OwnModulePath(path)))
        throw std::runtime_error("the program has no path");
    path = path.substr(0, path.find_last_of(OLESTR('\\')) + 1) + kProviderLibrary;
    HMODULE const module = LoadLibraryW(path.c_str());
    if (!module)
        throw std::runtime_error("loading the provider fails: " + std::to_string(GetLastError()));
    return module;
}

template <class Function>
Function ProviderFunction(const char* name)
{
    static HMODULE const module = LoadProvider();
    FARPROC const found = GetProcAddress(module, name);
    if (!found)
        throw std::runtime_error(std::string("the provider has no ") + name);
    return reinterpret_cast<Function>(reinterpret_cast<void*>(found));
}

HRESULT CallProvider(const char* name)
{
    return ProviderFunction<HRESULT(STDMETHODCALLTYPE*)()>(name)();
}

class RegisteredProvider final : public ::testing::Environment {
public:
    void SetUp() override
    {
        // Threads that have no apartment of their own are in COM's free one, which stays as long as this.
        ASSERT_EQ(CoIncrementMTAUsage(&freeApartment_), S_OK);
        ASSERT_EQ(CallProvider("DllRegisterServer"), S_OK)
            << "Is Access's own provider registered? These tests stand in for it, and don't replace it.";
        ASSERT_EQ(RegisterAccessFileVfs(), 0);
    }
    void TearDown() override
    {
        EXPECT_EQ(CallProvider("DllUnregisterServer"), S_OK);
        EXPECT_EQ(CoDecrementMTAUsage(freeApartment_), S_OK);
    }

private:
    CO_MTA_USAGE_COOKIE freeApartment_{};
};

const ::testing::Environment* const environment = ::testing::AddGlobalTestEnvironment(new RegisteredProvider);

}  // namespace

ProviderNotes LastProviderNotes()
{
    ProviderNotes notes;
    ProviderFunction<GetProviderNotes>("QuorvaneProviderNotes")(&notes);
    return notes;
}

bool ProviderIsInUse()
{
    return CallProvider("DllCanUnloadNow") != S_OK;
}

}  // namespace quorvane::test
