// host/sharing/resender.h: brings members of a folder up to date: new ones who have nothing of it yet, and
// those whom somebody asked to be sent items once more.
//
// What a member is owed stands in the records, and goes from there when a package that holds it has been
// looked through. The engine's job, which sends item by item into packages of that member's own, starts from
// what is owed; so it may be stopped or killed at any time.
#ifndef QUORVANE_HOST_SHARING_RESENDER_H_
#define QUORVANE_HOST_SHARING_RESENDER_H_

#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <string>

#include "host/base/rate.h"
#include "host/sharing/addin.h"
#include "host/sharing/outbox.h"
#include "host/sharing/reconcile.h"

namespace quorvane::host {

class ResendJob;

// For the run's thread alone, but for what the engine's job asks. Methods throw a HostError.
class Resender final : public ResendRules {
public:
    // report: gets one line for the user.
    Resender(const Addin::Parts& parts, const EngineSession& engine, Sender& sender, Reconciler& reconciler,
             Outbox& outbox, std::function<void(const std::string&)> report);
    ~Resender();

    // Takes requests up, one after the other, and ends those that were cancelled.
    void Step();

    // Whether anything is owed that isn't cancelled.
    bool HasWork();

    // Whether the engine's job works on it.
    bool IsUnderWay() const noexcept { return job_ != nullptr; }

    // Ends the job, which goes on in a later run.
    void Stop();

    // How far the job is: items, rate, time left. Empty when there is none.
    std::string ProgressText() const;
    std::int64_t Done() const;
    std::int64_t Total() const;

    // Any thread.
    bool Wants(const std::string& job, const std::string& id, const std::optional<ItemRecord>& known,
               bool current) override;

private:
    bool Start(const ResendRecord& request);
    void Watch();
    void CancelJob();
    void Conclude();
    void Forget();
    bool IsComplete() const;
    bool SendDeletions();
    std::vector<std::string> Missing();
    void GiveUp(bool complete, const std::vector<std::string>& missing);

    Addin::Parts parts_;
    const EngineSession& engine_;
    Sender& sender_;
    Reconciler& reconciler_;
    Outbox& outbox_;
    std::function<void(const std::string&)> report_;

    std::mutex mutex_;  // for Wants; this thread alone sets the job
    std::shared_ptr<ResendJob> job_;
    RateMeter rate_;
    std::chrono::steady_clock::time_point nextNote_{};
    bool stopping_ = false;
    int vain_ = 0;                    // jobs in a row that gave nothing
    std::set<std::int64_t> givenUp_;  // requests that are left to a later run
};

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_SHARING_RESENDER_H_
