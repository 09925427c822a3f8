// platform/cfb/storage_stream.h: IStream on a stream of a compound file.
#ifndef QUORVANE_PLATFORM_CFB_STORAGE_STREAM_H_
#define QUORVANE_PLATFORM_CFB_STORAGE_STREAM_H_

#include <utility>

#include "platform/cfb/root_file.h"
#include "platform/com/com_object.h"

namespace quorvane::cfb {

// Direct: what Write and SetSize changed is in the file when they return; Commit and Revert have nothing to
// do. Results as published, and on all methods STG_E_REVERTED once the stream was destroyed or a storage
// above it released. LockRegion and UnlockRegion give STG_E_INVALIDFUNCTION.
//
// Clones have positions of their own and share all else. Any thread may call.
class CStorageStream final : public ComObject<CStorageStream, Answers<IStream, ISequentialStream>> {
public:
    static constexpr EntryType kType = EntryType::kStream;

    // Takes over one of the element's users.
    CStorageStream(std::shared_ptr<RootFile> root, OpenElementPtr element, DWORD mode,
                   ULONGLONG position = 0) noexcept
        : m_handle(std::move(root), std::move(element), mode), m_position(position)
    {}

    HRESULT STDMETHODCALLTYPE Read(void* buffer, ULONG count, ULONG* read) override;
    HRESULT STDMETHODCALLTYPE Write(const void* buffer, ULONG count, ULONG* written) override;
    HRESULT STDMETHODCALLTYPE Seek(LARGE_INTEGER move, DWORD origin, ULARGE_INTEGER* position) override;
    HRESULT STDMETHODCALLTYPE SetSize(ULARGE_INTEGER size) override;
    HRESULT STDMETHODCALLTYPE CopyTo(IStream* target, ULARGE_INTEGER count, ULARGE_INTEGER* read,
                                     ULARGE_INTEGER* written) override;
    HRESULT STDMETHODCALLTYPE Commit(DWORD flags) override;
    HRESULT STDMETHODCALLTYPE Revert() override;
    HRESULT STDMETHODCALLTYPE LockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) override
    {
        return STG_E_INVALIDFUNCTION;
    }
    HRESULT STDMETHODCALLTYPE UnlockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) override
    {
        return STG_E_INVALIDFUNCTION;
    }
    HRESULT STDMETHODCALLTYPE Stat(STATSTG* stat, DWORD flags) override { return m_handle.Stat(stat, flags); }
    HRESULT STDMETHODCALLTYPE Clone(IStream** stream) override;

private:
    const ElementHandle m_handle;
    ULONGLONG m_position;  // touched under the file's lock
};

}  // namespace quorvane::cfb

#endif  // QUORVANE_PLATFORM_CFB_STORAGE_STREAM_H_
