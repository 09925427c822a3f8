#include "msgstore/props/property_stream.h"

#include <algorithm>
#include <limits>
#include <mutex>
#include <vector>

#include "msgstore/props/little_endian.h"
#include "msgstore/props/property_object.h"
#include "msgstore/props/text_encoding.h"
#include "msgstore/util/guarded.h"

namespace quorvane {

// The stream class of both kinds: `m_spool` is set, and is the value, in one that writes.
class CPropertyStream final
    : public ComObject<CPropertyStream, Answers<IStream, ISequentialStream>, FreeThreaded> {
public:
    explicit CPropertyStream(std::shared_ptr<LargeValue> value) : m_value(std::move(value)) {}
    CPropertyStream(PropertyObject& owner, ULONG tag, std::shared_ptr<SpoolValue> value, std::uint64_t start)
        : m_value(value),
          m_spool(std::move(value)),
          m_owner(&owner),
          m_keep(owner.Unknown()),
          m_tag(tag),
          m_position(start)
    {}

    HRESULT STDMETHODCALLTYPE Read(void* buffer, ULONG count, ULONG* read) override;
    HRESULT STDMETHODCALLTYPE Write(const void* buffer, ULONG count, ULONG* written) override;
    HRESULT STDMETHODCALLTYPE Seek(LARGE_INTEGER move, DWORD origin, ULARGE_INTEGER* position) override;
    HRESULT STDMETHODCALLTYPE SetSize(ULARGE_INTEGER size) override;
    HRESULT STDMETHODCALLTYPE CopyTo(IStream* target, ULARGE_INTEGER count, ULARGE_INTEGER* read,
                                     ULARGE_INTEGER* written) override;
    HRESULT STDMETHODCALLTYPE Commit(DWORD) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE Revert() override { return STG_E_INVALIDFUNCTION; }
    HRESULT STDMETHODCALLTYPE LockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) override
    {
        return STG_E_INVALIDFUNCTION;
    }
    HRESULT STDMETHODCALLTYPE UnlockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) override
    {
        return STG_E_INVALIDFUNCTION;
    }
    HRESULT STDMETHODCALLTYPE Stat(STATSTG* stat, DWORD flags) override;
    HRESULT STDMETHODCALLTYPE Clone(IStream** stream) override;

private:
    std::shared_ptr<LargeValue> m_value;
    std::shared_ptr<SpoolValue> m_spool;
    PropertyObject* m_owner = nullptr;  // kept alive by m_keep
    ComPtr<IUnknown> m_keep;
    ULONG m_tag = PR_NULL;
    std::mutex m_mutex;  // guards the cursor; the owner's lock is taken inside it
    std::uint64_t m_position = 0;
};

HRESULT CPropertyStream::Read(void* buffer, ULONG count, ULONG* read)
{
    if (read)
        *read = 0;
    if (!buffer && count > 0)
        return STG_E_INVALIDPOINTER;
    const std::lock_guard lock(m_mutex);
    ULONG done = 0;
    while (done < count) {
        ULONG step = 0;
        QV_RETURN_IF_FAILED(
            m_value->ReadAt(m_position, static_cast<BYTE*>(buffer) + done, count - done, step));
        if (step == 0)
            break;
        done += step;
        m_position += step;
        if (read)
            *read = done;
    }
    return S_OK;
}

HRESULT CPropertyStream::Write(const void* buffer, ULONG count, ULONG* written)
{
    if (written)
        *written = 0;
    if (!buffer && count > 0)
        return STG_E_INVALIDPOINTER;
    if (!m_spool)
        return STG_E_ACCESSDENIED;
    const std::lock_guard lock(m_mutex);
    QV_RETURN_IF_FAILED(m_owner->Relink(m_tag, m_spool));
    QV_RETURN_IF_FAILED(m_spool->WriteAt(m_position, buffer, count));
    m_position += count;
    if (written)
        *written = count;
    return S_OK;
}

