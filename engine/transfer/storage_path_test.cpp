#include "engine/transfer/storage_path.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <set>

#include "platform/file/file.h"
#include "platform/file/path.h"

namespace quorvane {
namespace {

std::string NameOf(OleStringView id)
{
    return Narrow(ElementName(Bstr(id).Get()));
}

TEST(ElementNameTest, ANameIsTheFirstThirtyOneDigitsOfTheIdsMd5)
{
    // MD5("abc") = 900150983cd24fb0d6963f7d28e17f72
    EXPECT_EQ(NameOf(OLESTR("abc")), "900150983cd24fb0d6963f7d28e17f7");
    // MD5("") = d41d8cd98f00b204e9800998ecf8427e
    EXPECT_EQ(NameOf(OLESTR("")), "d41d8cd98f00b204e9800998ecf8427");
    EXPECT_EQ(ElementName(nullptr), ElementName(Bstr(OLESTR("")).Get()));
}

TEST(ElementNameTest, AnIdOfAnyLengthGivesThirtyOneCharacters)
{
    for (const size_t length : {1, 49, 50, 5000})
        EXPECT_EQ(NameOf(OleString(length, OLECHAR{'x'})).size(), 31u) << length;
}

TEST(ElementNameTest, AsManyBytesCountAsTheIdHasCharacters)
{
    if (Narrow(OLESTR("\u00e9")).size() != 2)
        return;  // the ANSI code page has one byte for it
    // Two bytes for the first character, of two that count.
    EXPECT_EQ(NameOf(OLESTR("\u00e9a")), NameOf(OLESTR("\u00e9b")));
    EXPECT_NE(NameOf(OLESTR("a\u00e9")), NameOf(OLESTR("b\u00e9")));
}

TEST(PackagePathTest, APathIsNamedAfterAPackageAndIsEmpty)
{
    std::string path;

    ASSERT_EQ(MakePackagePath(path), S_OK);

    const std::filesystem::path parts(path);
    EXPECT_EQ(parts.filename().string().substr(0, 3), "QVT");
    EXPECT_EQ(parts.extension(), ".qvt");
    EXPECT_EQ(std::filesystem::file_size(parts), 0u);
    EXPECT_FALSE(std::filesystem::exists(std::filesystem::path(path).replace_extension(".tmp")));
    EXPECT_EQ(RemoveFile(path), S_OK);
}

TEST(PackagePathTest, ManyPathsAreAllDifferent)
{
    std::set<std::string> paths;
    for (int i = 0; i < 300; ++i) {
        std::string path;
        ASSERT_EQ(MakePackagePath(path), S_OK);
        EXPECT_TRUE(paths.insert(path).second) << path;
    }
    for (const std::string& path : paths)
        EXPECT_EQ(RemoveFile(path), S_OK);
}

TEST(PackagePathTest, OnlyDamageIsDamage)
{
    for (const HRESULT damage : {STG_E_FILEALREADYEXISTS, STG_E_INVALIDHEADER, STG_E_DOCFILECORRUPT})
        EXPECT_TRUE(IsDamage(damage)) << std::hex << damage;
    for (const HRESULT passing :
         {S_OK, STG_E_SHAREVIOLATION, STG_E_LOCKVIOLATION, STG_E_READFAULT, STG_E_ACCESSDENIED, E_OUTOFMEMORY,
          STG_E_INSUFFICIENTMEMORY, STG_E_TOOMANYOPENFILES, STG_E_MEDIUMFULL, STG_E_FILENOTFOUND, E_FAIL})
        EXPECT_FALSE(IsDamage(passing)) << std::hex << passing;
}

}  // namespace
}  // namespace quorvane
