// What registering quorvane3.dll leaves in the registry of classes, and what is left of that afterwards.
#include <gtest/gtest.h>

#include "quorvane3/object_model.h"
#include "tests/support/test_directory.h"
#include "tests/windows/expected_registration.h"
#include "tests/windows/server.h"

namespace quorvane::test {
namespace {

class RegistrationTest : public testing::Test {
protected:
    void TearDown() override { EXPECT_EQ(RunRegsvr32ToUnregister(), 0u); }

    // The default value of a key in the registry of classes; empty when there is none.
    static std::string ReadText(const std::string& key)
    {
        const RegistrySnapshot lines = SnapshotOfKeys({key});
        const auto found = lines.find("HKLM\\" + key + " []");
        return found == lines.end() ? "" : found->second;
    }
    static void WriteText(const std::string& key, const OleString& text)
    {
        ASSERT_EQ(RegSetValueW(HKEY_CLASSES_ROOT, FromUtf8(key).c_str(), REG_SZ, text.c_str(), 0),
                  ERROR_SUCCESS);
    }
    static std::string ServerKeyOf(const PageType& type) { return "CLSID\\" + type.id + "\\InprocServer32"; }

    RegistrySnapshot LinesOfTheLibrary() const { return SnapshotOfKeys(expected.Keys()); }

    const Blocks page = ReadObjectModelPage();
    const std::vector<PageType> classes = TypesOf(page, "class");
    const size_t interfaces = TypesOf(page).size() - classes.size();
    const ExpectedRegistration expected{page, ToUtf8(ServerPath())};
    const RegistrySnapshot before = SnapshotOfClasses();
};

TEST_F(RegistrationTest, AddsTheKeysOfTheClassesTheTypeLibraryAndTheInterfacesAndNoOther)
{
    ASSERT_EQ(classes.size(), 13u);
    ASSERT_EQ(RunRegsvr32(), 0u);
    const RegistrySnapshot added = Added(before, SnapshotOfClasses());

    for (const auto& [line, contents] : Added(before, expected.Lines())) {
        const auto found = added.find(line);
        EXPECT_EQ(found == added.end() ? "nothing" : found->second, contents) << line;
    }
    for (const auto& [line, contents] : added)
        EXPECT_TRUE(expected.Lines().contains(line) || expected.IsSystemsOwn(line)) << line;
}

TEST_F(RegistrationTest, IsTakenBackWhole)
{
    ASSERT_EQ(RunRegsvr32(), 0u);
    ASSERT_NE(SnapshotOfClasses(), before);

    EXPECT_EQ(RunRegsvr32ToUnregister(), 0u);

    const RegistrySnapshot after = SnapshotOfClasses();
    EXPECT_EQ(Added(before, after), RegistrySnapshot());
    EXPECT_EQ(Added(after, before), RegistrySnapshot());
}

TEST_F(RegistrationTest, ASecondTimeChangesNothing)
{
    ASSERT_EQ(RunRegsvr32(), 0u);
    const RegistrySnapshot once = SnapshotOfClasses();

    EXPECT_EQ(RunRegsvr32(), 0u);

    EXPECT_EQ(SnapshotOfClasses(), once);
}

TEST_F(RegistrationTest, TakingBackWhatIsNotThereSucceedsAndChangesNothing)
{
    EXPECT_EQ(RunRegsvr32ToUnregister(), 0u);

    EXPECT_EQ(SnapshotOfClasses(), before);
}

TEST_F(RegistrationTest, BothProgramIdentifiersLeadToTheirClass)
{
    ASSERT_EQ(RunRegsvr32(), 0u);
    const ApartmentScope com;
    for (const PageType& type : classes) {
        for (const std::string suffix : {"", ".1"}) {
            const std::string programId = "quorvane3." + type.name + suffix;
            CLSID found{};
            EXPECT_EQ(CLSIDFromProgID(FromUtf8(programId).c_str(), &found), S_OK) << programId;
            EXPECT_TRUE(IsEqualCLSID(found, type.Guid())) << programId;
        }
    }
}

TEST_F(RegistrationTest, TheSystemMakesAnObjectOfEveryClass)
{
    ASSERT_EQ(RunRegsvr32(), 0u);
    const ApartmentScope com;
    for (const PageType& type : classes) {
        ComPtr<IDispatch> object;
        EXPECT_EQ(
            CoCreateInstance(type.Guid(), nullptr, CLSCTX_INPROC_SERVER, IID_IDispatch, object.PutVoid()),
            S_OK)
            << type.name;
    }
}

TEST_F(RegistrationTest, TheTypeLibraryIsFoundByItsIdentifier)
{
    ASSERT_EQ(RunRegsvr32(), 0u);
    ComPtr<ITypeLib> found;
    Bstr name;

    ASSERT_EQ(LoadRegTypeLib(LIBID_quorvane3, 1, 0, 0x409, found.Put()), S_OK);

    EXPECT_EQ(found->GetDocumentation(MEMBERID_NIL, name.Put(), nullptr, nullptr, nullptr), S_OK);
    EXPECT_EQ(name.View(), OLESTR("quorvane3"));
}

// A volatile key, below which the registry refuses to make a lasting one.
class RefusingKey {
public:
    explicit RefusingKey(const std::string& path)
    {
        for (size_t end = path.find('\\');; end = path.find('\\', end + 1)) {
            MakeLevel(FromUtf8(path.substr(0, end)));
            if (end == std::string::npos)
                return;
        }
    }
    RefusingKey(const RefusingKey&) = delete;
    RefusingKey& operator=(const RefusingKey&) = delete;
    ~RefusingKey()
    {
        if (IsNew())
            RegDeleteTreeW(HKEY_CLASSES_ROOT, made_.c_str());
    }

