#include "tests/oledb_provider/accessors.h"

#include <algorithm>

#include "tests/oledb_provider/values.h"

namespace quorvane::test {
namespace {

// Whether a part of a binding lies in a block of that many bytes.
bool LiesIn(DBLENGTH rowSize, DBBYTEOFFSET at, size_t size) noexcept
{
    return at <= rowSize && size <= rowSize - at;
}

DBBINDSTATUS Check(const DBBINDING& binding, DBACCESSORFLAGS flags, DBLENGTH rowSize) noexcept
{
    constexpr DBPART kParts = DBPART_VALUE | DBPART_LENGTH | DBPART_STATUS;
    const bool isParameter = flags & DBACCESSOR_PARAMETERDATA;
    const auto size = SizeOfBound(binding);
    if (!size)
        return DBBINDSTATUS_UNSUPPORTEDCONVERSION;
    if (binding.iOrdinal == 0)
        return DBBINDSTATUS_BADORDINAL;
    if (!(binding.dwPart & kParts) || (binding.dwPart & ~kParts) ||
        binding.dwMemOwner != DBMEMOWNER_CLIENTOWNED || isParameter != (binding.eParamIO == DBPARAMIO_INPUT))
        return DBBINDSTATUS_BADBINDINFO;
    if (((binding.dwPart & DBPART_VALUE) && !LiesIn(rowSize, binding.obValue, *size)) ||
        ((binding.dwPart & DBPART_LENGTH) && !LiesIn(rowSize, binding.obLength, sizeof(DBLENGTH))) ||
        ((binding.dwPart & DBPART_STATUS) && !LiesIn(rowSize, binding.obStatus, sizeof(DBSTATUS))))
        return DBBINDSTATUS_BADBINDINFO;
    return DBBINDSTATUS_OK;
}

}  // namespace

HRESULT Accessors::Create(DBACCESSORFLAGS flags, DBCOUNTITEM count, const DBBINDING* bindings,
                          DBLENGTH rowSize, HACCESSOR* accessor, DBBINDSTATUS* statuses) noexcept
{
    if (!accessor || (count != 0 && !bindings))
        return E_INVALIDARG;
    *accessor = DB_INVALID_HACCESSOR;
    if (flags != DBACCESSOR_PARAMETERDATA && flags != DBACCESSOR_ROWDATA)
        return Fail(DB_E_BADACCESSORFLAGS, {"An accessor is for parameters or for rows."});
    bool isGood = true;
    for (DBCOUNTITEM i = 0; i < count; ++i) {
        const DBBINDSTATUS status = Check(bindings[i], flags, rowSize);
        isGood = isGood && status == DBBINDSTATUS_OK;
        if (statuses)
            statuses[i] = status;
    }
    if (!isGood)
        return Fail(DB_E_ERRORSOCCURRED, {"A binding isn't possible."});
    try {
        const std::lock_guard lock(mutex_);
        entries_[last_ + 1] = {flags, std::vector<DBBINDING>(bindings, bindings + count), 1};
        *accessor = ++last_;
        return S_OK;
    } catch (...) {
        return E_OUTOFMEMORY;
    }
}

HRESULT Accessors::AddReference(HACCESSOR accessor, DBREFCOUNT* references) noexcept
{
    const std::lock_guard lock(mutex_);
    const auto found = entries_.find(accessor);
    if (found == entries_.end())
        return DB_E_BADACCESSORHANDLE;
    ++found->second.references;
    if (references)
        *references = found->second.references;
    return S_OK;
}

HRESULT Accessors::Release(HACCESSOR accessor, DBREFCOUNT* references) noexcept
{
    const std::lock_guard lock(mutex_);
    const auto found = entries_.find(accessor);
    if (found == entries_.end())
        return DB_E_BADACCESSORHANDLE;
    const DBREFCOUNT left = --found->second.references;
    if (left == 0)
        entries_.erase(found);
    if (references)
        *references = left;
    return S_OK;
}

HRESULT Accessors::Get(HACCESSOR accessor, DBACCESSORFLAGS* flags, DBCOUNTITEM* count,
                       DBBINDING** bindings) const noexcept
{
    if (!flags || !count || !bindings)
        return E_INVALIDARG;
    const std::lock_guard lock(mutex_);
    const auto found = entries_.find(accessor);
    if (found == entries_.end())
        return DB_E_BADACCESSORHANDLE;
    const std::vector<DBBINDING>& kept = found->second.bindings;
    *flags = found->second.flags;
    *count = kept.size();
    *bindings = nullptr;
    if (kept.empty())
        return S_OK;
    *bindings = static_cast<DBBINDING*>(CoTaskMemAlloc(kept.size() * sizeof(DBBINDING)));
    if (!*bindings)
        return E_OUTOFMEMORY;
    std::copy(kept.begin(), kept.end(), *bindings);
    return S_OK;
}

HRESULT Accessors::Find(HACCESSOR accessor, DBACCESSORFLAGS kind,
                        std::vector<DBBINDING>& bindings) const noexcept
{
    try {
        const std::lock_guard lock(mutex_);
        const auto found = entries_.find(accessor);
        if (found == entries_.end())
            return Fail(DB_E_BADACCESSORHANDLE, {"There is no such accessor."});
        if (found->second.flags != kind)
            return Fail(DB_E_BADACCESSORTYPE, {"The accessor is of the other kind."});
        bindings = found->second.bindings;
        return S_OK;
    } catch (...) {
        return E_OUTOFMEMORY;
    }
}

}  // namespace quorvane::test
