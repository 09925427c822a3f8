// host/mime/mapi_read.h: single property values of any MAPI object, in UTF-8 and plain types.
//
// A value that isn't there is an empty optional; so is one that can't be read, except where a result code
// says otherwise. Any thread that may call the object.
#ifndef QUORVANE_HOST_MIME_MAPI_READ_H_
#define QUORVANE_HOST_MIME_MAPI_READ_H_

#include <optional>
#include <string>
#include <vector>

#include "quorvane3/com.h"
#include "quorvane3/mapi.h"

namespace quorvane {

// Memory that MAPI allocated, freed with it.
class MapiMemory {
public:
    MapiMemory() = default;
    MapiMemory(const MapiMemory&) = delete;
    MapiMemory& operator=(const MapiMemory&) = delete;
    ~MapiMemory()
    {
        if (memory_)
            MAPIFreeBuffer(memory_);
    }
    template <class T>
    T** Put() noexcept
    {
        return reinterpret_cast<T**>(&memory_);
    }
    template <class T>
    T* As() const noexcept
    {
        return static_cast<T*>(memory_);
    }

private:
    void* memory_ = nullptr;
};

std::optional<LONG> ReadLong(IMAPIProp& object, ULONG tag);
std::optional<bool> ReadBoolean(IMAPIProp& object, ULONG tag);
std::optional<FILETIME> ReadTime(IMAPIProp& object, ULONG tag);

// Whole values; what GetProps declines is read through a stream (value_reader.h reads them in pieces). `tag`
// is the PT_UNICODE one for texts, whose 8-bit form (in `codePage`) is used when the object has no other.
[[nodiscard]] HRESULT ReadText(IMAPIProp& object, ULONG tag, ULONG codePage,
                               std::optional<std::string>& text);
[[nodiscard]] HRESULT ReadBinary(IMAPIProp& object, ULONG tag, std::optional<std::string>& bytes);

// For short texts, where a failure counts as absence.
std::string ShortText(IMAPIProp& object, ULONG tag, ULONG codePage);

// One value of a table's row, null when the row has none of that tag.
const SPropValue* FindValue(const SRow& row, ULONG tag) noexcept;
// A text of a row in either form; empty when there is none.
std::string RowText(const SRow& row, ULONG wideTag, ULONG codePage);

// The code page of an object's 8-bit texts, as it tells; that of Western Europe when it doesn't.
ULONG NarrowCodePage(IMAPIProp& object);

// Reads all rows of a table with the given columns, in batches, and hands each to `visit` until it fails.
template <class Visit>
[[nodiscard]] HRESULT ForEachRow(IMAPITable& table, SPropTagArray* columns, Visit visit)
{
    constexpr LONG kBatch = 100;
    HRESULT hr = table.SetColumns(columns, TBL_BATCH);
    for (bool more = true; SUCCEEDED(hr) && more;) {
        SRowSet* rows = nullptr;
        hr = table.QueryRows(kBatch, 0, &rows);
        if (FAILED(hr))
            break;
        more = rows->cRows > 0;
        for (ULONG i = 0; SUCCEEDED(hr) && i < rows->cRows; ++i)
            hr = visit(rows->aRow[i]);
        FreeProws(rows);
    }
    return FAILED(hr) ? hr : S_OK;
}

}  // namespace quorvane

#endif  // QUORVANE_HOST_MIME_MAPI_READ_H_
