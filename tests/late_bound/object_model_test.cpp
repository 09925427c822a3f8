// Every object of the library, asked by names and identifiers of the page.
#include <gtest/gtest.h>

#include <cctype>

#include "tests/late_bound/automation.h"
#include "tests/late_bound/engine_module.h"
#include "tests/late_bound/page.h"

namespace quorvane::test {
namespace {

WORD FlagsOf(const PageOperation& operation)
{
    if (operation.kind == "method")
        return DISPATCH_METHOD;
    return operation.kind == "get" ? DISPATCH_PROPERTYGET : DISPATCH_PROPERTYPUT;
}

Arguments Ones(size_t count)
{
    Arguments arguments;
    for (size_t i = 0; i < count; ++i)
        arguments.push_back(Variant::Long(1));
    return arguments;
}

// Each operation of each class's default interface.
class ObjectModelTest : public testing::TestWithParam<PageClass> {
protected:
    const PageInterface& type = Page::Instance().Interface(GetParam().defaultInterface);
    const Automation object{EngineModule::Instance().Create(GetParam().name)};
};

TEST_P(ObjectModelTest, AnswersTheInterfaceOfThePage)
{
    ComPtr<IDispatch> dual;

    EXPECT_EQ(object.Get()->QueryInterface(type.id, dual.PutVoid()), S_OK);
}

TEST_P(ObjectModelTest, ANameHasTheIdentifierOfThePage)
{
    for (const PageOperation& operation : type.operations) {
        std::vector<DISPID> ids;

        EXPECT_EQ(object.FindIds({operation.name}, ids), S_OK) << operation.name;
        EXPECT_EQ(ids[0], operation.id) << operation.name;
    }
}

TEST_P(ObjectModelTest, CaseDoesNotMatter)
{
    for (const PageOperation& operation : type.operations) {
        std::string name = operation.name;
        for (char& c : name)
            c = static_cast<char>(std::isupper(c) ? std::tolower(c) : std::toupper(c));
        std::vector<DISPID> ids;

        EXPECT_EQ(object.FindIds({name}, ids), S_OK) << name;
        EXPECT_EQ(ids[0], operation.id) << name;
    }
}

TEST_P(ObjectModelTest, TheNameOfAnArgumentIsItsPlace)
{
    for (const PageOperation& operation : type.operations) {
        if (operation.kind == "put")
            continue;
        std::vector<std::string> names{operation.name};
        for (const PageArgument& argument : operation.arguments)
            if (!argument.IsResult())
                names.push_back(argument.name);
        std::vector<DISPID> ids;

        EXPECT_EQ(object.FindIds(names, ids), S_OK) << operation.name;
        for (size_t i = 1; i < ids.size(); ++i)
            EXPECT_EQ(ids[i], static_cast<DISPID>(i - 1)) << operation.name << " " << names[i];
    }
}

TEST_P(ObjectModelTest, AResultIsNoArgument)
{
    for (const PageOperation& operation : type.operations) {
        if (operation.arguments.empty() || !operation.arguments.back().IsResult())
            continue;
        std::vector<DISPID> ids;
        EXPECT_EQ(object.FindIds({operation.name, operation.arguments.back().name}, ids), DISP_E_UNKNOWNNAME)
            << operation.name;
    }
}

TEST_P(ObjectModelTest, AnUnknownNameIsToldApart)
{
    std::vector<DISPID> ids;

    EXPECT_EQ(object.FindIds({"Nothing"}, ids), DISP_E_UNKNOWNNAME);
    EXPECT_EQ(ids[0], DISPID_UNKNOWN);
    for (const PageOperation& operation : type.operations) {
        EXPECT_EQ(object.FindIds({operation.name, "Nothing"}, ids), DISP_E_UNKNOWNNAME) << operation.name;
        EXPECT_EQ(ids[0], operation.id);
        EXPECT_EQ(ids[1], DISPID_UNKNOWN);
    }
}

TEST_P(ObjectModelTest, OneArgumentTooManyIsRefused)
{
    for (const PageOperation& operation : type.operations) {
        if (operation.kind == "put")
            continue;
        const Outcome outcome =
            object.Invoke(operation.id, FlagsOf(operation), Ones(operation.ArgumentCount() + 1));
        EXPECT_EQ(outcome.hr, DISP_E_BADPARAMCOUNT) << operation.name;
    }
}

TEST_P(ObjectModelTest, ARequiredArgumentThatIsMissingIsRefused)
{
    for (const PageOperation& operation : type.operations) {
        if (operation.RequiredCount() == 0)
            continue;
        const size_t given = operation.kind == "put" ? 0 : operation.RequiredCount() - 1;
        const Outcome outcome = object.Invoke(operation.id, FlagsOf(operation), Ones(given));
        EXPECT_EQ(outcome.hr, DISP_E_PARAMNOTOPTIONAL) << operation.name;
    }
}

TEST_P(ObjectModelTest, AnArgumentIdentifierThatThereIsNotIsRefusedAndItsPlaceTold)
{
    for (const PageOperation& operation : type.operations) {
        if (operation.kind == "put" || operation.ArgumentCount() == 0)
            continue;
        std::vector<std::pair<DISPID, Variant>> named;
        named.emplace_back(static_cast<DISPID>(operation.ArgumentCount()), Variant::Long(1));
        const Outcome outcome = object.Invoke(operation.id, FlagsOf(operation), {}, std::move(named));
        EXPECT_EQ(outcome.hr, DISP_E_PARAMNOTFOUND) << operation.name;
        EXPECT_EQ(outcome.argumentError, 0u) << operation.name;
    }
}

TEST_P(ObjectModelTest, OnlyTheKindsOfThePageAreThere)
{
    for (const PageOperation& operation : type.operations) {
        const auto has = [&](const char* kind) {
            for (const PageOperation& each : type.operations)
                if (each.id == operation.id && each.kind == kind)
                    return true;
            return false;
        };
        // An argument too many keeps what there is from being called.
        const auto answers = [&](WORD flags) {
            return object.Invoke(operation.id, flags, Ones(9)).hr != DISP_E_MEMBERNOTFOUND;
        };
        EXPECT_EQ(answers(DISPATCH_METHOD), has("method")) << operation.name;
        EXPECT_EQ(answers(DISPATCH_PROPERTYGET), has("get")) << operation.name;
        EXPECT_EQ(answers(DISPATCH_PROPERTYPUT), has("put")) << operation.name;
    }
    EXPECT_EQ(object.Invoke(6000, DISPATCH_METHOD, {}).hr, DISP_E_MEMBERNOTFOUND);
}

TEST_P(ObjectModelTest, APropertyIsPutByReferenceOnlyWhereItTakesAnObject)
{
    for (const PageOperation& operation : type.operations) {
        if (operation.kind != "put")
            continue;
        const std::string& valueType = operation.arguments.back().type;
        const bool takesObject =
            valueType == "VARIANT" || valueType == "IUnknown*" || valueType == "IQuorvaneRestrict*";
        const bool answers =
            object.Invoke(operation.id, DISPATCH_PROPERTYPUTREF, Ones(9)).hr != DISP_E_MEMBERNOTFOUND;
        EXPECT_EQ(answers, takesObject) << operation.name;
    }
}

TEST_P(ObjectModelTest, TheSourceInterfaceOfThePageIsTheOneConnectionPoint)
{
    ComPtr<IConnectionPointContainer> container;
    const HRESULT hr = object.Get()->QueryInterface(IID_IConnectionPointContainer, container.PutVoid());
    if (GetParam().sourceInterface.empty()) {
        EXPECT_EQ(hr, E_NOINTERFACE);
        return;
    }
    ASSERT_EQ(hr, S_OK);
    const IID& source = Page::Instance().Interface(GetParam().sourceInterface).id;
    ComPtr<IConnectionPoint> point;
    ComPtr<IConnectionPoint> none;
    IID told{};

    EXPECT_EQ(container->FindConnectionPoint(source, point.Put()), S_OK);
    EXPECT_EQ(point->GetConnectionInterface(&told), S_OK);
    EXPECT_TRUE(IsEqualIID(told, source));
    EXPECT_EQ(container->FindConnectionPoint(type.id, none.Put()), CONNECT_E_NOCONNECTION);
}

TEST_P(ObjectModelTest, OffersErrorInfoIfItIsASessionAFolderOrAnItem)
{
    ComPtr<ISupportErrorInfo> support;
    const HRESULT hr = object.Get()->QueryInterface(IID_ISupportErrorInfo, support.PutVoid());
    const std::string& name = GetParam().name;
    if (name != "Session2" && name != "Folder" && name != "Item") {
        EXPECT_EQ(hr, E_NOINTERFACE);
        return;
    }
    ASSERT_EQ(hr, S_OK);
    EXPECT_EQ(support->InterfaceSupportsErrorInfo(type.id), S_OK);
    EXPECT_EQ(support->InterfaceSupportsErrorInfo(IID_IDispatch), S_FALSE);
}

INSTANTIATE_TEST_SUITE_P(Classes, ObjectModelTest, testing::ValuesIn(Page::Instance().Classes()),
                         [](const auto& each) { return each.param.name; });

}  // namespace
}  // namespace quorvane::test
