#include "msgstore/message/value_lock_bytes.h"

#include "msgstore/util/guarded.h"
#include "platform/cfb/stg.h"
#include "platform/com/com_object.h"

namespace quorvane {
namespace {

constexpr DWORD kWriteMode = STGM_READWRITE | STGM_SHARE_EXCLUSIVE | STGM_DIRECT;
constexpr DWORD kReadMode = STGM_READ | STGM_SHARE_EXCLUSIVE | STGM_DIRECT;

class CValueLockBytes final : public ComObject<CValueLockBytes, ILockBytes> {
public:
    CValueLockBytes(std::shared_ptr<LargeValue> value, std::shared_ptr<SpoolValue> writable)
        : m_value(std::move(value)), m_writable(std::move(writable))
    {}

    HRESULT STDMETHODCALLTYPE ReadAt(ULARGE_INTEGER offset, void* buffer, ULONG count, ULONG* read) override
    {
        ULONG done = 0;
        HRESULT hr = S_OK;
        while (done < count) {
            ULONG step = 0;
            hr = m_value->ReadAt(offset.QuadPart + done, static_cast<BYTE*>(buffer) + done, count - done,
                                 step);
            if (FAILED(hr) || step == 0)
                break;
            done += step;
        }
        if (read)
            *read = done;
        return hr;
    }
    HRESULT STDMETHODCALLTYPE WriteAt(ULARGE_INTEGER offset, const void* buffer, ULONG count,
                                      ULONG* written) override
    {
        if (written)
            *written = 0;
        if (!m_writable)
            return STG_E_ACCESSDENIED;
        QV_RETURN_IF_FAILED(m_writable->WriteAt(offset.QuadPart, buffer, count));
        if (written)
            *written = count;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Flush() override { return S_OK; }
    HRESULT STDMETHODCALLTYPE SetSize(ULARGE_INTEGER size) override
    {
        return m_writable ? m_writable->Resize(size.QuadPart) : STG_E_ACCESSDENIED;
    }
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
        *stat = STATSTG{};
        stat->type = STGTY_LOCKBYTES;
        stat->cbSize.QuadPart = m_value->Size();
        stat->grfMode = m_writable ? STGM_READWRITE : STGM_READ;
        return S_OK;
    }

private:
    const std::shared_ptr<LargeValue> m_value;
    const std::shared_ptr<SpoolValue> m_writable;
};

}  // namespace

ComPtr<ILockBytes> MakeReadBytes(std::shared_ptr<LargeValue> value) noexcept
{
    return MakeComObject<CValueLockBytes>(std::move(value), nullptr);
}

ComPtr<ILockBytes> MakeWriteBytes(std::shared_ptr<SpoolValue> value) noexcept
{
    return MakeComObject<CValueLockBytes>(value, value);
}

HRESULT ImageOfStorage(IStorage& storage, std::shared_ptr<SpoolValue>& image) noexcept
{
    return Guarded([&]() -> HRESULT {
        auto made = std::make_shared<SpoolValue>();
        const auto bytes = MakeWriteBytes(made);
        if (!bytes)
            return E_OUTOFMEMORY;
        ComPtr<IStorage> copy;
        QV_RETURN_IF_FAILED(
            StgCreateDocfileOnILockBytes(bytes.Get(), kWriteMode | STGM_CREATE, 0, copy.Put()));
        QV_RETURN_IF_FAILED(storage.CopyTo(0, nullptr, nullptr, copy.Get()));
        copy.Reset();
        image = std::move(made);
        return S_OK;
    });
}

HRESULT CopyImage(std::shared_ptr<LargeValue> image, IStorage& storage) noexcept
{
    const auto bytes = MakeReadBytes(std::move(image));
    if (!bytes)
        return E_OUTOFMEMORY;
    ComPtr<IStorage> source;
    QV_RETURN_IF_FAILED(
        StgOpenStorageOnILockBytes(bytes.Get(), nullptr, kReadMode, nullptr, 0, source.Put()));
    return source->CopyTo(0, nullptr, nullptr, &storage);
}

}  // namespace quorvane
