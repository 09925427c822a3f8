// A settings key that the user may read and not write.
#include <gtest/gtest.h>
#include <unistd.h>

#include "engine/session/session.h"
#include "engine/session/trace/testing/traced_lines.h"
#include "platform/registry/registry.h"
#include "platform/testing/test_directory.h"
#include "quorvane3/callbacks.h"

namespace quorvane {
namespace {

class TestsHost final : public ExtHandler {
public:
    HRESULT DatabasePath(Bstr&) override { return E_NOTIMPL; }
    HRESULT ProductCode(Bstr& code) override
    {
        code = Bstr(OLESTR("Tests"));
        return S_OK;
    }
};

// For the superuser nothing is protected: he asks as nobody meanwhile.
class AsOrdinaryUser {
public:
    AsOrdinaryUser() { EXPECT_EQ(ChangeTo(kNobody), 0); }
    AsOrdinaryUser(const AsOrdinaryUser&) = delete;
    AsOrdinaryUser& operator=(const AsOrdinaryUser&) = delete;
    ~AsOrdinaryUser() { EXPECT_EQ(ChangeTo(user_), 0); }

private:
    static constexpr uid_t kNobody = 65534;
    int ChangeTo(uid_t user) const { return user_ == 0 ? setreuid(user, static_cast<uid_t>(-1)) : 0; }

    const uid_t user_ = getuid();
};

TEST(SettingsAccessTest, AKeyThatMayNotBeWrittenIsAsGoodAsMissing)
{
    const test::TestDirectory files;
    const std::filesystem::path& directory = files.Path();
    test::KeepSettingsIn(directory);
    RegistryKey key;
    ASSERT_EQ(key.Create(RegistryHive::CurrentUser, "Software\\Brindlemoor\\Quorvane\\1.0\\Tests\\Settings"),
              S_OK);
    ASSERT_EQ(key.Set("Logs", RegistryValue::OfText("mine")), S_OK);
    TestsHost host;
    const auto callback = MakeComObject<ExtCallback>(host);
    const auto session = MakeComObject<CSession2>();
    ASSERT_EQ(session->RegisterAddin(callback.Get()), S_OK);
    Variant value;
    std::filesystem::permissions(directory, std::filesystem::perms(0755));
    std::filesystem::permissions(directory / "quorvane3", std::filesystem::perms(0555));
    const std::string lines = testing::TracedLines([&] {
        const AsOrdinaryUser scope;
        EXPECT_EQ(session->GetRegSetting(OLESTR("Logs"), value), HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED));
    });
    std::filesystem::permissions(directory / "quorvane3", std::filesystem::perms(0755));

    EXPECT_TRUE(value.Is(VT_EMPTY));
    EXPECT_EQ(lines, "");
}

}  // namespace
}  // namespace quorvane
