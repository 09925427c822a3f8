// The engine does what the reference model of it does, whatever happens to two
// shared folders, and however a store tells of it.
//
// A seed draws the store's behaviour and all steps. QUORVANE_MODEL_SEED runs
// one seed alone, and QUORVANE_MODEL_STEPS so many steps of it in place of ten
// thousand.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <deque>
#include <iostream>
#include <iterator>
#include <random>
#include <sstream>

#include "msgstore/store/test_switches.h"
#include "platform/testing/surroundings.h"
#include "tests/model/world.h"

namespace quorvane::model {
namespace {

constexpr unsigned kSeeds = 10;
constexpr unsigned long kSteps = 10000;
// As many mails as make a table's scan take several turns now and then, and no
// more: steps are to be cheap.
constexpr size_t kMostMails = 50;
// Steps between two deliveries of a folder, so that its table follows each
// change.
constexpr unsigned kLongestDelay = 400;
constexpr size_t kStepsShown = 60;

unsigned long NumberFrom(const char* variable, unsigned long otherwise)
{
    const char* const text = std::getenv(variable);
    return text && *text ? std::strtoul(text, nullptr, 10) : otherwise;
}

// The same numbers everywhere.
class Dice {
public:
    explicit Dice(unsigned long seed) : engine_(seed) {}
    unsigned Below(size_t limit) { return static_cast<unsigned>(engine_() % limit); }
    bool Chance(unsigned percent) { return Below(100) < percent; }
    template <class Container>
    const auto& OneOf(const Container& values)
    {
        return *std::next(values.begin(), Below(values.size()));
    }

private:
    std::mt19937_64 engine_;
};

// Names of the model's for what only the engine knows, bound at first sight,
// one to one.
class Names {
public:
    bool Mean(const std::string& name, const std::string& actual)
    {
        const auto known = meanings_.find(name);
        if (known != meanings_.end())
            return known->second == actual;
        if (actual.empty() || !used_.insert(actual).second)
            return false;
        meanings_[name] = actual;
        return true;
    }

private:
    std::map<std::string, std::string> meanings_;
    std::set<std::string> used_;
};

struct Behaviour {
    bool shortTermIds = false;
    bool tellsOfTablesOnly = false;
    bool shuffles = false;
    std::vector<ULONG> dropped;
    size_t columns = 0;

    static Behaviour Draw(Dice& dice)
    {
        const std::vector<ULONG> all = World::AllColumns();
        Behaviour drawn;
        drawn.shortTermIds = dice.Chance(30);
        drawn.tellsOfTablesOnly = dice.Chance(20);
        drawn.shuffles = dice.Chance(50);
        const unsigned share = std::array{0u, 0u, 40u, 95u}[dice.Below(4)];
        for (const ULONG column : all) {
            if (column != PR_ENTRYID && dice.Chance(share))
                drawn.dropped.push_back(column);
        }
        drawn.columns = all.size() - drawn.dropped.size();
        return drawn;
    }
};

std::ostream& operator<<(std::ostream& out, const Behaviour& behaviour)
{
    return out << (behaviour.shortTermIds ? "short-term" : "long-term") << " identifiers, "
               << (behaviour.tellsOfTablesOnly ? "changes of tables" : "changes of rows")
               << (behaviour.shuffles ? " in any order, " : " in order, ") << behaviour.columns << " columns";
}

class Comparison {
public:
    explicit Comparison(Dice& dice)
        : dice_(dice),
          behaviour_(Behaviour::Draw(dice)),
          world_(behaviour_.shortTermIds, behaviour_.tellsOfTablesOnly, behaviour_.dropped),
          reference_({behaviour_.tellsOfTablesOnly, behaviour_.columns < 5}, World::FolderIds())
    {}

    const Behaviour& TheBehaviour() const { return behaviour_; }
    std::string LastSteps() const
    {
        std::ostringstream out;
        for (const std::string& step : steps_)
            out << step << '\n';
        return out.str();
    }

    // Makes one step. Throws std::runtime_error when the engine does otherwise
    // than the model.
    void Step();
    // Everything that waits is told, and all that is left is compared.
    void End();

private:
    struct Kind {
        unsigned weight;
        void (Comparison::*make)();
    };
    static const Kind kKinds[];

