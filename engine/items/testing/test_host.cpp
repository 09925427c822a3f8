#include "engine/items/testing/test_host.h"

namespace quorvane::testing {

std::vector<std::string> TestHost::Calls() const
{
    MutexLock lock(mutex_);
    return calls_;
}

void TestHost::Forget()
{
    MutexLock lock(mutex_);
    calls_.clear();
}

void TestHost::Record(std::string call)
{
    MutexLock lock(mutex_);
    calls_.push_back(std::move(call));
}

HRESULT TestHost::Report(const char* what, IItem* item, bool& ignore)
{
    Bstr id;
    item->get_ID(id.Put());
    Record(what + Narrow(id.View()));
    return whenItemReported ? whenItemReported(item, ignore) : S_OK;
}

HRESULT TestHost::OnFolderReceived(IFolder* folder, BSTR tag)
{
    Bstr id;
    folder->get_ID(id.Put());
    Record("folder " + Narrow(id.View()) + " " + Narrow(ViewOf(tag)));
    return whenFolderReceived ? whenFolderReceived(folder) : S_OK;
}

HRESULT TestHost::OnItemReceived(IItem* item, BSTR tag, bool& ignore)
{
    Bstr id;
    item->get_ID(id.Put());
    Record("received " + Narrow(id.View()) + " " + Narrow(ViewOf(tag)));
    return whenItemReceived ? whenItemReceived(item, ignore) : S_OK;
}

HRESULT TestHost::OnPostprocess(BSTR entryId, BSTR /*storeId*/)
{
    Record("postprocess " + Narrow(ViewOf(entryId)));
    return whenPostprocessed ? whenPostprocessed() : S_OK;
}

HRESULT TestHost::OnItemResend(IItem* item, BSTR jobId, bool& ignore)
{
    Bstr id;
    item->get_ID(id.Put());
    Record("resend " + Narrow(id.View()) + " " + (jobId ? Narrow(ViewOf(jobId)) : "null"));
    return whenItemResent ? whenItemResent(item, jobId, ignore) : S_OK;
}

HRESULT TestHost::OnItemDeleted(IItem* item, bool& ignore)
{
    const HRESULT hr = Report("deleted ", item, ignore);
    return whenItemDeleted ? whenItemDeleted(item, ignore) : hr;
}

HRESULT TestHost::DatabasePath(Bstr& path)
{
    path = Bstr(Widen(databasePath));
    return S_OK;
}

HRESULT TestHost::ProductCode(Bstr& code)
{
    code = Bstr(OLESTR("Test"));
    return S_OK;
}

}  // namespace quorvane::testing
