#include "host/sharing/engine.h"

#include <future>

namespace quorvane::host {

namespace {

// An object that was made in no apartment is called on the engine's own threads, whatever MAPI made of this
// one: the program's thread doesn't answer calls.
ComPtr<ExtCallback> MakeFreeCallback(ExtHandler& handler)
{
    return std::async(std::launch::async, [&handler] { return MakeComObject<ExtCallback>(handler); }).get();
}

}  // namespace

EngineSession::EngineSession(ExtHandler& handler, const std::string& mailbox)
    : callback_(MakeFreeCallback(handler))
{
    // MAPI is started already, and may have made the thread an apartment: then it stays one.
    if (thread_.Result() != RPC_E_CHANGED_MODE)
        Check(thread_.Result(), "start COM for", mailbox);
    ComPtr<IClassFactory> factory;
    Check(DllGetClassObject(CLSID_Library, IID_IClassFactory, factory.PutVoid()), "start the engine for",
          mailbox);
    Check(factory->CreateInstance(nullptr, IID_ILibrary, library_.PutVoid()), "start the engine for",
          mailbox);
    Check(library_->Logon(callback_.Get(), session_.Put()), "log the engine on to", mailbox);
}

EngineSession::~EngineSession()
{
    // The session outlives every child; the library's release, the last, ends it.
    session_.Reset();
    library_.Reset();
    // The engine doesn't wait for the host: a call about a received item may still be under way.
    callback_->Close();
}

ComPtr<IFolders> EngineSession::Folders() const
{
    ComPtr<IFolders> folders;
    Check(session_->get_Folders(folders.Put()), "list", "the shared folders");
    return folders;
}

ComPtr<IStorageFiles> EngineSession::StorageFiles() const
{
    ComPtr<IStorageFiles> files;
    Check(session_->get_StorageFiles(files.Put()), "list", "the packages");
    return files;
}

ComPtr<IFolder> EngineSession::FindFolder(const std::string& folderId) const
{
    const Variant id = Variant::Text(FromUtf8(folderId));
    const Variant missing = Variant::Missing();
    ComPtr<IFolder> folder;
    if (FAILED(Folders()->Find(id.Raw(), missing.Raw(), missing.Raw(), folder.Put())))
        folder.Reset();
    return folder;
}

}  // namespace quorvane::host
