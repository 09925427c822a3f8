#include "engine/persist/oledb_win.h"

#include <algorithm>

#include "engine/persist/database_backend.h"
#include "platform/com/bstr.h"

namespace quorvane {
namespace {

// A failure has a handful of records: what claims more is read so far.
constexpr ULONG kMaxRecords = 64;

// Adds a record's description. What can't be read is left out.
void DescribeRecord(IErrorRecords& records, ULONG number)
{
    ComPtr<IErrorInfo> record;
    Bstr description;
    if (SUCCEEDED(records.GetErrorInfo(number, GetSystemDefaultLCID(), record.Put())) && record &&
        SUCCEEDED(record->GetDescription(description.Put())) && !description.IsNull())
        AddErrorRecord(Narrow(description.View()).c_str());
}

}  // namespace

HRESULT DescribedOledb(HRESULT hr) noexcept
{
    ComPtr<IErrorInfo> info;
    ComPtr<IErrorRecords> records;
    ULONG count = 0;
    if (SUCCEEDED(hr) || GetErrorInfo(0, info.Put()) != S_OK || !info || FAILED(info.As(records)) ||
        !records || FAILED(records->GetRecordCount(&count)))
        return hr;
    try {
        for (ULONG i = 0; i < std::min(count, kMaxRecords); ++i)
            DescribeRecord(*records, i);
    } catch (...) {
        // The result code alone must do.
    }
    return hr;
}

HRESULT RefuseOledb(const char* description) noexcept
{
    AddErrorRecord(description);
    return E_UNEXPECTED;
}

}  // namespace quorvane
