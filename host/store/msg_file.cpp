#include "host/store/msg_file.h"

#include "host/base/path_text.h"

namespace quorvane::host {

MsgFile::~MsgFile()
{
    message_.Reset();
    if (session_)
        CloseIMsgSession(session_);
    storage_.Reset();
}

HRESULT MsgFile::Open(const std::filesystem::path& path)
{
    const OleString name = OleTextOf(path);
    ComPtr<IStorage> storage;
    const HRESULT hr =
        StgOpenStorage(name.c_str(), nullptr, STGM_READ | STGM_SHARE_DENY_WRITE, nullptr, 0, storage.Put());
    return FAILED(hr) ? hr : OpenOn(*storage);
}

HRESULT MsgFile::Create(const std::filesystem::path& path)
{
    const OleString name = OleTextOf(path);
    ComPtr<IStorage> storage;
    const HRESULT hr =
        StgCreateDocfile(name.c_str(), STGM_CREATE | STGM_READWRITE | STGM_SHARE_EXCLUSIVE, 0, storage.Put());
    return FAILED(hr) ? hr : OpenOn(*storage);
}

HRESULT MsgFile::OpenOn(IStorage& storage)
{
    storage_ = &storage;
    LPMALLOC const allocator = MAPIGetDefaultMalloc();
    const ComPtr<IMalloc> owned = ComPtr<IMalloc>::Attach(allocator);
    const SCODE opened = OpenIMsgSession(allocator, 0, &session_);
    if (FAILED(opened))
        return opened;
    return OpenIMsgOnIStg(session_, MAPIAllocateBuffer, MAPIAllocateMore, MAPIFreeBuffer, allocator, nullptr,
                          &storage, nullptr, 0, 0, message_.Put());
}

HRESULT CopyMessage(IMessage& source, IMessage& target, ULONG saveFlags)
{
    const HRESULT hr = source.CopyTo(0, nullptr, nullptr, 0, nullptr, &IID_IMessage, &target, 0, nullptr);
    return FAILED(hr) ? hr : target.SaveChanges(saveFlags);
}

}  // namespace quorvane::host
