// items/testing/test_host.h: a host that writes down what it is told.
#ifndef QUORVANE_ENGINE_ITEMS_TESTING_TEST_HOST_H_
#define QUORVANE_ENGINE_ITEMS_TESTING_TEST_HOST_H_

#include <functional>
#include <string>
#include <vector>

#include "platform/com/mutex.h"
#include "quorvane3/callbacks.h"

namespace quorvane::testing {

// Any thread may call. What a test sets is set before the host is called.
class TestHost final : public ExtHandler {
public:
    // Run inside the callback; what they return is the callback's result.
    std::function<HRESULT(IItem*, bool&)> whenItemReceived;
    std::function<HRESULT(IItem*, bool&)> whenItemReported;  // as added, changed or deleted
    std::function<HRESULT(IFolder*)> whenFolderReceived;
    std::function<HRESULT()> whenPostprocessed;
    std::function<HRESULT(IItem*, BSTR, bool&)> whenItemResent;
    std::function<HRESULT(IItem*, bool&)> whenItemDeleted;
    std::string databasePath;

    // "received <ID> <tag>", "folder <ID> <tag>", "postprocess <EntryID>", "resend <ID> <job>", "added <ID>",
    // "changed <ID>" and "deleted <ID>", in their order.
    std::vector<std::string> Calls() const;
    void Forget();

    HRESULT OnItemAdded(IItem* item, bool& ignore) override { return Report("added ", item, ignore); }
    HRESULT OnItemChanged(IItem* item, bool& ignore) override { return Report("changed ", item, ignore); }
    HRESULT OnFolderReceived(IFolder* folder, BSTR tag) override;
    HRESULT OnItemReceived(IItem* item, BSTR tag, bool& ignore) override;
    HRESULT OnPostprocess(BSTR entryId, BSTR storeId) override;
    HRESULT OnItemResend(IItem* item, BSTR jobId, bool& ignore) override;
    HRESULT OnItemDeleted(IItem* item, bool& ignore) override;
    HRESULT DatabasePath(Bstr& path) override;
    HRESULT ProductCode(Bstr& code) override;

private:
    HRESULT Report(const char* what, IItem* item, bool& ignore);
    void Record(std::string call);

    mutable Mutex mutex_;
    std::vector<std::string> calls_ QV_GUARDED_BY(mutex_);
};

}  // namespace quorvane::testing

#endif  // QUORVANE_ENGINE_ITEMS_TESTING_TEST_HOST_H_
