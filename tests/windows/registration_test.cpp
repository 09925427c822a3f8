// What registering quorvane3.dll leaves in the registry of classes, and what is left of that afterwards.
#include <gtest/gtest.h>

#include <set>

#include "quorvane3/object_model.h"
#include "tests/windows/object_model_page.h"
#include "tests/windows/registry_snapshot.h"
#include "tests/windows/server.h"

namespace quorvane::test {
namespace {

constexpr char kRoot[] = "HKLM";
constexpr char kRootOf32Bits[] = "HKLM\\Wow6432Node";

class RegistrationTest : public testing::Test {
protected:
    ~RegistrationTest() override { static_cast<void>(RunRegsvr32ToUnregister()); }

    const Blocks page = ReadObjectModelPage();
    const std::vector<PageType> classes = TypesOf(page, "class");
    const std::string library = LibraryIdOf(page);
    const std::string server = ToUtf8(ServerPath());
    const RegistrySnapshot before = SnapshotOfClasses();

    void AddKey(RegistrySnapshot& lines, const std::string& key) const
    {
        for (size_t end = key.find('\\'); end != std::string::npos; end = key.find('\\', end + 1))
            lines[std::string(kRoot) + "\\" + key.substr(0, end)] = "key";
        lines[std::string(kRoot) + "\\" + key] = "key";
    }
    void AddText(RegistrySnapshot& lines, const std::string& key, const std::string& name,
                 const std::string& text) const
    {
        AddKey(lines, key);
        lines[std::string(kRoot) + "\\" + key + " [" + name + "]"] = text;
    }

    void AddClass(RegistrySnapshot& lines, const PageType& type) const
    {
        const std::string programId = "quorvane3." + type.name;
        const std::string versioned = programId + ".1";
        const std::string key = "CLSID\\" + type.id;
        for (const std::string& each : {programId, versioned}) {
            AddText(lines, each, "", type.name + " Class");
            AddText(lines, each + "\\CLSID", "", type.id);
        }
        AddText(lines, programId + "\\CurVer", "", versioned);
        AddText(lines, key, "", type.name + " Class");
        AddText(lines, key, "AppID", library);
        AddText(lines, key + "\\ProgID", "", versioned);
        AddText(lines, key + "\\VersionIndependentProgID", "", programId);
        AddKey(lines, key + "\\Programmable");
        AddText(lines, key + "\\InprocServer32", "", server);
        AddText(lines, key + "\\InprocServer32", "ThreadingModel", type.threading);
        AddText(lines, key + "\\TypeLib", "", library);
    }

    // The classes and their application.
    RegistrySnapshot LinesOfClasses() const
    {
        RegistrySnapshot lines;
        AddText(lines, "AppID\\" + library, "", "quorvane3");
        AddText(lines, "AppID\\quorvane3.DLL", "AppID", library);
        for (const PageType& type : classes)
            AddClass(lines, type);
        return lines;
    }

    // What the system writes for a type library.
    RegistrySnapshot LinesOfTypeLibrary() const
    {
        const std::string version = "TypeLib\\" + library + "\\1.0";
        RegistrySnapshot lines;
        AddText(lines, version, "", "quorvane 3.0 Type Library");
        AddText(lines, version + "\\409\\win64", "", server);
        AddKey(lines, version + "\\FLAGS");
        AddText(lines, version + "\\HELPDIR", "", server.substr(0, server.rfind('\\')));
        for (const PageType& type : TypesOf(page)) {
            if (type.kind == "class")
                continue;
            const std::string key = "Interface\\" + type.id;
            const std::string marshaller = type.kind == "dual" ? "{00020424-0000-0000-C000-000000000046}"
                                                               : "{00020420-0000-0000-C000-000000000046}";
            AddText(lines, key, "", type.name);
            AddText(lines, key + "\\ProxyStubClsid32", "", marshaller);
            AddText(lines, key + "\\TypeLib", "", library);
            AddText(lines, key + "\\TypeLib", "Version", "1.0");
        }
        return lines;
    }

    // Whether the system may write this line of its own accord: for interfaces and type libraries it knows
    // more keys than it documents, and some of them programs of 32 bits see as well.
    bool IsSystemsOwn(const std::string& line) const
    {
        const auto isBelow = [&](const std::string& key) {
            return _strnicmp(line.c_str(), key.c_str(), key.size()) == 0;
        };
        for (const std::string root : {kRoot, kRootOf32Bits}) {
            if (isBelow(root + "\\TypeLib\\" + library))
                return true;
            for (const PageType& type : TypesOf(page))
                if (type.kind != "class" && isBelow(root + "\\Interface\\" + type.id))
                    return true;
        }
        return isBelow(std::string(kRootOf32Bits) + "\\AppID\\" + library) ||
               isBelow(std::string(kRootOf32Bits) + "\\AppID\\quorvane3.DLL");
    }

    // The keys that are there for the library alone, from the registry of classes on.
    std::set<std::string> KeysOfTheLibrary() const
    {
        std::set<std::string> keys{"AppID\\" + library, "AppID\\quorvane3.DLL", "TypeLib\\" + library};
        for (const PageType& type : TypesOf(page)) {
            keys.insert((type.kind == "class" ? "CLSID\\" : "Interface\\") + type.id);
            if (type.kind == "class")
                keys.insert({"quorvane3." + type.name, "quorvane3." + type.name + ".1"});
        }
        return keys;
    }

