#include "platform/testing/console.h"

#include <fstream>
#include <iterator>

namespace quorvane::test {

std::string ConsoleForTest::Text() const
{
    std::ifstream file(path_, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

}  // namespace quorvane::test
