// A folder is resent by a host that binds late: progress, a restriction by date, and cancelling.
#include <gtest/gtest.h>

#include <functional>
#include <thread>

#include "tests/late_bound/engine_module.h"
#include "tests/late_bound/page.h"
#include "tests/late_bound/script_logon.h"
#include "tests/support/registered_library.h"

#ifdef QUORVANE3_OBJECT_MODEL_H_
#error "this host has no types of the engine"
#endif

namespace quorvane::test {
namespace {

enum class CalledOn { OwnThread, AnyThread };

// A callback with nothing but IDispatch and the identifier of its interface; its operations are known from
// the page. Belongs to the thread that made it, or tells that any may call.
class ScriptCallback final : public ComObject<ScriptCallback, IDispatch, FreeThreaded> {
public:
    // Called with the operation's name and its arguments, first to last.
    using Handler =
        std::function<void(const std::string& what, const std::vector<const VARIANT*>& arguments)>;

    ScriptCallback(const std::string& interfaceName, Handler handler, CalledOn calledOn = CalledOn::OwnThread)
        : interface_(Page::Instance().Interface(interfaceName)),
          handler_(std::move(handler)),
          calledOn_(calledOn)
    {}

    bool WasCalledElsewhere() const { return elsewhere_; }
    const std::string& Complaint() const { return complaint_; }

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** object) override
    {
        if (calledOn_ == CalledOn::OwnThread && IsEqualIID(riid, IID_IMarshal)) {
            *object = nullptr;
            return E_NOINTERFACE;
        }
        if (!IsEqualIID(riid, interface_.id))
            return ComObject::QueryInterface(riid, object);
        AddRef();
        *object = static_cast<IDispatch*>(this);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* count) override
    {
        *count = 0;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override
    {
        return DISP_E_UNKNOWNNAME;
    }
    HRESULT STDMETHODCALLTYPE Invoke(DISPID id, REFIID, LCID, WORD flags, DISPPARAMS* params, VARIANT*,
                                     EXCEPINFO*, UINT*) override
    {
        elsewhere_ = elsewhere_ || std::this_thread::get_id() != thread_;
        for (const PageOperation& operation : interface_.operations) {
            if (operation.id == id && (flags & DISPATCH_METHOD) != 0)
                return Answer(operation.name, *params);
        }
        return DISP_E_MEMBERNOTFOUND;
    }

private:
    HRESULT Answer(const std::string& what, const DISPPARAMS& params)
    {
        std::vector<const VARIANT*> arguments;
        for (UINT i = params.cArgs; i > 0; --i)
            arguments.push_back(&params.rgvarg[i - 1]);
        try {
            handler_(what, arguments);
            return S_OK;
        } catch (const std::exception& error) {
            complaint_ += what + ": " + error.what() + "\n";
            return E_FAIL;
        }
    }

    const PageInterface& interface_;
    const Handler handler_;
    const CalledOn calledOn_;
    const std::thread::id thread_ = std::this_thread::get_id();
    bool elsewhere_ = false;
    std::string complaint_;
};

constexpr FILETIME kLastYear{0, 0x01DC0000};
constexpr FILETIME kThisYear{0, 0x01DC8000};

// What a script's component for MAPI would do.
void RestrictByDate(const Variant& rawTable, FILETIME after)
{
    ComPtr<IMAPITable> table;
    if (!rawTable.Is(VT_UNKNOWN))
        throw std::runtime_error("no table");
    Check(rawTable.Raw().punkVal->QueryInterface(IID_IMAPITable, table.PutVoid()), "get the table");
    SPropValue value{};
    value.ulPropTag = PR_MESSAGE_DELIVERY_TIME;
    value.Value.ft = after;
    SRestriction restriction{};
    restriction.rt = RES_PROPERTY;
    restriction.res.resProperty = {RELOP_GT, PR_MESSAGE_DELIVERY_TIME, &value};
    Check(table->Restrict(&restriction, 0), "restrict the table");
}

// A script host in its apartment, as scripts are.
class LateBoundResendTest : public testing::Test {
protected:
    void Add(const std::string& subject, FILETIME date) const
    {
        const ComPtr<IMessage> message = folder.Open(folder.Add(subject, "body"), MAPI_MODIFY);
        SPropValue value{};
        value.ulPropTag = PR_MESSAGE_DELIVERY_TIME;
        value.Value.ft = date;
        Check(message->SetProps(1, &value, nullptr), "set a date");
        Check(message->SaveChanges(0), "set a date");
    }

    ComPtr<ScriptCallback> Progress()
    {
        return MakeComObject<ScriptCallback>(
            "IQuorvaneProgress",
            [this](const std::string& what, const std::vector<const VARIANT*>& arguments) {
                if (arguments.size() != 2 || arguments[0]->vt != VT_I4 || arguments[1]->vt != VT_I4)
                    throw std::runtime_error("other arguments");
                told += what + " " + std::to_string(arguments[0]->lVal) + " " +
                        std::to_string(arguments[1]->lVal) + "; ";
                ++calls;
            });
    }