    // The keys that have keys below them, from the registry of classes on.
    static std::set<std::string> ParentsOf(const RegistrySnapshot& lines)
    {
        std::set<std::string> parents;
        for (const auto& [line, contents] : lines) {
            const size_t end = contents == "key" ? line.rfind('\\') : std::string::npos;
            if (end != std::string::npos && end > sizeof(kRoot))
                parents.insert(line.substr(sizeof(kRoot), end - sizeof(kRoot)));
        }
        return parents;
    }

    // The default value of a key in the registry of classes; empty when there is none.
    static std::string ReadText(const std::string& key)
    {
        const RegistrySnapshot now = SnapshotOfClasses();
        const auto found = now.find(std::string(kRoot) + "\\" + key + " []");
        return found == now.end() ? "" : found->second;
    }
};

TEST_F(RegistrationTest, AddsTheKeysOfTheClassesTheTypeLibraryAndTheInterfacesAndNoOther)
{
    ASSERT_EQ(classes.size(), 13u);
    ASSERT_EQ(RunRegsvr32(), 0u);
    const RegistrySnapshot added = Added(before, SnapshotOfClasses());

    RegistrySnapshot expected = LinesOfClasses();
    expected.merge(LinesOfTypeLibrary());
    for (const auto& [line, contents] : Added(before, expected)) {
        const auto found = added.find(line);
        EXPECT_EQ(found == added.end() ? "nothing" : found->second, contents) << line;
    }
    for (const auto& [line, contents] : added)
        EXPECT_TRUE(expected.contains(line) || IsSystemsOwn(line)) << line;
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
    const ComScope com;
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
    const ComScope com;
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
    RegistrySnapshot lines = LinesOfClasses();
    lines.merge(LinesOfTypeLibrary());
    const LoadedServer loaded;
    size_t failures = 0;
    for (const std::string& parent : ParentsOf(lines)) {
        const RefusingKey refusing(parent);
        if (!refusing.IsNew())
            continue;
        ++failures;
        const RegistrySnapshot ready = SnapshotOfKeys(KeysOfTheLibrary());

        EXPECT_TRUE(FAILED(loaded.Register())) << parent;
        EXPECT_EQ(SnapshotOfKeys(KeysOfTheLibrary()), ready) << parent;
    }
    EXPECT_GE(failures,
              3 * classes.size() + TypesOf(page).size() - classes.size() + kTypeLibraryAndItsVersion);
    EXPECT_EQ(SnapshotOfClasses(), before);
}

TEST_F(RegistrationTest, AFailureOfTheSystemWithTheTypeLibraryLeavesTheRegistryAsItWas)
{
    const std::string version = "TypeLib\\" + library + "\\1.0";
    HKEY key = nullptr;
    ASSERT_EQ(RegCreateKeyW(HKEY_CLASSES_ROOT, FromUtf8(version).c_str(), &key), ERROR_SUCCESS);
    RegCloseKey(key);
    {
        const LoadedServer loaded;
        const RefusingKey refusing(version + "\\409");
        const RegistrySnapshot ready = SnapshotOfKeys(KeysOfTheLibrary());

        EXPECT_TRUE(FAILED(loaded.Register()));
        EXPECT_EQ(SnapshotOfKeys(KeysOfTheLibrary()), ready);
    }
    EXPECT_EQ(RegDeleteTreeW(HKEY_CLASSES_ROOT, FromUtf8("TypeLib\\" + library).c_str()), ERROR_SUCCESS);
}

TEST_F(RegistrationTest, AFailureLeavesAnEarlierRegistrationAsItWas)
{
    const LoadedServer loaded;
    ASSERT_EQ(loaded.Register(), S_OK);
    const std::string first = "CLSID\\" + classes.front().id + "\\InprocServer32";
    const OleString earlier = L"C:\\Earlier\\quorvane3.dll";
    ASSERT_EQ(RegSetValueW(HKEY_CLASSES_ROOT, FromUtf8(first).c_str(), REG_SZ, earlier.c_str(), 0),
              ERROR_SUCCESS);
    const std::string last = "CLSID\\" + TypesOf(page, "class").back().id;
    ASSERT_EQ(RegDeleteTreeW(HKEY_CLASSES_ROOT, FromUtf8(last).c_str()), ERROR_SUCCESS);
    const RefusingKey refusing(last);
    const RegistrySnapshot ready = SnapshotOfClasses();

    EXPECT_TRUE(FAILED(loaded.Register()));

    EXPECT_EQ(SnapshotOfClasses(), ready);
    EXPECT_EQ(ReadText(first), ToUtf8(earlier));
}

TEST_F(RegistrationTest, RegisteringAgainReplacesAnotherPath)
{
    const LoadedServer loaded;
    ASSERT_EQ(loaded.Register(), S_OK);
    const std::string key = "CLSID\\" + classes.front().id + "\\InprocServer32";
    ASSERT_EQ(
        RegSetValueW(HKEY_CLASSES_ROOT, FromUtf8(key).c_str(), REG_SZ, L"C:\\Earlier\\quorvane3.dll", 0),
        ERROR_SUCCESS);

    EXPECT_EQ(loaded.Register(), S_OK);

    EXPECT_EQ(ReadText(key), server);
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

}  // namespace
}  // namespace quorvane::test
