#include "tests/oledb_provider/properties.h"

#include <algorithm>
#include <memory>
#include <span>
#include <vector>

namespace quorvane::test {
namespace {

// DBPROPSET_DBINIT and DBPROPSET_DBINITALL, which no library holds.
constexpr GUID kInit = {0xC8B522BC, 0x5CF3, 0x11CE, {0xAD, 0xE5, 0x00, 0xAA, 0x00, 0x44, 0x77, 0x3D}};
constexpr GUID kAllInit = {0xC8B522CA, 0x5CF3, 0x11CE, {0xAD, 0xE5, 0x00, 0xAA, 0x00, 0x44, 0x77, 0x3D}};
// The provider's own.
constexpr GUID kOwn = {0x3471A8C9, 0xE37A, 0x42F4, {0x94, 0xE4, 0x0B, 0x09, 0xCC, 0x25, 0x1F, 0x71}};

constexpr OLECHAR kEngineType[] = OLESTR("Jet OLEDB:Engine Type");

// The names are those of connection strings.
struct Known {
    const GUID& set;
    DBPROPID id;
    VARTYPE type;
    OleStringView name;
};
const Known kKnown[] = {{kInit, DBPROP_INIT_DATASOURCE, VT_BSTR, OLESTR("Data Source")},
                        {kInit, DBPROP_AUTH_USERID, VT_BSTR, OLESTR("User ID")},
                        {kInit, DBPROP_AUTH_PASSWORD, VT_BSTR, OLESTR("Password")},
                        {kInit, DBPROP_INIT_MODE, VT_I4, OLESTR("Mode")},
                        {kInit, DBPROP_INIT_PROMPT, VT_I2, OLESTR("Prompt")},
                        {kInit, DBPROP_INIT_HWND, VT_I8, OLESTR("Window Handle")},
                        {kInit, DBPROP_INIT_PROVIDERSTRING, VT_BSTR, OLESTR("Extended Properties")},
                        {kOwn, 1, VT_I4, kEngineType}};

struct FreeTaskMemory {
    void operator()(void* memory) const noexcept { CoTaskMemFree(memory); }
};
template <class T>
using TaskMemory = std::unique_ptr<T[], FreeTaskMemory>;

// Zeroed room for so many; throws std::bad_alloc.
template <class T>
TaskMemory<T> AllocateTaskMemory(size_t count)
{
    const size_t bytes = std::max<size_t>(count, 1) * sizeof(T);
    auto* const memory = static_cast<T*>(CoTaskMemAlloc(bytes));
    if (!memory)
        throw std::bad_alloc();
    std::fill_n(reinterpret_cast<BYTE*>(memory), bytes, BYTE{0});
    return TaskMemory<T>(memory);
}

// Places in kKnown, in one set.
struct Selection {
    GUID set;
    std::vector<size_t> places;
};

bool IsWanted(const DBPROPIDSET& asked, const GUID& set, DBPROPID id) noexcept
{
    if (!IsEqualGUID(asked.guidPropertySet, kAllInit) && !IsEqualGUID(asked.guidPropertySet, set))
        return false;
    const std::span<const DBPROPID> ids(asked.rgPropertyIDs, asked.cPropertyIDs);
    return ids.empty() || std::find(ids.begin(), ids.end(), id) != ids.end();
}

std::vector<Selection> Select(ULONG count, const DBPROPIDSET* asked)
{
    const DBPROPIDSET all{nullptr, 0, kAllInit};
    if (count == 0) {
        asked = &all;
        count = 1;
    }
    std::vector<Selection> result;
    for (const DBPROPIDSET& one : std::vector<DBPROPIDSET>(asked, asked + count)) {
        for (const GUID& set : {kInit, kOwn}) {
            Selection selection{set, {}};
            for (size_t i = 0; i < std::size(kKnown); ++i) {
                if (IsEqualGUID(kKnown[i].set, set) && IsWanted(one, set, kKnown[i].id))
                    selection.places.push_back(i);
            }
            if (!selection.places.empty())
                result.push_back(std::move(selection));
        }
    }
    return result;
}

}  // namespace

Properties::Properties() noexcept
{
    static_assert(std::size(kKnown) == std::tuple_size_v<decltype(values_)>);
}

LONG Properties::EngineType() const noexcept
{
    if (values_[7].Is(VT_I4))
        return values_[7].Raw().lVal;
    const OleStringView rest = values_[6].Is(VT_BSTR) ? ViewOf(values_[6].Raw().bstrVal) : OleStringView();
    const size_t at = rest.find(kEngineType);
    // The size counts a terminator, as long as the equals sign.
    if (at == OleStringView::npos || rest.size() - at <= std::size(kEngineType))
        return -1;
    return wcstol(rest.data() + at + std::size(kEngineType), nullptr, 10);
}

DBPROPSTATUS Properties::SetOne(const GUID& set, const DBPROP& property) noexcept
{
    for (size_t i = 0; i < std::size(kKnown); ++i) {
        if (!IsEqualGUID(kKnown[i].set, set) || kKnown[i].id != property.dwPropertyID)
            continue;
        const VARTYPE type = property.vValue.vt;
        if (type != VT_EMPTY && type != kKnown[i].type)
            return DBPROPSTATUS_BADVALUE;
        return SUCCEEDED(values_[i].Assign(property.vValue)) ? DBPROPSTATUS_OK : DBPROPSTATUS_BADVALUE;
    }
    return DBPROPSTATUS_NOTSUPPORTED;
}

HRESULT Properties::Set(ULONG count, DBPROPSET* sets) noexcept
{
    if (count != 0 && !sets)
        return E_INVALIDARG;
    ULONG good = 0;
    ULONG all = 0;
    for (ULONG i = 0; i < count; ++i) {
        for (ULONG j = 0; j < sets[i].cProperties; ++j) {
            DBPROP& property = sets[i].rgProperties[j];
            property.dwStatus = SetOne(sets[i].guidPropertySet, property);
            good += property.dwStatus == DBPROPSTATUS_OK;
            ++all;
        }
    }
    if (good == all)
        return S_OK;
    return good == 0 ? DB_E_ERRORSOCCURRED : DB_S_ERRORSOCCURRED;
}

HRESULT Properties::Get(ULONG count, const DBPROPIDSET* asked, ULONG* given, DBPROPSET** sets) const noexcept
{
    if (!given || !sets || (count != 0 && !asked))
        return E_INVALIDARG;
    *given = 0;
    *sets = nullptr;
    try {
        const std::vector<Selection> selections = Select(count, asked);
        auto result = AllocateTaskMemory<DBPROPSET>(selections.size());
        for (size_t i = 0; i < selections.size(); ++i) {
            const auto& places = selections[i].places;
            auto properties = AllocateTaskMemory<DBPROP>(places.size());
            for (size_t j = 0; j < places.size(); ++j) {
                properties[j].dwPropertyID = kKnown[places[j]].id;
                if (FAILED(values_[places[j]].CopyTo(&properties[j].vValue)))
                    properties[j].dwStatus = DBPROPSTATUS_BADVALUE;
            }
            result[i] = {properties.release(), static_cast<ULONG>(places.size()), selections[i].set};
        }
        *given = static_cast<ULONG>(selections.size());
        *sets = result.release();
        return S_OK;
    } catch (...) {
        return E_OUTOFMEMORY;
    }
}

HRESULT Properties::Describe(ULONG count, const DBPROPIDSET* asked, ULONG* given, DBPROPINFOSET** sets,
                             OLECHAR** texts) noexcept
{
    if (!given || !sets || !texts || (count != 0 && !asked))
        return E_INVALIDARG;
    *given = 0;
    *sets = nullptr;
    *texts = nullptr;
    try {
        // One buffer with all names, each where it lies in the table.
        OleString names;
        std::array<size_t, std::size(kKnown)> nameAt{};
        for (size_t i = 0; i < std::size(kKnown); ++i) {
            nameAt[i] = names.size();
            names.append(kKnown[i].name).push_back(OLESTR('\0'));
        }
        auto buffer = AllocateTaskMemory<OLECHAR>(names.size());
        std::copy(names.begin(), names.end(), buffer.get());
        const std::vector<Selection> selections = Select(count, asked);
        auto result = AllocateTaskMemory<DBPROPINFOSET>(selections.size());
        for (size_t i = 0; i < selections.size(); ++i) {
            const auto& places = selections[i].places;
            auto infos = AllocateTaskMemory<DBPROPINFO>(places.size());
            for (size_t j = 0; j < places.size(); ++j) {
                DBPROPINFO& info = infos[j];
                info.pwszDescription = buffer.get() + nameAt[places[j]];
                info.dwPropertyID = kKnown[places[j]].id;
                info.dwFlags = DBPROPFLAGS_DBINIT | DBPROPFLAGS_READ | DBPROPFLAGS_WRITE;
                info.vtType = kKnown[places[j]].type;
            }
            result[i] = {infos.release(), static_cast<ULONG>(places.size()), selections[i].set};
        }
        *given = static_cast<ULONG>(selections.size());
        *sets = result.release();
        *texts = buffer.release();
        return S_OK;
    } catch (...) {
        return E_OUTOFMEMORY;
    }
}

}  // namespace quorvane::test
