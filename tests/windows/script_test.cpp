// A script host, which knows the library by its program identifiers alone.
#include <gtest/gtest.h>

#include "tests/windows/object_model_page.h"
#include "tests/windows/server.h"

namespace quorvane::test {
namespace {

class ScriptTest : public testing::Test {
protected:
    void TearDown() override { EXPECT_EQ(RunRegsvr32ToUnregister(), 0u); }

    // Runs one of the scripts beside this file.
    static ProgramResult Run(const OleString& name, const OleString& arguments = L"")
    {
        return RunProgram(L"cscript.exe //nologo \"" + FromUtf8(QUORVANE_SCRIPTS) + L"\\" + name + L"\" " +
                          arguments);
    }

    // The lines of an output, whichever line ends it has.
    static std::vector<std::string> LinesOf(const ProgramResult& result)
    {
        std::vector<std::string> lines;
        std::string line;
        for (const char c : result.output) {
            if (c == '\n')
                lines.push_back(std::exchange(line, {}));
            else if (c != '\r')
                line += c;
        }
        return lines;
    }
};

TEST_F(ScriptTest, MakesTheLibraryAndIsToldToLogInFirst)
{
    ASSERT_EQ(RunRegsvr32(), 0u);
    for (const OleString programId : {L"quorvane3.Library", L"quorvane3.Library.1"}) {
        const ProgramResult result = Run(L"library.js", programId);

        const std::vector<std::string> expected = {"Session: Please login first.", "ForceLogoff: done",
                                                   "Test: done"};
        EXPECT_EQ(LinesOf(result), expected);
        EXPECT_EQ(result.exitCode, 0u);
    }
}

TEST_F(ScriptTest, MakesNothingOfALibraryThatIsNotRegistered)
{
    const ProgramResult result = Run(L"library.js", L"quorvane3.Library");

    EXPECT_EQ(result.exitCode, 3u);
    EXPECT_TRUE(LinesOf(result).empty());
}

TEST_F(ScriptTest, ReadsAndWritesPropertiesByName)
{
    ASSERT_EQ(RunRegsvr32(), 0u);
    const ProgramResult result = Run(L"properties.js");

    const std::vector<std::string> expected = {"ID: {5A}",  "UnRead: true", "Action: 20",
                                               "Value: 42", "locked: true", "unlocked: false"};
    EXPECT_EQ(LinesOf(result), expected);
    EXPECT_EQ(result.exitCode, 0u);
}

}  // namespace
}  // namespace quorvane::test
