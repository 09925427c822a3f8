#include "engine/persist/hash_db.h"

#include <algorithm>
#include <limits>

#include "engine/persist/debug_timer.h"
#include "engine/persist/hash_file.h"
#include "engine/persist/hash_text.h"
#include "engine/session/trace/trace.h"
#include "engine/storeaccess/hex.h"
#include "engine/storeaccess/item_hash.h"
#include "platform/file/path.h"

namespace quorvane {
namespace {

constexpr OLECHAR kTab = '\t';
constexpr LONG kNoFlags = -1;

// Takes the next token off the front of a text, skipping the tabs before it; empty when there is none.
OleStringView NextToken(OleStringView& text) noexcept
{
    const size_t start = text.find_first_not_of(kTab);
    if (start == OleStringView::npos) {
        text = {};
        return {};
    }
    const size_t end = text.find(kTab, start);
    const OleStringView token = text.substr(start, end == OleStringView::npos ? end : end - start);
    text = end == OleStringView::npos ? OleStringView() : text.substr(end);
    return token;
}

constexpr bool IsBlank(OLECHAR c) noexcept
{
    return c == ' ' || (c >= '\t' && c <= '\r');
}

// A number in decimal as the C library reads it: blanks, a sign, digits up to whatever else; the nearest
// number for one that is too large.
LONG ParseDecimal(OleStringView text) noexcept
{
    size_t at = 0;
    while (at < text.size() && IsBlank(text[at]))
        ++at;
    const bool negative = at < text.size() && text[at] == '-';
    if (at < text.size() && (text[at] == '-' || text[at] == '+'))
        ++at;
    const std::int64_t limit = std::numeric_limits<std::int32_t>::max() + (negative ? 1LL : 0LL);
    std::int64_t value = 0;
    for (; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at)
        value = std::min(limit, value * 10 + (text[at] - '0'));
    return static_cast<LONG>(negative ? -value : value);
}

OleString ToDecimal(LONG value)
{
    const std::string digits = std::to_string(value);
    return OleString(digits.begin(), digits.end());
}

// "<Directory><folder ID>.dat", or E_INVALIDARG for an ID that would lead out of the directory.
HRESULT HashFilePath(BSTR directory, const OleString& folderId, std::string& path)
{
    const std::string name = Narrow(folderId) + ".dat";
    if (folderId.empty() || !IsPlainFileName(name))
        return E_INVALIDARG;
    path = Narrow(ViewOf(directory)) + name;
    return S_OK;
}

}  // namespace

CHashDB::CHashDB(OleStringView folderId) : m_strName(folderId), m_pFile(std::make_unique<HashFile>()) {}
CHashDB::~CHashDB() = default;

HRESULT CHashDB::Init(BSTR Directory) noexcept
{
    const Traced traced{"CHashDB::Init"};
    try {
        std::string path;
        HR_TRY(traced, HashFilePath(Directory, m_strName, path));
        {
            const MutexLock lock(m_csLock);
            HR_TRY(traced, m_pFile->Open(path));
        }
        return traced(FillMap());
    } catch (...) {
        return traced(E_OUTOFMEMORY);
    }
}

HRESULT CHashDB::FillMap() noexcept
{
    const Traced traced{"CHashDB::FillMap"};
    const MutexLock lock(m_csLock);
    const DebugTimer timer;
    HRESULT damage = S_OK;
    HR_TRY(traced, m_pFile->Load(damage));
    HR_IGNORE(traced(damage), "what stands in front of the damage is loaded");
    if (kDebugBuild)
        Trace(traced.Function(), __LINE__, "CHashMessage::FillMap worked for %d ms\n", timer.Milliseconds());
    return S_OK;
}

HRESULT CHashDB::SaveMap() noexcept
{
    if (SuspendSave)
        return S_OK;
    const MutexLock lock(m_csLock);
    return SaveLocked();
}

HRESULT CHashDB::SaveLocked() noexcept
{
    const Traced traced{"CHashDB::SaveMap"};
    return SuspendSave ? S_OK : traced(m_pFile->Save());
}

HRESULT CHashDB::GetHash(const SBinary& EntryID, BSTR* Hash, LONG* Flags) noexcept
{
    const Traced traced{"CHashDB::GetHash"};
    if (!Hash)
        return E_POINTER;
    *Hash = nullptr;
    Bstr key;
    HR_TRY(traced, HexFromBinary(EntryID, key));
    return GetHash(key.Get(), Hash, Flags);
}

HRESULT CHashDB::GetHash(BSTR Key, BSTR* Hash, LONG* Flags) noexcept
{
    if (!Hash || !Flags)
        return E_POINTER;
    *Hash = nullptr;
    *Flags = kNoFlags;
    try {
        OleString value;
        const std::string key = PackHashText(ViewOf(Key));
        {
            const MutexLock lock(m_csLock);
            if (const HashValue* const found = m_pFile->Find(key))
                value = UnpackHashText(found->View());
        }
        OleStringView rest = OleStringView(value).substr(0, value.find(OLECHAR(0)));
        const OleStringView hash = NextToken(rest);
        const OleStringView flags = NextToken(rest);
        *Hash = Bstr(hash).Detach();
        if (!flags.empty())
            *Flags = ParseDecimal(flags);
        return S_OK;
    } catch (...) {
        return E_OUTOFMEMORY;
    }
}

HRESULT CHashDB::SetHash(const SBinary& EntryID, BSTR Hash, LONG Flags) noexcept
{
    const Traced traced{"CHashDB::SetHash"};
    Bstr key;
    HR_TRY(traced, HexFromBinary(EntryID, key));
    return SetHash(key.Get(), Hash, Flags);
}

HRESULT CHashDB::SetHash(BSTR Key, BSTR Hash, LONG Flags) noexcept
{
    // A null key would end the file for its reader, and so would a text beyond its limit.
    if (!Key)
        return E_INVALIDARG;
    try {
        const std::string key = PackHashText(ViewOf(Key));
        const std::string value =
            Hash ? PackHashText(OleString(ViewOf(Hash)) + kTab + ToDecimal(Flags)) : kNullHashText;
        if (HashStringBytes(key) > kMaxHashString || HashStringBytes(value) > kMaxHashString)
            return E_INVALIDARG;
        if (kDebugBuild && Hash)
            Trace("CHashDB::SetHash", __LINE__, "Setting hash: \"%s\"\n", Narrow(ViewOf(Hash)).c_str());
        const MutexLock lock(m_csLock);
        if (Hash)
            m_pFile->Set(key, value);
        else
            m_pFile->Remove(key);
        return SaveLocked();
    } catch (...) {
        return E_FAIL;
    }
}

HRESULT CHashDB::SetHash(BSTR Key, IMessage* Message) noexcept
{
    const Traced traced{"CHashDB::SetHash"};
    if (!Message) {
        HR_IGNORE(SetHash(Key, nullptr, 0), "SaveMap has traced it, and the next save makes up for it");
        return S_OK;
    }
    try {
        PropValue modified;
        HR_TRY(traced, mapi::HrGetOneProp(Message, PR_LAST_MODIFICATION_TIME, modified.Put()));
        PropValue flags;
        HR_TRY(traced, mapi::HrGetOneProp(Message, PR_MESSAGE_FLAGS, flags.Put()));
        const Bstr hash(ItemHash(modified->Value.ft));
        HR_IGNORE(SetHash(Key, hash.Get(), flags->Value.l), "as above");
        return S_OK;
    } catch (...) {
        return traced(E_OUTOFMEMORY);
    }
}

size_t CHashDB::Count() noexcept
{
    const MutexLock lock(m_csLock);
    return m_pFile->Count();
}

// CHashDBMap

CHashDB* CHashDBMap::Find(BSTR FolderID) noexcept
{
    try {
        const Bstr key(ViewOf(FolderID));
        const MutexLock lock(m_csLock);
        const auto found = m_mapStores.find(key);
        return found == m_mapStores.end() ? nullptr : found->second.get();
    } catch (...) {
        return nullptr;
    }
}

LONG CHashDBMap::Add(BSTR FolderID, BSTR Directory) noexcept
{
    try {
        Bstr key(ViewOf(FolderID));
        const MutexLock lock(m_csLock);
        if (m_mapStores.contains(key))
            return 1;
        auto store = std::make_unique<CHashDB>(key.View());
        HR_IGNORE(store->Init(Directory), "it is traced; without a file the store works in memory");
        m_mapStores.emplace(std::move(key), std::move(store));
        return 1;
    } catch (...) {
        return -1;
    }
}

void CHashDBMap::SetHash(BSTR Key, BSTR FolderID, IMessage* Message) noexcept
{
    if (CHashDB* const store = Find(FolderID))
        HR_IGNORE(store->SetHash(Key, Message), "it is traced, and nobody waits for it");
}

}  // namespace quorvane
