#include "msgstore/store/notification_hub.h"

#include <algorithm>
#include <system_error>
#include <utility>

namespace quorvane {
namespace {

using std::chrono::milliseconds;

// How often to look for what other processes changed.
constexpr milliseconds kPollInterval{100};
// The rest between two rounds of calls, while changes go on: doubled each time.
constexpr milliseconds kShortestRest{20};
constexpr milliseconds kLongestRest{500};
// A sink that takes longer than this has its changes gathered meanwhile, so often.
constexpr milliseconds kPatience{100};

}  // namespace

// One subscription. The notification thread holds what it works with only between BeginCall and EndCall, so
// that whoever ends a subscription ends it for good: nothing of it lives on when End has returned.
struct NotificationHub::Subscription {
    struct Parts {
        std::shared_ptr<EventSource> source;
        ComPtr<IMAPIAdviseSink> sink;
    };

    Subscription(std::shared_ptr<EventSource> source, IMAPIAdviseSink& sink)
        : core(source->Core()), parts{std::move(source), &sink}
    {}

    // Without parts when the subscription has ended. Waits for a call on another thread.
    Parts BeginCall()
    {
        const MutexLock held(lock);
        while (caller != std::thread::id() && caller != std::this_thread::get_id())
            free.Wait(lock);
        if (parts.sink)
            caller = std::this_thread::get_id();
        return parts;
    }
    void EndCall()
    {
        const MutexLock held(lock);
        caller = {};
        free.NotifyAll();
    }
    void End()
    {
        Parts ended;
        const MutexLock held(lock);
        std::swap(ended, parts);
        while (gathering || (caller != std::thread::id() && caller != std::this_thread::get_id()))
            free.Wait(lock);
    }

    // What the gathering thread works with, between the two.
    std::shared_ptr<EventSource> BeginGathering()
    {
        const MutexLock held(lock);
        gathering = parts.source != nullptr;
        return parts.source;
    }
    void EndGathering()
    {
        const MutexLock held(lock);
        gathering = false;
        free.NotifyAll();
    }

