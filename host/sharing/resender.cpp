#include "host/sharing/resender.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <functional>
#include <mutex>

#include "host/base/output.h"
#include "host/sharing/recipients.h"
#include "host/sharing/since.h"
#include "host/store/folders.h"
#include "host/store/properties.h"

namespace quorvane::host {

namespace {

// How often the records hear how far a job is.
constexpr auto kNoteInterval = std::chrono::milliseconds(250);
// How long the engine's job may take to hear that it is to end: one item at the longest.
constexpr auto kStopPatience = std::chrono::seconds(10);
// How many jobs in a row may end without having given anything.
constexpr int kVainJobs = 3;

}  // namespace

// One job of the engine. Any thread.
class ResendJob {
public:
    ResendJob(ResendRecord request, Share share)
        : request_(std::move(request)),
          share_(std::move(share)),
          recipients_(MemberRecipients(request_.member, share_.folderId))
    {}

    const ResendRecord& Request() const noexcept { return request_; }
    const Share& Folder() const noexcept { return share_; }
    const std::string& Recipients() const noexcept { return recipients_; }

    void SetTotal(LONG total) noexcept { total_ = total; }
    void SetDone(LONG done) noexcept { done_ = done; }
    LONG Done() const noexcept { return done_; }
    LONG Total() const noexcept { return total_; }

    void End()
    {
        const std::lock_guard lock(mutex_);
        ended_ = true;
        end_.notify_all();
    }
    bool AwaitEnd(std::chrono::milliseconds time)
    {
        std::unique_lock lock(mutex_);
        return end_.wait_for(lock, time, [this] { return ended_; });
    }

    // Notes an item that the job came upon and that is to reach the member.
    void Offer(const std::string& id)
    {
        const std::lock_guard lock(mutex_);
        offered_.append(id).push_back('\0');
    }
    void ForEachOffered(const std::function<void(const std::string& id)>& visit)
    {
        const std::lock_guard lock(mutex_);
        for (std::size_t at = 0; at < offered_.size();) {
            const std::string id(offered_.c_str() + at);
            at += id.size() + 1;
            visit(id);
        }
    }

    // Set by the run's thread, about this job alone.
    std::int64_t givenBefore = 0;
    bool deletionsSent = false;
    bool failed = false;  // it never began

    // Items that others lack too are left to the comparison, which sends them to all.
    std::atomic<bool> leftToComparison{false};

private:
    const ResendRecord request_;
    const Share share_;
    const std::string recipients_;
    std::atomic<LONG> done_{0};
    std::atomic<LONG> total_{0};
    std::mutex mutex_;
    std::condition_variable end_;
    bool ended_ = false;
    std::string offered_;  // IDs, each with a zero behind it, which stands in none
};

namespace {

// What the engine holds of a job for as long as it works on it: nothing else tells its end, whether it came
// to it or never began.
class HeldByEngine final : public ProgressHandler {
public:
    explicit HeldByEngine(std::shared_ptr<ResendJob> job) noexcept : job_(std::move(job)) {}
    HeldByEngine(const HeldByEngine&) = delete;
    HeldByEngine& operator=(const HeldByEngine&) = delete;
    ~HeldByEngine() { job_->End(); }

