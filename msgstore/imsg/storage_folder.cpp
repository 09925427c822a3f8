#include "msgstore/imsg/storage_folder.h"

#include <algorithm>

#include "msgstore/util/guarded.h"

namespace quorvane {
namespace {

using Guard = std::lock_guard<std::recursive_mutex>;

constexpr DWORD kExclusive = STGM_SHARE_EXCLUSIVE | STGM_DIRECT;
constexpr std::size_t kMostElements = 1000000;
constexpr ULONG kStep = 256 * 1024;
// A name that no part of a message has, for a stream until it's complete.
constexpr OLECHAR kUnfinishedName[] = OLESTR("__unfinished");

HRESULT WriteAll(IStream& stream, const void* bytes, std::size_t size) noexcept
{
    const auto* at = static_cast<const BYTE*>(bytes);
    while (size > 0) {
        ULONG written = 0;
        const auto step = static_cast<ULONG>(std::min<std::size_t>(size, kStep));
        QV_RETURN_IF_FAILED(stream.Write(at, step, &written));
        if (written == 0)
            return STG_E_MEDIUMFULL;
        at += written;
        size -= written;
    }
    return S_OK;
}

HRESULT WriteValue(IStream& stream, LargeValue& value)
{
    Bytes block(kStep);
    const std::uint64_t size = value.Size();
    for (std::uint64_t at = 0; at < size;) {
        ULONG read = 0;
        QV_RETURN_IF_FAILED(value.ReadAt(at, block.data(), kStep, read));
        if (read == 0)
            return MAPI_E_CORRUPT_DATA;
        QV_RETURN_IF_FAILED(WriteAll(stream, block.data(), read));
        at += read;
    }
    return S_OK;
}

HRESULT ReadFully(IStream& stream, void* buffer, ULONG count, ULONG& read) noexcept
{
    while (read < count) {
        ULONG step = 0;
        QV_RETURN_IF_FAILED(stream.Read(static_cast<BYTE*>(buffer) + read, count - read, &step));
        if (step == 0)
            return S_OK;
        read += step;
    }
    return S_OK;
}

// Owns the name that an enumeration hands out.
class TakenName {
public:
    explicit TakenName(LPOLESTR name) noexcept : name_(name) {}
    TakenName(const TakenName&) = delete;
    TakenName& operator=(const TakenName&) = delete;
    ~TakenName() { CoTaskMemFree(name_); }
    OleString Text() const { return name_ ? OleString(name_) : OleString(); }

private:
    LPOLESTR name_;
};

}  // namespace

StorageFolder::StorageFolder(ComPtr<IStorage> storage, bool writable)
    : mutex_(std::make_shared<std::recursive_mutex>()), storage_(std::move(storage)), writable_(writable)
{}

StorageFolder::StorageFolder(StorageFolder* parent, ComPtr<IStorage> storage)
    : parent_(parent->shared_from_this()),
      mutex_(parent->mutex_),
      storage_(std::move(storage)),
      writable_(parent->writable_)
{}

HRESULT StorageFolder::List(std::vector<Element>& elements)
{
    const Guard lock(*mutex_);
    QV_RETURN_IF_FAILED(CheckOpen());
    ComPtr<IEnumSTATSTG> enumerator;
    QV_RETURN_IF_FAILED(storage_->EnumElements(0, nullptr, 0, enumerator.Put()));
    for (;;) {
        STATSTG stat{};
        ULONG fetched = 0;
        const HRESULT hr = enumerator->Next(1, &stat, &fetched);
        if (FAILED(hr) || fetched == 0)
            return FAILED(hr) ? hr : S_OK;
        const TakenName name(stat.pwcsName);
        if (elements.size() == kMostElements)
            return MAPI_E_TOO_BIG;
        elements.push_back({name.Text(), stat.type == STGTY_STORAGE, stat.cbSize.QuadPart});
    }
}

HRESULT StorageFolder::OpenFolder(const OleString& name, std::shared_ptr<StorageFolder>& folder)
{
    const Guard lock(*mutex_);
    QV_RETURN_IF_FAILED(CheckOpen());
    if (auto held = open_[name].lock()) {
        folder = std::move(held);
        return S_OK;
    }
    ComPtr<IStorage> storage;
    const DWORD mode = (writable_ ? STGM_READWRITE : STGM_READ) | kExclusive;
    QV_RETURN_IF_FAILED(storage_->OpenStorage(name.c_str(), nullptr, mode, nullptr, 0, storage.Put()));
    folder = std::make_shared<StorageFolder>(this, std::move(storage));
    open_[name] = folder;
    return S_OK;
}

HRESULT StorageFolder::CreateFolder(const OleString& name, std::shared_ptr<StorageFolder>& folder)
{
    const Guard lock(*mutex_);
    QV_RETURN_IF_FAILED(CheckOpen());
    ComPtr<IStorage> storage;
    const DWORD mode = STGM_CREATE | STGM_READWRITE | kExclusive;
    Forget(name);
    QV_RETURN_IF_FAILED(storage_->CreateStorage(name.c_str(), mode, 0, 0, storage.Put()));
    folder = std::make_shared<StorageFolder>(this, std::move(storage));
    open_[name] = folder;
    return S_OK;
}

HRESULT StorageFolder::OpenStream(const OleString& name, ComPtr<IStream>& stream)
{
    QV_RETURN_IF_FAILED(CheckOpen());
    reading_ = {};
    return storage_->OpenStream(name.c_str(), nullptr, STGM_READ | kExclusive, 0, stream.Put());
}

HRESULT StorageFolder::ReadStream(const OleString& name, std::uint64_t limit, Bytes& bytes)
{
    const Guard lock(*mutex_);
    bytes.clear();
    ComPtr<IStream> stream;
    QV_RETURN_IF_FAILED(OpenStream(name, stream));
    STATSTG stat{};
    QV_RETURN_IF_FAILED(stream->Stat(&stat, STATFLAG_NONAME));
    if (stat.cbSize.QuadPart > limit)
        return MAPI_E_TOO_BIG;
    bytes.resize(stat.cbSize.QuadPart);
    ULONG read = 0;
    QV_RETURN_IF_FAILED(ReadFully(*stream.Get(), bytes.data(), static_cast<ULONG>(bytes.size()), read));
    bytes.resize(read);
    return S_OK;
}

// A large value is read piece by piece, and a stream costs its length to open: it stays open up to its end.
HRESULT StorageFolder::ReadStreamAt(const OleString& name, std::uint64_t offset, void* buffer, ULONG count,
                                    ULONG& read)
{
    const Guard lock(*mutex_);
    read = 0;
    if (!reading_.stream || reading_.name != name) {
        ComPtr<IStream> stream;
        STATSTG stat{};
        QV_RETURN_IF_FAILED(OpenStream(name, stream));
        QV_RETURN_IF_FAILED(stream->Stat(&stat, STATFLAG_NONAME));
        reading_ = {name, std::move(stream), stat.cbSize.QuadPart};
    }
    LARGE_INTEGER move{};
    move.QuadPart = static_cast<LONGLONG>(offset);
    HRESULT hr = reading_.stream->Seek(move, STREAM_SEEK_SET, nullptr);
    if (SUCCEEDED(hr))
        hr = ReadFully(*reading_.stream, buffer, count, read);
    if (FAILED(hr) || offset + read >= reading_.size)
        reading_ = {};
    return hr;
}

template <class Writer>
HRESULT StorageFolder::Fill(const OleString& name, bool replaces, Writer&& write)
{
    const Guard lock(*mutex_);
    QV_RETURN_IF_FAILED(CheckOpen());
    reading_ = {};
    const OleString place = replaces ? OleString(kUnfinishedName) : name;
    ComPtr<IStream> stream;
    const DWORD mode = STGM_CREATE | STGM_READWRITE | kExclusive;
    QV_RETURN_IF_FAILED(storage_->CreateStream(place.c_str(), mode, 0, 0, stream.Put()));
    QV_RETURN_IF_FAILED(write(*stream.Get()));
    stream.Reset();
    reading_ = {};  // what was written may have come out of this folder
    if (!replaces)
        return S_OK;
    QV_RETURN_IF_FAILED(storage_->DestroyElement(name.c_str()));
    return storage_->RenameElement(place.c_str(), name.c_str());
}

HRESULT StorageFolder::WriteStream(const OleString& name, const Bytes& bytes, bool replaces)
{
    return Fill(name, replaces,
                [&](IStream& stream) { return WriteAll(stream, bytes.data(), bytes.size()); });
}

HRESULT StorageFolder::WriteStream(const OleString& name, LargeValue& value, bool replaces)
{
    return Fill(name, replaces, [&](IStream& stream) { return WriteValue(stream, value); });
}

HRESULT StorageFolder::Destroy(const OleString& name)
{
    const Guard lock(*mutex_);
    QV_RETURN_IF_FAILED(CheckOpen());
    Forget(name);
    return storage_->DestroyElement(name.c_str());
}

HRESULT StorageFolder::Rename(const OleString& name, const OleString& newName)
{
    const Guard lock(*mutex_);
    QV_RETURN_IF_FAILED(CheckOpen());
    Forget(name);
    return storage_->RenameElement(name.c_str(), newName.c_str());
}

void StorageFolder::Forget(const OleString& name) noexcept
{
    reading_ = {};
    const auto held = open_.find(name);
    if (held == open_.end())
        return;
    if (const auto folder = held->second.lock())
        folder->Close();
    open_.erase(held);
}

void StorageFolder::Close() noexcept
{
    for (auto& [name, child] : open_) {
        if (const auto folder = child.lock())
            folder->Close();
    }
    open_.clear();
    reading_ = {};
    storage_.Reset();
}

}  // namespace quorvane
