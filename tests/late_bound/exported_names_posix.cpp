#include <array>
#include <cstdio>
#include <sstream>

#include "tests/late_bound/exported_names.h"

namespace quorvane::test {

namespace {

std::string OutputOf(const std::string& command)
{
    FILE* const pipe = popen(command.c_str(), "r");
    std::string output;
    std::array<char, 4096> part{};
    for (size_t read = 0; pipe && (read = fread(part.data(), 1, part.size(), pipe)) > 0;)
        output.append(part.data(), read);
    if (pipe)
        pclose(pipe);
    return output;
}

}  // namespace

std::set<std::string> ExportedNames(const std::string& path)
{
    std::istringstream symbols(OutputOf("nm --dynamic --defined-only --format=posix '" + path + "'"));
    std::set<std::string> names;
    for (std::string line; std::getline(symbols, line);)
        names.insert(line.substr(0, line.find(' ')));
    return names;
}

}  // namespace quorvane::test
