#include "msgstore/message/recipients.h"

#include <algorithm>
#include <set>

#include "msgstore/util/guarded.h"

namespace quorvane {
namespace {

// Identifiers above it aren't kept, so that counting on from the highest never overflows.
constexpr LONGLONG kMostRowId = 1 << 30;

// The row's PR_ROWID, or -1 if it has none that's usable.
LONG RowIdOf(const PropertyBag& row) noexcept
{
    const PropertyValue* const id = row.Find(PR_ROWID);
    const LONGLONG value = id ? id->AsInteger() : -1;
    return value >= 0 && value <= kMostRowId ? static_cast<LONG>(value) : -1;
}

HRESULT ReadEntry(const ADRENTRY& entry, PropertyBag& row)
{
    if (entry.cValues > 0 && !entry.rgPropVals)
        return MAPI_E_INVALID_PARAMETER;
    for (ULONG i = 0; i < entry.cValues; ++i) {
        PropertyValue value;
        const HRESULT hr = FromSPropValue(entry.rgPropVals[i], value);
        // Rows that come from a table carry an error for every column they lack.
        if (hr == MAPI_E_INVALID_TYPE)
            continue;
        QV_RETURN_IF_FAILED(hr);
        row.Put(std::move(value));
    }
    return S_OK;
}

std::vector<PropertyBag>::iterator FindRow(std::vector<PropertyBag>& rows, LONG id) noexcept
{
    return std::find_if(rows.begin(), rows.end(),
                        [id](const PropertyBag& row) { return RowIdOf(row) == id; });
}

}  // namespace

void Recipients::Assign(std::vector<PropertyBag> rows)
{
    std::set<LONG> taken;
    nextId_ = 0;
    for (const PropertyBag& row : rows)
        nextId_ = std::max(nextId_, RowIdOf(row) + 1);
    for (PropertyBag& row : rows) {
        const LONG id = RowIdOf(row);
        if (id < 0 || !taken.insert(id).second)
            row.Put(PropertyValue::Long(PR_ROWID, nextId_++));
    }
    rows_ = std::move(rows);
}

HRESULT Recipients::Append(const std::vector<PropertyBag>& read, std::vector<PropertyBag>& rows)
{
    for (const PropertyBag& one : read) {
        rows.push_back(one);
        rows.back().Put(PropertyValue::Long(PR_ROWID, nextId_++));
    }
    return S_OK;
}

HRESULT Recipients::Replace(const std::vector<PropertyBag>& read, std::vector<PropertyBag>& rows)
{
    for (const PropertyBag& one : read) {
        const auto row = FindRow(rows, RowIdOf(one));
        if (RowIdOf(one) < 0 || row == rows.end())
            return MAPI_E_INVALID_PARAMETER;
        *row = one;
    }
    return S_OK;
}

void Recipients::Remove(const std::vector<PropertyBag>& read, std::vector<PropertyBag>& rows)
{
    std::set<LONG> ids;
    for (const PropertyBag& one : read)
        ids.insert(RowIdOf(one));
    rows.erase(std::remove_if(rows.begin(), rows.end(),
                              [&](const PropertyBag& row) { return ids.count(RowIdOf(row)) > 0; }),
               rows.end());
}

HRESULT Recipients::Modify(ULONG flags, const ADRLIST& changes) noexcept
{
    return Guarded([&]() -> HRESULT {
        std::vector<PropertyBag> read(changes.cEntries);
        for (ULONG i = 0; i < changes.cEntries; ++i)
            QV_RETURN_IF_FAILED(ReadEntry(changes.aEntries[i], read[i]));
        std::vector<PropertyBag> rows;
        if (flags != 0)
            rows = rows_;
        switch (flags) {
            case 0:
            case MODRECIP_ADD:
                QV_RETURN_IF_FAILED(Append(read, rows));
                break;
            case MODRECIP_MODIFY:
                QV_RETURN_IF_FAILED(Replace(read, rows));
                break;
            case MODRECIP_REMOVE:
                Remove(read, rows);
                break;
            default:
                return MAPI_E_UNKNOWN_FLAGS;
        }
        rows_ = std::move(rows);
        return S_OK;
    });
}

OleString Recipients::DisplayList(ULONG recipientType, ULONG codePage) const
{
    OleString list;
    for (const PropertyBag& row : rows_) {
        const PropertyValue* const type = row.Find(PR_RECIPIENT_TYPE);
        // The upper bits say what became of an earlier try to send.
        constexpr LONGLONG kKindBits = 0x0FFFFFFF;
        if ((type ? type->AsInteger() & kKindBits : MAPI_TO) != static_cast<LONGLONG>(recipientType))
            continue;
        const PropertyValue* name = row.Find(PR_DISPLAY_NAME_W);
        if (!name)
            name = row.Find(PR_EMAIL_ADDRESS_W);
        if (!list.empty())
            list += OLESTR("; ");
        if (name)
            list += name->AsText(codePage);
    }
    return list;
}

HRESULT AddressList::Make(const std::vector<PropertyBag>& rows) noexcept
{
    const MapiAllocator allocator;
    list_ = static_cast<LPADRLIST>(allocator.Allocate(CbNewADRLIST(rows.size() + 1)));
    if (!list_)
        return MAPI_E_NOT_ENOUGH_MEMORY;
    list_->cEntries = 0;
    for (const PropertyBag& row : rows) {
        auto* const values =
            static_cast<LPSPropValue>(allocator.Allocate((row.size() + 1) * sizeof(SPropValue)));
        if (!values)
            return MAPI_E_NOT_ENOUGH_MEMORY;
        list_->aEntries[list_->cEntries++] = ADRENTRY{0, static_cast<ULONG>(row.size()), values};
        ULONG count = 0;
        for (const PropertyValue& value : row)
            QV_RETURN_IF_FAILED(
                ToSPropValue(value, value.type(), allocator, values, values[count++], 0, kNoValueLimit));
    }
    return S_OK;
}

}  // namespace quorvane
