#include "platform/cfb/storage_object.h"

#include <algorithm>

#include "platform/cfb/storage_enum.h"
#include "platform/cfb/storage_stream.h"
#include "platform/com/result.h"

namespace quorvane::cfb {
namespace {

// Asks a storage whether it is one of this library, and for its object.
constexpr IID kIidStorageObject = {
    0x6F0D7C52, 0x3A41, 0x4E0B, {0x9B, 0x64, 0x51, 0xC2, 0x0E, 0x7A, 0x93, 0xD8}};

constexpr ULONGLONG kWhole = ~ULONGLONG{0};

// Owns the name in a STATSTG.
class StatName {
public:
    explicit StatName(STATSTG& stat) noexcept : stat_(stat) {}
    StatName(const StatName&) = delete;
    StatName& operator=(const StatName&) = delete;
    ~StatName() { ::CoTaskMemFree(stat_.pwcsName); }

private:
    STATSTG& stat_;
};

bool IsExcluded(SNB names, LPCOLESTR text) noexcept
{
    ElementName name;
    if (!names || FAILED(name.Assign(text)))
        return false;
    for (; *names; ++names) {
        ElementName excluded;
        if (SUCCEEDED(excluded.Assign(*names)) && excluded.Compare(name) == 0)
            return true;
    }
    return false;
}

}  // namespace

HRESULT CStorageObject::QueryInterface(REFIID riid, void** object)
{
    if (!object || !IsEqualIID(riid, kIidStorageObject))
        return ComObject::QueryInterface(riid, object);
    AddRef();
    *object = this;
    return S_OK;
}

HRESULT CStorageObject::CheckMode(DWORD mode, bool create) const noexcept
{
    const DWORD known = ElementHandle::kAccess | ElementHandle::kSharing | (create ? STGM_CREATE : 0);
    const DWORD access = mode & ElementHandle::kAccess;
    if ((mode & ~known) != 0 || access > STGM_READWRITE)
        return STG_E_INVALIDFLAG;
    if ((mode & ElementHandle::kSharing) != STGM_SHARE_EXCLUSIVE)
        return STG_E_INVALIDFLAG;
    const bool writes = create || access != STGM_READ;
    const bool reads = access != STGM_WRITE;
    if ((writes && !m_handle.MayWrite()) || (!create && reads && !m_handle.MayRead()))
        return STG_E_ACCESSDENIED;
    return S_OK;
}

// reserved: whether an argument is given that has to be null or 0.
template <class Object, class Interface>
HRESULT CStorageObject::OpenOrCreate(LPCOLESTR name, DWORD mode, bool create, bool reserved,
                                     Interface** object)
{
    if (!object)
        return STG_E_INVALIDPOINTER;
    *object = nullptr;
    if (reserved)
        return STG_E_INVALIDPARAMETER;
    ElementName parsed;
    QV_TRY(parsed.Assign(name));
    QV_TRY(CheckMode(mode, create));
    OpenElementPtr child;
    QV_TRY(m_handle.Run([&](CompoundFile& file, OpenElement& storage) {
        return create ? file.CreateChild(storage, parsed, Object::kType, (mode & STGM_CREATE) != 0, &child)
                      : file.OpenChild(storage, parsed, Object::kType, &child);
    }));
    *object = MakeComObject<Object>(m_handle.Root(), std::move(child), mode & ~STGM_CREATE).Detach();
    if (*object)
        return S_OK;
    m_handle.Root()->Close(std::move(child), false);  // which nobody took
    return E_OUTOFMEMORY;
}

HRESULT CStorageObject::CreateStream(LPCOLESTR name, DWORD mode, DWORD reserved1, DWORD reserved2,
                                     IStream** stream)
{
    return OpenOrCreate<CStorageStream>(name, mode, true, reserved1 != 0 || reserved2 != 0, stream);
}

HRESULT CStorageObject::OpenStream(LPCOLESTR name, void* reserved1, DWORD mode, DWORD reserved2,
                                   IStream** stream)
{
    return OpenOrCreate<CStorageStream>(name, mode, false, reserved1 || reserved2 != 0, stream);
}

HRESULT CStorageObject::CreateStorage(LPCOLESTR name, DWORD mode, DWORD reserved1, DWORD reserved2,
                                      IStorage** storage)
{
    return OpenOrCreate<CStorageObject>(name, mode, true, reserved1 != 0 || reserved2 != 0, storage);
}

HRESULT CStorageObject::OpenStorage(LPCOLESTR name, IStorage* priority, DWORD mode, SNB exclude,
                                    DWORD reserved, IStorage** storage)
{
    return OpenOrCreate<CStorageObject>(name, mode, false, priority || exclude || reserved != 0, storage);
}

// True when `other` is this storage or lies in it.
bool CStorageObject::Contains(IStorage* other) const noexcept
{
    void* object = nullptr;
    if (FAILED(other->QueryInterface(kIidStorageObject, &object)))
        return false;
    const auto found = ComPtr<CStorageObject>::Attach(static_cast<CStorageObject*>(object));
    if (found->m_handle.Root() != m_handle.Root())
        return false;
    bool contains = false;
    const HRESULT hr = found->m_handle.Run([&](CompoundFile&, OpenElement& storage) {
        for (const OpenElement* at = &storage; at && !contains; at = at->parent)
            contains = at == m_handle.Element().get();
        return S_OK;
    });
    return SUCCEEDED(hr) && contains;
}

HRESULT CStorageObject::CopyTo(DWORD excludedCount, const IID* excludedInterfaces, SNB excludedNames,
                               IStorage* target)
{
    if (!target || (excludedCount > 0 && !excludedInterfaces))
        return STG_E_INVALIDPOINTER;
    if (!m_handle.MayRead() || Contains(target))
        return STG_E_ACCESSDENIED;
    const auto* const end = excludedInterfaces + excludedCount;
    const auto excludes = [&](const IID& iid) {
        return std::any_of(excludedInterfaces, end,
                           [&](const IID& one) { return IsEqualIID(one, iid) != 0; });
    };
    QV_TRY(CopyElements(!excludes(IID_IStorage), !excludes(IID_IStream), excludedNames, target));
    return CopyOwn(target);
}

// Class and state bits.
HRESULT CStorageObject::CopyOwn(IStorage* target)
{
    STATSTG stat{};
    QV_TRY(Stat(&stat, STATFLAG_NONAME));
    QV_TRY(target->SetClass(stat.clsid));
    return target->SetStateBits(stat.grfStateBits, ~DWORD{0});
}

HRESULT CStorageObject::CopyElements(bool storages, bool streams, SNB excludedNames, IStorage* target)
{
    ComPtr<IEnumSTATSTG> elements;
    QV_TRY(EnumElements(0, nullptr, 0, elements.Put()));
    for (;;) {
        STATSTG element{};
        const StatName owner(element);
        const HRESULT hr = elements->Next(1, &element, nullptr);
        if (hr != S_OK)
            return FAILED(hr) ? hr : S_OK;
        const bool wanted = element.type == STGTY_STREAM ? streams : storages;
        const LPCOLESTR name = element.pwcsName;
        if (wanted && !IsExcluded(excludedNames, name))
            QV_TRY(element.type == STGTY_STREAM ? CopyStream(name, target, name)
                                                : CopyStorage(name, target, name));
    }
}

HRESULT CStorageObject::CopyStream(LPCOLESTR name, IStorage* target, LPCOLESTR newName)
{
    ComPtr<IStream> from;
    ComPtr<IStream> to;
    ULARGE_INTEGER all;
    all.QuadPart = kWhole;
    QV_TRY(OpenStream(name, nullptr, STGM_READ | STGM_SHARE_EXCLUSIVE, 0, from.Put()));
    QV_TRY(target->CreateStream(newName, STGM_CREATE | STGM_WRITE | STGM_SHARE_EXCLUSIVE, 0, 0, to.Put()));
    return from->CopyTo(to.Get(), all, nullptr, nullptr);
}

// Copies into a storage of that name if there is one, as far as the names differ, and else into a new one.
HRESULT CStorageObject::CopyStorage(LPCOLESTR name, IStorage* target, LPCOLESTR newName)
{
    constexpr DWORD kMode = STGM_READWRITE | STGM_SHARE_EXCLUSIVE;
    ComPtr<IStorage> from;
    ComPtr<IStorage> to;
    QV_TRY(OpenStorage(name, nullptr, STGM_READ | STGM_SHARE_EXCLUSIVE, nullptr, 0, from.Put()));
    HRESULT hr = target->OpenStorage(newName, nullptr, kMode, nullptr, 0, to.Put());
    if (hr == STG_E_FILENOTFOUND)
        hr = target->CreateStorage(newName, STGM_CREATE | kMode, 0, 0, to.Put());
    QV_TRY(hr);
    return from->CopyTo(0, nullptr, nullptr, to.Get());
}

HRESULT CStorageObject::MoveElementTo(LPCOLESTR name, IStorage* target, LPCOLESTR newName, DWORD flags)
{
    if (!target || !newName)
        return STG_E_INVALIDPOINTER;
    if (flags != STGMOVE_MOVE && flags != STGMOVE_COPY)
        return STG_E_INVALIDFLAG;
    if (flags == STGMOVE_MOVE && !m_handle.MayWrite())
        return STG_E_ACCESSDENIED;
    HRESULT hr = CopyStream(name, target, newName);
    if (hr == STG_E_FILENOTFOUND)
        hr = CopyStorage(name, target, newName);
    QV_TRY(hr);
    // What was copied may be a new storage, whose release has no way to tell that it didn't land: the next
    // call does.
    STATSTG stat{};
    QV_TRY(target->Stat(&stat, STATFLAG_NONAME));
    return flags == STGMOVE_MOVE ? DestroyElement(name) : S_OK;
}

HRESULT CStorageObject::Commit(DWORD)
{
    return m_handle.Run([&](CompoundFile& file, OpenElement& storage) {
        return m_handle.MayWrite() ? file.Commit(storage) : S_OK;
    });
}

HRESULT CStorageObject::Revert()
{
    return m_handle.Run([&](CompoundFile& file, OpenElement& storage) {
        if (m_handle.MayWrite())
            file.Revert(storage);
        return S_OK;
    });
}

HRESULT CStorageObject::EnumElements(DWORD reserved1, void* reserved2, DWORD reserved3,
                                     IEnumSTATSTG** enumerator)
{
    if (!enumerator)
        return STG_E_INVALIDPOINTER;
    *enumerator = nullptr;
    if (reserved1 != 0 || reserved2 || reserved3 != 0)
        return STG_E_INVALIDPARAMETER;
    if (!m_handle.MayRead())
        return STG_E_ACCESSDENIED;
    return m_handle.Run([&](CompoundFile&, OpenElement&) -> HRESULT {
        *enumerator = MakeComObject<CStorageEnum>(m_handle.Root(), m_handle.Element(), std::nullopt).Detach();
        return *enumerator ? S_OK : E_OUTOFMEMORY;
    });
}

HRESULT CStorageObject::DestroyElement(LPCOLESTR name)
{
    ElementName parsed;
    QV_TRY(parsed.Assign(name));
    return m_handle.Change(
        [&](CompoundFile& file, OpenElement& storage) { return file.Destroy(storage, parsed); });
}

HRESULT CStorageObject::RenameElement(LPCOLESTR oldName, LPCOLESTR newName)
{
    ElementName from;
    ElementName to;
    QV_TRY(from.Assign(oldName));
    QV_TRY(to.Assign(newName));
    return m_handle.Change(
        [&](CompoundFile& file, OpenElement& storage) { return file.Rename(storage, from, to); });
}

HRESULT CStorageObject::SetElementTimes(LPCOLESTR name, const FILETIME* created, const FILETIME*,
                                        const FILETIME* modified)
{
    ElementName parsed;
    if (name)
        QV_TRY(parsed.Assign(name));
    const auto change = [&](DirEntry& entry) {
        if (entry.Type() == EntryType::kStream)
            return;
        if (created)
            entry.SetCreated(*created);
        if (modified)
            entry.SetModified(*modified);
    };
    return m_handle.Change([&](CompoundFile& file, OpenElement& storage) {
        return name ? file.ChangeChild(storage, parsed, change) : file.ChangeElement(storage, change);
    });
}

HRESULT CStorageObject::SetClass(REFCLSID clsid)
{
    return m_handle.Change([&](CompoundFile& file, OpenElement& storage) {
        return file.ChangeElement(storage, [&](DirEntry& entry) { entry.SetClsid(clsid); });
    });
}

HRESULT CStorageObject::SetStateBits(DWORD bits, DWORD mask)
{
    return m_handle.Change([&](CompoundFile& file, OpenElement& storage) {
        return file.ChangeElement(storage, [&](DirEntry& entry) {
            entry.SetStateBits((entry.StateBits() & ~mask) | (bits & mask));
        });
    });
}

}  // namespace quorvane::cfb
