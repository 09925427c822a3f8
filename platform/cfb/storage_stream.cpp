#include "platform/cfb/storage_stream.h"

#include <algorithm>
#include <array>
#include <memory>
#include <new>

namespace quorvane::cfb {
namespace {

// Most streams are short: they cost no memory of their own, and none is cleared for them.
class CopyBuffer {
public:
    BYTE* Data() noexcept { return large_ ? large_.get() : small_.data(); }
    std::size_t Size() const noexcept { return large_ ? kLarge : kSmall; }
    // For what follows the first piece. Where there is no memory the pieces stay small.
    void Grow() noexcept
    {
        if (!large_)
            large_.reset(new (std::nothrow) BYTE[kLarge]);
    }

private:
    static constexpr std::size_t kSmall = 4096;
    static constexpr std::size_t kLarge = 65536;

    std::array<BYTE, kSmall> small_;
    std::unique_ptr<BYTE[]> large_;
};

}  // namespace

HRESULT CStorageStream::Read(void* buffer, ULONG count, ULONG* read)
{
    if (read)
        *read = 0;
    if (!buffer)
        return STG_E_INVALIDPOINTER;
    if (!m_handle.MayRead())
        return STG_E_ACCESSDENIED;
    return m_handle.Run([&](CompoundFile& file, OpenElement& stream) {
        std::size_t part = 0;
        const HRESULT hr = file.ReadStream(stream, m_position, buffer, count, &part);
        m_position += part;
        if (read)
            *read = static_cast<ULONG>(part);
        return hr;
    });
}

HRESULT CStorageStream::Write(const void* buffer, ULONG count, ULONG* written)
{
    if (written)
        *written = 0;
    if (!buffer)
        return STG_E_INVALIDPOINTER;
    return m_handle.Change([&](CompoundFile& file, OpenElement& stream) {
        std::size_t part = 0;
        const HRESULT hr = file.WriteStream(stream, m_position, buffer, count, &part);
        m_position += part;
        if (written)
            *written = static_cast<ULONG>(part);
        return hr;
    });
}

HRESULT CStorageStream::Seek(LARGE_INTEGER move, DWORD origin, ULARGE_INTEGER* position)
{
    return m_handle.Run([&](CompoundFile&, OpenElement& stream) -> HRESULT {
        ULONGLONG from = 0;
        if (origin == STREAM_SEEK_CUR)
            from = m_position;
        else if (origin == STREAM_SEEK_END)
            from = stream.Size();
        else if (origin != STREAM_SEEK_SET)
            return STG_E_INVALIDFUNCTION;
        const ULONGLONG to = from + static_cast<ULONGLONG>(move.QuadPart);
        const bool outside = move.QuadPart < 0 ? to > from : to < from;
        if (outside)
            return STG_E_INVALIDFUNCTION;
        m_position = to;
        if (position)
            position->QuadPart = to;
        return S_OK;
    });
}

HRESULT CStorageStream::SetSize(ULARGE_INTEGER size)
{
    return m_handle.Change(
        [&](CompoundFile& file, OpenElement& stream) { return file.SetStreamSize(stream, size.QuadPart); });
}

HRESULT CStorageStream::CopyTo(IStream* target, ULARGE_INTEGER count, ULARGE_INTEGER* read,
                               ULARGE_INTEGER* written)
{
    if (!target)
        return STG_E_INVALIDPOINTER;
    ULONGLONG left = count.QuadPart;
    ULONGLONG copied[2] = {};
    HRESULT hr = S_OK;
    CopyBuffer buffer;
    // Not under the file's lock: the target may be anybody's.
    while (SUCCEEDED(hr) && left > 0) {
        ULONG got = 0;
        ULONG put = 0;
        hr = Read(buffer.Data(), static_cast<ULONG>(std::min<ULONGLONG>(left, buffer.Size())), &got);
        if (FAILED(hr) || got == 0)
            break;
        hr = target->Write(buffer.Data(), got, &put);
        copied[0] += got;
        copied[1] += put;
        left -= got;
        if (SUCCEEDED(hr) && put < got)
            hr = STG_E_MEDIUMFULL;
        if (got == buffer.Size())
            buffer.Grow();
    }
    if (read)
        read->QuadPart = copied[0];
    if (written)
        written->QuadPart = copied[1];
    return hr;
}

HRESULT CStorageStream::Commit(DWORD)
{
    return m_handle.Run([](CompoundFile&, OpenElement&) { return S_OK; });
}

HRESULT CStorageStream::Revert()
{
    return m_handle.Run([](CompoundFile&, OpenElement&) { return S_OK; });
}

HRESULT CStorageStream::Clone(IStream** stream)
{
    if (!stream)
        return STG_E_INVALIDPOINTER;
    *stream = nullptr;
    return m_handle.Run([&](CompoundFile&, OpenElement& element) -> HRESULT {
        *stream =
            MakeComObject<CStorageStream>(m_handle.Root(), m_handle.Element(), m_handle.Mode(), m_position)
                .Detach();
        element.users += *stream ? 1 : 0;
        return *stream ? S_OK : E_OUTOFMEMORY;
    });
}

}  // namespace quorvane::cfb
