// tests/windows/server.h: quorvane3.dll as the system sees it: a file that is registered, and loaded.
#ifndef QUORVANE_TESTS_WINDOWS_SERVER_H_
#define QUORVANE_TESTS_WINDOWS_SERVER_H_

#include <string>

#include "quorvane3/com.h"

namespace quorvane::test {

// Full path of quorvane3.dll, which lies beside the running program.
OleString ServerPath();

// What a program that has run left.
struct ProgramResult {
    DWORD exitCode = 0;
    std::string output;  // what it wrote to the standard output
};

// Runs a program to its end. Throws std::runtime_error when it can't be started, or takes longer than a
// minute.
ProgramResult RunProgram(const OleString& commandLine);

// regsvr32's exit codes: 0 is success.
DWORD RunRegsvr32();
DWORD RunRegsvr32ToUnregister();

// The library, loaded into this process for its length.
class LoadedServer {
public:
    // Throws std::runtime_error.
    explicit LoadedServer(const OleString& path = ServerPath());
    LoadedServer(const LoadedServer&) = delete;
    LoadedServer& operator=(const LoadedServer&) = delete;
    ~LoadedServer();

    HRESULT Register() const { return CallExport("DllRegisterServer"); }
    HRESULT Unregister() const { return CallExport("DllUnregisterServer"); }
    // Makes an object through the library's own class factory.
    HRESULT Make(REFCLSID clsid, REFIID riid, void** object) const;

private:
    FARPROC Export(const char* name) const;
    HRESULT CallExport(const char* name) const;

    HMODULE module_;
};

}  // namespace quorvane::test

#endif  // QUORVANE_TESTS_WINDOWS_SERVER_H_