    // A job has ended when it has let go of its progress object.
    static bool HasEnded(ScriptCallback& progress)
    {
        return Eventually([&] {
            PumpApartmentCalls();
            progress.AddRef();
            return progress.Release() == 1;
        });
    }

    const RegisteredLibrary registered;
    const ApartmentScope apartment;
    TestMailbox mailbox;
    TestFolder folder = mailbox.MakeFolder("Shared");
    std::string told;
    int calls = 0;
};

TEST_F(LateBoundResendTest, ProgressIsToldOnTheScriptsOwnThread)
{
    Add("Old", kLastYear);
    Add("New", kThisYear);
    const ScriptLogon logon(mailbox);
    const Automation shared = logon.Share(folder, "shared");
    const auto progress = Progress();

    shared.Call("Resend", Pack(TextValue("carol")),
                Name(As("resendAll", Variant::Bool(true)), As("JobID", TextValue("mine")),
                     As("ProgressBar", Variant::Dispatch(progress.Get()))));
    ASSERT_TRUE(HasEnded(*progress));

    EXPECT_EQ(told, "SetLimits 0 2; Progress 1 2; Progress 2 2; ");
    EXPECT_FALSE(progress->WasCalledElsewhere());
    EXPECT_EQ(progress->Complaint() + logon.Host().Complaint(), "");
    ASSERT_EQ(logon.Host().Events("onItemResend").size(), 2u);
    EXPECT_EQ(logon.Host().Events("onItemResend").front().text, "mine");
    EXPECT_EQ(logon.Host().Events("onItemResend").front().thread, std::this_thread::get_id());
    EXPECT_TRUE(std::filesystem::exists(logon.TakePackage("carol")));
}

// It is handed over as a script's component for MAPI would be, which any thread may call: Wine carries no
// table as itself into the calls of an apartment.
TEST_F(LateBoundResendTest, ARestrictionByDateLeavesWhatIsNewer)
{
    Add("Old", kLastYear);
    Add("New", kThisYear);
    const ScriptLogon logon(mailbox);
    const Automation shared = logon.Share(folder, "shared");
    const auto progress = Progress();
    const auto restriction = MakeComObject<ScriptCallback>(
        "IQuorvaneRestrict",
        [](const std::string& what, const std::vector<const VARIANT*>& arguments) {
            if (what != "RestrictTable" || arguments.size() != 1 || arguments[0]->vt != VT_DISPATCH)
                throw std::runtime_error("another call");
            const Automation items(ComPtr<IDispatch>(arguments[0]->pdispVal));
            RestrictByDate(items.Get("RawTable"), kLastYear);
        },
        CalledOn::AnyThread);

    shared.Call("ResendEx", Pack(TextValue("carol"), Variant::Dispatch(restriction.Get()),
                                 Variant::Bool(true), TextValue("mine"), Variant::Dispatch(progress.Get())));
    ASSERT_TRUE(HasEnded(*progress));

    EXPECT_EQ(told, "SetLimits 0 1; Progress 1 1; ");
    EXPECT_EQ(restriction->Complaint() + logon.Host().Complaint(), "");
    const auto resent = logon.Host().Events("onItemResend");
    ASSERT_EQ(resent.size(), 1u);
    EXPECT_EQ(resent.front().entryId, folder.Find("New"));
}

TEST_F(LateBoundResendTest, ACancelledJobEndsBeforeItsLastItem)
{
    constexpr int kMails = 100;
    for (int i = 0; i < kMails; ++i)
        folder.Add("Mail", "body");
    const ScriptLogon logon(mailbox);
    const Automation shared = logon.Share(folder, "shared");
    const auto progress = MakeComObject<ScriptCallback>(
        "IQuorvaneProgress", [&](const std::string& what, const std::vector<const VARIANT*>&) {
            if (what == "Progress" && ++calls == 1)
                logon.Session().Call("CancelResend");
        });

    shared.Call(
        "Resend", Pack(TextValue("carol")),
        Name(As("resendAll", Variant::Bool(true)), As("ProgressBar", Variant::Dispatch(progress.Get()))));
    ASSERT_TRUE(HasEnded(*progress));

    EXPECT_GE(calls, 1);
    EXPECT_LT(calls, kMails);
    EXPECT_EQ(progress->Complaint() + logon.Host().Complaint(), "");
    EXPECT_EQ(mailbox.Query("SELECT count(*) FROM tblUnfinishedResendJob"), 0);
}

TEST_F(LateBoundResendTest, AnObjectWithoutTheProgressInterfaceIsRefused)
{
    const ScriptLogon logon(mailbox);
    const Automation shared = logon.Share(folder, "shared");

    const Outcome outcome = shared.TryCall("Resend", Pack(TextValue("carol")),
                                           Name(As("ProgressBar", Variant::Dispatch(logon.Session().Get()))));

    EXPECT_EQ(outcome.scode, E_NOINTERFACE);
}

}  // namespace
}  // namespace quorvane::test
