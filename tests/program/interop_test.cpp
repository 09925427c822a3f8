// Other programs read what this one writes: libgsf, Python's olefile and 7-Zip, on real packages and .msg
// files.
#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "tests/program/program.h"

namespace quorvane::test {

namespace {

class InteropTest : public ProgramTest {
protected:
    // Runs a shell command; its exit code. The output goes to a file in the test's directory.
    int Shell(const std::string& command, const std::string& output) const
    {
        return std::system((command + " > '" + Path(output).string() + "' 2>&1").c_str());
    }

    std::string Text(const std::string& name) const
    {
        std::ifstream file(Path(name), std::ios::binary);
        std::ostringstream text;
        text << file.rdbuf();
        return text.str();
    }

    // Lays all samples, and the folder that they are in, into the exchange: however many packages that takes.
    void MakePackages()
    {
        MakeMailboxes({"alice", "bob"});
        MustRun({"import", Mailbox("alice"), "Shared", Samples().string()});
        MustRun({"share", Mailbox("alice"), "Shared", "--with", "bob"});
        LetAccept("alice", "bob");
        RunUntilIdle({"alice"}, "1");
    }

    // The largest of them.
    std::filesystem::path MakePackage()
    {
        MakePackages();
        const auto packages = ContentFor("bob");
        return *std::max_element(packages.begin(), packages.end(), [](const auto& left, const auto& right) {
            return file_size(left) < file_size(right);
        });
    }

    // How many elements libgsf lists that every item and folder has.
    std::size_t ContentsListed(const std::filesystem::path& package)
    {
        EXPECT_EQ(Shell("gsf list '" + package.string() + "'", "gsf.txt"), 0) << Text("gsf.txt");
        const std::string list = Text("gsf.txt");
        std::size_t contents = 0;
        for (std::size_t at = list.find("/Contents"); at != std::string::npos;
             at = list.find("/Contents", at + 1))
            ++contents;
        return contents;
    }
};

TEST_F(InteropTest, LibgsfListsEveryElementOfAPackage)
{
    MakePackages();

    std::size_t contents = 0;
    for (const auto& package : ContentFor("bob"))
        contents += ContentsListed(package);
    EXPECT_EQ(contents, 40U);
}

TEST_F(InteropTest, OlefileReadsEveryStreamOfAPackage)
{
    const auto package = MakePackage();

    EXPECT_EQ(
        Shell("/usr/bin/python3 -c \"import olefile,sys; f=olefile.OleFileIO(sys.argv[1], raise_defects="
              "olefile.DEFECT_INCORRECT); n=[f.openstream(s).read() for s in f.listdir()]; "
              "print(len(n), f.parsing_issues)\" '" +
                  package.string() + "'",
              "ole.txt"),
        0)
        << Text("ole.txt");
    EXPECT_NE(Text("ole.txt").find("[]"), std::string::npos) << Text("ole.txt");
}

TEST_F(InteropTest, SevenZipExtractsAStreamByteForByte)
{
    const auto package = MakePackage();
    ASSERT_EQ(Shell("7z x -y -o'" + Path("out").string() + "' '" + package.string() + "'", "7z.txt"), 0)
        << Text("7z.txt");

    EXPECT_EQ(
        Shell(
            "/usr/bin/python3 -c \"\nimport olefile, pathlib, sys\nf = olefile.OleFileIO(sys.argv[1])\nout = "
            "pathlib.Path(sys.argv[2])\nfound = {p.read_bytes() for p in out.rglob('*') if p.is_file()}\nfor "
            "s in f.listdir():\n    assert f.openstream(s).read() in found, s\n\" '" +
                package.string() + "' '" + Path("out").string() + "'",
            "same.txt"),
        0)
        << Text("same.txt");
}

TEST_F(InteropTest, ExportedMessageFilesAreReadByLibgsf)
{
    MakeMailboxes({"alice"});
    MustRun({"import", Mailbox("alice"), "In", Samples().string()});

    MustRun({"export", Mailbox("alice"), "In", Path("msgs").string(), "--format", "msg"});

    std::size_t count = 0;
    for (const auto& entry : std::filesystem::directory_iterator(Path("msgs"))) {
        EXPECT_EQ(Shell("gsf list '" + entry.path().string() + "'", "list.txt"), 0) << entry.path();
        EXPECT_NE(Text("list.txt").find("__properties_version1.0"), std::string::npos) << entry.path();
        ++count;
    }
    EXPECT_EQ(count, 40U);
}

TEST_F(InteropTest, WhatIsExportedComesInAgain)
{
    MakeMailboxes({"alice"});
    MustRun({"import", Mailbox("alice"), "In", Samples().string()});
    for (const char* format : {"eml", "msg"}) {
        const std::string out = Path(format).string();
        MustRun({"export", Mailbox("alice"), "In", out, "--format", format});

        const Json again =
            MustRun({"import", Mailbox("alice"), std::string("Again ") + format, out, "--json"}).Value();

        EXPECT_EQ(again.at("imported"), 40U) << format << again.dump();
        const auto before = Items("alice", "In"), after = Items("alice", std::string("Again ") + format);
        ASSERT_EQ(before.size(), after.size());
        for (std::size_t i = 0; i < before.size(); ++i)
            EXPECT_EQ(before[i].at("subject"), after[i].at("subject")) << format;
    }
}

TEST_F(InteropTest, InspectShowsAPackageAMessageAndAnyOtherCompoundFile)
{
    MakePackages();
    std::size_t items = 0, folders = 0;
    for (const auto& package : ContentFor("bob")) {
        const Json shown = MustRun({"inspect", package.string(), "--json"}).Value();
        EXPECT_EQ(shown.at("kind"), "package");
        items += shown.at("items").size();
        folders += shown.at("folders").size();
    }
    EXPECT_EQ(items, 40U);
    EXPECT_EQ(folders, 0U);

    MustRun({"export", Mailbox("alice"), "Shared", Path("msgs").string(), "--format", "msg"});
    const auto message = std::filesystem::directory_iterator(Path("msgs"))->path();
    EXPECT_EQ(MustRun({"inspect", message.string(), "--json"}).Value().at("kind"), "message");

    std::ofstream(Path("plain.txt")) << "content of a stream";
    ASSERT_EQ(Shell("gsf createole '" + Path("plain.ole").string() + "' '" + Path("plain.txt").string() + "'",
                    "c.txt"),
              0);
    EXPECT_EQ(MustRun({"inspect", Path("plain.ole").string(), "--json"}).Value().at("kind"), "compound file");
}

}  // namespace

}  // namespace quorvane::test