    void Add();
    void Edit();
    void MarkRead();
    void Move();
    void Copy();
    void Delete();
    void Lock();
    void Unlock();
    void Ignore();
    void Fail();
    void Suspend();
    void Restrict();
    void TakePackage();
    void RunResend();
    void Cancel();
    void DeliverAny() { Deliver(dice_.Below(kFolders)); }
    void EndSession();

    void Deliver(unsigned folder);
    void TakePackage(const std::string& recipients);
    void CompareJobs();
    void CompareCalls(const Delivery& delivery);
    void CompareRows();
    void CompareHashes(unsigned folder);
    // Names of the model's mean something of the engine's; all others are what they are.
    bool IsSameId(const std::string& expected, const std::string& actual)
    {
        return expected.starts_with('?') ? ids_.Mean(expected, actual) : expected == actual;
    }
    void Note(const std::string& step);
    static std::vector<std::string> Recipients();
    static std::string NameOf(const EntryId& entryId) { return entryId.substr(entryId.size() - 6); }
    void Expect(bool holds, const std::string& what)
    {
        if (!holds)
            throw std::runtime_error(what);
    }
    // A mail; none when there are none.
    const EntryId* AnyMail();
    // One that is there or was.
    const EntryId& AnyItem() { return dice_.OneOf(items_); }
    std::string NewSubject() { return "Subject " + std::to_string(++subjects_); }
    // The mail is now as the store tells.
    void Put(const EntryId& entryId, Mail mail);

