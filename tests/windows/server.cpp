#include "tests/windows/server.h"

#include <memory>
#include <stdexcept>
#include <thread>

namespace quorvane::test {

namespace {

struct HandleCloser {
    void operator()(HANDLE handle) const noexcept { CloseHandle(handle); }
};
using OwnedHandle = std::unique_ptr<void, HandleCloser>;

[[noreturn]] void Throw(const std::string& what)
{
    throw std::runtime_error(what + " fails: " + std::to_string(GetLastError()));
}

struct Pipe {
    OwnedHandle read;
    OwnedHandle write;  // inherited by programs that are started
};

Pipe MakePipe()
{
    SECURITY_ATTRIBUTES inherited{sizeof(inherited), nullptr, TRUE};
    HANDLE read = nullptr;
    HANDLE write = nullptr;
    if (!CreatePipe(&read, &write, &inherited, 0))
        Throw("CreatePipe");
    SetHandleInformation(read, HANDLE_FLAG_INHERIT, 0);
    return {OwnedHandle(read), OwnedHandle(write)};
}

OwnedHandle Start(OleString commandLine, HANDLE output)
{
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = GetStdHandle(STD_INPUT_HANDLE);
    startup.hStdOutput = output;
    startup.hStdError = GetStdHandle(STD_ERROR_HANDLE);
    PROCESS_INFORMATION process{};
    if (!CreateProcessW(nullptr, commandLine.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup,
                        &process))
        Throw("starting " + Narrow(commandLine));
    CloseHandle(process.hThread);
    return OwnedHandle(process.hProcess);
}

std::string ReadAll(HANDLE pipe)
{
    std::string text;
    char buffer[4096];
    DWORD read = 0;
    while (ReadFile(pipe, buffer, sizeof(buffer), &read, nullptr) && read > 0)
        text.append(buffer, read);
    return text;
}

OleString Quoted(const OleString& text)
{
    return L'"' + text + L'"';
}

}  // namespace

OleString ServerPath()
{
    OleString path(MAX_PATH, L'\0');
    path.resize(GetModuleFileNameW(nullptr, path.data(), MAX_PATH));
    return path.substr(0, path.find_last_of(L'\\') + 1) + L"quorvane3.dll";
}

ProgramResult RunProgram(const OleString& commandLine)
{
    constexpr DWORD kProgramDeadline = 60'000;
    Pipe pipe = MakePipe();
    const OwnedHandle process = Start(commandLine, pipe.write.get());
    pipe.write.reset();
    ProgramResult result;
    std::jthread reader([&] { result.output = ReadAll(pipe.read.get()); });
    if (WaitForSingleObject(process.get(), kProgramDeadline) != WAIT_OBJECT_0) {
        TerminateProcess(process.get(), ERROR_TIMEOUT);
        throw std::runtime_error(Narrow(commandLine) + " doesn't end");
    }
    reader.join();
    GetExitCodeProcess(process.get(), &result.exitCode);
    return result;
}

DWORD RunRegsvr32()
{
    return RunProgram(L"regsvr32.exe /s " + Quoted(ServerPath())).exitCode;
}

DWORD RunRegsvr32ToUnregister()
{
    return RunProgram(L"regsvr32.exe /s /u " + Quoted(ServerPath())).exitCode;
}

LoadedServer::LoadedServer(const OleString& path) : module_(LoadLibraryW(path.c_str()))
{
    if (!module_)
        Throw("loading " + Narrow(path));
}

LoadedServer::~LoadedServer()
{
    FreeLibrary(module_);
}

FARPROC LoadedServer::Export(const char* name) const
{
    FARPROC const found = GetProcAddress(module_, name);
    if (!found)
        Throw(std::string("finding ") + name);
    return found;
}

HRESULT LoadedServer::CallExport(const char* name) const
{
    using Function = HRESULT(STDMETHODCALLTYPE*)();
    return reinterpret_cast<Function>(reinterpret_cast<void*>(Export(name)))();
}

HRESULT LoadedServer::Make(REFCLSID clsid, REFIID riid, void** object) const
{
    using Function = HRESULT(STDMETHODCALLTYPE*)(REFCLSID, REFIID, void**);
    const auto getFactory = reinterpret_cast<Function>(reinterpret_cast<void*>(Export("DllGetClassObject")));
    ComPtr<IClassFactory> factory;
    const HRESULT hr = getFactory(clsid, IID_IClassFactory, factory.PutVoid());
    return FAILED(hr) ? hr : factory->CreateInstance(nullptr, riid, object);
}

}  // namespace quorvane::test
