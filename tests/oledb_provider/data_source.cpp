#include "tests/oledb_provider/data_source.h"

#include <algorithm>

#include "platform/com/bstr.h"
#include "tests/oledb_provider/session.h"

namespace quorvane::test {
namespace {

std::mutex notesMutex;
ProviderNotes notes;

template <size_t Size>
void PutText(const VARIANT& value, OLECHAR (&text)[Size]) noexcept
{
    const OleStringView from = value.vt == VT_BSTR ? ViewOf(value.bstrVal) : OleStringView();
    const size_t size = std::min(from.size(), Size - 1);
    std::copy_n(from.begin(), size, text);
    text[size] = OLESTR('\0');
}

LONG NumberOf(const VARIANT& value) noexcept
{
    return value.vt == VT_I4 ? value.lVal : value.vt == VT_I2 ? value.iVal : -1;
}

void Note(const Properties& properties) noexcept
{
    const std::lock_guard lock(notesMutex);
    ++notes.initialized;
    PutText(properties.DataSource(), notes.dataSource);
    PutText(properties.UserId(), notes.userId);
    notes.mode = NumberOf(properties.Mode());
    notes.prompt = NumberOf(properties.Prompt());
    notes.engineType = properties.EngineType();
    notes.hasWindow = properties.Window().vt != VT_EMPTY;
}

// Access may keep a file for itself or look at it only; here it reads and writes beside others.
bool IsForReadingAndWriting(const VARIANT& mode) noexcept
{
    return NumberOf(mode) == DB_MODE_READWRITE;
}

bool IsMarkedReadOnly(const OleString& path) noexcept
{
    const DWORD attributes = GetFileAttributesW(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_READONLY);
}

}  // namespace

void TakeProviderNotes(ProviderNotes& taken) noexcept
{
    const std::lock_guard lock(notesMutex);
    taken = notes;
}

DataSource::~DataSource()
{
    const std::lock_guard lock(notesMutex);
    ++notes.released;
}

OleString DataSource::Path() const
{
    const VARIANT& path = properties_.DataSource();
    return path.vt == VT_BSTR ? OleString(ViewOf(path.bstrVal)) : OleString();
}

HRESULT DataSource::Initialize()
{
    try {
        const std::lock_guard lock(mutex_);
        if (isInitialized_)
            return Fail(DB_E_ALREADYINITIALIZED, {"The data source is initialized."});
        Note(properties_);
        if (!IsForReadingAndWriting(properties_.Mode()))
            return Fail(E_FAIL, {"The mode isn't for reading and writing."});
        const OleString path = Path();
        if (IsMarkedReadOnly(path))
            return Fail(DB_SEC_E_PERMISSIONDENIED, {"The file may not be written."});
        std::shared_ptr<Connection> connection;
        const HRESULT hr = Connection::Open(path, connection);
        isInitialized_ = SUCCEEDED(hr);
        return hr;
    } catch (...) {
        return E_OUTOFMEMORY;
    }
}

HRESULT DataSource::Uninitialize()
{
    const std::lock_guard lock(mutex_);
    isInitialized_ = false;
    return S_OK;
}

HRESULT DataSource::SetProperties(ULONG count, DBPROPSET* sets)
{
    const std::lock_guard lock(mutex_);
    if (isInitialized_)
        return Fail(E_UNEXPECTED, {"The data source is initialized."});
    return properties_.Set(count, sets);
}

HRESULT DataSource::GetProperties(ULONG count, const DBPROPIDSET* asked, ULONG* given, DBPROPSET** sets)
{
    const std::lock_guard lock(mutex_);
    return properties_.Get(count, asked, given, sets);
}

HRESULT DataSource::GetPropertyInfo(ULONG count, const DBPROPIDSET* asked, ULONG* given, DBPROPINFOSET** sets,
                                    OLECHAR** texts)
{
    return Properties::Describe(count, asked, given, sets, texts);
}

HRESULT DataSource::CreateSession(IUnknown* outer, REFIID riid, IUnknown** session)
{
    if (!session)
        return E_INVALIDARG;
    *session = nullptr;
    if (outer)
        return DB_E_NOAGGREGATION;
    try {
        const std::lock_guard lock(mutex_);
        if (!isInitialized_)
            return Fail(E_UNEXPECTED, {"The data source isn't initialized."});
        std::shared_ptr<Connection> connection;
        if (const HRESULT hr = Connection::Open(Path(), connection); FAILED(hr))
            return hr;
        const auto made = MakeComObject<Session>(std::move(connection));
        return made ? made->QueryInterface(riid, reinterpret_cast<void**>(session)) : E_OUTOFMEMORY;
    } catch (...) {
        return E_OUTOFMEMORY;
    }
}

HRESULT DataSource::GetClassID(CLSID* clsid)
{
    if (!clsid)
        return E_INVALIDARG;
    *clsid = kProviderClass;
    return S_OK;
}

}  // namespace quorvane::test