    HRESULT SetLimits(LONG, LONG max) override
    {
        job_->SetTotal(max);
        return S_OK;
    }
    HRESULT Progress(LONG count, LONG) override
    {
        job_->SetDone(count);
        return S_OK;
    }

private:
    const std::shared_ptr<ResendJob> job_;
};

std::string JobText(const ResendRecord& request)
{
    return std::to_string(request.number);
}

HRESULT StartJob(IFolder& folder, const std::shared_ptr<ResendJob>& job)
{
    const ResendRecord& request = job->Request();
    const ComPtr<ProgressCallback> progress =
        MakeComObject<ProgressCallback>(std::make_shared<HeldByEngine>(job));
    const Bstr recipients = BstrOf(job->Recipients());
    const Variant id = Variant::Text(FromUtf8(JobText(request)));
    Variant all;
    all.Raw().vt = VT_BOOL;
    all.Raw().boolVal = request.scope == ResendScope::kChanged ? VARIANT_FALSE : VARIANT_TRUE;
    const Variant shown = Variant::Dispatch(progress.Get());
    // ResendEx in any case: it leaves no row of the job behind, which nothing but a cancellation would
    // remove.
    ComPtr<RestrictCallback> restriction;
    if (request.since != 0)
        restriction = MakeComObject<RestrictCallback>(std::make_shared<SinceRestriction>(request.since));
    const HRESULT hr = folder.ResendEx(recipients.Get(), restriction.Get(), all.Raw(), id.Raw(), shown.Raw());
    if (restriction)
        restriction->Release();  // of the reference that ResendEx leaves counted, and that is nobody's
    return hr;
}

}  // namespace

Resender::Resender(const Addin::Parts& parts, const EngineSession& engine, Sender& sender,
                   Reconciler& reconciler, Outbox& outbox, std::function<void(const std::string&)> report)
    : parts_(parts),
      engine_(engine),
      sender_(sender),
      reconciler_(reconciler),
      outbox_(outbox),
      report_(std::move(report))
{}

Resender::~Resender() = default;

bool Resender::HasWork()
{
    const auto requests = parts_.records.Resends();
    return job_ || std::any_of(requests.begin(), requests.end(), [this](const ResendRecord& request) {
               return !request.cancelled && !givenUp_.contains(request.number) &&
                      parts_.records.IsReachable(request.folderId, request.member);
           });
}

void Resender::Step()
{
    if (job_) {
        Watch();
        return;
    }
    for (const ResendRecord& request : parts_.records.Resends())
        if (request.cancelled)
            givenUp_.erase(request.number);
        else if (!givenUp_.contains(request.number) && Start(request))
            return;
}

// False when the folder isn't announced to the member yet, or packages can't be sealed to him: what comes
// after that is the member's own.
bool Resender::Start(const ResendRecord& request)
{
    const auto share = parts_.records.FindShare(request.folderId);
    const ComPtr<IFolder> folder = share ? engine_.FindFolder(request.folderId) : nullptr;
    const auto members = parts_.records.Members(request.folderId, true);
    if (!folder || std::find(members.begin(), members.end(), request.member) == members.end() ||
        !parts_.records.IsReachable(request.folderId, request.member))
        return false;
    const auto job = std::make_shared<ResendJob>(request, *share);
    job->givenBefore = parts_.records.CountGiven(request.number);
    stopping_ = false;
    rate_.Reset();
    {
        const std::lock_guard lock(mutex_);
        job_ = job;
    }
    job->failed = FAILED(StartJob(*folder, job));
    parts_.statistics.Touch();
    return true;
}

void Resender::Watch()
{
    const auto now = std::chrono::steady_clock::now();
    rate_.Note(job_->Done(), now);
    const bool ended = job_->AwaitEnd(std::chrono::milliseconds(0));
    if (ended || now >= nextNote_) {
        parts_.records.SetResendProgress(job_->Request().number, job_->Done(), job_->Total(),
                                         static_cast<std::int64_t>(rate_.PerSecond()));
        nextNote_ = now + kNoteInterval;
    }
    if (!ended) {
        const auto request = parts_.records.FindResend(job_->Request().number);
        if (!request || request->cancelled)
            CancelJob();
        return;
    }
    // What it has packed counts when it has been looked through.
    outbox_.Take(job_->Recipients());
    outbox_.Plan();
    if (!outbox_.HasUnplanned())
        Conclude();
}

void Resender::CancelJob()
{
    if (stopping_)
        return;
    stopping_ = true;
    Check(engine_.Session().CancelResend(Variant::Missing().Raw()), "stop", "the resend");
}

void Resender::Stop()
{
    if (!job_)
        return;
    CancelJob();
    job_->AwaitEnd(kStopPatience);
}

void Resender::Forget()
{
    const std::lock_guard lock(mutex_);
    job_.reset();
}

// Items that the job was to send and that no package for the member holds.
std::vector<std::string> Resender::Missing()
{
    std::vector<std::string> missing;
    job_->ForEachOffered([&](const std::string& id) {
        if (parts_.records.IsGiven(job_->Request().number, id))
            return;  // as nearly all are
        const auto record = parts_.records.FindItem(id);
        if (record && !record->deleted && parts_.state.RowOfId(id))
            missing.push_back(id);
    });
    return missing;
}

// A job ends without a word, and not always because it is done.
bool Resender::IsComplete() const
{
    if (job_->failed || job_->Done() < job_->Total())
        return false;
    const ResendRecord& request = job_->Request();
    if (job_->Total() > 0 || request.scope == ResendScope::kChanged || request.since != 0)
        return true;
    const ComPtr<IMAPIFolder> folder = OpenFolder(parts_.mail, job_->Folder().entryId);
    return folder && LongOf(*folder, PR_CONTENT_COUNT) == 0;
}

// True if there was any to send.
bool Resender::SendDeletions()
{
    const bool own = job_->Request().scope == ResendScope::kOwn;
    if ((!own && job_->Request().scope != ResendScope::kAgain) || job_->deletionsSent)
        return false;
    job_->deletionsSent = true;
    bool sent = false;
    for (const std::string& id :
         parts_.records.DeletedBy(job_->Folder().folderId, own ? parts_.mailbox.Name() : std::string()))
        if (!parts_.records.IsGiven(job_->Request().number, id)) {
            sender_.SendDeletion(job_->Folder(), id, job_->Recipients());
            sent = true;
        }
    return sent;
}

// The job has ended, and what it packed is accounted for.
void Resender::Conclude()
{
    const std::int64_t number = job_->Request().number;
    const auto request = parts_.records.FindResend(number);
    if (!request || request->cancelled) {
        // Nobody else waits for what is left: it isn't to reach the member as something new.
        if (request && !parts_.records.OthersHave(*request, {}))
            reconciler_.TakeForSent(job_->Folder());
        Forget();
        return;
    }
    if (job_->leftToComparison.exchange(false)) {
        reconciler_.CheckDifferences(job_->Folder(), std::chrono::milliseconds(0));
        return;
    }
    const std::vector<std::string> missing = Missing();
    const bool complete = IsComplete();
    if (complete && missing.empty()) {
        if (SendDeletions())
            return;
        parts_.records.FinishResend(number);
        vain_ = 0;
    } else if (parts_.records.CountGiven(number) > job_->givenBefore) {
        vain_ = 0;
    } else if (++vain_ == kVainJobs) {
        GiveUp(complete, missing);
        vain_ = 0;
    }
    parts_.statistics.Touch();
    Forget();
}

void Resender::GiveUp(bool complete, const std::vector<std::string>& missing)
{
    const ResendRecord& request = job_->Request();
    if (!complete) {
        report_("cannot send '" + job_->Folder().name + "' to " + request.member +
                ": the engine ends its job; the next run goes on");
        givenUp_.insert(request.number);
        return;
    }
    for (const std::string& id : missing)
        outbox_.NoteUnsent(id, request.folderId, "the engine couldn't pack it");
    parts_.records.FinishResend(request.number);
}

bool Resender::Wants(const std::string& job, const std::string& id, const std::optional<ItemRecord>& known,
                     bool current)
{
    std::shared_ptr<ResendJob> mine;
    {
        const std::lock_guard lock(mutex_);
        mine = job_;
    }
    if (!mine || job != JobText(mine->Request()))
        return false;
    const ResendRecord& request = mine->Request();
    const bool own = known && known->version.member == parts_.mailbox.Name();
    if (known && !known->isWhole)
        return false;
    if (current && request.scope == ResendScope::kOwn && !own)
        return false;
    if (current && parts_.records.IsGiven(request.number, id))
        return false;
    // A change that nobody has been told of goes to all who have the folder.
    if (!current && parts_.records.OthersHave(request, id)) {
        mine->leftToComparison = true;
        return false;
    }
    mine->Offer(id);
    return true;
}

std::string Resender::ProgressText() const
{
    if (!job_)
        return {};
    return "sending " + job_->Folder().name + " to " + job_->Request().member + ": " +
           std::to_string(job_->Done()) + " of " + std::to_string(job_->Total()) + " items";
}

std::int64_t Resender::Done() const
{
    return job_ ? job_->Done() : 0;
}

std::int64_t Resender::Total() const
{
    return job_ ? job_->Total() : 0;
}

}  // namespace quorvane::host
