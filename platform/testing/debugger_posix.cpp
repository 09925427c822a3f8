#include "platform/testing/debugger.h"

#include "platform/testing/surroundings.h"

namespace quorvane::test {

namespace {

constexpr char kVariable[] = "QUORVANE_DEBUG_OUTPUT";

}  // namespace

DebuggerForTest::DebuggerForTest(const std::filesystem::path& file) : handler_(nullptr)
{
    SetVariable(kVariable, file.c_str());
}

DebuggerForTest::~DebuggerForTest()
{
    SetVariable(kVariable, nullptr);
}

}  // namespace quorvane::test
