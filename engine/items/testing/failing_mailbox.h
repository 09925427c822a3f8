// items/testing/failing_mailbox.h: a mailbox of which one call fails: the Nth that is made of its store,
// folders, messages, attachments and tables.
#ifndef QUORVANE_ENGINE_ITEMS_TESTING_FAILING_MAILBOX_H_
#define QUORVANE_ENGINE_ITEMS_TESTING_FAILING_MAILBOX_H_

#include <memory>
#include <string>

#include "platform/com/com_ptr.h"
#include "platform/mapi/mapi.h"

namespace quorvane::testing {

// Which call fails. One thread at a time.
class FailingCall {
public:
    // What the failing call gives, without having reached the mailbox.
    static constexpr HRESULT kFailure = MAPI_E_NETWORK_ERROR;

    // Counts calls from now on; the `number`th (from 1) fails.
    void SetAt(unsigned number) noexcept
    {
        at_ = number;
        calls_ = 0;
        failed_.clear();
    }
    // No call fails from now on.
    void Clear() noexcept { at_ = 0; }
    // The call that failed, as "IMessage::CopyTo"; empty while none has.
    const std::string& Failed() const noexcept { return failed_; }

    // Counts a call: kFailure if it is the one.
    HRESULT Count(const char* interfaceName, const char* call);

private:
    unsigned at_ = 0;
    unsigned calls_ = 0;
    std::string failed_;
};

// A session whose stores, and what is got from them, count their calls. What the engine doesn't ask of a
// mailbox answers E_NOTIMPL.
ComPtr<IMAPISession> MakeFailingSession(ComPtr<IMAPISession> session, std::shared_ptr<FailingCall> call);

}  // namespace quorvane::testing

#endif  // QUORVANE_ENGINE_ITEMS_TESTING_FAILING_MAILBOX_H_
