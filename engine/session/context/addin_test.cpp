#include "engine/session/context/addin.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "engine/session/context/operations.h"
#include "engine/session/context/type_catalogue.h"
#include "quorvane3/callbacks.h"

namespace quorvane {
namespace {

// An item by identity alone.
class FakeItem final : public ComObject<FakeItem, DispatchImpl<IItem>> {
public:
    HRESULT STDMETHODCALLTYPE get_ID(BSTR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE put_ID(BSTR) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE get_ExcludedProperties(SAFEARRAY**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE put_ExcludedProperties(SAFEARRAY**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE get_Folder(IFolder**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE get_EntryID(BSTR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE put_EntryID(BSTR) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE get_Raw(IUnknown**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE put_Raw(IUnknown*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Send(BSTR) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE get_CustomInfo(BSTR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE put_CustomInfo(BSTR) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE get_StoreID(BSTR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetProperty(VARIANT, VARIANT*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Submit() override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE get_Action(qv_Action*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE put_Action(qv_Action) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE DeleteProperty(VARIANT) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SaveToFile(BSTR) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE get_Stream(VARIANT*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE put_Stream(VARIANT) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Display(VARIANT_BOOL, LONG) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE get_UnRead(VARIANT_BOOL*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE put_UnRead(VARIANT_BOOL) override { return E_NOTIMPL; }
};

// A folder, likewise.
class FakeFolder final : public ComObject<FakeFolder, DispatchImpl<IFolder>> {
public:
    HRESULT STDMETHODCALLTYPE get_EntryID(BSTR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE put_EntryID(BSTR) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE get_Raw(IUnknown**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE get_CustomInfo(BSTR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE put_CustomInfo(BSTR) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Resend(BSTR, VARIANT, VARIANT, VARIANT) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE get_StoreID(BSTR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE put_StoreID(BSTR) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Send(VARIANT) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE get_ID(BSTR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE put_ID(BSTR) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Validate() override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE CreateItem(VARIANT, VARIANT, IItem**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE get_IgnoreEvents(VARIANT_BOOL*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE put_IgnoreEvents(VARIANT_BOOL) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE get_Options(IOptions**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE OpenStore(ULONG, IUnknown**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE ResendEx(BSTR, IQuorvaneRestrict*, VARIANT, VARIANT, VARIANT) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE get_Restriction(IQuorvaneRestrict**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE put_Restriction(IQuorvaneRestrict*) override { return E_NOTIMPL; }
};

// Notes what it hears and answers as told.
class Host : public ExtHandler {
public:
    HRESULT OnItemResend(IItem* item, BSTR jobId, bool& ignore) override
    {
        return Hear("resend", item, jobId, ignore);
    }
    HRESULT OnItemAdded(IItem* item, bool& ignore) override { return Hear("added", item, nullptr, ignore); }
    HRESULT OnItemChanged(IItem* item, bool& ignore) override
    {
        return Hear("changed", item, nullptr, ignore);
    }
    HRESULT OnItemDeleted(IItem* item, bool& ignore) override
    {
        return Hear("deleted", item, nullptr, ignore);
    }
    HRESULT OnItemReceived(IItem* item, BSTR tag, bool& ignore) override
    {
        return Hear("received", item, tag, ignore);
    }
    HRESULT OnPostprocess(BSTR entryId, BSTR storeId) override
    {
        heard.push_back("postprocess " + Narrow(ViewOf(entryId)) + " " + Narrow(ViewOf(storeId)));
        return answer;
    }
    HRESULT DatabasePath(Bstr& path) override
    {
        path = Bstr(OLESTR("/a/share.db"));
        return answer;
    }
    HRESULT ProductCode(Bstr& code) override
    {
        code = Bstr(OLESTR("product"));
        return answer;
    }

    HRESULT Hear(const char* what, IItem* item, BSTR text, bool& ignore)
    {
        heard.push_back(std::string(what) + " " + Narrow(ViewOf(text)) + (ignore ? " ignored" : ""));
        lastItem = item;
        ignore = setsIgnore;
        return answer;
    }

    std::vector<std::string> heard;
    IItem* lastItem = nullptr;
    bool setsIgnore = false;
    HRESULT answer = S_OK;
};

class AddinTest : public testing::Test {
protected:
    Host host;
    const ComPtr<ExtCallback> callback = MakeComObject<ExtCallback>(host);
    const Addin addin{ComPtr<IQuorvaneExt>(callback.Get())};
    const ComPtr<FakeItem> item = MakeComObject<FakeItem>();
    bool ignore = false;
};

TEST_F(AddinTest, EachItemEventReachesItsHandler)
{
    EXPECT_EQ(addin.OnItemAdded(item.Get(), ignore), S_OK);
    EXPECT_EQ(addin.OnItemChanged(item.Get(), ignore), S_OK);
    EXPECT_EQ(addin.OnItemDeleted(item.Get(), ignore), S_OK);
    EXPECT_EQ(addin.OnItemReceived(item.Get(), Bstr(OLESTR("tag")).Get(), ignore), S_OK);
    EXPECT_EQ(addin.OnItemResend(item.Get(), Bstr(OLESTR("job")).Get(), ignore), S_OK);

    EXPECT_EQ(host.heard,
              (std::vector<std::string>{"added ", "changed ", "deleted ", "received tag", "resend job"}));
    EXPECT_EQ(host.lastItem, static_cast<IItem*>(item.Get()));
}

TEST_F(AddinTest, TheHostCanIgnoreAnEvent)
{
    host.setsIgnore = true;

    EXPECT_EQ(addin.OnItemChanged(item.Get(), ignore), S_OK);
    EXPECT_TRUE(ignore);
}

TEST_F(AddinTest, TheHostSeesWhatIgnoreWas)
{
    ignore = true;

    EXPECT_EQ(addin.OnItemAdded(item.Get(), ignore), S_OK);
    EXPECT_EQ(host.heard.back(), "added  ignored");
    EXPECT_FALSE(ignore);
}

TEST_F(AddinTest, AFailureOfTheHostComesBackAndLeavesIgnore)
{
    host.setsIgnore = true;
    host.answer = E_ACCESSDENIED;

    EXPECT_EQ(addin.OnItemDeleted(item.Get(), ignore), E_ACCESSDENIED);
    EXPECT_FALSE(ignore);
}

TEST_F(AddinTest, ArgumentsOfPostprocessKeepTheirOrder)
{
    EXPECT_EQ(addin.OnPostprocess(Bstr(OLESTR("entry")).Get(), Bstr(OLESTR("store")).Get()), S_OK);
    EXPECT_EQ(host.heard.back(), "postprocess entry store");
}

TEST_F(AddinTest, TextsAreRead)
{
    Bstr path;
    Bstr code;
    EXPECT_EQ(addin.DatabasePath(path), S_OK);
    EXPECT_EQ(addin.ProductCode(code), S_OK);

    EXPECT_EQ(path.View(), OLESTR("/a/share.db"));
    EXPECT_EQ(code.View(), OLESTR("product"));
}

TEST_F(AddinTest, WithoutAHostEveryCallFails)
{
    const Addin nobody;
    Bstr path;

    EXPECT_EQ(nobody.OnItemAdded(item.Get(), ignore), E_POINTER);
    EXPECT_EQ(nobody.DatabasePath(path), E_POINTER);
}

TEST_F(AddinTest, WithoutAnItemNoEventIsTold)
{
    EXPECT_EQ(addin.OnItemAdded(nullptr, ignore), E_POINTER);
    EXPECT_TRUE(host.heard.empty());
}

// A host whose truth isn't ours: any value but zero counts.
class OddHost final : public detail::CallbackObject<OddHost, IQuorvaneExt> {
public:
    HRESULT Call(DISPID, const DISPPARAMS& params, VARIANT*)
    {
        *params.rgvarg[0].pboolVal = 7;
        return S_OK;
    }
};

TEST_F(AddinTest, AnyValueButZeroIgnoresTheEvent)
{
    const Addin odd(ComPtr<IQuorvaneExt>(MakeComObject<OddHost>().Get()));

    EXPECT_EQ(odd.OnItemAdded(item.Get(), ignore), S_OK);
    EXPECT_TRUE(ignore);
}

// A host that answers a text property with a number.
class NumberHost final : public detail::CallbackObject<NumberHost, IQuorvaneExt> {
public:
    HRESULT Call(DISPID, const DISPPARAMS&, VARIANT* result)
    {
        result->vt = VT_I4;
        result->lVal = 1;
        return S_OK;
    }
};

TEST_F(AddinTest, ATextThatIsNoneIsRefused)
{
    const Addin odd(ComPtr<IQuorvaneExt>(MakeComObject<NumberHost>().Get()));
    Bstr path(OLESTR("before"));

    EXPECT_EQ(odd.DatabasePath(path), DISP_E_TYPEMISMATCH);
    EXPECT_EQ(path.View(), OLESTR("before"));
}

// Compares each call with what the catalogue says of its identifier.
class ExactHost final : public detail::CallbackObject<ExactHost, IQuorvaneExt> {
public:
    HRESULT STDMETHODCALLTYPE Invoke(DISPID id, REFIID riid, LCID, WORD flags, DISPPARAMS* params,
                                     VARIANT* result, EXCEPINFO*, UINT*) override
    {
        EXPECT_TRUE(IsEqualIID(riid, IID_NULL));
        const Operation* const operation = Find(id);
        EXPECT_NE(operation, nullptr) << id;
        if (!operation)
            return DISP_E_MEMBERNOTFOUND;
        called.push_back(Narrow(operation->name));
        EXPECT_EQ(flags, static_cast<WORD>(operation->kind)) << called.back();
        EXPECT_EQ(params->cNamedArgs, 0u) << called.back();
        EXPECT_EQ(params->cArgs, operation->ArgumentCount()) << called.back();
        for (UINT i = 0; i < std::min<UINT>(params->cArgs, static_cast<UINT>(operation->ArgumentCount()));
             ++i)
            EXPECT_EQ(params->rgvarg[params->cArgs - 1 - i].vt, operation->types[i].type)
                << called.back() << i;
        if (operation->HasResult() && result)
            *result = Variant::Text(OLESTR("text")).Detach();
        return S_OK;
    }
    HRESULT Call(DISPID, const DISPPARAMS&, VARIANT*) { return E_NOTIMPL; }

    std::vector<std::string> called;

private:
    static const Operation* Find(DISPID id)
    {
        for (const Operation& operation : FindInterfaceType(DIID_IQuorvaneExt)->operations)
            if (operation.id == id)
                return &operation;
        return nullptr;
    }
};

TEST_F(AddinTest, EveryCallHasTheIdentifierKindAndArgumentsOfTheCatalogue)
{
    const auto listener = MakeComObject<ExactHost>();
    const Addin exact(ComPtr<IQuorvaneExt>(listener.Get()));
    const Bstr text(OLESTR("text"));
    const auto folder = MakeComObject<FakeFolder>();
    Bstr answer;

    EXPECT_EQ(exact.OnItemResend(item.Get(), text.Get(), ignore), S_OK);
    EXPECT_EQ(exact.OnFolderReceived(folder.Get(), text.Get()), S_OK);
    EXPECT_EQ(exact.OnItemAdded(item.Get(), ignore), S_OK);
    EXPECT_EQ(exact.OnItemChanged(item.Get(), ignore), S_OK);
    EXPECT_EQ(exact.OnItemDeleted(item.Get(), ignore), S_OK);
    EXPECT_EQ(exact.OnItemReceived(item.Get(), text.Get(), ignore), S_OK);
    EXPECT_EQ(exact.OnPostprocess(text.Get(), text.Get()), S_OK);
    EXPECT_EQ(exact.DatabasePath(answer), S_OK);
    EXPECT_EQ(exact.ProductCode(answer), S_OK);

    EXPECT_EQ(listener->called, (std::vector<std::string>{"onItemResend", "onFolderReceived", "onItemAdded",
                                                          "onItemChanged", "onItemDeleted", "onItemReceived",
                                                          "onPostprocess", "DatabasePath", "ProductCode"}));
}

TEST_F(AddinTest, AFolderThatIsNullIsNotShownToTheHost)
{
    const auto listener = MakeComObject<ExactHost>();
    const Addin exact(ComPtr<IQuorvaneExt>(listener.Get()));

    EXPECT_EQ(exact.OnFolderReceived(nullptr, Bstr(OLESTR("tag")).Get()), E_POINTER);

    EXPECT_TRUE(listener->called.empty());
}

// The identifiers are what hosts bind to.
template <class Interface>
const Operation* FindOperation(OleStringView name)
{
    for (const Operation& operation : OperationsOf<Interface>::kTable) {
        if (operation.name == name)
            return &operation;
    }
    return nullptr;
}

TEST(OperationsTest, TheSessionsLateAdditionsKeepTheirIdentifiers)
{
    EXPECT_EQ(FindOperation<ISession2>(OLESTR("DBPath"))->id, 15);
    EXPECT_EQ(FindOperation<ISession2>(OLESTR("DeleteItem"))->id, 13);
    EXPECT_EQ(FindOperation<ISession2>(OLESTR("Raw"))->id, 14);
}

TEST(OperationsTest, CollectionsShareTheStandardIdentifiers)
{
    EXPECT_EQ(FindOperation<IFolders>(OLESTR("_NewEnum"))->id, -4);
    EXPECT_EQ(FindOperation<IStorageFiles>(OLESTR("Item"))->id, 0);
    EXPECT_EQ(FindOperation<IOptions>(OLESTR("Count"))->id, 1);
}

TEST(OperationsTest, AutoUnlockIsTrueWhenLeftOut)
{
    const Operation* const lock = FindOperation<ISession2>(OLESTR("LockItem"));

    EXPECT_EQ(lock->arguments[2].kind, ArgumentKind::Optional);
    EXPECT_EQ(lock->arguments[2].absentValue, VARIANT_TRUE);
}

}  // namespace
}  // namespace quorvane
