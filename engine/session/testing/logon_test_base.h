// session/testing/logon_test_base.h: a library to log on with, amid a host and a MAPI that tell of each step.
#ifndef QUORVANE_ENGINE_SESSION_TESTING_LOGON_TEST_BASE_H_
#define QUORVANE_ENGINE_SESSION_TESTING_LOGON_TEST_BASE_H_

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "engine/items/testing/test_session.h"
#include "engine/session/library.h"
#include "engine/session/testing/fake_mapi.h"
#include "engine/session/trace/testing/traced_lines.h"
#include "platform/com/apartment.h"
#include "platform/module/module.h"
#include "platform/testing/surroundings.h"
#include "quorvane3/callbacks.h"

namespace quorvane::testing {

// The host and MAPI in one: writes down the steps that both hear of, and lets them fail.
class Surroundings final : public ExtHandler, public MapiWatcher {
public:
    explicit Surroundings(std::string databasePath) : databasePath_(std::move(databasePath)) {}

    HRESULT Take(const std::string& step)
    {
        const MutexLock lock(mutex_);
        steps_.push_back(step);
        const auto failure = failures_.find(step);
        return failure == failures_.end() ? S_OK : failure->second;
    }
    std::vector<std::string> TakeSteps()
    {
        const MutexLock lock(mutex_);
        return std::exchange(steps_, {});
    }
    void Fail(const std::string& step, HRESULT hr)
    {
        const MutexLock lock(mutex_);
        failures_[step] = hr;
    }
    void FailNothing()
    {
        const MutexLock lock(mutex_);
        failures_.clear();
    }
    // Set while nobody asks for it.
    OleString product = OLESTR("Tests");
    // Run as well when MAPI is called; set while nobody calls it.
    std::function<void(const std::string&)> whenMapiIsCalled;

    // MAPI then enters the calling thread into an apartment, and so refuses to start on a free thread. Set
    // while nobody calls it.
    bool mapiEntersApartments = false;

    HRESULT OnMapiCall(const char* call) override
    {
        if (whenMapiIsCalled)
            whenMapiIsCalled(call);
        if (mapiEntersApartments) {
            if (const HRESULT hr = EnterApartment(call); FAILED(hr))
                return hr;
        }
        return Take(call);
    }
    HRESULT DatabasePath(Bstr& path) override
    {
        path = Bstr(Widen(databasePath_));
        return Take("DatabasePath");
    }
    HRESULT ProductCode(Bstr& code) override
    {
        code = Bstr(product);
        return Take("ProductCode");
    }

private:
    HRESULT EnterApartment(const std::string& call)
    {
        if (call == "MAPIUninitialize")
            CoUninitialize();
        return call.starts_with("MAPIInitialize") ? CoInitialize(nullptr) : S_OK;
    }

    const std::string databasePath_;
    Mutex mutex_;
    std::vector<std::string> steps_ QV_GUARDED_BY(mutex_);
    std::map<std::string, HRESULT> failures_ QV_GUARDED_BY(mutex_);
};

class LogonTest : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        test::SetVariable("QUORVANE_SYSTEM_DIR", QUORVANE_FAKE_SESSION_MAPI);
        // The process's log goes where its first line went.
        EXPECT_NE(TracedLines([] { Trace("Tests", 1, "begin"); }), "");
    }

    void SetUp() override
    {
        test::KeepSettingsIn(files.directory.Path());
        test::KeepDataIn(files.directory.Path());
        files.CloseDatabase();
        WatchMapi(&around);
        ASSERT_TRUE(library);
    }
    void TearDown() override
    {
        session.Reset();
        library.Reset();
        WatchMapi(nullptr);
    }

    static void WatchMapi(MapiWatcher* watcher)
    {
        Module mapi;
        ASSERT_EQ(mapi.Load("mapi32.dll"), S_OK);
        const auto watch = mapi.Find<WatchFakeMapiFunction>("WatchFakeMapi");
        ASSERT_TRUE(watch);
        watch(watcher);
    }

    HRESULT Logon() { return library->Logon(callback.Get(), session.Put()); }
    CSession2& Inner() { return *static_cast<CSession2*>(session.Get()); }
    void End()
    {
        session.Reset();
        library.Reset();
    }
    bool HostIsHeld()
    {
        callback->AddRef();
        return callback->Release() > 1;
    }

    const FreeThreadScope thread;
    TestSession files;  // for its sharing database
    Surroundings around{files.DatabasePath()};
    const ComPtr<ExtCallback> callback = MakeComObject<ExtCallback>(around);
    ComPtr<CLibrary> library = MakeComObject<CLibrary>();
    ComPtr<ISession2> session;
};

}  // namespace quorvane::testing

#endif  // QUORVANE_ENGINE_SESSION_TESTING_LOGON_TEST_BASE_H_
