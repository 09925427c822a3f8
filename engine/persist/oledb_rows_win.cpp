#include "engine/persist/oledb_rows_win.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "engine/session/trace/trace.h"

namespace quorvane {
namespace {

using Block = std::vector<BYTE>;

constexpr size_t kAlignment = 8;
// Behind each value of a row: what a provider writes there is found, and does no harm.
constexpr size_t kGuardSize = 16;
constexpr BYTE kGuard = 0xA5;

constexpr DBTYPE TypeOf(ValueType type) noexcept
{
    switch (type) {
        case ValueType::Text:
            return DBTYPE_STR;
        case ValueType::Double:
            return DBTYPE_R8;
        case ValueType::Byte:
            return DBTYPE_UI1;
        default:
            return DBTYPE_I2;
    }
}

constexpr size_t SizeOf(ValueType type, ULONG width) noexcept
{
    switch (type) {
        case ValueType::Text:
            return width;
        case ValueType::Double:
            return sizeof(double);
        case ValueType::Byte:
            return sizeof(BYTE);
        default:
            return sizeof(SHORT);
    }
}

// Room for so many bytes at the block's end. Where it begins.
size_t AddRoom(Block& block, size_t size)
{
    const size_t place = (block.size() + kAlignment - 1) / kAlignment * kAlignment;
    block.resize(place + size);
    return place;
}

DBBINDING BindingOf(ULONG ordinal, ValueType type, ULONG width) noexcept
{
    DBBINDING binding{};
    binding.iOrdinal = ordinal;
    binding.dwMemOwner = DBMEMOWNER_CLIENTOWNED;
    binding.wType = TypeOf(type);
    binding.cbMaxLen = SizeOf(type, width);
    return binding;
}

template <class Number>
void PutNumber(Block& block, size_t place, double number) noexcept
{
    const auto value = static_cast<Number>(number);
    std::memcpy(block.data() + place, &value, sizeof(value));
}

void PutValue(Block& block, size_t place, const ParameterValue& value) noexcept
{
    switch (value.type) {
        case ValueType::Text:
            std::memcpy(block.data() + place, value.text.c_str(), value.text.size() + 1);
            break;
        case ValueType::Double:
            PutNumber<double>(block, place, value.number);
            break;
        case ValueType::Byte:
            PutNumber<BYTE>(block, place, value.number);
            break;
        default:
            PutNumber<SHORT>(block, place, value.number);
    }
}

// An accessor of a command or a rowset.
class Accessor {
public:
    Accessor() noexcept = default;
    Accessor(const Accessor&) = delete;
    Accessor& operator=(const Accessor&) = delete;
    ~Accessor()
    {
        if (owner_)
            owner_->ReleaseAccessor(handle_, nullptr);
    }

    HRESULT Create(IUnknown* owner, DBACCESSORFLAGS flags, const std::vector<DBBINDING>& bindings,
                   size_t rowSize) noexcept
    {
        ComPtr<IAccessor> accessors;
        HR_TRY_QUIET(CallOledb([&] { return QueryFor(owner, accessors); }, accessors));
        HR_TRY_QUIET(CallOledb([&] {
            return accessors->CreateAccessor(flags, bindings.size(), bindings.data(), rowSize, &handle_,
                                             nullptr);
        }));
        if (handle_ == DB_INVALID_HACCESSOR)
            return RefuseOledb("The provider succeeded and gave no accessor.");
        owner_ = std::move(accessors);
        return S_OK;
    }
    HACCESSOR Handle() const noexcept { return handle_; }

private:
    ComPtr<IAccessor> owner_;
    HACCESSOR handle_ = DB_INVALID_HACCESSOR;
};

// The parameters of one command: each a place in one block.
class Parameters {
public:
    HRESULT Bind(ICommandText& command, std::span<const ParameterValue> values)
    {
        if (values.empty())
            return S_OK;
        std::vector<DBBINDING> bindings;
        for (const ParameterValue& value : values) {
            DBBINDING binding = BindingOf(value.ordinal, value.type, value.width);
            binding.dwPart = DBPART_VALUE;
            binding.eParamIO = DBPARAMIO_INPUT;
            binding.obValue = AddRoom(block_, binding.cbMaxLen);
            PutValue(block_, binding.obValue, value);
            bindings.push_back(binding);
        }
        HR_TRY_QUIET(accessor_.Create(&command, DBACCESSOR_PARAMETERDATA, bindings, block_.size()));
        described_ = {block_.data(), 1, accessor_.Handle()};
        return S_OK;
    }
    DBPARAMS* Get() noexcept { return block_.empty() ? nullptr : &described_; }

private:
    Block block_;
    Accessor accessor_;
    DBPARAMS described_{};
};

// A statement that gave no rows.
class NoRows final : public DatabaseCursor {
public:
    HRESULT Step() noexcept override { return kEndOfRowset; }
    bool HasValue(ULONG) const noexcept override { return false; }
    bool Text(ULONG, ULONG, std::string&) const override { return false; }
    double Number(ULONG) const noexcept override { return 0; }
};

HRESULT RefuseColumns() noexcept
{
    AddErrorRecord("The statement gives another number of columns.");
    return E_INVALIDARG;
}

class OledbRows final : public DatabaseCursor {
public:
    explicit OledbRows(ComPtr<IRowset> rows) noexcept : rows_(std::move(rows)) {}

