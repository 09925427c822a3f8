// Late-bound calls of each form, and how they fail, on a session and on objects without one.
#include <gtest/gtest.h>

#include "platform/testing/unimplemented_dispatch.h"
#include "tests/late_bound/engine_module.h"
#include "tests/late_bound/page.h"
#include "tests/late_bound/script_logon.h"

#ifdef QUORVANE3_OBJECT_MODEL_H_
#error "this host has no types of the engine"
#endif

namespace quorvane::test {
namespace {

Automation Make(const char* className)
{
    return Automation(EngineModule::Instance().Create(className));
}

// A VARIANT with an array of VARIANTs.
Variant ArrayOf(const std::vector<std::string>& texts)
{
    VariantArrayBuilder builder;
    for (const std::string& text : texts)
        Check(builder.Append(TextValue(text).Raw()), "fill an array");
    SafeArray array;
    Check(builder.Take(array), "make an array");
    return array.DetachAsVariant();
}

std::vector<std::string> TextsOf(const Variant& value)
{
    ArrayView<VARIANT> view;
    Check(view.Open(value.Raw()), "open an array");
    std::vector<std::string> texts;
    for (const VARIANT& each : view)
        texts.push_back(each.vt == VT_BSTR ? ToUtf8(ViewOf(each.bstrVal)) : "?");
    return texts;
}

// What a collection enumerates under -4.
std::vector<Automation> Enumerate(const Automation& collection)
{
    const Outcome outcome = collection.Invoke(DISPID_NEWENUM, DISPATCH_METHOD | DISPATCH_PROPERTYGET, {});
    Check(outcome.hr, "enumerate");
    if (!outcome.result.Is(VT_UNKNOWN))
        throw std::runtime_error("no enumerator");
    ComPtr<IEnumVARIANT> enumerator;
    Check(outcome.result.Raw().punkVal->QueryInterface(IID_IEnumVARIANT, enumerator.PutVoid()), "enumerate");
    std::vector<Automation> found;
    for (Variant element; enumerator->Next(1, element.Put(), nullptr) == S_OK;)
        found.emplace_back(element);
    return found;
}

TEST(LateBoundCallTest, APropertyIsPutAndReadByName)
{
    const Automation item = Make("Item");

    item.Put("ID", TextValue("an id"));
    item.Put("CustomInfo", TextValue("info"));
    item.Put("UnRead", Variant::Bool(false));
    item.Put("Action", Variant::Long(20));

    EXPECT_EQ(TextOf(item.Get("ID")), "an id");
    EXPECT_EQ(TextOf(item.Get("CustomInfo")), "info");
    EXPECT_EQ(item.Get("Action").Type(), VT_I4);
    EXPECT_EQ(item.Get("Action").Raw().lVal, 20);
    EXPECT_EQ(item.Get("UnRead").Type(), VT_BOOL);
    EXPECT_EQ(item.Get("UnRead").Raw().boolVal, VARIANT_FALSE);
}

TEST(LateBoundCallTest, APropertyTakesAnArrayAndGivesACopy)
{
    const Automation item = Make("Item");

    item.Put("ExcludedProperties", ArrayOf({"FileAs", "other"}));

    EXPECT_EQ(TextsOf(item.Get("ExcludedProperties")), (std::vector<std::string>{"FileAs", "other"}));
    EXPECT_EQ(TextsOf(item.Get("ExcludedProperties")), (std::vector<std::string>{"FileAs", "other"}));
    EXPECT_EQ(item.TryPut("ExcludedProperties", TextValue("FileAs")).hr, DISP_E_TYPEMISMATCH);
}

TEST(LateBoundCallTest, AnObjectIsPutByReference)
{
    const TestMailbox mailbox;
    const TestFolder folder = mailbox.MakeFolder("Folder");
    const ComPtr<IMessage> message = folder.Open(folder.Add("Hello", "body"));
    const Automation item = Make("Item");

    EXPECT_EQ(item.TryPut("Raw", Variant::Unknown(message.Get()), DISPATCH_PROPERTYPUTREF).hr, S_OK);

    ComPtr<IUnknown> held;
    ComPtr<IUnknown> given;
    const Variant raw = item.Get("Raw");
    ASSERT_TRUE(raw.Is(VT_UNKNOWN));
    ASSERT_EQ(raw.Raw().punkVal->QueryInterface(IID_IUnknown, held.PutVoid()), S_OK);
    ASSERT_EQ(message.As(given), S_OK);
    EXPECT_EQ(held, given);
}

TEST(LateBoundCallTest, ATextPropertyIsNotPutByReference)
{
    const Automation item = Make("Item");

    EXPECT_EQ(item.TryPut("ID", TextValue("an id"), DISPATCH_PROPERTYPUTREF).hr, DISP_E_MEMBERNOTFOUND);
    EXPECT_EQ(TextOf(item.Get("ID")), "");
}

TEST(LateBoundCallTest, ANewValueHasToBeNamedAsOne)
{
    const Automation item = Make("Item");

    EXPECT_EQ(item.Invoke(1, DISPATCH_PROPERTYPUT, Pack(TextValue("an id"))).hr, DISP_E_PARAMNOTFOUND);
    EXPECT_EQ(TextOf(item.Get("ID")), "");
}

TEST(LateBoundCallTest, AFailureWithATextIsAnExceptionWithIt)
{
    const Outcome outcome = Make("Library").TryGet("Session");

    EXPECT_EQ(outcome.hr, DISP_E_EXCEPTION);
    EXPECT_EQ(outcome.description, "Please login first.");
    EXPECT_EQ(outcome.source, "quorvane3.Library.1");
    EXPECT_EQ(outcome.scode, DISP_E_EXCEPTION);
}

TEST(LateBoundCallTest, AFailureWithoutATextIsAnExceptionWithItsCode)
{
    const Outcome outcome = Make("Session2").TryGet("Raw");

    EXPECT_EQ(outcome.hr, DISP_E_EXCEPTION);
    EXPECT_EQ(outcome.scode, E_HANDLE);
    EXPECT_EQ(outcome.description, "");
}

TEST(LateBoundCallTest, AFolderOfNoSessionResendsNothing)
{
    constexpr HRESULT kNotOpen = static_cast<HRESULT>(0x80040605);
    const Automation folder = Make("Folder");

    EXPECT_EQ(folder.TryCall("Resend", Pack(TextValue("bob"))).scode, kNotOpen);
    EXPECT_LT(folder.TryCall("ResendEx", Pack(TextValue("bob"), Variant::Dispatch(nullptr))).scode, 0);
}

TEST(LateBoundCallTest, AnItemThatKnowsNoMessageIsNotShown)
{
    EXPECT_EQ(Make("Item").TryCall("Display", Pack(Variant::Bool(false), Variant::Long(0))).scode,
              E_INVALIDARG);
}

TEST(LateBoundCallTest, OperationsThatDoNothingSucceed)
{
    const Automation library = Make("Library");

    EXPECT_EQ(library.TryCall("ForceLogoff").hr, S_OK);
    EXPECT_EQ(library.TryCall("Test").hr, S_OK);
}

TEST(LateBoundCallTest, AnArgumentOfAnotherTypeIsChangedOrRefusedAndItsPlaceTold)
{
    const Automation session = Make("Session2");
    const Outcome noNumber = session.TryCall("ResumeJobs", Pack(TextValue("both")));
    const Outcome tooLarge = session.TryCall("ResumeJobs", Pack(Variant::Double(1e12)));
    // The arguments lie from the last to the first.
    const Outcome noText = session.TryCall("LockItem", Pack(Variant::Dispatch(nullptr), TextValue("s")));
    const Outcome noFlag =
        session.TryCall("LockItem", Pack(TextValue("e"), TextValue("s"), TextValue("perhaps")));
    const Outcome noHost = Make("Library").TryCall("Logon", Pack(TextValue("host")));

    EXPECT_EQ(noNumber.hr, DISP_E_TYPEMISMATCH);
    EXPECT_EQ(noNumber.argumentError, 0u);
    EXPECT_EQ(tooLarge.hr, DISP_E_OVERFLOW);
    EXPECT_EQ(tooLarge.argumentError, 0u);
    EXPECT_EQ(noText.hr, DISP_E_TYPEMISMATCH);
    EXPECT_EQ(noText.argumentError, 1u);
    EXPECT_EQ(noFlag.hr, DISP_E_TYPEMISMATCH);
    EXPECT_EQ(noFlag.argumentError, 0u);
    EXPECT_EQ(noHost.hr, DISP_E_TYPEMISMATCH);
    EXPECT_EQ(session.TryCall("LockItem", Pack(Variant::Long(12), Variant::Long(34))).hr, S_OK);
    EXPECT_EQ(session.Call("IsItemLocked", Pack(TextValue("12"), TextValue("34"))).Raw().boolVal,
              VARIANT_TRUE);
}

TEST(LateBoundCallTest, AnObjectThatIsNoHostIsNotLoggedOn)
{
    const Automation stranger = Make("Options");
    const Outcome outcome = Make("Library").TryCall("Logon", Pack(Variant::Dispatch(stranger.Get())));

    EXPECT_EQ(outcome.hr, DISP_E_TYPEMISMATCH);
    EXPECT_EQ(outcome.argumentError, 0u);
}

TEST(LateBoundCallTest, TheSameArgumentTwiceIsRefused)
{
    const Automation session = Make("Session2");
    const Outcome outcome = session.TryCall("LockItem", Pack(TextValue("e"), TextValue("s")),
                                            Name(As("EntryID", TextValue("e"))));

    EXPECT_EQ(outcome.hr, DISP_E_BADPARAMCOUNT);
}

// Nothing fires an event, so that a connection is all there is to see.
class CListener final : public ComObject<CListener, UnimplementedDispatch> {
public:
    HRESULT STDMETHODCALLTYPE Invoke(DISPID, REFIID, LCID, WORD, DISPPARAMS*, VARIANT*, EXCEPINFO*,
                                     UINT*) override
    {
        return S_OK;
    }
};

TEST(LateBoundEventsTest, AListenerWithIDispatchAloneConnectsAndDisconnects)
{
    for (const char* const name : {"Session2", "Folder", "MsgStores"}) {
        const Automation object = Make(name);
        const std::string sourceName = Page::Instance().Class(name).sourceInterface;
        ComPtr<IConnectionPointContainer> container;
        ComPtr<IConnectionPoint> point;
        ASSERT_EQ(object.Get()->QueryInterface(IID_IConnectionPointContainer, container.PutVoid()), S_OK);
        ASSERT_EQ(container->FindConnectionPoint(Page::Instance().Interface(sourceName).id, point.Put()),
                  S_OK);
        const auto listener = MakeComObject<CListener>();
        DWORD cookie = 0;

        EXPECT_EQ(point->Advise(listener.Get(), &cookie), S_OK) << name;
        EXPECT_EQ(point->Unadvise(cookie + 1), CONNECT_E_NOCONNECTION) << name;
        EXPECT_EQ(point->Unadvise(cookie), S_OK) << name;
        EXPECT_EQ(point->Unadvise(cookie), CONNECT_E_NOCONNECTION) << name;
        listener->AddRef();
        EXPECT_EQ(listener->Release(), 1u) << name << " holds nothing";
    }
}

// On a session.
class LateBoundSessionTest : public testing::Test {
protected:
    TestMailbox mailbox;
    TestFolder first = mailbox.MakeFolder("First");
    TestFolder second = mailbox.MakeFolder("Second");
    const ScriptLogon logon{mailbox};
    const Automation& session = logon.Session();
};

TEST_F(LateBoundSessionTest, TheLibraryGivesTheSessionAgain)
{
    const Automation again(logon.Library().Get("Session"));

    EXPECT_EQ(again.Get(), session.Get());
    EXPECT_EQ(TextOf(session.Get("DBPath")), mailbox.DatabasePath().string());
    EXPECT_TRUE(session.Get("Raw").Is(VT_UNKNOWN));
}

TEST_F(LateBoundSessionTest, ACollectionIsCountedIndexedAndEnumeratedByItsStandardIdentifiers)
{
    const Automation options(session.Get("Options"));
    const Outcome count = options.Invoke(1, DISPATCH_PROPERTYGET, {});
    ASSERT_EQ(count.hr, S_OK);
    const auto enumerated = Enumerate(options);

    EXPECT_GT(count.result.Raw().lVal, 0);
    ASSERT_EQ(enumerated.size(), static_cast<size_t>(count.result.Raw().lVal));
    for (LONG place = 1; place <= count.result.Raw().lVal; ++place) {
        const Outcome byPlace =
            options.Invoke(DISPID_VALUE, DISPATCH_METHOD | DISPATCH_PROPERTYGET, Pack(Variant::Long(place)));
        ASSERT_EQ(byPlace.hr, S_OK);
        const std::string name = TextOf(Automation(byPlace.result).Get("Name"));
        EXPECT_EQ(TextOf(enumerated[static_cast<size_t>(place - 1)].Get("Name")), name);
        EXPECT_EQ(Automation(options.Get("Item", Pack(TextValue(name)))).Get(),
                  Automation(byPlace.result).Get());
    }
}

TEST_F(LateBoundSessionTest, AnOptionIsPutThroughTheCollection)
{
    const Automation options(session.Get("Options"));
    const Automation option(options.Get("Item", Pack(TextValue("NoListeners"))));

    option.Put("Value", Variant::Bool(true));

    EXPECT_EQ(Automation(options.Get("Item", Pack(TextValue("NoListeners")))).Get("Value").Raw().boolVal,
              VARIANT_TRUE);
    EXPECT_EQ(option.TryPut("Name", TextValue("Other")).hr, DISP_E_MEMBERNOTFOUND);
}

TEST_F(LateBoundSessionTest, FoldersAreAddedFoundEnumeratedAndRemoved)
{
    const Automation folders(session.Get("Folders"));
    const Automation added = logon.Share(first, "one");
    logon.Share(second, "two");

    EXPECT_EQ(folders.Get("Count").Raw().lVal, 2);
    EXPECT_EQ(Enumerate(folders).size(), 2u);
    EXPECT_EQ(TextOf(added.Get("StoreID")), first.StoreId());
    const Automation byId(folders.Call("Find", Pack(TextValue("one"))));
    const Automation byEntry(folders.Call("Find", {}, Name(As("EntryID", TextValue(first.EntryId())))));
    const Automation byKey(folders.Get("Item", Pack(TextValue(first.EntryId()))));
    EXPECT_EQ(byId.Get(), added.Get());
    EXPECT_EQ(byEntry.Get(), added.Get());
    EXPECT_EQ(byKey.Get(), added.Get());

    folders.Call("Remove", Pack(TextValue(first.EntryId())));
    EXPECT_EQ(folders.Get("Count").Raw().lVal, 1);
    const Outcome gone = folders.TryCall("Find", Pack(TextValue("one")));
    EXPECT_EQ(gone.hr, DISP_E_EXCEPTION);
    EXPECT_EQ(gone.scode, DISP_E_MEMBERNOTFOUND);
}

TEST_F(LateBoundSessionTest, AnIdThatAnotherFolderHasIsRefusedWithAText)
{
    const Automation one = logon.Share(first, "one");
    logon.Share(second, "two");

    const Outcome taken = one.TryPut("ID", TextValue("two"));

    EXPECT_EQ(taken.hr, DISP_E_EXCEPTION);
    EXPECT_EQ(taken.description, "Folder already exists");
    EXPECT_EQ(taken.source, "quorvane3.Folder.1");
    EXPECT_EQ(TextOf(one.Get("ID")), "one");
    EXPECT_EQ(one.TryPut("ID", TextValue("three")).hr, S_OK);
    EXPECT_EQ(TextOf(one.Get("ID")), "three");
}

TEST_F(LateBoundSessionTest, AnItemIsFoundByANamedArgumentAlone)
{
    const std::string entryId = first.Add("Hello", "body");
    session.Call("ImportItem", {},
                 Name(As("StoreID", TextValue(first.StoreId())), As("ID", TextValue("item")),
                      As("EntryID", TextValue(entryId))));

    const Automation byEntry(session.Call("GetItemFromID", {}, Name(As("EntryID", TextValue(entryId)))));
    const Automation byId(session.Call("GetItemFromID", Pack(TextValue("item"))));

    EXPECT_EQ(TextOf(byEntry.Get("ID")), "item");
    EXPECT_EQ(TextOf(byId.Get("EntryID")), entryId);
    EXPECT_EQ(session.TryCall("GetItemFromID").scode, E_INVALIDARG);
    session.Call("DeleteItem", Pack(TextValue("item")));
    EXPECT_EQ(session.TryCall("GetItemFromID", Pack(TextValue("item"))).scode, DISP_E_MEMBERNOTFOUND);
}

TEST_F(LateBoundSessionTest, APackageIsAddedAndFoundByItsRecipients)
{
    const Automation files(session.Get("StorageFiles"));
    const Automation made(files.Call("Add", Pack(TextValue("bob"))));

    EXPECT_EQ(files.Get("Count").Raw().lVal, 1);
    EXPECT_EQ(Enumerate(files).size(), 1u);
    EXPECT_EQ(Automation(files.Get("Item", Pack(TextValue("bob")))).Get(), made.Get());
    EXPECT_EQ(Automation(files.Get("Item", Pack(Variant::Long(1)))).Get(), made.Get());
    EXPECT_TRUE(std::filesystem::exists(TextOf(made.Get("Path"))));
    EXPECT_EQ(files.TryGet("Item", Pack(Variant::Long(2))).scode, E_FAIL);
    files.Call("Remove", Pack(Variant::Long(1)));
    EXPECT_EQ(files.Get("Count").Raw().lVal, 0);
}

TEST_F(LateBoundSessionTest, AStoreIsOpenedThroughAFolder)
{
    const Automation folder = logon.Share(first, "one");
    const Variant store = folder.Call("OpenStore", Pack(Variant::Long(0)));
    ComPtr<IMsgStore> opened;

    ASSERT_TRUE(store.Is(VT_UNKNOWN));
    EXPECT_EQ(store.Raw().punkVal->QueryInterface(IID_IMsgStore, opened.PutVoid()), S_OK);
    EXPECT_EQ(folder.TryCall("OpenStore", Pack(Variant::Double(1e12))).hr, DISP_E_OVERFLOW);
}

TEST(LateBoundEndTest, AfterASessionNothingKeepsTheLibrary)
{
    const TestMailbox mailbox;
    const TestFolder folder = mailbox.MakeFolder("Folder");
    {
        const ScriptLogon logon(mailbox);
        logon.Share(folder, "one");
        EXPECT_EQ(EngineModule::Instance().CanUnloadNow(), S_FALSE);
    }
    EXPECT_EQ(EngineModule::Instance().CanUnloadNow(), S_OK);
}

}  // namespace
}  // namespace quorvane::test
