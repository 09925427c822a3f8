#include <algorithm>
#include <limits>
#include <memory>
#include <new>

#include "platform/com/com_object.h"
#include "platform/com/mutex.h"
#include "platform/com/spill_bytes.h"

namespace {

using namespace quorvane;

constexpr ULONGLONG kMaxSize = std::numeric_limits<ULONG>::max();

// What a stream and its clones share.
struct Contents {
    Mutex mutex;
    SpillBytes bytes QV_GUARDED_BY(mutex);
};

// Any thread may call; a position belongs to one stream object, the bytes to all clones.
class CMemoryStream final : public ComObject<CMemoryStream, Answers<IStream, ISequentialStream>> {
public:
    CMemoryStream(std::shared_ptr<Contents> contents, ULONGLONG position) noexcept
        : m_pContents(std::move(contents)), m_nPosition(position)
    {}

    HRESULT STDMETHODCALLTYPE Read(void* buffer, ULONG count, ULONG* read) override
    {
        if (read)
            *read = 0;
        if (!buffer)
            return STG_E_INVALIDPOINTER;
        const MutexLock lock(m_pContents->mutex);
        size_t got = 0;
        if (const HRESULT hr = m_pContents->bytes.ReadAt(m_nPosition, buffer, count, got); FAILED(hr))
            return hr;
        m_nPosition += got;
        if (read)
            *read = static_cast<ULONG>(got);
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE Write(const void* buffer, ULONG count, ULONG* written) override
    {
        if (written)
            *written = 0;
        if (!buffer && count)
            return STG_E_INVALIDPOINTER;
        const MutexLock lock(m_pContents->mutex);
        const ULONGLONG end = m_nPosition + count;
        if (end > kMaxSize)
            return STG_E_MEDIUMFULL;
        if (const HRESULT hr = m_pContents->bytes.WriteAt(m_nPosition, buffer, count); FAILED(hr))
            return hr;
        m_nPosition = end;
        if (written)
            *written = count;
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE Seek(LARGE_INTEGER move, DWORD origin, ULARGE_INTEGER* position) override
    {
        const MutexLock lock(m_pContents->mutex);
        ULONGLONG base = 0;
        if (origin == STREAM_SEEK_CUR)
            base = m_nPosition;
        else if (origin == STREAM_SEEK_END)
            base = m_pContents->bytes.Size();
        else if (origin != STREAM_SEEK_SET)
            return STG_E_INVALIDFUNCTION;
        const bool backwards = move.QuadPart < 0;
        const ULONGLONG distance =
            backwards ? 0 - static_cast<ULONGLONG>(move.QuadPart) : static_cast<ULONGLONG>(move.QuadPart);
        if (backwards ? distance > base : distance > kMaxSize - std::min(base, kMaxSize))
            return STG_E_SEEKERROR;
        m_nPosition = backwards ? base - distance : base + distance;
        if (position)
            position->QuadPart = m_nPosition;
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE SetSize(ULARGE_INTEGER size) override
    {
        const MutexLock lock(m_pContents->mutex);
        if (size.QuadPart > kMaxSize)
            return STG_E_MEDIUMFULL;
        return m_pContents->bytes.Resize(size.QuadPart);
    }

    HRESULT STDMETHODCALLTYPE CopyTo(IStream* target, ULARGE_INTEGER count, ULARGE_INTEGER* read,
                                     ULARGE_INTEGER* written) override
    {
        if (!target)
            return STG_E_INVALIDPOINTER;
        // Through a buffer of its own: the target may be a clone, under the same lock.
        BYTE buffer[4096];
        ULONGLONG totalRead = 0;
        ULONGLONG totalWritten = 0;
        HRESULT hr = S_OK;
        while (totalRead < count.QuadPart) {
            const auto part =
                static_cast<ULONG>(std::min<ULONGLONG>(sizeof(buffer), count.QuadPart - totalRead));
            ULONG got = 0;
            ULONG put = 0;
            hr = Read(buffer, part, &got);
            if (FAILED(hr) || got == 0)
                break;
            totalRead += got;
            hr = target->Write(buffer, got, &put);
            totalWritten += put;
            if (FAILED(hr) || put < got)
                break;
        }
        if (read)
            read->QuadPart = totalRead;
        if (written)
            written->QuadPart = totalWritten;
        return hr;
    }

    HRESULT STDMETHODCALLTYPE Commit(DWORD) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE Revert() override { return S_OK; }
    HRESULT STDMETHODCALLTYPE LockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) override
    {
        return STG_E_INVALIDFUNCTION;
    }
    HRESULT STDMETHODCALLTYPE UnlockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) override
    {
        return STG_E_INVALIDFUNCTION;
    }

    HRESULT STDMETHODCALLTYPE Stat(STATSTG* stat, DWORD) override
    {
        if (!stat)
            return STG_E_INVALIDPOINTER;
        const MutexLock lock(m_pContents->mutex);
        *stat = STATSTG{};
        stat->type = STGTY_STREAM;
        stat->cbSize.QuadPart = m_pContents->bytes.Size();
        stat->grfMode = STGM_READWRITE;
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE Clone(IStream** stream) override
    {
        if (!stream)
            return STG_E_INVALIDPOINTER;
        ULONGLONG position = 0;
        {
            const MutexLock lock(m_pContents->mutex);
            position = m_nPosition;
        }
        *stream = MakeComObject<CMemoryStream>(m_pContents, position).Detach();
        return *stream ? S_OK : E_OUTOFMEMORY;
    }

private:
    const std::shared_ptr<Contents> m_pContents;
    ULONGLONG m_nPosition QV_GUARDED_BY(m_pContents->mutex);
};

}  // namespace

HRESULT CreateStreamOnHGlobal(HGLOBAL memory, BOOL deleteOnRelease, IStream** stream)
{
    if (!stream || memory || !deleteOnRelease)
        return E_INVALIDARG;
    *stream = nullptr;
    try {
        *stream = MakeComObject<CMemoryStream>(std::make_shared<Contents>(), 0ULL).Detach();
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
    return *stream ? S_OK : E_OUTOFMEMORY;
}