    // Otherwise the key was there before, and lasts.
    bool IsNew() const noexcept { return !made_.empty(); }

private:
    void MakeLevel(const OleString& path)
    {
        HKEY key = nullptr;
        DWORD made = 0;
        if (RegCreateKeyExW(HKEY_CLASSES_ROOT, path.c_str(), 0, nullptr, REG_OPTION_VOLATILE, KEY_READ,
                            nullptr, &key, &made) != ERROR_SUCCESS)
            return;
        RegCloseKey(key);
        if (made == REG_CREATED_NEW_KEY && made_.empty())
            made_ = path;
    }

    OleString made_;  // the uppermost key that is new
};

TEST_F(RegistrationTest, AFailureAtAnyKeyLeavesTheRegistryAsItWas)
{
    constexpr size_t kTypeLibraryAndItsVersion = 2;
    const LoadedServer loaded;
    size_t failures = 0;
    for (const std::string& parent : expected.Parents()) {
        const RefusingKey refusing(parent);
        if (!refusing.IsNew())
            continue;
        ++failures;
        const RegistrySnapshot ready = LinesOfTheLibrary();

        EXPECT_TRUE(FAILED(loaded.Register())) << parent;
        EXPECT_EQ(LinesOfTheLibrary(), ready) << parent;
    }
    EXPECT_GE(failures, 3 * classes.size() + interfaces + kTypeLibraryAndItsVersion);
    EXPECT_EQ(SnapshotOfClasses(), before);
}

TEST_F(RegistrationTest, AFailureOfTheSystemWithTheTypeLibraryLeavesTheRegistryAsItWas)
{
    const std::string key = "TypeLib\\" + LibraryIdOf(page);
    WriteText(key + "\\1.0", L"an earlier one");
    {
        const LoadedServer loaded;
        const RefusingKey refusing(key + "\\1.0\\409");
        const RegistrySnapshot ready = LinesOfTheLibrary();

        EXPECT_TRUE(FAILED(loaded.Register()));
        EXPECT_EQ(LinesOfTheLibrary(), ready);
    }
    EXPECT_EQ(RegDeleteTreeW(HKEY_CLASSES_ROOT, FromUtf8(key).c_str()), ERROR_SUCCESS);
    // What the system may have written for programs of 32 bits goes with the next registration.
    EXPECT_EQ(RunRegsvr32(), 0u);
}

TEST_F(RegistrationTest, AFailureLeavesAnEarlierRegistrationAsItWas)
{
    const LoadedServer loaded;
    ASSERT_EQ(loaded.Register(), S_OK);
    WriteText(ServerKeyOf(classes.front()), L"C:\\Earlier\\quorvane3.dll");
    const std::string last = "CLSID\\" + classes.back().id;
    ASSERT_EQ(RegDeleteTreeW(HKEY_CLASSES_ROOT, FromUtf8(last).c_str()), ERROR_SUCCESS);
    const RefusingKey refusing(last);
    const RegistrySnapshot ready = SnapshotOfClasses();

    EXPECT_TRUE(FAILED(loaded.Register()));

    EXPECT_EQ(SnapshotOfClasses(), ready);
    EXPECT_EQ(ReadText(ServerKeyOf(classes.front())), "C:\\Earlier\\quorvane3.dll");
}

TEST_F(RegistrationTest, RegisteringAgainReplacesAnotherPath)
{
    const LoadedServer loaded;
    ASSERT_EQ(loaded.Register(), S_OK);
    WriteText(ServerKeyOf(classes.front()), L"C:\\Earlier\\quorvane3.dll");

    EXPECT_EQ(loaded.Register(), S_OK);

    EXPECT_EQ(ReadText(ServerKeyOf(classes.front())), ToUtf8(ServerPath()));
}

TEST_F(RegistrationTest, TheFailureIsTheRegistrysOwn)
{
    const LoadedServer loaded;
    const RefusingKey refusing("quorvane3.Library");

    EXPECT_EQ(loaded.Register(), HRESULT_FROM_WIN32(ERROR_CHILD_MUST_BE_VOLATILE));
}

TEST_F(RegistrationTest, Regsvr32TellsOfAFailure)
{
    const RefusingKey refusing("quorvane3.Library");

    EXPECT_NE(RunRegsvr32(), 0u);
}

TEST_F(RegistrationTest, AModuleInAFolderOfAnyNameIsFoundAgain)
{
    const TestDirectory directory;
    const std::filesystem::path module = directory.Path() / L"Ordner \u00E4\u0436" / L"quorvane3.dll";
    std::filesystem::create_directory(module.parent_path());
    std::filesystem::copy_file(ServerPath(), module);
    {
        const ApartmentScope com;
        const LoadedServer loaded(module.wstring());
        ASSERT_EQ(loaded.Register(), S_OK);
        EXPECT_EQ(ReadText(ServerKeyOf(classes.front())), ToUtf8(module.wstring()));
        ComPtr<ITypeLib> library;
        EXPECT_EQ(LoadRegTypeLib(LIBID_quorvane3, 1, 0, 0x409, library.Put()), S_OK);
        ComPtr<ILibrary> object;
        EXPECT_EQ(
            CoCreateInstance(CLSID_Library, nullptr, CLSCTX_INPROC_SERVER, IID_ILibrary, object.PutVoid()),
            S_OK);
        EXPECT_EQ(loaded.Unregister(), S_OK);
    }
    EXPECT_EQ(SnapshotOfClasses(), before);
}

}  // namespace
}  // namespace quorvane::test
