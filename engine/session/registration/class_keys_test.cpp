#include "engine/session/registration/class_keys.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "platform/com/bstr.h"

namespace quorvane {
namespace {

constexpr OLECHAR kModule[] = OLESTR("C:\\Program Files\\quorvane3.dll");

std::vector<std::string> LinesOf(const std::vector<ClassesText>& texts)
{
    std::vector<std::string> lines;
    for (const ClassesText& each : texts)
        lines.push_back(Narrow(each.key) + " [" + Narrow(each.name) + "]" +
                        (each.text ? " " + Narrow(*each.text) : ""));
    return lines;
}

TEST(ClassKeysTest, AClassHasTwoProgramIdentifiersAndAKeyOfItsOwn)
{
    const auto folder = ClassCatalogue().subspan(3, 1);

    const std::vector<std::string> expected = {
        "AppID\\{8044D363-2CD8-43A6-9C54-EEFEAB467FD3} [] quorvane3",
        "AppID\\quorvane3.DLL [AppID] {8044D363-2CD8-43A6-9C54-EEFEAB467FD3}",
        "quorvane3.Folder.1 [] Folder Class",
        "quorvane3.Folder.1\\CLSID [] {BF74D3FF-861E-463E-9F0D-7962B35D166B}",
        "quorvane3.Folder [] Folder Class",
        "quorvane3.Folder\\CLSID [] {BF74D3FF-861E-463E-9F0D-7962B35D166B}",
        "quorvane3.Folder\\CurVer [] quorvane3.Folder.1",
        "CLSID\\{BF74D3FF-861E-463E-9F0D-7962B35D166B} [] Folder Class",
        "CLSID\\{BF74D3FF-861E-463E-9F0D-7962B35D166B} [AppID] {8044D363-2CD8-43A6-9C54-EEFEAB467FD3}",
        "CLSID\\{BF74D3FF-861E-463E-9F0D-7962B35D166B}\\ProgID [] quorvane3.Folder.1",
        "CLSID\\{BF74D3FF-861E-463E-9F0D-7962B35D166B}\\VersionIndependentProgID [] quorvane3.Folder",
        "CLSID\\{BF74D3FF-861E-463E-9F0D-7962B35D166B}\\Programmable []",
        "CLSID\\{BF74D3FF-861E-463E-9F0D-7962B35D166B}\\InprocServer32 [] C:\\Program Files\\quorvane3.dll",
        "CLSID\\{BF74D3FF-861E-463E-9F0D-7962B35D166B}\\InprocServer32 [ThreadingModel] Free",
        "CLSID\\{BF74D3FF-861E-463E-9F0D-7962B35D166B}\\TypeLib [] {8044D363-2CD8-43A6-9C54-EEFEAB467FD3}",
    };
    EXPECT_EQ(LinesOf(ClassTexts(folder, kModule)), expected);
}

TEST(ClassKeysTest, EveryClassOfTheCatalogueIsRegisteredAlike)
{
    constexpr size_t kOfTheApplication = 2;
    constexpr size_t kOfAClass = 13;

    const auto texts = ClassTexts(ClassCatalogue(), kModule);

    EXPECT_EQ(texts.size(), kOfTheApplication + kOfAClass * ClassCatalogue().size());
    for (const CatalogueEntry& entry : ClassCatalogue()) {
        const auto isModel = [&](const ClassesText& each) {
            return each.name == OLESTR("ThreadingModel") && each.text == entry.threadingModel;
        };
        EXPECT_TRUE(std::ranges::any_of(texts, isModel)) << Narrow(entry.name);
    }
}

TEST(ClassKeysTest, WhatIsWrittenLiesInTheKeysThatAreRemoved)
{
    const auto keys = ClassKeys(ClassCatalogue());
    for (const ClassesText& each : ClassTexts(ClassCatalogue(), kModule)) {
        const auto holds = [&](const OleString& key) {
            return each.key == key || each.key.starts_with(key + OLESTR("\\"));
        };
        EXPECT_EQ(std::ranges::count_if(keys, holds), 1) << Narrow(each.key);
    }
}

TEST(ClassKeysTest, WhatIsRemovedIsWrittenFirst)
{
    const auto texts = ClassTexts(ClassCatalogue(), kModule);
    for (const OleString& key : ClassKeys(ClassCatalogue())) {
        const auto isOfKey = [&](const ClassesText& each) { return each.key == key; };
        EXPECT_TRUE(std::ranges::any_of(texts, isOfKey)) << Narrow(key);
    }
}

TEST(ClassKeysTest, TheTypeLibraryHasAKeyOfItsVersionAndOneForEachInterface)
{
    const auto lines = LinesOf(TypeLibraryTexts());

    ASSERT_EQ(lines.size(), 3u + 19u);
    EXPECT_EQ(lines[0], "TypeLib\\{8044D363-2CD8-43A6-9C54-EEFEAB467FD3}\\1.0 [] quorvane 3.0 Type Library");
    EXPECT_EQ(lines[1], "TypeLib\\{8044D363-2CD8-43A6-9C54-EEFEAB467FD3}\\1.0\\FLAGS []");
    EXPECT_EQ(lines[2], "TypeLib\\{8044D363-2CD8-43A6-9C54-EEFEAB467FD3}\\1.0\\HELPDIR []");
    EXPECT_EQ(lines[3], "Interface\\{9F803347-6C7B-49A8-9498-77DEBFB65EFA}\\TypeLib []");
}

}  // namespace
}  // namespace quorvane
