#include "engine/items/package.h"

#include <thread>

#include "engine/items/arguments.h"
#include "engine/session/trace/trace.h"
#include "platform/com/variant.h"

namespace quorvane {

namespace {

HRESULT Find(IStorageFiles& files, BSTR recipients, ComPtr<IStorageFile>& file) noexcept
{
    Variant found;
    HR_TRY_QUIET(files.get_Item(TextArgument(recipients), found.Put()));
    return found.Is(VT_DISPATCH) ? QueryFor(found.Raw().pdispVal, file) : E_FAIL;
}

// Two writers may come for the same recipients at once: the one whose Add is late finds what the other made.
HRESULT FindOrAdd(IStorageFiles& files, BSTR recipients, ComPtr<IStorageFile>& file) noexcept
{
    if (SUCCEEDED(Find(files, recipients, file)))
        return S_OK;
    const HRESULT hr = files.Add(recipients, file.Put());
    return SUCCEEDED(hr) || FAILED(Find(files, recipients, file)) ? hr : S_OK;
}

HRESULT TakeStorage(const Variant& value, ComPtr<IStorage>& element) noexcept
{
    return value.Is(VT_UNKNOWN) ? QueryFor(value.Raw().punkVal, element) : E_FAIL;
}

}  // namespace

PackageTurn::~PackageTurn()
{
    End();
}

void PackageTurn::End() noexcept
{
    if (file_)
        HR_IGNORE(file_->Unlock(), "the write is over, whatever became of it");
    file_.Reset();
}

// A package that was removed from its collection has no path any more.
bool PackageTurn::IsForgotten() const noexcept
{
    Bstr path;
    return SUCCEEDED(file_->get_Path(path.Put())) && path.IsEmpty();
}

HRESULT PackageTurn::Begin(SessionContext& session, BSTR recipients) noexcept
{
    constexpr int kAttempts = 1000;
    ComPtr<ISession2> logon;
    HR_TRY_QUIET(session.GetSession(logon));
    ComPtr<IStorageFiles> files;
    HR_TRY_QUIET(logon->get_StorageFiles(files.Put()));
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        HR_TRY_QUIET(FindOrAdd(*files, recipients, file_));
        HR_TRY_QUIET(file_->Lock());
        if (!IsForgotten())
            return S_OK;
        End();
        std::this_thread::yield();
    }
    return E_FAIL;
}

HRESULT PackageTurn::OpenFolder(BSTR id, ComPtr<IStorage>& element) noexcept
{
    Variant value;
    HR_TRY_QUIET(file_->OpenFolder(id, value.Put()));
    return TakeStorage(value, element);
}

HRESULT PackageTurn::OpenItem(BSTR id, ComPtr<IStorage>& element) noexcept
{
    Variant value;
    HR_TRY_QUIET(file_->OpenItem(id, value.Put()));
    return TakeStorage(value, element);
}

}  // namespace quorvane
