#include "engine/persist/database_backend.h"
#include "platform/com/per_thread.h"

namespace quorvane {
namespace {

using Records = std::vector<std::string>;

// Throws std::bad_alloc.
PerThread<Records>& ThreadRecords()
{
    static PerThread<Records> records;
    return records;
}

Records* FindRecords() noexcept
{
    try {
        return ThreadRecords().Find();
    } catch (...) {
        // Where there is no place for records there are none.
        return nullptr;
    }
}

}  // namespace

const std::vector<std::string>& DatabaseErrorRecords() noexcept
{
    static const Records none;
    const Records* const found = FindRecords();
    return found ? *found : none;
}

void ClearErrorRecords() noexcept
{
    if (Records* const found = FindRecords())
        found->clear();
}

void AddErrorRecord(const char* description) noexcept
{
    try {
        ThreadRecords().Get().emplace_back(description);
    } catch (...) {
        // The result code alone must do.
    }
}

void TraceOLEDBError(HRESULT) noexcept
{
    for (const std::string& description : DatabaseErrorRecords())
        Trace("TraceOLEDBError", __LINE__, "Description: %s\n", description.c_str());
}

}  // namespace quorvane
