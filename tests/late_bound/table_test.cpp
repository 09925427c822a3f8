// The object model as the code has it, compared with the page that describes it.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "engine/session/class_catalogue.h"
#include "engine/session/context/operations.h"
#include "engine/session/context/type_catalogue.h"
#include "platform/com/bstr.h"

namespace quorvane {
namespace {

using Lines = std::vector<std::string>;

std::string TextOf(const GUID& id)
{
    OLECHAR text[39];
    StringFromGUID2(id, text, 39);
    return Narrow(text);
}

std::string NameOfInterface(const IID& id)
{
    if (IsEqualIID(id, IID_IUnknown))
        return "IUnknown";
    if (IsEqualIID(id, IID_IDispatch))
        return "IDispatch";
    const InterfaceType* const found = FindInterfaceType(id);
    return found ? Narrow(found->name) : TextOf(id);
}

// The one enumeration among the parameters.
static_assert(std::is_same_v<decltype(&IItem::put_Action), HRESULT (STDMETHODCALLTYPE IItem::*)(qv_Action)>);

std::string NameOfType(const ParameterType& type)
{
    const std::string pointer = type.type & VT_BYREF ? "*" : "";
    switch (type.type & ~VT_BYREF) {
        case VT_I4:
            return (type.isEnumeration ? "qv_Action" : "long") + pointer;
        case VT_UI4:
            return "ulong" + pointer;
        case VT_BOOL:
            return "VARIANT_BOOL" + pointer;
        case VT_BSTR:
            return "BSTR" + pointer;
        case VT_VARIANT:
            return "VARIANT" + pointer;
        case VT_ARRAY | VT_VARIANT:
            return "SAFEARRAY(VARIANT)" + pointer;
        case VT_DISPATCH:
        case VT_UNKNOWN:
            return NameOfInterface(type.interfaceId()) + "*" + pointer;
        default:
            return "?";
    }
}

std::string TextOf(const Argument& argument, const ParameterType& type)
{
    const std::string declaration = NameOfType(type) + " " + Narrow(argument.name);
    switch (argument.kind) {
        case ArgumentKind::Optional:
            return (type.type == VT_VARIANT
                        ? "[optional] "
                        : "[optional, default " + std::to_string(argument.absentValue) + "] ") +
                   declaration;
        case ArgumentKind::InOut:
            return "[in,out] " + declaration;
        case ArgumentKind::Result:
            return "[out,retval] " + declaration;
        default:
            return declaration;
    }
}

const char* TextOf(OperationKind kind)
{
    if (kind == OperationKind::Method)
        return "method ";
    return kind == OperationKind::Get ? "get " : "put ";
}

std::string TextOf(const Operation& operation)
{
    std::string line = "  ";
    if (operation.slot)
        line += "slot " + std::to_string(operation.slot()) + " ";
    line +=
        "id " + std::to_string(operation.id) + " " + TextOf(operation.kind) + Narrow(operation.name) + "(";
    for (size_t i = 0; i < operation.parameterCount; ++i)
        line += (i > 0 ? ", " : "") + TextOf(operation.arguments[i], operation.types[i]);
    line += ")";
    return operation.help ? line + " \"" + Narrow(operation.help) + "\"" : line;
}

std::string TextOf(InterfaceKind kind)
{
    if (kind == InterfaceKind::Dual)
        return "dual ";
    return kind == InterfaceKind::Callback ? "callback " : "source ";
}

std::string TextOf(const CatalogueEntry& entry)
{
    std::string line = "class " + Narrow(entry.name) + " " + TextOf(*entry.clsid) + " default " +
                       NameOfInterface(*entry.defaultInterface);
    if (entry.sourceInterface)
        line += " source " + NameOfInterface(*entry.sourceInterface);
    return line + " threading " + Narrow(entry.threadingModel) + (entry.creatable ? " creatable" : "");
}

// The tables of the code.
Lines LinesOfTheCode()
{
    const LibraryType& library = TypeLibrary();
    Lines lines{"library " + Narrow(library.name) + " " + TextOf(*library.id) + " version " +
                std::to_string(library.majorVersion) + "." + std::to_string(library.minorVersion) +
                " locale " + std::to_string(library.locale) + " \"" + Narrow(library.help) + "\""};
    for (const EnumerationType& enumeration : EnumerationTypes()) {
        lines.push_back("enum " + Narrow(enumeration.name));
        for (const EnumerationValue& each : enumeration.values)
            lines.push_back("  " + std::to_string(each.value) + " " + Narrow(each.name));
    }
    for (const InterfaceType& type : InterfaceTypes()) {
        lines.push_back(TextOf(type.kind) + Narrow(type.name) + " " + TextOf(*type.id));
        for (const Operation& operation : type.operations)
            lines.push_back(TextOf(operation));
    }
    for (const CatalogueEntry& entry : ClassCatalogue())
        lines.push_back(TextOf(entry));
    return lines;
}

// The page, without its comments and empty lines.
Lines LinesOfThePage()
{
    std::ifstream page(QUORVANE_OBJECT_MODEL_PAGE);
    Lines lines;
    for (std::string line; std::getline(page, line);)
        if (!line.empty() && line[0] != '#')
            lines.push_back(line);
    return lines;
}

TEST(ObjectModelTableTest, EveryTypeIdentifierSlotAndArgumentIsAsThePageSays)
{
    const Lines page = LinesOfThePage();
    const Lines code = LinesOfTheCode();

    ASSERT_FALSE(page.empty());
    EXPECT_EQ(code.size(), page.size());
    for (size_t i = 0; i < std::min(code.size(), page.size()); ++i)
        EXPECT_EQ(code[i], page[i]);
}

TEST(ObjectModelTableTest, TheSlotsOfADualInterfaceFollowOneAnotherBehindThoseOfIDispatch)
{
    for (const InterfaceType& type : InterfaceTypes()) {
        if (type.kind != InterfaceKind::Dual)
            continue;
        size_t slot = 7;
        for (const Operation& operation : type.operations)
            EXPECT_EQ(operation.slot(), slot++) << Narrow(type.name) << "::" << Narrow(operation.name);
    }
}

TEST(ObjectModelTableTest, AnIdentifierMeansOneNameInItsInterface)
{
    for (const InterfaceType& type : InterfaceTypes()) {
        std::map<DISPID, OleStringView> names;
        for (const Operation& operation : type.operations) {
            const auto [known, isNew] = names.emplace(operation.id, operation.name);
            EXPECT_EQ(known->second, operation.name) << Narrow(type.name) << " " << operation.id;
            EXPECT_TRUE(isNew || operation.kind == OperationKind::Put)
                << Narrow(type.name) << " " << operation.id;
        }
    }
}

TEST(ObjectModelTableTest, TheHostsInterfaceHasNoSixthIdentifier)
{
    for (const Operation& operation : FindInterfaceType(DIID_IQuorvaneExt)->operations)
        EXPECT_NE(operation.id, 6);
}

TEST(ObjectModelTableTest, TheTypesOfTheHeaderCarryTheIdentifiersOfTheirNames)
{
    const auto nameOf = [](const IID& id) { return NameOfInterface(id); };

    EXPECT_EQ(nameOf(Iid<ILibrary>()), "ILibrary");
    EXPECT_EQ(nameOf(Iid<ISession2>()), "ISession2");
    EXPECT_EQ(nameOf(Iid<IFolders>()), "IFolders");
    EXPECT_EQ(nameOf(Iid<IFolder>()), "IFolder");
    EXPECT_EQ(nameOf(Iid<IItem>()), "IItem");
    EXPECT_EQ(nameOf(Iid<IStorageFiles>()), "IStorageFiles");
    EXPECT_EQ(nameOf(Iid<IStorageFile>()), "IStorageFile");
    EXPECT_EQ(nameOf(Iid<IOptions>()), "IOptions");
    EXPECT_EQ(nameOf(Iid<IOption>()), "IOption");
    EXPECT_EQ(nameOf(Iid<IMsgStores>()), "IMsgStores");
    EXPECT_EQ(nameOf(Iid<IItemsCol>()), "IItemsCol");
    EXPECT_EQ(nameOf(Iid<IMyAdviseSink>()), "IMyAdviseSink");
    EXPECT_EQ(nameOf(Iid<IMDBImport>()), "IMDBImport");
    EXPECT_EQ(nameOf(Iid<IQuorvaneExt>()), "IQuorvaneExt");
    EXPECT_EQ(nameOf(Iid<IQuorvaneRestrict>()), "IQuorvaneRestrict");
    EXPECT_EQ(nameOf(Iid<IQuorvaneProgress>()), "IQuorvaneProgress");
}

}  // namespace
}  // namespace quorvane
