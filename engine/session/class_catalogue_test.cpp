#include "engine/session/class_catalogue.h"

#include <gtest/gtest.h>

#include "engine/change/items_col.h"
#include "engine/session/context/operations.h"
#include "engine/session/context/type_catalogue.h"
#include "platform/com/class_factory.h"
#include "platform/com/error_text.h"

namespace quorvane {
namespace {

template <class Interface>
ComPtr<Interface> Make(REFCLSID clsid)
{
    ComPtr<IClassFactory> factory;
    EXPECT_EQ(MakeClassFactory(clsid, IID_IClassFactory, factory.PutVoid()), S_OK);
    ComPtr<Interface> object;
    EXPECT_EQ(factory->CreateInstance(nullptr, Iid<Interface>(), object.PutVoid()), S_OK);
    return object;
}

TEST(ClassCatalogueTest, EveryClassCanBeMade)
{
    EXPECT_EQ(ClassCatalogue().size(), 13u);
    for (const CatalogueEntry& entry : ClassCatalogue())
        EXPECT_TRUE(Make<IDispatch>(*entry.clsid)) << Narrow(entry.name);
}

TEST(ClassCatalogueTest, AnObjectAnswersItsDefaultInterfaceAsItsDispatch)
{
    for (const CatalogueEntry& entry : ClassCatalogue()) {
        const auto object = Make<IDispatch>(*entry.clsid);
        ComPtr<IDispatch> dual;

        EXPECT_EQ(object->QueryInterface(*entry.defaultInterface, dual.PutVoid()), S_OK)
            << Narrow(entry.name);
        EXPECT_EQ(dual.Get(), object.Get()) << Narrow(entry.name);
    }
}

TEST(ClassCatalogueTest, AnObjectFindsTheNamesOfItsDefaultInterfaceInAnyCase)
{
    for (const CatalogueEntry& entry : ClassCatalogue()) {
        const auto object = Make<IDispatch>(*entry.clsid);
        const InterfaceType* const type = FindInterfaceType(*entry.defaultInterface);
        ASSERT_NE(type, nullptr) << Narrow(entry.name);
        for (const Operation& operation : type->operations) {
            OleString name(operation.name);
            for (OLECHAR& c : name)
                c = c >= 'a' && c <= 'z' ? static_cast<OLECHAR>(c - 'a' + 'A') : c;
            LPOLESTR names[] = {name.data()};
            DISPID id = DISPID_UNKNOWN;

            EXPECT_EQ(object->GetIDsOfNames(IID_NULL, names, 1, 0, &id), S_OK) << Narrow(name);
            EXPECT_EQ(id, operation.id) << Narrow(entry.name) << "." << Narrow(name);
        }
    }
}

TEST(ClassCatalogueTest, OnlyClassesWithASourceInterfaceHaveAConnectionPointAndItIsOfThatInterface)
{
    for (const CatalogueEntry& entry : ClassCatalogue()) {
        const auto object = Make<IDispatch>(*entry.clsid);
        ComPtr<IConnectionPointContainer> container;
        EXPECT_EQ(SUCCEEDED(object.As(container)), entry.sourceInterface != nullptr) << Narrow(entry.name);
        if (!entry.sourceInterface || !container)
            continue;
        ComPtr<IEnumConnectionPoints> points;
        ComPtr<IConnectionPoint> found;
        ComPtr<IConnectionPoint> listed;
        ComPtr<IConnectionPoint> none;

        EXPECT_EQ(container->FindConnectionPoint(*entry.sourceInterface, found.Put()), S_OK);
        EXPECT_EQ(container->FindConnectionPoint(*entry.defaultInterface, none.Put()),
                  CONNECT_E_NOCONNECTION);
        ASSERT_EQ(container->EnumConnectionPoints(points.Put()), S_OK);
        EXPECT_EQ(points->Next(1, listed.Put(), nullptr), S_OK);
        EXPECT_EQ(listed, found);
        EXPECT_EQ(points->Next(1, none.Put(), nullptr), S_FALSE);
    }
}

TEST(ClassCatalogueTest, SessionFolderAndItemSupportErrorInfoForTheirOwnInterfaceAlone)
{
    for (const CatalogueEntry& entry : ClassCatalogue()) {
        const auto object = Make<IDispatch>(*entry.clsid);
        const OleStringView name = entry.name;
        const bool offers = name == OLESTR("Session2") || name == OLESTR("Folder") || name == OLESTR("Item");
        ComPtr<ISupportErrorInfo> support;
        EXPECT_EQ(SUCCEEDED(object.As(support)), offers) << Narrow(name);
        if (!offers || !support)
            continue;

        EXPECT_EQ(support->InterfaceSupportsErrorInfo(*entry.defaultInterface), S_OK) << Narrow(name);
        EXPECT_EQ(support->InterfaceSupportsErrorInfo(IID_IDispatch), S_FALSE) << Narrow(name);
        EXPECT_EQ(support->InterfaceSupportsErrorInfo(IID_ILibrary), S_FALSE) << Narrow(name);
    }
}

TEST(ClassCatalogueTest, FiveClassesAndTheLibraryAreCreatable)
{
    int creatable = 0;
    for (const CatalogueEntry& entry : ClassCatalogue())
        creatable += entry.creatable ? 1 : 0;

    EXPECT_EQ(creatable, 6);
}

TEST(ClassCatalogueTest, AnUnknownClassIsNotAvailable)
{
    ComPtr<IClassFactory> factory;

    EXPECT_EQ(MakeClassFactory(IID_IUnknown, IID_IClassFactory, factory.PutVoid()),
              CLASS_E_CLASSNOTAVAILABLE);
    EXPECT_FALSE(factory);
}

TEST(ClassCatalogueTest, AFactoryAnswersItsInterfaceAlone)
{
    ComPtr<IUnknown> factory;

    EXPECT_EQ(MakeClassFactory(CLSID_Library, IID_IDispatch, factory.PutVoid()), E_NOINTERFACE);
    EXPECT_EQ(MakeClassFactory(CLSID_Library, IID_IUnknown, nullptr), E_POINTER);
}

TEST(ClassCatalogueTest, NothingIsAggregated)
{
    ComPtr<IClassFactory> factory;
    ASSERT_EQ(MakeClassFactory(CLSID_Library, IID_IClassFactory, factory.PutVoid()), S_OK);
    ComPtr<IUnknown> object;

    EXPECT_EQ(factory->CreateInstance(factory.Get(), IID_IUnknown, object.PutVoid()), CLASS_E_NOAGGREGATION);
}

TEST(ClassCatalogueTest, AnObjectOfAnyClassAndALockKeepTheModule)
{
    ASSERT_FALSE(ServerLocks::AreHeld());
    for (const CatalogueEntry& entry : ClassCatalogue()) {
        const auto object = Make<IDispatch>(*entry.clsid);
        EXPECT_TRUE(ServerLocks::AreHeld()) << Narrow(entry.name);
    }
    EXPECT_FALSE(ServerLocks::AreHeld());

    ComPtr<IClassFactory> factory;
    ASSERT_EQ(MakeClassFactory(CLSID_Library, IID_IClassFactory, factory.PutVoid()), S_OK);
    EXPECT_EQ(factory->LockServer(TRUE), S_OK);
    EXPECT_TRUE(ServerLocks::AreHeld());
    EXPECT_EQ(factory->LockServer(FALSE), S_OK);
}

TEST(DetachedObjectsTest, ALibraryWithoutALogonSaysSo)
{
    const auto library = Make<ILibrary>(CLSID_Library);
    ComPtr<ISession2> session;

    EXPECT_EQ(library->get_Session(session.Put()), DISP_E_EXCEPTION);
    EXPECT_EQ(TakeErrorDescription().View(), OLESTR("Please login first."));
}

TEST(DetachedObjectsTest, ALateBoundCallerGetsTheText)
{
    const auto library = Make<IDispatch>(CLSID_Library);
    DISPPARAMS none{};
    Variant result;
    EXCEPINFO exception{};

    EXPECT_EQ(library->Invoke(2, IID_NULL, 0, DISPATCH_PROPERTYGET, &none, result.Put(), &exception, nullptr),
              DISP_E_EXCEPTION);
    const Bstr description = Bstr::Attach(exception.bstrDescription);
    const Bstr source = Bstr::Attach(exception.bstrSource);
    const Bstr help = Bstr::Attach(exception.bstrHelpFile);
    EXPECT_EQ(description.View(), OLESTR("Please login first."));
    EXPECT_EQ(source.View(), OLESTR("quorvane3.Library.1"));
    EXPECT_EQ(exception.scode, DISP_E_EXCEPTION);
}

TEST(DetachedObjectsTest, AWrappedTableIsHandedOutWithOneMoreReference)
{
    const auto table = Make<IUnknown>(CLSID_Option);
    const auto column = MakeComObject<CItemsCol>(table.Get());
    const auto references = [&] {
        table->AddRef();
        return table->Release();
    };
    const ULONG before = references();
    ComPtr<IUnknown> raw;

    EXPECT_EQ(column->get_RawTable(raw.Put()), S_OK);
    EXPECT_EQ(raw, table);
    EXPECT_EQ(references(), before + 1);
}

TEST(DetachedObjectsTest, AnItemKeepsWhatIsPutIntoIt)
{
    const auto item = Make<IItem>(CLSID_Item);
    const Bstr id(OLESTR("{id}"));
    ASSERT_EQ(item->put_ID(id.Get()), S_OK);
    Bstr read;
    EXPECT_EQ(item->get_ID(read.Put()), S_OK);

    EXPECT_EQ(read.View(), id.View());
}

TEST(DetachedObjectsTest, WhatNeedsASessionFails)
{
    const Bstr text(OLESTR("00"));
    const Variant missing = Variant::Missing();
    ComPtr<IFolder> folder;

    EXPECT_EQ(Make<IItem>(CLSID_Item)->Send(text.Get()), E_UNEXPECTED);
    EXPECT_TRUE(FAILED(Make<IFolders>(CLSID_Folders)
                           ->Add(text.Get(), text.Get(), missing.Raw(), missing.Raw(), folder.Put())));
    EXPECT_TRUE(FAILED(Make<IFolder>(CLSID_Folder)->put_ID(text.Get())));
}

class DetachedSessionTest : public testing::Test {
protected:
    const ComPtr<ISession2> session = Make<ISession2>(CLSID_Session2);
    const Bstr text{OLESTR("AB")};
};

TEST_F(DetachedSessionTest, HasNoMapiSession)
{
    ComPtr<IUnknown> raw;

    EXPECT_EQ(session->get_Raw(raw.Put()), E_HANDLE);
    EXPECT_EQ(session->get_Raw(nullptr), E_POINTER);
}

TEST_F(DetachedSessionTest, HasNoDatabase)
{
    constexpr HRESULT kNotOpen = static_cast<HRESULT>(0x80040605u);
    ComPtr<IStorageFiles> files;

    EXPECT_EQ(session->ImportItem(text.Get(), text.Get(), text.Get()), kNotOpen);
    EXPECT_EQ(session->DeleteItem(text.Get()), kNotOpen);
    EXPECT_EQ(session->ProcessStorageFile(text.Get(), text.Get()), kNotOpen);
    EXPECT_EQ(session->ResumeJobs(qv_rs_Both), kNotOpen);
    EXPECT_EQ(session->CancelResend(Variant::Missing().Raw()), kNotOpen);
    EXPECT_EQ(session->get_StorageFiles(files.Put()), kNotOpen);
}

TEST_F(DetachedSessionTest, StillKeepsLocks)
{
    VARIANT_BOOL locked = VARIANT_FALSE;
    EXPECT_EQ(session->LockItem(text.Get(), text.Get(), VARIANT_TRUE), S_OK);
    EXPECT_EQ(session->IsItemLocked(text.Get(), text.Get(), &locked), S_OK);
    EXPECT_EQ(locked, VARIANT_TRUE);
    EXPECT_EQ(session->UnlockItem(text.Get(), text.Get()), S_OK);
    EXPECT_EQ(session->UnlockItem(text.Get(), text.Get()), E_FAIL);
}

}  // namespace
}  // namespace quorvane