    const std::weak_ptr<StoreCore> core;
    Mutex lock;
    ConditionVariable free;
    std::thread::id caller QV_GUARDED_BY(lock);
    bool gathering QV_GUARDED_BY(lock) = false;
    Parts parts QV_GUARDED_BY(lock);
};

HRESULT NotificationHub::Advise(std::shared_ptr<EventSource> source, IMAPIAdviseSink& sink,
                                ULONG& connection) noexcept
{
    return Guarded([&] {
        const std::shared_ptr<StoreCore> core = source->Core();
        auto subscription = std::make_shared<Subscription>(std::move(source), sink);
        const MutexLock lock(lock_);
        if (stopping_)
            return MAPI_E_END_OF_SESSION;
        Listen(core);
        if (!thread_.joinable())
            thread_ = std::thread([self = shared_from_this()] { self->Run(); });
        if (!gathering_.joinable())
            gathering_ = std::thread([self = shared_from_this()] { self->RunGathering(); });
        subscriptions_.emplace(nextConnection_, std::move(subscription));
        connection = nextConnection_++;
        committed_ = true;  // its table may have been read before the last change
        changed_.NotifyAll();
        return S_OK;
    });
}

void NotificationHub::Listen(const std::shared_ptr<StoreCore>& core)
{
    if (listening_.insert(core).second)
        core->AddListener(weak_from_this());
}

HRESULT NotificationHub::Unadvise(ULONG connection) noexcept
{
    std::shared_ptr<Subscription> subscription;
    {
        const MutexLock lock(lock_);
        const auto found = subscriptions_.find(connection);
        if (found == subscriptions_.end())
            return MAPI_E_NOT_FOUND;
        subscription = std::move(found->second);
        subscriptions_.erase(found);
    }
    subscription->End();
    return S_OK;
}

void NotificationHub::Stop() noexcept
{
    std::thread thread;
    std::thread gathering;
    Subscriptions subscriptions;
    {
        const MutexLock lock(lock_);
        stopping_ = true;
        changed_.NotifyAll();
        callingChanged_.NotifyAll();
        thread.swap(thread_);
        gathering.swap(gathering_);
        subscriptions.swap(subscriptions_);
    }
    for (const auto& [connection, subscription] : subscriptions)
        subscription->End();
    if (gathering.joinable())
        gathering.join();
    if (!thread.joinable())
        return;
    // A sink may drop the last reference to its session within its call; the thread then ends by itself.
    if (thread.get_id() == std::this_thread::get_id())
        thread.detach();
    else
        thread.join();
}

void NotificationHub::Committed() noexcept
{
    const MutexLock lock(lock_);
    committed_ = true;
    changed_.NotifyAll();
}

void NotificationHub::Run() noexcept
{
    milliseconds rest = kShortestRest;
    StoreChanges lastServed;
    for (;;) {
        bool isTold = false;
        {
            const MutexLock lock(lock_);
            WaitForWork();
            if (stopping_)
                return;
            isTold = std::exchange(committed_, false);
        }
        Served served;
        const HRESULT hr = Guarded([&] {
            served = ServeAll(lastServed, isTold);
            return S_OK;
        });
        // A round that fails for want of memory is made up for by the next one.
        if (FAILED(hr))
            lastServed.clear();
        if (served.told == 0) {
            rest = kShortestRest;
            continue;
        }
        const MutexLock lock(lock_);
        if (served.hasMore) {
            committed_ = true;
            continue;
        }
        Pause(rest);
        rest = std::min(rest * 2, kLongestRest);
    }
}

void NotificationHub::WaitForWork()
{
    const auto deadline = ConditionVariable::Clock::now() + kPollInterval;
    while (!stopping_ && !committed_) {
        if (subscriptions_.empty())
            changed_.Wait(lock_);
        else if (!changed_.WaitUntil(lock_, deadline))
            return;
    }
}

void NotificationHub::Pause(milliseconds time)
{
    const auto deadline = ConditionVariable::Clock::now() + time;
    while (!stopping_ && changed_.WaitUntil(lock_, deadline)) {
    }
}

// A store of whose last change nothing was left to tell is passed over.
NotificationHub::Served NotificationHub::ServeAll(StoreChanges& served, bool evenIfUnchanged)
{
    std::map<std::shared_ptr<StoreCore>, std::vector<std::shared_ptr<Subscription>>> all;
    for (auto& subscription : AllSubscriptions()) {
        if (auto core = subscription->core.lock())
            all[std::move(core)].push_back(std::move(subscription));
    }
    Served round;
    StoreChanges now;
    for (const auto& [core, subscriptions] : all) {
        std::int64_t last = 0;
        const auto before = served.find(core);
        const bool isKnown = SUCCEEDED(core->LastChange(last));
        bool isServed = isKnown && before != served.end() && before->second == last;
        if ((!isServed || evenIfUnchanged) && !core->Switches().holds) {
            isServed = isKnown;
            for (const auto& subscription : subscriptions) {
                const Served one = Serve(*subscription);
                isServed &= one.isAll && one.told == 0;
                round.told += one.told;
                round.hasMore |= one.hasMore;
            }
        }
        if (isServed)
            now.emplace(core, last);
    }
    served = std::move(now);
    return round;
}

NotificationHub::Served NotificationHub::Serve(Subscription& subscription) noexcept
{
    Served served;
    Subscription::Parts parts = subscription.BeginCall();
    if (!parts.sink)
        return served;
    const HRESULT hr = Guarded([&]() -> HRESULT {
        NotificationBatch batch;
        const HRESULT collected = parts.source->Collect(batch);
        QV_RETURN_IF_FAILED(collected);
        served.hasMore = collected == S_FALSE;
        if (batch.empty())
            return S_OK;
        served.told = batch.size();
        if (const ULONG seed = parts.source->Core()->Switches().shuffleSeed)
            ShuffleBySeed(seed, batch.Get(), served.told);
        CallSink(*parts.sink.Get(), batch);
        return S_OK;
    });
    parts = {};
    subscription.EndCall();
    served.isAll = SUCCEEDED(hr) && !served.hasMore;
    return served;
}

void NotificationHub::CallSink(IMAPIAdviseSink& sink, NotificationBatch& batch) noexcept
{
    const auto mark = [this](bool calling) {
        const MutexLock lock(lock_);
        calling_ = calling;
        callingChanged_.NotifyAll();
    };
    mark(true);
    sink.OnNotify(batch.size(), batch.Get());
    mark(false);
}

std::vector<std::shared_ptr<NotificationHub::Subscription>> NotificationHub::AllSubscriptions()
{
    std::vector<std::shared_ptr<Subscription>> all;
    const MutexLock lock(lock_);
    for (const auto& [connection, subscription] : subscriptions_)
        all.push_back(subscription);
    return all;
}

void NotificationHub::RunGathering() noexcept
{
    for (;;) {
        {
            const MutexLock lock(lock_);
            while (!stopping_ && !calling_)
                callingChanged_.Wait(lock_);
            const auto deadline = ConditionVariable::Clock::now() + kPatience;
            while (!stopping_ && calling_ && callingChanged_.WaitUntil(lock_, deadline)) {
            }
            if (stopping_)
                return;
            if (!calling_)
                continue;
        }
        GatherAll();
    }
}

void NotificationHub::GatherAll() noexcept
{
    // What fails here is gathered the next time, or when the notification thread gets to it.
    (void)Guarded([&] {
        for (const auto& subscription : AllSubscriptions()) {
            std::shared_ptr<EventSource> source = subscription->BeginGathering();
            if (source)
                (void)source->Gather();
            source.reset();  // whoever waits for the end may close the store then
            subscription->EndGathering();
        }
        return S_OK;
    });
}

HRESULT NotificationHub::Deliver(const StoreCore& core, ULONG& number, ULONG& told) noexcept
{
    std::shared_ptr<Subscription> chosen;
    {
        const MutexLock lock(lock_);
        for (const auto& [connection, subscription] : subscriptions_) {
            if (subscription->core.lock().get() == &core && number-- == 0) {
                chosen = subscription;
                break;
            }
        }
    }
    if (!chosen)
        return S_FALSE;
    told = Serve(*chosen).told;
    return S_OK;
}

}  // namespace quorvane
