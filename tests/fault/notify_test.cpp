// Notifications of which one step fails, each in turn: a call of the store, a call of the host, a change of a
// disk. Each member has the old item or the new one, whole; and what wasn't told is told the next time.
#include "engine/items/testing/failing_mailbox.h"
#include "tests/fault/disk.h"
#include "tests/fault/notify_faults.h"

namespace quorvane {
namespace {

using test::Disk;
using test::DiskTrouble;
using testing::Told;

class NotifyFaultsTest : public testing::NotifyFaultsFixture {
protected:
    void Judge(Told told, bool misled = false)
    {
        ExpectMembersGetWhole(misled);
        if (misled)
            return;
        if (told == Told::kRows) {
            ExpectToldIsSent();
            ExpectNextTellingCompletes();
        }
    }
};

class NotifyFaults : public NotifyFaultsTest, public ::testing::WithParamInterface<Told> {};

TEST_P(NotifyFaults, ACallOfTheStoreThatFailsCostsItsItemAlone)
{
    const auto call = std::make_shared<testing::FailingCall>();
    session.mapiSession = testing::MakeFailingSession(mailbox.Session(), call);
    FailEach(
        10,
        [&](long at) {
            call->SetAt(static_cast<unsigned>(at));
            NotifyOnThread(GetParam());
            call->Clear();
            return !call->Failed().empty();
        },
        [&] {
            SCOPED_TRACE(call->Failed());
            const bool misled = WasMisled();
            EXPECT_TRUE(!misled || call->Failed() == "IMAPITable::QueryRows");
            Judge(GetParam(), misled);
        });
    session.mapiSession = mailbox.Session();
}

TEST_P(NotifyFaults, ACallOfTheHostThatFailsCostsItsItemAlone)
{
    long calls = 0;
    FailEach(
        2,
        [&](long at) {
            calls = 0;
            session.host.whenItemReported = [&](IItem*, bool&) { return ++calls == at ? E_ABORT : S_OK; };
            session.host.whenItemDeleted = session.host.whenItemReported;
            NotifyOnThread(GetParam());
            session.host.whenItemReported = nullptr;
            session.host.whenItemDeleted = nullptr;
            return calls >= at;
        },
        [&] { Judge(GetParam()); });
}

INSTANTIATE_TEST_SUITE_P(Told, NotifyFaults, ::testing::Values(Told::kRows, Told::kTable),
                         [](const auto& told) { return told.param == Told::kRows ? "Rows" : "Table"; });

struct Place {
    const char* file;  // part of the path
    const char* name;
};

class NotifyDiskTest : public NotifyFaultsTest,
                       public ::testing::WithParamInterface<std::tuple<Place, DiskTrouble, Told>> {};

TEST_P(NotifyDiskTest, AChangeThatFailsCostsItsItemAlone)
{
    const auto [place, trouble, told] = GetParam();
    // Half a write that was never completed costs the package: no more can be put into it, perhaps.
    const bool isLost = trouble == DiskTrouble::kBroken && std::string(place.name) == "Package";
    FailEach(
        0,
        [&, place = place, trouble = trouble, told = told](long at) {
            Disk::Break(trouble, static_cast<unsigned>(at), place.file);
            NotifyOnThread(told);
            return Disk::Repair() >= static_cast<unsigned>(at);
        },
        [&, told = told] {
            if (!isLost)
                return Judge(told);
            ExpectMembersGetWhole(false);
            NotifyOnThread(Told::kRows);
            ExpectMembersGetWhole(false);
        });
}

INSTANTIATE_TEST_SUITE_P(
    Disk, NotifyDiskTest,
    ::testing::Combine(::testing::Values(Place{"share.qdb", "Database"}, Place{".dat", "Hashes"},
                                         Place{".qvt", "Package"}),
                       ::testing::Values(DiskTrouble::kHiccup, DiskTrouble::kBroken, DiskTrouble::kFull),
                       ::testing::Values(Told::kRows, Told::kTable)),
    [](const auto& trouble) {
        return std::get<0>(trouble.param).name + test::NameOf(std::get<1>(trouble.param)) +
               (std::get<2>(trouble.param) == Told::kRows ? "Rows" : "Table");
    });

}  // namespace
}  // namespace quorvane
