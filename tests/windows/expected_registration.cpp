#include "tests/windows/expected_registration.h"

namespace quorvane::test {

namespace {

const std::string kRoot = "HKLM\\";
const std::string kRootOf32Bits = "HKLM\\Wow6432Node\\";
constexpr char kModule[] = "AppID\\quorvane3.DLL";

bool IsBelow(const std::string& line, const std::string& key)
{
    return _strnicmp(line.c_str(), key.c_str(), key.size()) == 0;
}

}  // namespace

ExpectedRegistration::ExpectedRegistration(const Blocks& page, const std::string& server)
    : types_(TypesOf(page)), library_(LibraryIdOf(page))
{
    AddText("AppID\\" + library_, "", "quorvane3");
    AddText(kModule, "AppID", library_);
    AddTypeLibrary(server);
    for (const PageType& type : types_) {
        if (type.kind == "class")
            AddClass(type, server);
        else
            AddInterface(type);
    }
}

void ExpectedRegistration::AddKey(const std::string& key)
{
    for (size_t end = key.find('\\'); end != std::string::npos; end = key.find('\\', end + 1))
        lines_[kRoot + key.substr(0, end)] = "key";
    lines_[kRoot + key] = "key";
}

void ExpectedRegistration::AddText(const std::string& key, const std::string& name, const std::string& text)
{
    AddKey(key);
    lines_[kRoot + key + " [" + name + "]"] = text;
}

void ExpectedRegistration::AddClass(const PageType& type, const std::string& server)
{
    const std::string programId = "quorvane3." + type.name;
    const std::string versioned = programId + ".1";
    const std::string key = "CLSID\\" + type.id;
    for (const std::string& each : {programId, versioned}) {
        AddText(each, "", type.name + " Class");
        AddText(each + "\\CLSID", "", type.id);
    }
    AddText(programId + "\\CurVer", "", versioned);
    AddText(key, "", type.name + " Class");
    AddText(key, "AppID", library_);
    AddText(key + "\\ProgID", "", versioned);
    AddText(key + "\\VersionIndependentProgID", "", programId);
    AddKey(key + "\\Programmable");
    AddText(key + "\\InprocServer32", "", server);
    AddText(key + "\\InprocServer32", "ThreadingModel", type.threading);
    AddText(key + "\\TypeLib", "", library_);
}

void ExpectedRegistration::AddTypeLibrary(const std::string& server)
{
    const std::string version = "TypeLib\\" + library_ + "\\1.0";
    AddText(version, "", "quorvane 3.0 Type Library");
    AddText(version + "\\409\\win64", "", server);
    AddKey(version + "\\FLAGS");
    AddText(version + "\\HELPDIR", "", server.substr(0, server.rfind('\\')));
}

void ExpectedRegistration::AddInterface(const PageType& type)
{
    const std::string key = "Interface\\" + type.id;
    const std::string marshaller = type.kind == "dual" ? "{00020424-0000-0000-C000-000000000046}"
                                                       : "{00020420-0000-0000-C000-000000000046}";
    AddText(key, "", type.name);
    AddText(key + "\\ProxyStubClsid32", "", marshaller);
    AddText(key + "\\TypeLib", "", library_);
    AddText(key + "\\TypeLib", "Version", "1.0");
}

std::set<std::string> ExpectedRegistration::Keys() const
{
    std::set<std::string> keys{"AppID\\" + library_, kModule, "TypeLib\\" + library_};
    for (const PageType& type : types_) {
        keys.insert((type.kind == "class" ? "CLSID\\" : "Interface\\") + type.id);
        if (type.kind == "class")
            keys.insert({"quorvane3." + type.name, "quorvane3." + type.name + ".1"});
    }
    return keys;
}

std::set<std::string> ExpectedRegistration::Parents() const
{
    std::set<std::string> parents;
    for (const auto& [line, contents] : lines_) {
        const size_t end = contents == "key" ? line.rfind('\\') : std::string::npos;
        if (end != std::string::npos && end > kRoot.size())
            parents.insert(line.substr(kRoot.size(), end - kRoot.size()));
    }
    return parents;
}

bool ExpectedRegistration::IsSystemsOwn(const std::string& line) const
{
    for (const std::string& root : {kRoot, kRootOf32Bits}) {
        if (IsBelow(line, root + "TypeLib\\" + library_))
            return true;
        for (const PageType& type : types_)
            if (type.kind != "class" && IsBelow(line, root + "Interface\\" + type.id))
                return true;
    }
    return IsBelow(line, kRootOf32Bits + "AppID\\" + library_) || IsBelow(line, kRootOf32Bits + kModule);
}

}  // namespace quorvane::test
