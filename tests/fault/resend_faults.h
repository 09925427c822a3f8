// tests/fault/resend_faults.h: a resend in which one thing fails, again and again, and what has to be left of
// it.
#ifndef QUORVANE_TESTS_FAULT_RESEND_FAULTS_H_
#define QUORVANE_TESTS_FAULT_RESEND_FAULTS_H_

#include "engine/folders/resend_for_test.h"

namespace quorvane::testing {

// A folder of three mails for bob: {A} known and unchanged, {B} known under an older hash, one unknown; and
// {D}, which is gone.
class ResendFaultsFixture : public ResendFixture {
protected:
    ResendFaultsFixture()
    {
        Delete(gone);
        EXPECT_EQ(stop.Create(false), S_OK);
    }

    // Everything as before the first run.
    virtual void Prepare()
    {
        RemovePackages();
        session.Execute("DELETE FROM tblStorageFiles; DELETE FROM tblItem");
        session.storageFiles = ComPtr<IStorageFiles>(MakeComObject<CStorageFiles>(&session).Get());
        session.host.Forget();
        KnowWhole(a, "{A}");
        KnowWhole(b, "{B}");
        EXPECT_EQ(Hashes().SetHash(b.Get(), Bstr(OLESTR("older")).Get(), 1), S_OK);
        EXPECT_EQ(Hashes().SetHash(unknown.Get(), nullptr, 0), S_OK);
        Know(gone, "{D}");
        EXPECT_EQ(Hashes().SetHash(gone.Get(), Bstr(OLESTR("known")).Get(), 1), S_OK);
    }

    // Prepares, does what has its `at`th step fail (`fails(at)`, which tells whether there was one), and
    // looks at what is left (`judge`); for the first step, the second and so on until there is none. There
    // are more than `atLeast`.
    template <class Fails, class Judge>
    void FailEach(long atLeast, Fails fails, Judge judge)
    {
        constexpr long kTooMany = 1'000'000;  // a loop that comes there doesn't end by itself
        // Far apart where there are many: all items go the same way.
        for (long at = 1;; at += 1 + at / 40) {
            ASSERT_LT(at, kTooMany);
            SCOPED_TRACE("failure " + std::to_string(at));
            Prepare();
            const bool failed = fails(at);
            judge();
            if (HasFailure() || !failed) {
                EXPECT_GT(at, atLeast);
                return;
            }
        }
    }

    std::unique_ptr<CResendFolder> MakeJob(IQuorvaneProgress* bar = nullptr,
                                           IQuorvaneRestrict* restriction = nullptr)
    {
        ComPtr<IUnknown> store;
        EXPECT_EQ(folder->OpenStore(MDB_NO_MAIL, store.Put()), S_OK);
        auto job = std::make_unique<CResendFolder>(folder.Get(), store.Get(), bar, restriction,
                                                   Bstr(OLESTR("bob")).Get(), nullptr, 0.0, 1, VARIANT_FALSE);
        job->m_pSession = &session;
        return job;
    }
    // On a thread of its own.
    HRESULT Run(std::unique_ptr<CResendFolder> job)
    {
        DWORD result = 0;
        std::thread([&] {
            result = job->ThreadProc(stop);
            job.reset();
        }).join();
        return static_cast<HRESULT>(result);
    }

    // What has come into packages is whole or known for damaged, and each item of it once; no known item has
    // lost its row, unless the job was misled.
    void ExpectWhole(bool misled = false)
    {
        std::vector<std::string> sent = Sent("bob");  // judges each message
        std::erase(sent, "damaged");
        EXPECT_TRUE(std::adjacent_find(sent.begin(), sent.end()) == sent.end());
        for (const std::string& item : sent)
            EXPECT_EQ(std::count(item.begin(), item.end(), ' '), 2) << item << " has no message";
        if (misled)
            return;
        EXPECT_LE(sent.size(), 3u);
        std::vector<std::string> deleted = Sent(Narrow(folderEntryId.View()));
        std::erase(deleted, "damaged");
        EXPECT_TRUE(deleted.empty() || deleted == std::vector<std::string>{"{D} 30"});
        EXPECT_EQ(session.Ask("SELECT COUNT(*) FROM tblItem WHERE (ID='{A}' AND EntryID='" +
                              Narrow(a.View()) + "') OR (ID='{B}' AND EntryID='" + Narrow(b.View()) + "')"),
                  "2");
    }
    // A table or a row that couldn't be read counts as one that isn't there: mails that are there were told
    // as deleted, one was taken for new though it had a row, or a deletion wasn't told.
    bool WasMisled()
    {
        const bool toldDeleted =
            session.Ask("SELECT COUNT(*) FROM tblItem WHERE ID IN ('{A}', '{B}')") != "2";
        const bool knowsTwice = session.Ask(
                                    "SELECT COUNT(*) FROM (SELECT EntryID FROM tblItem GROUP BY EntryID "
                                    "HAVING COUNT(*) > 1)") != "0";
        const bool keptRow = session.Ask("SELECT COUNT(*) FROM tblItem WHERE ID='{D}'") == "1";
        return toldDeleted || knowsTwice || (keptRow && HashOf(gone).empty());
    }

    // A job in which nothing fails brings everything.
    void ExpectNextJobCompletes()
    {
        EXPECT_EQ(Run(MakeJob()), S_OK);
        const std::string id =
            session.Ask("SELECT ID FROM tblItem WHERE EntryID='" + Narrow(unknown.View()) + "'");
        const std::vector<std::string> sent = Sent("bob");
        EXPECT_EQ(sent.size(), 3u);
        EXPECT_TRUE(std::count(sent.begin(), sent.end(), "{A} 20 A") == 1);
        EXPECT_TRUE(std::count(sent.begin(), sent.end(), "{B} 20 B") == 1);
        EXPECT_TRUE(std::any_of(sent.begin(), sent.end(),
                                [&](const std::string& item) { return item.starts_with(id); }));
        EXPECT_EQ(Sent(Narrow(folderEntryId.View())), std::vector<std::string>{"{D} 30"});
        EXPECT_EQ(session.Ask("SELECT COUNT(*) FROM tblItem"), "3");
        EXPECT_FALSE(Hashes().SuspendSave);
        const auto saved = SavedHashes({a, b, unknown, gone});
        EXPECT_EQ(saved.size(), 3u);
        for (const Bstr& mail : {a, b, unknown})
            EXPECT_EQ(HashOf(mail), PresentHash(mail));
    }

    const Bstr a = Add("A");
    const Bstr b = Add("B");
    const Bstr unknown = Add("C");
    const Bstr gone = Add("D");
    Event stop;
};

}  // namespace quorvane::testing

#endif  // QUORVANE_TESTS_FAULT_RESEND_FAULTS_H_
