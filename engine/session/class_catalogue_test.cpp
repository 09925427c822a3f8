#include "engine/session/class_catalogue.h"

#include <gtest/gtest.h>

#include "engine/session/context/operations.h"
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

TEST(ClassCatalogueTest, AnObjectAndALockKeepTheModule)
{
    ASSERT_FALSE(ServerLocks::AreHeld());
    {
        const auto library = Make<ILibrary>(CLSID_Library);
        EXPECT_TRUE(ServerLocks::AreHeld());
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
