#include "engine/persist/oledb_win.h"

#include "engine/persist/database_backend.h"
#include "platform/com/bstr.h"

namespace quorvane {

HRESULT DescribedOledb(HRESULT hr) noexcept
{
    ComPtr<IErrorInfo> info;
    ComPtr<IErrorRecords> records;
    ULONG count = 0;
    if (SUCCEEDED(hr) || GetErrorInfo(0, info.Put()) != S_OK || FAILED(info.As(records)) ||
        FAILED(records->GetRecordCount(&count)))
        return hr;
    for (ULONG i = 0; i < count; ++i) {
        ComPtr<IErrorInfo> record;
        Bstr description;
        if (FAILED(records->GetErrorInfo(i, GetSystemDefaultLCID(), record.Put())) ||
            FAILED(record->GetDescription(description.Put())))
            continue;
        try {
            AddErrorRecord(Narrow(description.View()).c_str());
        } catch (...) {
            return hr;
        }
    }
    return hr;
}

}  // namespace quorvane
