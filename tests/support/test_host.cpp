#include "tests/support/test_host.h"

#include <algorithm>
#include <utility>

namespace quorvane::test {

namespace {

template <class Object>
std::string IdOf(Object* object)
{
    Bstr id;
    Check(object->get_ID(id.Put()), "read an ID");
    return Utf8(id);
}

ComPtr<ILibrary> MakeLibrary(const TestMailbox& mailbox)
{
    mailbox.Select();
    ComPtr<ILibrary> library;
    Check(CreateLibrary(library), "make the library");
    return library;
}

}  // namespace

void TestHost::AnswerWith(Answer answer)
{
    const std::lock_guard lock(mutex_);
    answer_ = std::move(answer);
}

bool TestHost::Heard(const std::string& what, size_t count)
{
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, kDeadline, [&] {
        return static_cast<size_t>(std::count_if(events_.begin(), events_.end(), [&](const HostEvent& event) {
                   return event.what == what;
               })) >= count;
    });
}

std::vector<HostEvent> TestHost::Events() const
{
    const std::lock_guard lock(mutex_);
    return events_;
}

std::vector<HostEvent> TestHost::Events(const std::string& what) const
{
    std::vector<HostEvent> result = Events();
    std::erase_if(result, [&](const HostEvent& event) { return event.what != what; });
    return result;
}

void TestHost::Forget()
{
    const std::lock_guard lock(mutex_);
    events_.clear();
}

HRESULT TestHost::Hear(HostEvent event, bool& ignore)
{
    Answer answer;
    {
        const std::lock_guard lock(mutex_);
        events_.push_back(event);
        events_.back().item = nullptr;
        answer = answer_;
    }
    changed_.notify_all();
    return answer ? answer(event, ignore) : S_OK;
}

HRESULT TestHost::HearItem(const char* what, IItem* item, BSTR text, bool& ignore)
{
    HostEvent event{what, IdOf(item), {}, 0, ToUtf8(ViewOf(text)), item};
    Bstr entryId;
    Check(item->get_EntryID(entryId.Put()), "read an entry identifier");
    event.entryId = Utf8(entryId);
    qv_Action action = qv_ac_NoAction;
    Check(item->get_Action(&action), "read an action");
    event.action = action;
    return Hear(std::move(event), ignore);
}

HRESULT TestHost::OnItemResend(IItem* item, BSTR jobId, bool& ignore)
{
    return HearItem("resend", item, jobId, ignore);
}

HRESULT TestHost::OnItemAdded(IItem* item, bool& ignore)
{
    return HearItem("added", item, nullptr, ignore);
}

HRESULT TestHost::OnItemChanged(IItem* item, bool& ignore)
{
    return HearItem("changed", item, nullptr, ignore);
}

HRESULT TestHost::OnItemDeleted(IItem* item, bool& ignore)
{
    return HearItem("deleted", item, nullptr, ignore);
}

HRESULT TestHost::OnItemReceived(IItem* item, BSTR tag, bool& ignore)
{
    return HearItem("received", item, tag, ignore);
}

HRESULT TestHost::OnFolderReceived(IFolder* folder, BSTR tag)
{
    bool unused = false;
    return Hear({"folder", IdOf(folder), {}, 0, ToUtf8(ViewOf(tag)), nullptr}, unused);
}

HRESULT TestHost::OnPostprocess(BSTR entryId, BSTR)
{
    bool unused = false;
    return Hear({"postprocess", ToUtf8(ViewOf(entryId)), {}, 0, {}, nullptr}, unused);
}

HRESULT TestHost::DatabasePath(Bstr& path)
{
    path = Text(mailbox_.DatabasePath().string());
    return S_OK;
}

HRESULT TestHost::ProductCode(Bstr& code)
{
    code = Bstr(kProductCode);
    return S_OK;
}

TestLogon::TestLogon(const TestMailbox& mailbox) : TestLogon(mailbox, MakeLibrary(mailbox)) {}

TestLogon::TestLogon(const TestMailbox& mailbox, ComPtr<ILibrary> library)
    : host_(mailbox), callback_(MakeComObject<ExtCallback>(host_)), library_(std::move(library))
{
    mailbox.Select();
    Check(library_->Logon(callback_.Get(), session_.Put()), "log on");
}

TestLogon::~TestLogon()
{
    EndSession();
    callback_->Close();
}

void TestLogon::EndWithLateCalls()
{
    EndSession();
    callback_->Close();
    Eventually([this] {
        callback_->AddRef();
        return callback_->Release() == 1;
    });
}

ComPtr<IFolder> TestLogon::Share(const TestFolder& folder, const std::string& id)
{
    ComPtr<IFolders> folders;
    Check(session_->get_Folders(folders.Put()), "get the folders");
    ComPtr<IFolder> shared;
    const Bstr idText = Text(id);
    const Variant idArgument = Variant::Text(idText.View());
    Check(folders->Add(Text(folder.EntryId()).Get(), Text(folder.StoreId()).Get(), idArgument.Raw(),
                       Variant::Missing().Raw(), shared.Put()),
          "share a folder");
    return shared;
}

ComPtr<IStorageFiles> TestLogon::StorageFiles()
{
    ComPtr<IStorageFiles> files;
    Check(session_->get_StorageFiles(files.Put()), "get the storage files");
    return files;
}

ComPtr<IOptions> TestLogon::Options()
{
    ComPtr<IOptions> options;
    Check(session_->get_Options(options.Put()), "get the options");
    return options;
}

void TestLogon::SetOption(const OLECHAR* name, const Variant& value)
{
    Variant item;
    Check(Options()->get_Item(Variant::Text(name).Raw(), item.Put()), "find an option");
    ComPtr<IOption> option;
    Check(QueryFor(item.Raw().pdispVal, option), "find an option");
    Check(option->put_Value(value.Raw()), "set an option");
}

}  // namespace quorvane::test
