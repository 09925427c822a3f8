#include "engine/items/package.h"

#include <limits>
#include <thread>

#include "engine/items/arguments.h"
#include "engine/items/contents_stream.h"
#include "engine/session/trace/trace.h"
#include "platform/com/variant.h"

namespace quorvane {

namespace {

// Only recipients that have no package yet get one. Two writers may come for the same ones at once: the one
// whose Add is late finds what the other made.
HRESULT FindOrAdd(IStorageFiles& files, BSTR recipients, ComPtr<IStorageFile>& file) noexcept
{
    Variant found;
    if (FAILED(files.get_Item(TextArgument(recipients), found.Put()))) {
        const HRESULT hr = files.Add(recipients, file.Put());
        if (SUCCEEDED(hr) || FAILED(files.get_Item(TextArgument(recipients), found.Put())))
            return hr;
    }
    return found.Is(VT_DISPATCH) ? QueryFor(found.Raw().pdispVal, file) : E_FAIL;
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
    ComPtr<IStorageFiles> files;
    HR_TRY_QUIET(session.GetStorageFiles(files));
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

HRESULT PackageTurn::Open(BSTR id, OpenMethod open, ComPtr<IStorage>& element) noexcept
{
    Variant value;
    HR_TRY_QUIET((file_.Get()->*open)(id, value.Put()));
    return value.Is(VT_UNKNOWN) ? QueryFor(value.Raw().punkVal, element) : E_FAIL;
}

// A storage whose changes are in the file at once does nothing, and goes on as before.
bool PackageTurn::GiveUp(IStorage& element) noexcept
{
    STATSTG stat{};
    HR_IGNORE(element.Revert(), "whether it is given up is seen from what it answers then");
    return element.Stat(&stat, STATFLAG_NONAME) == STG_E_REVERTED;
}

void PackageTurn::TakeBack(BSTR id, DestroyMethod destroy) noexcept
{
    ComPtr<IPackageElements> elements;
    if (SUCCEEDED(file_.As(elements)))
        HR_IGNORE((elements.Get()->*destroy)(id), "what stays has no contents, and no reader takes it");
}

HRESULT CopyElement(IStorage& from, IStorage& to) noexcept
{
    OLECHAR contentsName[] = OLESTR("Contents");
    OLECHAR* last[] = {contentsName, nullptr};
    HR_TRY_QUIET(from.CopyTo(0, nullptr, last, &to));
    ComPtr<IStream> contents;
    HR_TRY_QUIET(OpenContents(from, contents));
    ComPtr<IStream> copy;
    HR_TRY_QUIET(CreateContents(to, copy));
    ULARGE_INTEGER all;
    all.QuadPart = std::numeric_limits<ULONGLONG>::max();
    return contents->CopyTo(copy.Get(), all, nullptr, nullptr);
}

}  // namespace quorvane
