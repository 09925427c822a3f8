#include "engine/session/registration/class_keys.h"

#include <charconv>
#include <string>
#include <utility>

#include "engine/session/context/type_catalogue.h"
#include "quorvane3/object_model.h"

namespace quorvane {

namespace {

constexpr OLECHAR kApplication[] = OLESTR("quorvane3");
constexpr OLECHAR kApplicationIds[] = OLESTR("AppID\\");
constexpr OLECHAR kClassIds[] = OLESTR("CLSID\\");
constexpr OLECHAR kModuleName[] = OLESTR("quorvane3.DLL");
constexpr OLECHAR kDefaultValue[] = OLESTR("");

OleString TextOf(const GUID& id)
{
    constexpr int kLength = 38;
    OLECHAR text[kLength + 1];
    StringFromGUID2(id, text, kLength + 1);
    return OleString(text, kLength);
}

// The names under which one class is registered.
struct ClassNames {
    OleString description;
    OleString programId;
    OleString versionedProgramId;
    OleString id;

    explicit ClassNames(const CatalogueEntry& entry)
        : description(OleString(entry.name) + OLESTR(" Class")),
          programId(OleString(kApplication) + OLESTR(".") + entry.name),
          versionedProgramId(programId + OLESTR(".1")),
          id(TextOf(*entry.clsid))
    {}

    OleString Key() const { return kClassIds + id; }
};

OleString NumberText(WORD number)
{
    std::string text(4, '\0');
    const auto end = std::to_chars(text.data(), text.data() + text.size(), number, 16).ptr;
    text.resize(static_cast<size_t>(end - text.data()));
    return OleString(text.begin(), text.end());
}

OleString ApplicationKey()
{
    return kApplicationIds + TextOf(ApplicationId());
}

OleString ModuleKey()
{
    return OleString(kApplicationIds) + kModuleName;
}

class TextList {
public:
    void Add(const OleString& key, OleString text) { Add(key, kDefaultValue, std::move(text)); }
    void Add(const OleString& key, const OLECHAR* name, OleString text)
    {
        texts_.push_back({key, name, std::move(text)});
    }
    void AddKey(OleString key) { texts_.push_back({std::move(key), kDefaultValue, std::nullopt}); }

    std::vector<ClassesText> Take() noexcept { return std::move(texts_); }

private:
    std::vector<ClassesText> texts_;
};

void AddProgramIds(TextList& texts, const ClassNames& names)
{
    texts.Add(names.versionedProgramId, names.description);
    texts.Add(names.versionedProgramId + OLESTR("\\CLSID"), names.id);
    texts.Add(names.programId, names.description);
    texts.Add(names.programId + OLESTR("\\CLSID"), names.id);
    texts.Add(names.programId + OLESTR("\\CurVer"), names.versionedProgramId);
}

void AddClass(TextList& texts, const CatalogueEntry& entry, OleStringView modulePath)
{
    const ClassNames names(entry);
    AddProgramIds(texts, names);
    const OleString key = names.Key();
    const OleString server = key + OLESTR("\\InprocServer32");
    texts.Add(key, names.description);
    texts.Add(key, OLESTR("AppID"), TextOf(ApplicationId()));
    texts.Add(key + OLESTR("\\ProgID"), names.versionedProgramId);
    texts.Add(key + OLESTR("\\VersionIndependentProgID"), names.programId);
    texts.AddKey(key + OLESTR("\\Programmable"));
    texts.Add(server, OleString(modulePath));
    texts.Add(server, OLESTR("ThreadingModel"), entry.threadingModel);
    texts.Add(key + OLESTR("\\TypeLib"), TextOf(LIBID_quorvane3));
}

}  // namespace

const GUID& ApplicationId() noexcept
{
    return LIBID_quorvane3;
}

std::vector<ClassesText> ClassTexts(std::span<const CatalogueEntry> classes, OleStringView modulePath)
{
    TextList texts;
    texts.Add(ApplicationKey(), kApplication);
    texts.Add(ModuleKey(), OLESTR("AppID"), TextOf(ApplicationId()));
    for (const CatalogueEntry& entry : classes)
        AddClass(texts, entry, modulePath);
    return texts.Take();
}

std::vector<ClassesText> TypeLibraryTexts()
{
    const LibraryType& library = TypeLibrary();
    const OleString version = OLESTR("TypeLib\\") + TextOf(*library.id) + OLESTR("\\") +
                              NumberText(library.majorVersion) + OLESTR(".") +
                              NumberText(library.minorVersion);
    TextList texts;
    texts.Add(version, library.help);
    texts.AddKey(version + OLESTR("\\FLAGS"));
    texts.AddKey(version + OLESTR("\\HELPDIR"));
    for (const InterfaceType& type : InterfaceTypes())
        texts.AddKey(OLESTR("Interface\\") + TextOf(*type.id) + OLESTR("\\TypeLib"));
    return texts.Take();
}

std::vector<OleString> ClassKeys(std::span<const CatalogueEntry> classes)
{
    std::vector<OleString> keys{ApplicationKey(), ModuleKey()};
    for (const CatalogueEntry& entry : classes) {
        const ClassNames names(entry);
        keys.push_back(names.versionedProgramId);
        keys.push_back(names.programId);
        keys.push_back(names.Key());
    }
    return keys;
}

}  // namespace quorvane
