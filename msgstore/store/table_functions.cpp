#include "msgstore/store/table_functions.h"

#include <sqlite3.h>

#include "msgstore/table/text_fold.h"
#include "platform/com/bstr.h"

namespace quorvane {
namespace {

constexpr char kReaderType[] = "qv_reader";

void GiveFolded(sqlite3_context* context, int, sqlite3_value** values)
{
    if (sqlite3_value_type(values[0]) == SQLITE_NULL)
        return sqlite3_result_null(context);
    const auto* const text = reinterpret_cast<const char*>(sqlite3_value_text(values[0]));
    const auto size = static_cast<std::size_t>(sqlite3_value_bytes(values[0]));
    if (!text)
        return sqlite3_result_error_nomem(context);
    const HRESULT hr = Guarded([&] {
        const std::string folded = FoldUtf8(std::string_view(text, size));
        sqlite3_result_text64(context, folded.data(), folded.size(), SQLITE_TRANSIENT, SQLITE_UTF8);
        return S_OK;
    });
    if (FAILED(hr))
        sqlite3_result_error_nomem(context);
}

void GiveKey(sqlite3_context* context, int, sqlite3_value** values)
{
    auto* const reader = static_cast<SortKeyReader*>(sqlite3_value_pointer(values[0], kReaderType));
    if (!reader)
        return sqlite3_result_error_code(context, SQLITE_MISUSE);
    Bytes key;
    const bool has =
        reader->Read(sqlite3_value_int64(values[1]), static_cast<ULONG>(sqlite3_value_int64(values[2])), key);
    if (FAILED(reader->Failure()))
        sqlite3_result_error_code(context, SQLITE_ABORT);
    else if (has)
        sqlite3_result_blob64(context, key.data(), key.size(), SQLITE_TRANSIENT);
    else
        sqlite3_result_null(context);
}

}  // namespace

int AddTableFunctions(sqlite3* database) noexcept
{
    constexpr int flags = SQLITE_UTF8 | SQLITE_DIRECTONLY;
    const int folds = sqlite3_create_function_v2(database, "qv_fold", 1, flags | SQLITE_DETERMINISTIC,
                                                 nullptr, GiveFolded, nullptr, nullptr, nullptr);
    if (folds != SQLITE_OK)
        return folds;
    return sqlite3_create_function_v2(database, "qv_key", 3, flags, nullptr, GiveKey, nullptr, nullptr,
                                      nullptr);
}

void SortKeyReader::BindTo(SqliteRows& rows) noexcept
{
    rows.BindPointer(this, kReaderType);
}

bool SortKeyReader::Read(std::int64_t id, ULONG tag, Bytes& key) noexcept
{
    bool has = false;
    const HRESULT hr = Guarded([&] {
        QV_RETURN_IF_FAILED(failure_);
        if (at_ != id)
            QV_RETURN_IF_FAILED(reader_.MoveTo(id));
        at_ = id;
        const PropertyValue* const value = reader_.Find(tag);
        has = value != nullptr;
        if (has)
            key = SortKey(*value);
        return reader_.TakeFailure();
    });
    if (FAILED(hr))
        failure_ = hr;
    return has && SUCCEEDED(hr);
}

}  // namespace quorvane
