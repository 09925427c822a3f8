// A resend of which one step fails, each in turn: a call of the host, a change of a disk.
// What has come into a package is whole each time, and the next job brings everything.
#include "tests/fault/disk.h"
#include "tests/fault/resend_faults.h"

namespace quorvane {
namespace {

using test::Disk;
using test::DiskTrouble;

// A loop that comes here doesn't end by itself.
constexpr unsigned kTooMany = 10000;

class ResendFaultsTest : public testing::ResendFaultsFixture {
protected:
    // Runs a job and the one after it for each `at` from 1, until `fails(at)`, which runs the first, tells that
    // there was nothing left to fail.
    template <class Fails>
    void FailEach(unsigned atLeast, Fails fails)
    {
        for (unsigned at = 1;; ++at) {
            ASSERT_LT(at, kTooMany);
            SCOPED_TRACE("failure " + std::to_string(at));
            Prepare();
            const bool failed = fails(at);
            ExpectWhole();
            ExpectNextJobCompletes();
            if (HasFailure() || !failed) {
                EXPECT_GT(at, atLeast);
                return;
            }
        }
    }
};

// The host's calls of one run, one of which fails.
class FailingHost final : public ProgressHandler, public RestrictHandler {
public:
    explicit FailingHost(unsigned at) : at_(at) {}

    bool HasFailed() const { return calls_ >= at_; }
    HRESULT Count() { return ++calls_ == at_ ? E_ABORT : S_OK; }

    HRESULT SetLimits(LONG, LONG) override { return Count(); }
    HRESULT Progress(LONG, LONG) override { return Count(); }
    HRESULT RestrictTable(IDispatch*) override { return Count(); }

private:
    const unsigned at_;
    unsigned calls_ = 0;
};

TEST_F(ResendFaultsTest, ACallOfTheHostThatFailsCostsItsItemAlone)
{
    FailEach(8, [&](unsigned at) {
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
    FailEach(1, [&, place = place, trouble = trouble](unsigned at) {
        auto job = MakeJob();
        Disk::Break(trouble, at, place.file);
        Run(std::move(job));
        return Disk::Repair() >= at;
    });
}

INSTANTIATE_TEST_SUITE_P(
    Disk, ResendDiskTest,
    ::testing::Combine(::testing::Values(Place{"share.qdb", "Database"}, Place{".dat", "Hashes"}),
                       ::testing::Values(DiskTrouble::kHiccup, DiskTrouble::kBroken, DiskTrouble::kFull)),
    [](const auto& trouble) {
        return std::get<0>(trouble.param).name + test::NameOf(std::get<1>(trouble.param));
    });

}  // namespace
}  // namespace quorvane
