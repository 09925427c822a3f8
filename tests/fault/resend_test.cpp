// A resend of which one step fails, each in turn: a call of the store, a call of the host, a change of a
// disk. What has come into a package is whole each time, and the next job brings everything.
#include "engine/items/testing/failing_mailbox.h"
#include "tests/fault/disk.h"
#include "tests/fault/resend_faults.h"

namespace quorvane {
namespace {

using test::Disk;
using test::DiskTrouble;

class ResendFaultsTest : public testing::ResendFaultsFixture {
protected:
    using ResendFaultsFixture::FailEach;
    // The same, with a next job that completes.
    template <class Fails>
    void FailEach(long atLeast, Fails fails)
    {
        FailEach(atLeast, fails, [this] {
            ExpectWhole();
            ExpectNextJobCompletes();
        });
    }
};

TEST_F(ResendFaultsTest, ACallOfTheStoreThatFailsCostsItsItemAlone)
{
    const auto call = std::make_shared<testing::FailingCall>();
    session.mapiSession = testing::MakeFailingSession(mailbox.Session(), call);
    FailEach(
        20,
        [&](long at) {
            auto job = MakeJob();
            call->SetAt(static_cast<unsigned>(at));
            Run(std::move(job));
            call->Clear();
            return !call->Failed().empty();
        },
        [&] {
            SCOPED_TRACE(call->Failed());
            const bool misled = WasMisled();
            ExpectWhole(misled);
            if (misled)
                EXPECT_EQ(call->Failed(), "IMAPITable::QueryRows");
            else
                ExpectNextJobCompletes();
        });
    session.mapiSession = mailbox.Session();
}

// The host's calls of one run, one of which fails.
class FailingHost final : public ProgressHandler, public RestrictHandler {
public:
    explicit FailingHost(long at) : at_(at) {}

    bool HasFailed() const { return calls_ >= at_; }
    HRESULT Count() { return ++calls_ == at_ ? E_ABORT : S_OK; }

    HRESULT SetLimits(LONG, LONG) override { return Count(); }
    HRESULT Progress(LONG, LONG) override { return Count(); }
    HRESULT RestrictTable(IDispatch*) override { return Count(); }

private:
    const long at_;
    long calls_ = 0;
};

TEST_F(ResendFaultsTest, ACallOfTheHostThatFailsCostsItsItemAlone)
{
    FailEach(8, [&](long at) {
        FailingHost host(at);
        session.host.whenItemResent = [&](IItem*, BSTR, bool&) { return host.Count(); };
        session.host.whenItemDeleted = [&](IItem*, bool&) { return host.Count(); };
        const auto bar = MakeComObject<ProgressCallback>(host);
        const auto restriction = MakeComObject<RestrictCallback>(host);
        Run(MakeJob(bar.Get(), restriction.Get()));
        session.host.whenItemResent = nullptr;
        session.host.whenItemDeleted = nullptr;
        return host.HasFailed();
    });
}

struct Place {
    const char* file;  // part of the path
    const char* name;
};

class ResendDiskTest : public ResendFaultsTest,
                       public ::testing::WithParamInterface<std::tuple<Place, DiskTrouble>> {};

TEST_P(ResendDiskTest, AChangeThatFailsLosesNothingThatTheNextJobDoesntBring)
{
    const auto [place, trouble] = GetParam();
    const auto fails = [&, place = place, trouble = trouble](long at) {
        auto job = MakeJob();
        Disk::Break(trouble, static_cast<unsigned>(at), place.file);
        Run(std::move(job));
        return Disk::Repair() >= static_cast<unsigned>(at);
    };
    // Half a write that was never completed costs the package: no more can be put into it, perhaps.
    if (trouble != DiskTrouble::kBroken || std::string(place.name) != "Package")
        return FailEach(1, fails);
    FailEach(1, fails, [this] {
        ExpectWhole();
        Run(MakeJob());
        ExpectWhole();
    });
}

INSTANTIATE_TEST_SUITE_P(
    Disk, ResendDiskTest,
    ::testing::Combine(::testing::Values(Place{"share.qdb", "Database"}, Place{".dat", "Hashes"},
                                         Place{".qvt", "Package"}),
                       ::testing::Values(DiskTrouble::kHiccup, DiskTrouble::kBroken, DiskTrouble::kFull)),
    [](const auto& trouble) {
        return std::get<0>(trouble.param).name + test::NameOf(std::get<1>(trouble.param));
    });

}  // namespace
}  // namespace quorvane
