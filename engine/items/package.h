// items/package.h: how an item or a folder gets into the package of its recipients.
//
// Nothing here traces: each caller traces under its own name.
#ifndef QUORVANE_ENGINE_ITEMS_PACKAGE_H_
#define QUORVANE_ENGINE_ITEMS_PACKAGE_H_

#include "engine/session/context/session_context.h"
#include "engine/session/trace/trace.h"
#include "platform/com/bstr.h"

namespace quorvane {

// What the engine's own packages give their writers beside IStorageFile: a way to take back what was begun.
// STG_E_FILENOTFOUND: there is no element of that ID. Others come from the package's file.
struct IPackageElements : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE DestroyFolder(BSTR id) = 0;
    virtual HRESULT STDMETHODCALLTYPE DestroyItem(BSTR id) = 0;
};

// {6B0E4D1C-52B7-4D0B-9C38-6C0A3A2E7F51}
inline constexpr IID IID_IPackageElements{
    0x6b0e4d1c, 0x52b7, 0x4d0b, {0x9c, 0x38, 0x6c, 0x0a, 0x3a, 0x2e, 0x7f, 0x51}};

// Copies an element's storage with "Contents" last: readers take an element without it for damaged, so that
// nothing that was cut short passes for a whole one. STG_E_*: as they come; a part is there then.
[[nodiscard]] HRESULT CopyElement(IStorage& from, IStorage& to) noexcept;

// One writer's turn at a package: find or add it, lock it, write an element, and unlock it when this goes.
class PackageTurn {
public:
    PackageTurn() noexcept = default;
    PackageTurn(const PackageTurn&) = delete;
    PackageTurn& operator=(const PackageTurn&) = delete;
    ~PackageTurn();

    // Finds the package of these recipients among the session's, or adds one, and locks it. A package that
    // the host removed in the meantime is left for a new one. E_FAIL: that went on for too long.
    [[nodiscard]] HRESULT Begin(SessionContext& session, BSTR recipients) noexcept;

    // Has the element of that ID written into a new sub-storage, in place of an earlier one. Where an
    // element couldn't be written the earlier one stays; a package that has put the new one in its place
    // already has none then.
    //
    // write  [in]  HRESULT(IStorage&) noexcept: its failure is returned. What it takes of the storage it
    //              releases before it returns.
    //
    // E_FAIL: the package gave something that is no storage.
    template <class Write>
    [[nodiscard]] HRESULT WriteFolder(BSTR id, Write write) noexcept
    {
        return WriteElement(id, &IStorageFile::OpenFolder, &IPackageElements::DestroyFolder, write);
    }
    template <class Write>
    [[nodiscard]] HRESULT WriteItem(BSTR id, Write write) noexcept
    {
        return WriteElement(id, &IStorageFile::OpenItem, &IPackageElements::DestroyItem, write);
    }

private:
    using OpenMethod = HRESULT (STDMETHODCALLTYPE IStorageFile::*)(BSTR, VARIANT*);
    using DestroyMethod = HRESULT (STDMETHODCALLTYPE IPackageElements::*)(BSTR);

    template <class Write>
    HRESULT WriteElement(BSTR id, OpenMethod open, DestroyMethod destroy, Write write) noexcept
    {
        ComPtr<IStorage> element;
        HR_TRY_QUIET(Open(id, open, element));
        HRESULT hr = write(*element);
        if (SUCCEEDED(hr))
            hr = element->Commit(STGC_DEFAULT);  // a release couldn't tell that the element isn't there
        if (FAILED(hr) && !GiveUp(*element)) {
            element.Reset();
            TakeBack(id, destroy);
        }
        return hr;
    }

    HRESULT Open(BSTR id, OpenMethod open, ComPtr<IStorage>& element) noexcept;
    // Gives up what was written. False: the element is in the package already, and the one that it replaces
    // isn't.
    static bool GiveUp(IStorage& element) noexcept;
    void TakeBack(BSTR id, DestroyMethod destroy) noexcept;
    void End() noexcept;
    bool IsForgotten() const noexcept;

    ComPtr<IStorageFile> file_;
};

}  // namespace quorvane

QUORVANE_IID(quorvane::IPackageElements, quorvane::IID_IPackageElements);

#endif  // QUORVANE_ENGINE_ITEMS_PACKAGE_H_
