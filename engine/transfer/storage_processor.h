// transfer/storage_processor.h: CStorageProcessor, the job that takes a received package apart.
//
// Every folder of the package is shown to the host; every item is shown to the host and, unless it refuses,
// applied to the message store. Each element is destroyed in the file as soon as it is done, so that a job
// that was interrupted finds only what wasn't finished. At the end the file and its row go, also with
// elements left that failed: only an interrupted job comes back.
#ifndef QUORVANE_ENGINE_TRANSFER_STORAGE_PROCESSOR_H_
#define QUORVANE_ENGINE_TRANSFER_STORAGE_PROCESSOR_H_

#include "engine/session/context/session_context.h"
#include "engine/transfer/pool/thread_pool.h"
#include "platform/com/bstr.h"

namespace quorvane {

class Addin;
class CItem;

class CStorageProcessor : public IWorkingThread {
public:
    // What ThreadProc returns when something stayed undone.
    static constexpr DWORD kUndone = 0x80040400;

    // path     [in]  the received file.
    // tag      [in]  the host's own, handed back in its callbacks. May be null.
    // session  [in]  not counted; it waits for the job before it goes.
    CStorageProcessor(Bstr path, Bstr tag, SessionContext* session) noexcept
        : m_bstrPath(std::move(path)), m_bstrTag(std::move(tag)), m_pSession(session)
    {}

    // 0, or kUndone. A file that can't be opened now, such as one that somebody else has open, stays with its
    // row for the next start; one that is gone or damaged for certain loses both.
    DWORD ThreadProc(Event& stop) override;

    // Shows every folder to the host (onFolderReceived).
    //
    // folders  [in]  the package's storage of that name.
    //
    // S_OK: all done. S_FALSE: some are left. Others: nothing was begun.
    [[nodiscard]] virtual HRESULT DoFolders(IStorage* folders) noexcept;

    // Shows every item to the host (onItemReceived, on a thread of its own) and applies it.
    //
    // items  [in]  the package's storage of that name.
    // stop   [in]  tested before each item, and while the host has one; the host isn't waited for then.
    //
    // S_OK: all done. S_FALSE: some are left. E_ABORT: stopped. Others: nothing was begun.
    [[nodiscard]] virtual HRESULT DoItems(IStorage* items, Event& stop) noexcept;

private:
    struct ItemLoop;

    HRESULT ProcessPackage(Event& stop, bool& undone) noexcept;
    HRESULT ShowFolder(const Addin& addin, IStorage* folders, const OLECHAR* name,
                       IStorage* element) noexcept;
    HRESULT ProcessItem(ItemLoop& loop, IStorage* items, const OLECHAR* name, IStorage* element) noexcept;
    HRESULT AskHost(ItemLoop& loop, CItem& item, bool& ignore) noexcept;
    void DeleteFileAndRow() noexcept;

    const Bstr m_bstrPath;
    const Bstr m_bstrTag;
    SessionContext* const m_pSession;
};

}  // namespace quorvane

#endif  // QUORVANE_ENGINE_TRANSFER_STORAGE_PROCESSOR_H_
