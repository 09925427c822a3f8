#include "engine/persist/database_backend.h"

namespace quorvane {
namespace {

std::vector<std::string>& ThreadRecords() noexcept
{
    thread_local std::vector<std::string> records;
    return records;
}

}  // namespace

const std::vector<std::string>& DatabaseErrorRecords() noexcept
{
    return ThreadRecords();
}

void ClearErrorRecords() noexcept
{
    ThreadRecords().clear();
}

void AddErrorRecord(const char* description) noexcept
{
    try {
        ThreadRecords().emplace_back(description);
    } catch (...) {
        // The result code alone must do.
    }
}

void TraceOLEDBError(HRESULT) noexcept
{
    for (const std::string& description : ThreadRecords())
        Trace("TraceOLEDBError", __LINE__, "Description: %s\n", description.c_str());
}

}  // namespace quorvane