HRESULT CPropertyStream::Seek(LARGE_INTEGER move, DWORD origin, ULARGE_INTEGER* position)
{
    const std::lock_guard lock(m_mutex);
    std::uint64_t base = 0;
    if (origin == STREAM_SEEK_CUR)
        base = m_position;
    else if (origin == STREAM_SEEK_END)
        base = m_value->Size();
    else if (origin != STREAM_SEEK_SET)
        return STG_E_INVALIDFUNCTION;
    const LONGLONG step = move.QuadPart;
    const auto back = static_cast<std::uint64_t>(-(step + 1)) + 1;  // of a negative step, without overflow
    if (step < 0 && back > base)
        return STG_E_INVALIDFUNCTION;
    if (step >= 0 && static_cast<std::uint64_t>(step) > static_cast<std::uint64_t>(INT64_MAX) - base)
        return STG_E_INVALIDFUNCTION;
    m_position = step < 0 ? base - back : base + static_cast<std::uint64_t>(step);
    if (position)
        position->QuadPart = m_position;
    return S_OK;
}

HRESULT CPropertyStream::SetSize(ULARGE_INTEGER size)
{
    if (!m_spool)
        return STG_E_ACCESSDENIED;
    const std::lock_guard lock(m_mutex);
    QV_RETURN_IF_FAILED(m_owner->Relink(m_tag, m_spool));
    return m_spool->Resize(size.QuadPart);
}

HRESULT CPropertyStream::CopyTo(IStream* target, ULARGE_INTEGER count, ULARGE_INTEGER* read,
                                ULARGE_INTEGER* written)
{
    if (!target)
        return STG_E_INVALIDPOINTER;
    return Guarded([&]() -> HRESULT {
        std::uint64_t done = 0;
        HRESULT hr = S_OK;
        std::vector<BYTE> block(64 * 1024);
        while (SUCCEEDED(hr) && done < count.QuadPart) {
            ULONG got = 0;
            const auto wanted =
                static_cast<ULONG>(std::min<std::uint64_t>(block.size(), count.QuadPart - done));
            hr = Read(block.data(), wanted, &got);
            if (FAILED(hr) || got == 0)
                break;
            hr = target->Write(block.data(), got, nullptr);
            done += SUCCEEDED(hr) ? got : 0;
        }
        if (read)
            read->QuadPart = done;
        if (written)
            written->QuadPart = done;
        return hr;
    });
}

HRESULT CPropertyStream::Stat(STATSTG* stat, DWORD)
{
    if (!stat)
        return STG_E_INVALIDPOINTER;
    *stat = STATSTG{};
    stat->type = STGTY_STREAM;
    stat->cbSize.QuadPart = m_value->Size();
    stat->grfMode = m_spool ? STGM_READWRITE : STGM_READ;
    return S_OK;
}

HRESULT CPropertyStream::Clone(IStream** stream)
{
    if (!stream)
        return STG_E_INVALIDPOINTER;
    const std::lock_guard lock(m_mutex);
    auto clone = m_spool ? MakeComObject<CPropertyStream>(*m_owner, m_tag, m_spool, m_position)
                         : MakeComObject<CPropertyStream>(m_value);
    if (clone)
        clone->m_position = m_position;
    *stream = clone.Detach();
    return *stream ? S_OK : E_OUTOFMEMORY;
}

HRESULT MakeReadStream(std::shared_ptr<LargeValue> value, LPUNKNOWN* stream) noexcept
{
    auto made = MakeComObject<CPropertyStream>(std::move(value));
    *stream = made.Detach();
    return *stream ? S_OK : E_OUTOFMEMORY;
}

HRESULT MakeWriteStream(PropertyObject& owner, ULONG tag, std::shared_ptr<SpoolValue> value,
                        std::uint64_t start, LPUNKNOWN* stream) noexcept
{
    auto made = MakeComObject<CPropertyStream>(owner, tag, std::move(value), start);
    *stream = made.Detach();
    return *stream ? S_OK : E_OUTOFMEMORY;
}

Bytes ConvertText(const Bytes& text, ULONG from, ULONG to, ULONG codePage)
{
    if (from == to)
        return text;
    if (to == PT_UNICODE)
        return TextBytes(Decode8Bit({reinterpret_cast<const char*>(text.data()), text.size()}, codePage));
    const std::string narrow = Encode8Bit(BytesText(text));
    return Bytes(narrow.begin(), narrow.end());
}

}  // namespace quorvane