    // The columns by their ordinals, each with its status, its length and its value in one block.
    HRESULT Bind(std::span<const Column> columns)
    {
        HR_TRY_QUIET(CheckCount(columns.size()));
        for (const Column& column : columns) {
            DBBINDING binding =
                BindingOf(static_cast<ULONG>(bindings_.size() + 1), column.type, column.width);
            binding.dwPart = DBPART_VALUE | DBPART_LENGTH | DBPART_STATUS;
            binding.obStatus = AddRoom(block_, sizeof(DBSTATUS));
            binding.obLength = AddRoom(block_, sizeof(DBLENGTH));
            binding.obValue = AddRoom(block_, binding.cbMaxLen + kGuardSize);
            bindings_.push_back(binding);
        }
        return accessor_.Create(rows_.Get(), DBACCESSOR_ROWDATA, bindings_, block_.size());
    }

    HRESULT Step() noexcept override
    {
        HROW row = DB_NULL_HROW;
        HROW* place = &row;
        DBCOUNTITEM count = 0;
        HR_TRY_QUIET(CallOledb([&] { return rows_->GetNextRows(DB_NULL_HCHAPTER, 0, 1, &count, &place); }));
        if (count == 0)
            return kEndOfRowset;
        if (count != 1 || place != &row)
            return RefuseOledb("The provider gave rows that it wasn't asked for.");
        PrepareBlock();
        const HRESULT hr = CallOledb([&] { return rows_->GetData(row, accessor_.Handle(), block_.data()); });
        rows_->ReleaseRows(1, &row, nullptr, nullptr, nullptr);
        if (FAILED(hr) && hr != DB_E_ERRORSOCCURRED)
            return hr;
        HR_TRY_QUIET(CheckRow());
        return SUCCEEDED(hr) ? S_OK : hr;
    }

    bool HasValue(ULONG column) const noexcept override { return StatusOf(column) != DBSTATUS_S_ISNULL; }

    bool Text(ULONG column, ULONG width, std::string& text) const override
    {
        if (StatusOf(column) == DBSTATUS_S_TRUNCATED)
            return false;
        const auto* const found =
            reinterpret_cast<const char*>(block_.data() + bindings_[column - 1].obValue);
        const size_t size = strnlen(found, width);
        if (size == width)
            return false;
        text.assign(found, size);
        return true;
    }

    double Number(ULONG column) const noexcept override
    {
        const DBBINDING& binding = bindings_[column - 1];
        const BYTE* const from = block_.data() + binding.obValue;
        if (binding.wType == DBTYPE_UI1)
            return *from;
        double number = 0;
        SHORT shortNumber = 0;
        if (binding.wType == DBTYPE_I2) {
            std::memcpy(&shortNumber, from, sizeof(shortNumber));
            return shortNumber;
        }
        std::memcpy(&number, from, sizeof(number));
        return number;
    }

private:
    HRESULT CheckCount(size_t expected) const
    {
        ComPtr<IColumnsInfo> info;
        HR_TRY_QUIET(CallOledb([&] { return rows_.As(info); }, info));
        DBORDINAL count = 0;
        DBCOLUMNINFO* columns = nullptr;
        OLECHAR* texts = nullptr;
        HR_TRY_QUIET(CallOledb([&] { return info->GetColumnInfo(&count, &columns, &texts); }));
        // A bookmark stands in front of the columns, as number 0.
        const bool hasBookmark = count > 0 && columns && columns[0].iOrdinal == 0;
        CoTaskMemFree(columns);
        CoTaskMemFree(texts);
        return count - (hasBookmark ? 1 : 0) == expected ? S_OK : RefuseColumns();
    }

