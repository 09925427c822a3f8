// items/package.h: how an item or a folder gets into the package of its recipients.
//
// Nothing here traces: each caller traces under its own name.
#ifndef QUORVANE_ENGINE_ITEMS_PACKAGE_H_
#define QUORVANE_ENGINE_ITEMS_PACKAGE_H_

#include "engine/session/context/session_context.h"
#include "platform/com/bstr.h"

namespace quorvane {

// One writer's turn at a package: find or add it, lock it, open an element, and unlock it when this goes.
// What was opened has to be released before.
class PackageTurn {
public:
    PackageTurn() noexcept = default;
    PackageTurn(const PackageTurn&) = delete;
    PackageTurn& operator=(const PackageTurn&) = delete;
    ~PackageTurn();

    // Finds the package of these recipients among the session's, or adds one, and locks it. A package that
    // the host removed in the meantime is left for a new one. E_FAIL: that went on for too long.
    [[nodiscard]] HRESULT Begin(SessionContext& session, BSTR recipients) noexcept;

    // A new sub-storage for the element of that ID, in place of an earlier one. E_FAIL: the package gave
    // something that is no storage.
    [[nodiscard]] HRESULT OpenFolder(BSTR id, ComPtr<IStorage>& element) noexcept;
    [[nodiscard]] HRESULT OpenItem(BSTR id, ComPtr<IStorage>& element) noexcept;

private:
    void End() noexcept;
    bool IsForgotten() const noexcept;

    ComPtr<IStorageFile> file_;
};

}  // namespace quorvane

#endif  // QUORVANE_ENGINE_ITEMS_PACKAGE_H_
