// A script resends a folder: progress, a restriction by date, and cancelling, with its callbacks on its own
// thread.
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <optional>
#include <thread>

#include "quorvane3/quorvane3.h"
#include "tests/support/apartments.h"
#include "tests/support/date_restriction.h"
#include "tests/support/packages.h"
#include "tests/windows/script_engine.h"

namespace quorvane::test {
namespace {

constexpr FILETIME kLastYear{0, 0x01DC0000};
constexpr FILETIME kThisYear{0, 0x01DC8000};

using Arguments = std::span<const VARIANT>;

OleString ReadScript(const char* name)
{
    std::ifstream file(std::string(QUORVANE_SCRIPTS) + "/" + name, std::ios::binary);
    return FromUtf8(std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()));
}

// What a script hands over: a reference is followed.
Variant At(Arguments arguments, size_t place)
{
    Variant value;
    Check(place < arguments.size() ? value.Assign(arguments[place]) : E_INVALIDARG, "take an argument");
    return value;
}

IDispatch* ObjectOf(const Variant& value)
{
    Check(value.Is(VT_DISPATCH) && value.Raw().pdispVal ? S_OK : E_INVALIDARG, "take an object");
    return value.Raw().pdispVal;
}

Variant MakeCallback(REFIID iid, std::map<DISPID, OleString> names, Arguments arguments)
{
    const Variant script = At(arguments, 0);
    return Variant::Dispatch(
        MakeComObject<ScriptCallback>(iid, std::move(names), ComPtr<IDispatch>(ObjectOf(script))).Get());
}

// What a script gets of its component for MAPI: leaves the mails that came after a date, and may be called on
// any thread. A restriction in the script itself would be handed the table as if it were in another process,
// as Wine carries the arguments of calls.
ComPtr<IDispatch> FreeCallback(DateRestriction& restriction)
{
    ComPtr<IDispatch> callback;
    std::thread([&] {
        const FreeThreadScope freeThread;
        callback = ComPtr<IDispatch>(MakeComObject<RestrictCallback>(restriction).Get());
    }).join();
    return callback;
}

// Of a time as scripts have them: milliseconds since 1970.
FILETIME FileTimeOf(Variant milliseconds)
{
    constexpr ULONGLONG k1970 = 116444736000000000;
    Check(milliseconds.ChangeType(VT_R8), "take a time");
    const ULONGLONG time = k1970 + static_cast<ULONGLONG>(milliseconds.Raw().dblVal) * 10000;
    return {static_cast<DWORD>(time), static_cast<DWORD>(time >> 32)};
}

class ResendScriptTest : public RegisteredTest {
protected:
    std::string Add(const std::string& subject, FILETIME date) const
    {
        const std::string id = folder.Add(subject, "body");
        const ComPtr<IMessage> message = folder.Open(id, MAPI_MODIFY);
        SPropValue value{};
        value.ulPropTag = PR_MESSAGE_DELIVERY_TIME;
        value.Value.ft = date;
        Check(message->SetProps(1, &value, nullptr), "set a date");
        Check(message->SaveChanges(0), "set a date");
        return id;
    }

    // What the script knows as `test`.
    ComPtr<IDispatch> Helper()
    {
        const auto helper = MakeComObject<ScriptObject>();
        helper->Add(L"Host", [](Arguments arguments) {
            return MakeCallback(DIID_IQuorvaneExt,
                                {{kOnItemResend, L"onItemResend"},
                                 {kDatabasePath, L"DatabasePath"},
                                 {quorvane::kProductCode, L"ProductCode"}},
                                arguments);
        });
        helper->Add(L"Progress", [](Arguments arguments) {
            return MakeCallback(DIID_IQuorvaneProgress,
                                {{kSetLimits, L"SetLimits"}, {kProgress, L"Progress"}}, arguments);
        });
        helper->Add(L"NewerThan", [this](Arguments arguments) {
            newer.emplace(FileTimeOf(At(arguments, 0)));
            return Variant::Dispatch(FreeCallback(*newer).Get());
        });
        helper->Add(L"References", [](Arguments arguments) {
            const Variant object = At(arguments, 0);
            object.Raw().pdispVal->AddRef();
            return Variant::Long(static_cast<LONG>(object.Raw().pdispVal->Release()));
        });
        helper->Add(L"WaitUntil", [](Arguments arguments) {
            const Variant condition = At(arguments, 0);
            return Variant::Bool(
                Pumped([&] { return CallScript(ObjectOf(condition)).Raw().boolVal == VARIANT_TRUE; }));
        });
        helper->Add(L"Echo", [this](Arguments arguments) {
            echoed.push_back(Utf8(Bstr::CopyOf(At(arguments, 0).Raw().bstrVal)));
            return Variant();
        });
        AddText(*helper.Get(), L"DatabasePath", mailbox.DatabasePath().string());
        AddText(*helper.Get(), L"FolderEntryID", folder.EntryId());
        AddText(*helper.Get(), L"StoreID", folder.StoreId());
        AddText(*helper.Get(), L"IgnoredItem", ignored);
        return helper;
    }
    static void AddText(ScriptObject& helper, const OleString& name, const std::string& text)
    {
        helper.Add(name, [text](Arguments) { return Variant::Text(FromUtf8(text)); });
    }

    // How many items the package of some recipients holds.
    long PackagesOf(const std::string& recipients) const
    {
        return mailbox.Query("SELECT count(*) FROM tblStorageFiles WHERE Recipients='" + recipients + "'");
    }

    const ApartmentScope apartment;
    TestMailbox mailbox;
    TestFolder folder = mailbox.MakeFolder("Shared");
    std::optional<DateRestriction> newer;
    std::string ignored;
    std::vector<std::string> echoed;
};

TEST_F(ResendScriptTest, AScriptFollowsRestrictsAndCancelsResends)
{
    constexpr int kMails = 60;
    for (int i = 0; i < kMails - 2; ++i)
        Add("Old", kLastYear);
    Add("New", kThisYear);
    ignored = Add("Newer", kThisYear);

    RunScript(ReadScript("resend.js"), {{L"test", Helper()}});

    std::string whole = "whole: 0-60";
    for (int i = 1; i <= kMails; ++i)
        whole += " " + std::to_string(i) + "/60";
    EXPECT_EQ(echoed,
              (std::vector<std::string>{whole + " first", "newer: 0-2 1/2 2/2 second", "cancelled: true"}));
    EXPECT_EQ(PackagesOf("carol"), 1);
    EXPECT_EQ(PackagesOf("dave"), 1);
    EXPECT_EQ(mailbox.Query("SELECT count(*) FROM tblUnfinishedResendJob"), 0);
}

}  // namespace
}  // namespace quorvane::test
