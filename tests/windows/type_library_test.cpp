// The type library in the resources of quorvane3.dll, read through the system.
#include <gtest/gtest.h>

#include "quorvane3/object_model.h"
#include "tests/windows/server.h"
#include "tests/windows/type_library_text.h"

namespace quorvane::test {
namespace {

class TypeLibraryTest : public testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(LoadTypeLibEx(ServerPath().c_str(), REGKIND_NONE, library.Put()), S_OK);
    }

    // The default interface of a class's object, through IDispatch.
    ComPtr<IDispatch> Make(const PageType& type) const
    {
        ComPtr<IDispatch> object;
        EXPECT_EQ(server.Make(type.Guid(), IID_IDispatch, object.PutVoid()), S_OK) << type.name;
        return object;
    }

    // The interface that the library's description of a class calls its default one.
    GUID DefaultInterfaceOf(const PageType& type) const
    {
        ComPtr<ITypeInfo> info;
        EXPECT_EQ(library->GetTypeInfoOfGuid(type.Guid(), info.Put()), S_OK) << type.name;
        HREFTYPE reference = 0;
        EXPECT_EQ(info->GetRefTypeOfImplType(0, &reference), S_OK);
        ComPtr<ITypeInfo> found;
        EXPECT_EQ(info->GetRefTypeInfo(reference, found.Put()), S_OK);
        return IdOf(*found);
    }

    static GUID IdOf(ITypeInfo& info)
    {
        TYPEATTR* attributes = nullptr;
        EXPECT_EQ(info.GetTypeAttr(&attributes), S_OK);
        const GUID id = attributes->guid;
        info.ReleaseTypeAttr(attributes);
        return id;
    }

    const ApartmentScope com;
    const LoadedServer server;
    const Blocks page = ReadObjectModelPage();
    ComPtr<ITypeLib> library;
};

// The other resources: two texts, which nothing reads.
TEST(ResourcesTest, TheTwoTextsAreTheProductsNameAndAKeyOfItsSettings)
{
    const LoadedServer server;
    HMODULE const module = GetModuleHandleW(L"quorvane3.dll");
    ASSERT_TRUE(module);
    char text[100] = "";
    EXPECT_GT(LoadStringA(module, 100, text, sizeof(text)), 0);
    EXPECT_STREQ(text, "quorvane");
    EXPECT_GT(LoadStringA(module, 101, text, sizeof(text)), 0);
    EXPECT_STREQ(text, R"(Software\Brindlemoor\Quorvane\1.0\%s\mdb)");
}

TEST_F(TypeLibraryTest, SaysOfEveryTypeWhatThePageOfTheObjectModelSays)
{
    Blocks expected;
    for (const auto& [header, lines] : page)
        expected[WithoutThreading(header)] = lines;
    const Blocks said = TextOf(*library);

    EXPECT_GT(expected.size(), 30u);
    for (const auto& [header, lines] : expected) {
        const auto found = said.find(header);
        ASSERT_NE(found, said.end()) << header;
        EXPECT_EQ(found->second, lines) << header;
    }
    for (const auto& [header, lines] : said)
        EXPECT_TRUE(expected.contains(header)) << header;
}

TEST_F(TypeLibraryTest, IsForProgramsOf64Bits)
{
    TLIBATTR* attributes = nullptr;
    ASSERT_EQ(library->GetLibAttr(&attributes), S_OK);

    EXPECT_EQ(attributes->syskind, SYS_WIN64);
    library->ReleaseTLibAttr(attributes);
}

TEST_F(TypeLibraryTest, AClassIsDescribedByItsName)
{
    const std::vector<PageType> classes = TypesOf(page, "class");
    ASSERT_EQ(classes.size(), 13u);
    for (const PageType& type : classes) {
        ComPtr<ITypeInfo> info;
        ASSERT_EQ(library->GetTypeInfoOfGuid(type.Guid(), info.Put()), S_OK) << type.name;
        Bstr help;
        EXPECT_EQ(info->GetDocumentation(MEMBERID_NIL, nullptr, help.Put(), nullptr, nullptr), S_OK);
        EXPECT_EQ(Narrow(help.View()), type.name + " Class");
    }
}

TEST_F(TypeLibraryTest, AnObjectDescribesItsDefaultInterface)
{
    for (const PageType& type : TypesOf(page, "class")) {
        const ComPtr<IDispatch> object = Make(type);
        UINT count = 0;
        ComPtr<ITypeInfo> info;

        EXPECT_EQ(object->GetTypeInfoCount(&count), S_OK);
        EXPECT_EQ(count, 1u);
        ASSERT_EQ(object->GetTypeInfo(0, 0, info.Put()), S_OK) << type.name;
        EXPECT_TRUE(IsEqualGUID(IdOf(*info), DefaultInterfaceOf(type))) << type.name;
    }
}

TEST_F(TypeLibraryTest, AnObjectHasOneDescription)
{
    const ComPtr<IDispatch> object = Make(TypesOf(page, "class").front());
    ComPtr<ITypeInfo> info;

    EXPECT_EQ(object->GetTypeInfo(1, 0, info.Put()), DISP_E_BADINDEX);
    EXPECT_FALSE(info);
    EXPECT_EQ(object->GetTypeInfo(0, 0, nullptr), E_POINTER);
    EXPECT_EQ(object->GetTypeInfoCount(nullptr), E_POINTER);
}

TEST_F(TypeLibraryTest, TheSystemCallsAnObjectsSlotsByItsDescription)
{
    ComPtr<IOption> option;
    ASSERT_EQ(server.Make(CLSID_Option, IID_IOption, option.PutVoid()), S_OK);
    ComPtr<ITypeInfo> info;
    ASSERT_EQ(option->GetTypeInfo(0, 0, info.Put()), S_OK);
    VARIANT value = Variant::Long(42).Detach();
    DISPID valueName = DISPID_PROPERTYPUT;
    DISPPARAMS put{&value, &valueName, 1, 1};
    DISPPARAMS none{};
    Variant read;

    EXPECT_EQ(info->Invoke(option.Get(), 2, DISPATCH_PROPERTYPUT, &put, nullptr, nullptr, nullptr), S_OK);
    EXPECT_EQ(info->Invoke(option.Get(), 2, DISPATCH_PROPERTYGET, &none, read.Put(), nullptr, nullptr), S_OK);

    EXPECT_TRUE(read.Is(VT_I4));
    EXPECT_EQ(read.Raw().lVal, 42);
}

TEST_F(TypeLibraryTest, TheSystemGivesTheTextOfAFailedSlot)
{
    ComPtr<ILibrary> object;
    ASSERT_EQ(server.Make(CLSID_Library, IID_ILibrary, object.PutVoid()), S_OK);
    ComPtr<ITypeInfo> info;
    ASSERT_EQ(object->GetTypeInfo(0, 0, info.Put()), S_OK);
    DISPPARAMS none{};
    Variant session;
    EXCEPINFO exception{};

    EXPECT_EQ(info->Invoke(object.Get(), 2, DISPATCH_PROPERTYGET, &none, session.Put(), &exception, nullptr),
              DISP_E_EXCEPTION);

    EXPECT_EQ(Bstr::Attach(exception.bstrDescription).View(), OLESTR("Please login first."));
    SysFreeString(exception.bstrSource);
    SysFreeString(exception.bstrHelpFile);
}

}  // namespace
}  // namespace quorvane::test