    DBSTATUS StatusOf(ULONG column) const noexcept
    {
        DBSTATUS status = 0;
        std::memcpy(&status, block_.data() + bindings_[column - 1].obStatus, sizeof(status));
        return status;
    }

    // Every value is missing until the provider says otherwise.
    void PrepareBlock() noexcept
    {
        constexpr DBSTATUS kMissing = DBSTATUS_E_UNAVAILABLE;
        std::fill(block_.begin(), block_.end(), BYTE{0});
        for (const DBBINDING& binding : bindings_) {
            std::memcpy(block_.data() + binding.obStatus, &kMissing, sizeof(kMissing));
            std::fill_n(block_.data() + binding.obValue + binding.cbMaxLen, kGuardSize, kGuard);
        }
    }

    HRESULT CheckRow() const noexcept
    {
        for (ULONG column = 1; column <= bindings_.size(); ++column)
            HR_TRY_QUIET(CheckValue(column));
        return S_OK;
    }

    // A text that was cut is told by Text.
    HRESULT CheckValue(ULONG column) const noexcept
    {
        const DBBINDING& binding = bindings_[column - 1];
        const BYTE* const guard = block_.data() + binding.obValue + binding.cbMaxLen;
        if (std::any_of(guard, guard + kGuardSize, [](BYTE byte) { return byte != kGuard; }))
            return RefuseOledb("The provider wrote behind a value's room.");
        const DBSTATUS status = StatusOf(column);
        if (status == DBSTATUS_S_OK)
            return CheckLength(binding);
        if (status == DBSTATUS_S_ISNULL || (status == DBSTATUS_S_TRUNCATED && binding.wType == DBTYPE_STR))
            return S_OK;
        AddErrorRecord(DescriptionOf(status));
        return E_INVALIDARG;
    }

    // A text's terminator isn't counted, and has room.
    HRESULT CheckLength(const DBBINDING& binding) const noexcept
    {
        DBLENGTH length = 0;
        std::memcpy(&length, block_.data() + binding.obLength, sizeof(length));
        const DBLENGTH longest = binding.cbMaxLen - (binding.wType == DBTYPE_STR ? 1 : 0);
        return length <= longest ? S_OK
                                 : RefuseOledb("The provider told a length that a value has no room for.");
    }

    static const char* DescriptionOf(DBSTATUS status) noexcept
    {
        switch (status) {
            case DBSTATUS_S_TRUNCATED:
            case DBSTATUS_E_SIGNMISMATCH:
            case DBSTATUS_E_DATAOVERFLOW:
                return "A value has no room in its column.";
            case DBSTATUS_E_CANTCONVERTVALUE:
            case DBSTATUS_E_SCHEMAVIOLATION:
                return "A value isn't of its column's type.";
            default:
                return "The provider gave no value for a column.";
        }
    }

    const ComPtr<IRowset> rows_;
    std::vector<DBBINDING> bindings_;
    Block block_;
    Accessor accessor_;
};

}  // namespace

HRESULT RunOledbCommand(ICommandText& command, std::span<const ParameterValue> values,
                        std::span<const Column> columns, std::unique_ptr<DatabaseCursor>& cursor)
{
    Parameters parameters;
    HR_TRY_QUIET(parameters.Bind(command, values));
    if (columns.empty()) {
        HR_TRY_QUIET(CallOledb(
            [&] { return command.Execute(nullptr, IID_NULL, parameters.Get(), nullptr, nullptr); }));
        cursor = std::make_unique<NoRows>();
        return S_OK;
    }
    ComPtr<IRowset> rows;
    HR_TRY_QUIET(CallOledb(
        [&] { return command.Execute(nullptr, IID_IRowset, parameters.Get(), nullptr, rows.PutUnknown()); }));
    // A statement that isn't a query succeeds without rows.
    if (!rows)
        return RefuseColumns();
    auto result = std::make_unique<OledbRows>(std::move(rows));
    HR_TRY_QUIET(result->Bind(columns));
    cursor = std::move(result);
    return S_OK;
}

}  // namespace quorvane
