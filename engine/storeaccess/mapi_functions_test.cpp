#include "engine/storeaccess/mapi_functions.h"

#include <cstdint>
#include <cstdio>
#include <tuple>
#include <type_traits>
#include <utility>

#include "engine/storeaccess/mapi_binding.h"
#include "engine/storeaccess/testing/binding_test.h"

namespace quorvane {
namespace {

class MapiFunctionsTest : public testing::BindingTest {};

template <class T>
T FromNumber(std::uintptr_t number)
{
    if constexpr (std::is_pointer_v<T>)
        return reinterpret_cast<T>(number);
    else
        return static_cast<T>(number);
}

bool Agrees(const std::string& function, const std::string& given, const std::string& expected)
{
    if (given != expected)
        std::fprintf(stderr, "%s: %s instead of %s\n", function.c_str(), given.c_str(), expected.c_str());
    return given == expected;
}

// Calls a function with the numbers from 1 on as its arguments; whether the library heard just that, and its
// answer came back.
template <class Result, class... Arguments, size_t... Index>
bool ForwardsAll(const char* name, Result (*function)(Arguments...) noexcept, std::index_sequence<Index...>)
{
    std::string expected;
    ((expected += (Index ? "," : "") + std::to_string(Index + 1)), ...);
    expected = std::string(name) + '(' + expected + ')';
    bool answered = true;
    if constexpr (std::is_void_v<Result>)
        function(FromNumber<Arguments>(Index + 1)...);
    else
        answered = function(FromNumber<Arguments>(Index + 1)...) == FromNumber<Result>(0x5A);
    using LastCall = const char* (*)();
    Module library;
    static_cast<void>(library.Load("mapi32.dll"));
    return Agrees(name, library.Find<LastCall>("FakeLastCall")(), expected) && answered;
}

template <class Result, class... Arguments>
bool Forwards(const char* name, Result (*function)(Arguments...) noexcept)
{
    return ForwardsAll(name, function, std::index_sequence_for<Arguments...>());
}

#define FORWARDS(function) Forwards(#function, &mapi::function)

TEST_F(MapiFunctionsTest, EachForwardsItsArgumentsAndGivesTheLibrarysAnswer)
{
    UseSystem("recording");
    BINDS_ALONE([] {
        const bool forwarded[] = {FORWARDS(MAPIInitialize),
                                  FORWARDS(MAPILogonEx),
                                  FORWARDS(MAPIAdminProfiles),
                                  FORWARDS(MAPIOpenFormMgr),
                                  FORWARDS(MAPIAllocateBuffer),
                                  FORWARDS(MAPIOpenLocalFormContainer),
                                  FORWARDS(MAPIAllocateMore),
                                  FORWARDS(HrGetOneProp),
                                  FORWARDS(HrSetOneProp),
                                  FORWARDS(ScDupPropset),
                                  FORWARDS(ScCountProps),
                                  FORWARDS(ScCopyProps),
                                  FORWARDS(PropCopyMore),
                                  FORWARDS(CreateIProp),
                                  FORWARDS(HrQueryAllRows),
                                  FORWARDS(CreateTable),
                                  FORWARDS(OpenIMsgSession),
                                  FORWARDS(OpenIMsgOnIStg),
                                  FORWARDS(RTFSync),
                                  FORWARDS(WrapCompressedRTFStream),
                                  FORWARDS(WrapStoreEntryID),
                                  FORWARDS(HrValidateIPMSubtree),
                                  FORWARDS(HrDispatchNotifications),
                                  FORWARDS(ScCountNotifications),
                                  FORWARDS(ScCopyNotifications),
                                  FORWARDS(FBinFromHex),
                                  FORWARDS(MAPIGetDefaultMalloc),
                                  FORWARDS(PpropFindProp),
                                  FORWARDS(HrThisThreadAdviseSink),
                                  FORWARDS(MAPIFreeBuffer),
                                  FORWARDS(MAPIUninitialize),
                                  FORWARDS(FreeProws),
                                  FORWARDS(FreePadrlist),
                                  FORWARDS(HexFromBin),
                                  FORWARDS(CloseIMsgSession)};
        static_assert(std::size(forwarded) == kMapiFunctionCount);
        unsigned good = 0;
        for (const bool one : forwarded)
            good += one;
        return good == kMapiFunctionCount;
    });
}

// Calls a function with arguments that are all zero.
template <class Result, class... Arguments>
Result CallWithNothing(Result (*function)(Arguments...) noexcept)
{
    return function(Arguments{}...);
}

// Those that fail, by their answer.
bool FailuresAreEFail()
{
    const auto all = [](auto... functions) { return ((CallWithNothing(functions) == E_FAIL) && ...); };
    return all(&mapi::MAPIAllocateBuffer, &mapi::MAPIAllocateMore, &mapi::HrGetOneProp, &mapi::MAPIInitialize,
               &mapi::OpenIMsgOnIStg, &mapi::OpenIMsgSession, &mapi::HrQueryAllRows, &mapi::MAPIOpenFormMgr,
               &mapi::MAPILogonEx, &mapi::ScCountNotifications, &mapi::ScCopyNotifications) &&
           all(&mapi::MAPIAdminProfiles, &mapi::MAPIOpenLocalFormContainer, &mapi::HrSetOneProp,
               &mapi::ScDupPropset, &mapi::ScCountProps, &mapi::ScCopyProps, &mapi::PropCopyMore,
               &mapi::CreateIProp, &mapi::CreateTable, &mapi::RTFSync, &mapi::WrapCompressedRTFStream,
               &mapi::WrapStoreEntryID, &mapi::HrValidateIPMSubtree, &mapi::HrDispatchNotifications);
}

// Those that give something else, and leave what they are handed alone.
bool OthersGiveTheirOwn()
{
    auto* sink = reinterpret_cast<IMAPIAdviseSink*>(0x10);
    char text[] = "AB";
    BYTE byte = 0x5A;
    mapi::HexFromBin(&byte, 1, text);
    mapi::MAPIUninitialize();
    mapi::FreeProws(nullptr);
    mapi::FreePadrlist(nullptr);
    mapi::CloseIMsgSession(nullptr);
    return mapi::FBinFromHex(text, &byte) == FALSE && byte == 0x5A && std::string(text) == "AB" &&
           mapi::HrThisThreadAdviseSink(nullptr, &sink) == S_OK &&
           sink == reinterpret_cast<IMAPIAdviseSink*>(0x10) && !mapi::MAPIGetDefaultMalloc() &&
           !mapi::PpropFindProp(nullptr, 0, 0) && mapi::MAPIFreeBuffer(text) == 0;
}

TEST_F(MapiFunctionsTest, AFunctionThatTheLibraryLacksGivesItsFailureValue)
{
    UseSystem("empty");
    BINDS_ALONE([] { return BindMapiLibrary() && FailuresAreEFail() && OthersGiveTheirOwn(); });
}

TEST_F(MapiFunctionsTest, WithoutAnyLibraryEachGivesItsFailureValue)
{
    UseSystem("nowhere");
    BINDS_ALONE([] { return !BindMapiLibrary() && FailuresAreEFail() && OthersGiveTheirOwn(); });
}

TEST_F(MapiFunctionsTest, AMissingFunctionIsLookedForAgainAtEachCall)
{
    InstallClient(RegistryHive::CurrentUser, "Client", "{C}");
    BINDS_ALONE([] {
        const std::string question = "{C}/-/260/1 ";
        CallWithNothing(&mapi::MAPIOpenFormMgr);
        const bool once = Asked() == question;
        CallWithNothing(&mapi::MAPIOpenFormMgr);
        return once && Asked() == question + question;
    });
}

TEST_F(MapiFunctionsTest, ABoundFunctionIsNotLookedForAgain)
{
    InstallClient(RegistryHive::CurrentUser, "Client", "{C}");
    BINDS_ALONE([] {
        Initialize();
        Initialize();
        return Asked() == "{C}/-/260/1 ";
    });
}

TEST_F(MapiFunctionsTest, AFunctionThatWasMissingIsBoundWhenItsLibraryComes)
{
    UseSystem("nowhere");
    BINDS_ALONE([] {
        const bool failed = Initialize() == E_FAIL;
        UseSystem("plain");
        return failed && Initialize() == testing::kFromPlainSystem;
    });
}

TEST_F(MapiFunctionsTest, WhatIsBoundStaysBoundWhenAnotherLibraryComesUp)
{
    UseSystem("plain");
    BINDS_ALONE([] {
        const bool first = Initialize() == testing::kFromPlainSystem;
        UseSystem("asking");
        return first && BindMapiLibrary() && Initialize() == testing::kFromPlainSystem;
    });
}

TEST_F(MapiFunctionsTest, ANullBufferIsFreedWithoutABinding)
{
    UseSystem("plain");
    BINDS_ALONE([] {
        return mapi::MAPIFreeBuffer(nullptr) == 0 &&
               BoundMapiFunction(MapiFunction::MAPIFreeBuffer) == nullptr;
    });
}

}  // namespace
}  // namespace quorvane