    Dice& dice_;
    const Behaviour behaviour_;
    World world_;
    Reference reference_;
    Names ids_;
    Names hashes_;
    std::vector<EntryId> items_{"000000"};
    std::deque<std::string> steps_;
    std::array<unsigned, kFolders> waiting_{};
    std::array<bool, kFolders> suspended_{};
    long mails_ = 0;
    unsigned subjects_ = 0;
    unsigned deliveries_ = 0;
    unsigned jobs_ = 0;
};

const Comparison::Kind Comparison::kKinds[] = {
    {12, &Comparison::Add},        {22, &Comparison::Edit},      {5, &Comparison::MarkRead},
    {9, &Comparison::Move},        {4, &Comparison::Copy},       {9, &Comparison::Delete},
    {7, &Comparison::Lock},        {5, &Comparison::Unlock},     {12, &Comparison::Ignore},
    {3, &Comparison::Fail},        {2, &Comparison::Suspend},    {1, &Comparison::Restrict},
    {1, &Comparison::TakePackage}, {8, &Comparison::DeliverAny}, {1, &Comparison::RunResend},
    {1, &Comparison::Cancel},
};

void Comparison::Step()
{
    if (dice_.Below(1000) == 0)
        return EndSession();
    for (unsigned folder = 0; folder < kFolders; ++folder) {
        if (++waiting_[folder] > kLongestDelay)
            return Deliver(folder);
    }
    unsigned weights = 0;
    for (const Kind& kind : kKinds)
        weights += kind.weight;
    unsigned drawn = dice_.Below(weights);
    const Kind* kind = kKinds;
    for (; drawn >= kind->weight; ++kind)
        drawn -= kind->weight;
    (this->*kind->make)();
}

void Comparison::End()
{
    for (unsigned folder = 0; folder < kFolders; ++folder) {
        Deliver(folder);
        CompareHashes(folder);
    }
    for (const std::string& recipients : Recipients())
        TakePackage(recipients);
}

void Comparison::Note(const std::string& step)
{
    steps_.push_back(step);
    if (steps_.size() > kStepsShown)
        steps_.pop_front();
}

const EntryId* Comparison::AnyMail()
{
    // By their numbers, as identifiers are others in each run.
    std::vector<std::pair<long, const EntryId*>> mails;
    for (const auto& [entryId, mail] : reference_.Mails())
        mails.emplace_back(mail.number, &entryId);
    std::sort(mails.begin(), mails.end());
    return mails.empty() ? nullptr : dice_.OneOf(mails).second;
}

void Comparison::Put(const EntryId& entryId, Mail mail)
{
    world_.Describe(entryId, mail);
    reference_.Put(entryId, mail);
}

void Comparison::Add()
{
    if (reference_.Mails().size() >= kMostMails)
        return Delete();
    const unsigned folder = dice_.Below(kFolders);
    const std::string subject = NewSubject();
    const EntryId entryId = world_.Add(folder, subject);
    items_.push_back(entryId);
    Put(entryId, {folder, ++mails_, {}, 0, subject});
    Note("add " + NameOf(entryId) + " to " + std::to_string(folder));
}

void Comparison::Edit()
{
    const EntryId* const entryId = AnyMail();
    if (!entryId)
        return Add();
    Mail mail = reference_.Mails().at(*entryId);
    mail.subject = NewSubject();
    world_.Edit(*entryId, mail.subject);
    Put(*entryId, mail);
    Note("edit " + NameOf(*entryId) + " in " + std::to_string(mail.folder));
}

void Comparison::MarkRead()
{
    const EntryId* const entryId = AnyMail();
    if (!entryId)
        return Add();
    const bool read = dice_.Chance(50);
    world_.MarkRead(*entryId, reference_.Mails().at(*entryId).folder, read);
    Mail mail = reference_.Mails().at(*entryId);
    world_.Describe(*entryId, mail);
    // To mark what is marked already is no change.
    if (mail.flags != reference_.Mails().at(*entryId).flags)
        reference_.Put(*entryId, mail);
    Note((read ? "read " : "unread ") + NameOf(*entryId));
}

void Comparison::Move()
{
    const EntryId* const entryId = AnyMail();
    if (!entryId)
        return Add();
    Mail mail = reference_.Mails().at(*entryId);
    const unsigned from = mail.folder;
    // Mostly from one shared folder into the other.
    mail.folder = from < kFolders && dice_.Chance(75) ? 1 - from : (from + 1) % (kFolders + 1);
    world_.Move(*entryId, from, mail.folder);
    Put(*entryId, mail);
    Note("move " + NameOf(*entryId) + " from " + std::to_string(from) + " to " + std::to_string(mail.folder));
}

void Comparison::Copy()
{
    const EntryId* const entryId = AnyMail();
    if (!entryId || reference_.Mails().size() >= kMostMails)
        return Delete();
    Mail mail = reference_.Mails().at(*entryId);
    const unsigned from = mail.folder;
    mail.folder = dice_.Below(kFolders + 1);
    mail.number = ++mails_;
    const EntryId copy = world_.Copy(*entryId, from, mail.folder);
    items_.push_back(copy);
    world_.Describe(copy, mail);
    reference_.PutCopy(copy, mail, from);
    Note("copy " + NameOf(*entryId) + " as " + NameOf(copy) + " to " + std::to_string(mail.folder));
}

void Comparison::Delete()
{
    const EntryId* const found = AnyMail();
    if (!found)
        return Add();
    const EntryId entryId = *found;
    world_.Delete(entryId, reference_.Mails().at(entryId).folder);
    reference_.Remove(entryId);
    Note("delete " + NameOf(entryId));
}

void Comparison::Lock()
{
    const EntryId* const entryId = AnyMail();
    if (!entryId)
        return Add();
    const bool autoUnlock = dice_.Chance(75);
    world_.Lock(*entryId, autoUnlock);
    reference_.Lock(*entryId, autoUnlock);
    Note("lock " + NameOf(*entryId) + (autoUnlock ? " once" : ""));
}

void Comparison::Unlock()
{
    const EntryId& entryId = AnyItem();
    Expect(world_.IsLocked(entryId) == reference_.IsLocked(entryId), "IsItemLocked " + NameOf(entryId));
    const HRESULT expected = reference_.Unlock(entryId) ? S_OK : E_FAIL;
    Expect(world_.Unlock(entryId) == expected, "UnlockItem " + NameOf(entryId));
    Note("unlock " + NameOf(entryId));
}

void Comparison::Ignore()
{
    const EntryId* const entryId = AnyMail();
    if (!entryId)
        return Add();
    world_.AnswerNext(*entryId, Answer::Ignore);
    reference_.AnswerNext(*entryId, Answer::Ignore);
    Note("ignore " + NameOf(*entryId));
}

void Comparison::Fail()
{
    const EntryId* const entryId = AnyMail();
    if (!entryId)
        return Add();
    world_.AnswerNext(*entryId, Answer::Fail);
    reference_.AnswerNext(*entryId, Answer::Fail);
    Note("fail " + NameOf(*entryId));
}

void Comparison::Suspend()
{
    const unsigned folder = dice_.Below(kFolders);
    // Not for long.
    suspended_[folder] = !suspended_[folder] && dice_.Chance(50);
    world_.Suspend(folder, suspended_[folder]);
    reference_.Suspend(folder, suspended_[folder]);
    Note((suspended_[folder] ? "suspend " : "resume ") + std::to_string(folder));
}

void Comparison::Restrict()
{
    world_.Restrict(dice_.Below(kFolders));
    Note("restrict");
}

void Comparison::EndSession()
{
    for (unsigned folder = 0; folder < kFolders; ++folder)
        CompareHashes(folder);
    // Hashes gather: those of moved mails that were deleted in their new folder
    // stay for good.
    const bool forgets = dice_.Chance(40);
    Note(forgets ? "end the session and lose the hash files" : "end the session");
    world_.EndSession(forgets);
    reference_.EndSession(forgets);
    suspended_ = {};
    waiting_ = {};
}

void Comparison::Deliver(unsigned folder)
{
    const unsigned seed = behaviour_.shuffles ? 1 + dice_.Below(1000000) : 0;
    Note("deliver " + std::to_string(folder));
    const Delivery expected = reference_.Deliver(folder, seed);
    const unsigned told = world_.Deliver(folder, seed);
    Expect(told == expected.told,
           std::to_string(told) + " notifications instead of " + std::to_string(expected.told));
    CompareCalls(expected);
    CompareRows();
    if (++deliveries_ % 4 == 0)
        CompareHashes(folder);
    waiting_[folder] = 0;
}

void Comparison::RunResend()
{
    Resend resend;
    resend.folder = dice_.Below(kFolders);
    // The usual members, or a new one.
    resend.to = dice_.Chance(20) ? World::FolderIds()[resend.folder] : "carol";
    resend.isExtended = dice_.Chance(50);
    if (dice_.Chance(50))
        resend.job = "job " + std::to_string(++jobs_);
    resend.all = dice_.Chance(30);
    const EntryId* const entryId = AnyMail();
    if (resend.isExtended && entryId && dice_.Chance(70))
        resend.since = reference_.Mails().at(*entryId).time;
    resend.cancelAt = dice_.Chance(30) ? 1 + dice_.Below(6) : 0;
    Note("resend " + std::to_string(resend.folder) + " to " + resend.to + (resend.all ? ", all" : "") +
         (resend.since ? ", since " + *resend.since : "") +
         (resend.cancelAt > 0 ? ", cancel at " + std::to_string(resend.cancelAt) : ""));
    const Delivery expected = reference_.RunResend(resend);
    Expect(world_.RunResend(resend) == expected.progress, "the progress of a resend");
    CompareCalls(expected);
    CompareRows();
    CompareHashes(resend.folder);
    CompareJobs();
}

void Comparison::Cancel()
{
    Note("cancel the resends");
    world_.CancelResends();
    reference_.CancelResends();
    CompareJobs();
}

void Comparison::CompareJobs()
{
    const std::vector<Job> actual = world_.Jobs();
    Expect(actual.size() == reference_.Jobs().size(), "the number of jobs");
    for (size_t i = 0; i < actual.size(); ++i) {
        const Job& expected = reference_.Jobs()[i];
        Expect(IsSameId(expected.id, actual[i].id) && actual[i].folder == expected.folder &&
                   actual[i].to == world_.Address(expected.to),
               "the record of job " + actual[i].id);
    }
}

std::vector<std::string> Comparison::Recipients()
{
    std::vector<std::string> recipients{"carol"};
    for (const std::string& id : World::FolderIds())
        recipients.push_back(id);
    return recipients;
}

void Comparison::TakePackage()
{
    TakePackage(dice_.OneOf(Recipients()));
}

void Comparison::TakePackage(const std::string& recipients)
{
    Note("take the package for " + recipients);
    const auto found = reference_.Packages().extract(recipients);
    const std::optional<Package> actual = world_.TakePackage(recipients);
    Expect(actual.has_value() == !found.empty(), "whether there is a package");
    if (!actual)
        return;
    const Package* const expected = &found.mapped();
    Expect(actual->size() == expected->size(), "the number of elements");
    for (const auto& [id, element] : *actual) {
        const auto same =
            std::find_if(expected->begin(), expected->end(),
                         [&, actualId = id](const auto& entry) { return IsSameId(entry.first, actualId); });
        Expect(same != expected->end(), "element " + id + " has no business in the package");
        Expect(same->second == element, "element " + id + " of action " + std::to_string(element.action) +
                                            " with " + element.subject.value_or("no message") +
                                            " instead of action " + std::to_string(same->second.action) +
                                            " with " + same->second.subject.value_or("no message"));
    }
}

void Comparison::CompareCalls(const Delivery& delivery)
{
    std::vector<Call> actual = world_.TakeCalls();
    auto next = actual.begin();
    for (std::vector<Call> group : delivery.calls) {
        Expect(std::distance(next, actual.end()) >= std::ssize(group),
               "no call about " + NameOf(group[0].entryId));
        std::sort(group.begin(), group.end());
        std::sort(next, next + std::ssize(group));
        for (const Call& expected : group) {
            const std::string what = " a call about " + NameOf(expected.entryId) + " with action " +
                                     std::to_string(expected.action) + ", not about " +
                                     NameOf(next->entryId) + " with " + std::to_string(next->action);
            Expect(next->entryId == expected.entryId && next->action == expected.action &&
                       next->isResend == expected.isResend,
                   "expected" + what);
            Expect(IsSameId(expected.job, next->job), "another job in" + what);
            Expect(IsSameId(expected.id, next->id), "another ID in" + what);
            ++next;
        }
    }
    Expect(next == actual.end(), "a call too many");
}

void Comparison::CompareRows()
{
    const std::map<EntryId, Row> actual = world_.Rows();
    for (const auto& [entryId, row] : actual)
        Expect(reference_.Rows().contains(entryId), "a row of " + NameOf(entryId));
    for (const auto& [entryId, id] : reference_.Rows()) {
        const auto row = actual.find(entryId);
        Expect(row != actual.end(), "no row of " + NameOf(entryId));
        Expect(IsSameId(id, row->second.id), "the ID in the row of " + NameOf(entryId));
        Expect(row->second.storeId == world_.StoreId() && row->second.version == 3.0 &&
                   row->second.lastModified == 0.0,
               "the row of " + NameOf(entryId));
    }
}

void Comparison::CompareHashes(unsigned folder)
{
    const std::map<EntryId, std::string> actual = world_.Hashes(folder);
    const std::map<EntryId, std::string>& expected = reference_.Hashes(folder);
    for (const auto& [entryId, record] : actual)
        Expect(expected.contains(entryId), "a hash of " + NameOf(entryId) + ": " + record);
    for (const auto& [entryId, record] : expected) {
        const auto found = actual.find(entryId);
        Expect(found != actual.end(), "no hash of " + NameOf(entryId));
        const size_t tab = record.find('\t');
        const size_t actualTab = found->second.find('\t');
        const bool same = record[0] == '#'
                              ? hashes_.Mean(record.substr(0, tab), found->second.substr(0, actualTab)) &&
                                    record.substr(tab) == found->second.substr(actualTab)
                              : record == found->second;
        Expect(same, "the hash of " + NameOf(entryId) + " is " + found->second + ", not " + record);
    }
}

class ModelTest : public testing::TestWithParam<unsigned> {
protected:
    // Nothing here is to outlive the machine.
    void SetUp() override
    {
        if (std::filesystem::exists("/dev/shm"))
            test::KeepTemporaryFilesIn("/dev/shm");
    }
};

TEST_P(ModelTest, TheEngineDoesWhatTheModelDoes)
{
    Dice dice(GetParam());
    Comparison comparison(dice);
    std::cout << "seed " << GetParam() << ": " << comparison.TheBehaviour() << std::endl;
    const unsigned long steps = NumberFrom("QUORVANE_MODEL_STEPS", kSteps);
    unsigned long step = 0;
    try {
        for (; step < steps; ++step)
            comparison.Step();
        comparison.End();
    } catch (const std::exception& difference) {
        FAIL() << "QUORVANE_MODEL_SEED=" << GetParam() << ", step " << step << ": " << difference.what()
               << "\nThe last steps:\n"
               << comparison.LastSteps();
    }
}

std::vector<unsigned> Seeds()
{
    if (const unsigned long one = NumberFrom("QUORVANE_MODEL_SEED", 0))
        return {static_cast<unsigned>(one)};
    std::vector<unsigned> seeds;
    for (unsigned seed = 1; seed <= kSeeds; ++seed)
        seeds.push_back(seed);
    return seeds;
}

INSTANTIATE_TEST_SUITE_P(Seeds, ModelTest, testing::ValuesIn(Seeds()), testing::PrintToStringParamName());

}  // namespace
}  // namespace quorvane::model
