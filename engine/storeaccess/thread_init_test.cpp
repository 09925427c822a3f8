#include "engine/storeaccess/thread_init.h"

#include "engine/session/trace/testing/traced_lines.h"
#include "engine/storeaccess/testing/binding_test.h"
#include "engine/storeaccess/testing/fake_mapi_state.h"

namespace quorvane {
namespace {

class ThreadInitTest : public testing::BindingTest {
protected:
    // How often MAPI stands initialised.
    static int Initialized() { return SystemExport<testing::FakeStateFunction>("FakeState")()->initialized; }

    // The result of an initialisation, and what it left in the log.
    static bool FailsWith(HRESULT expected, const std::string& traced)
    {
        CMAPIThreadInit init;
        HRESULT hr = S_OK;
        const std::string lines = testing::TracedLines([&] { hr = init.Init(); });
        return hr == expected && lines.find("CMAPIThreadInit::Init") != std::string::npos &&
               lines.find(traced) != std::string::npos;
    }
};

// The fake refuses any other version or flags.
TEST_F(ThreadInitTest, MapiIsInitialisedForNotificationsOnOtherThreads)
{
    UseSystem("plain");
    BINDS_ALONE([] {
        CMAPIThreadInit init;
        return init.Init() == S_OK && Initialized() == 1;
    });
}

TEST_F(ThreadInitTest, AnySuccessOfMapiIsSok)
{
    UseSystem("asking");
    BINDS_ALONE([] {
        CMAPIThreadInit init;
        return init.Init() == S_OK && Initialized() == 1;
    });
}

TEST_F(ThreadInitTest, TheEndOfTheObjectTakesItsInitialisationBack)
{
    UseSystem("plain");
    BINDS_ALONE([] {
        {
            CMAPIThreadInit first;
            CMAPIThreadInit second;
            if (first.Init() != S_OK || second.Init() != S_OK || second.Init() != S_OK || Initialized() != 2)
                return false;
            second.Uninit();
            second.Uninit();
            if (Initialized() != 1)
                return false;
        }
        return Initialized() == 0;
    });
}

TEST_F(ThreadInitTest, ARefusalIsTracedReturnedAndNotTakenBack)
{
    UseSystem("plain");
    test::SetVariable("FAKE_MAPI_REFUSES", "1");
    BINDS_ALONE([] { return FailsWith(MAPI_E_NOT_INITIALIZED, "0x80040605") && Initialized() == 0; });
}

TEST_F(ThreadInitTest, WithoutAMapiLibraryTheFailureShowsAtTheInitialisation)
{
    UseSystem("nowhere");
    BINDS_ALONE([] { return FailsWith(E_FAIL, "0x80004005"); });
}

}  // namespace
}  // namespace quorvane
