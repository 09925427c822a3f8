#include <windows.h>

#include <string>
#include <vector>

#include "host/base/errors.h"
#include "host/commands/program.h"

namespace {

// The program's texts are UTF-8, and so is what the console takes until the end of a scope.
class ConsoleInUtf8 {
public:
    ConsoleInUtf8() noexcept : before_(GetConsoleOutputCP())
    {
        if (before_ != 0)
            SetConsoleOutputCP(CP_UTF8);
    }
    ConsoleInUtf8(const ConsoleInUtf8&) = delete;
    ConsoleInUtf8& operator=(const ConsoleInUtf8&) = delete;
    ~ConsoleInUtf8()
    {
        if (before_ != 0)
            SetConsoleOutputCP(before_);
    }

private:
    UINT before_;  // 0 without a console
};

}  // namespace

int wmain(int argc, wchar_t** argv)
{
    const ConsoleInUtf8 console;
    std::vector<std::string> texts;
    for (int i = 0; i < argc; ++i)
        texts.push_back(quorvane::ToUtf8(argv[i]));
    std::vector<const char*> pointers;
    for (const std::string& text : texts)
        pointers.push_back(text.c_str());
    pointers.push_back(nullptr);
    return quorvane::host::RunProgram(argc, pointers.data());
}
