#include <new>
#include <utility>

#include "engine/session/registration/classes_writer.h"

namespace quorvane {

namespace {

// Owns an open key, or none.
class OpenKey {
public:
    OpenKey() noexcept = default;
    OpenKey(const OpenKey&) = delete;
    OpenKey& operator=(const OpenKey&) = delete;
    ~OpenKey() { Close(); }

    HKEY Get() const noexcept { return key_; }
    HKEY& Put() noexcept
    {
        Close();
        return key_;
    }

private:
    void Close() noexcept
    {
        if (key_)
            RegCloseKey(std::exchange(key_, nullptr));
    }

    HKEY key_ = nullptr;
};

}  // namespace

ClassesWriter::~ClassesWriter()
{
    for (; !steps_.empty(); steps_.pop_back())
        Undo(steps_.back());
}

HRESULT ClassesWriter::Write(const ClassesText& text) noexcept
{
    try {
        OpenKey key;
        LSTATUS status = MakeKeys(text.key, key.Put());
        if (status == ERROR_SUCCESS && text.text)
            status = SetValue(key.Get(), text);
        return HRESULT_FROM_WIN32(static_cast<DWORD>(status));
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

// One level after the other, since only the last of several that are made at once is known to be new.
LSTATUS ClassesWriter::MakeKeys(const OleString& path, HKEY& last)
{
    for (size_t end = path.find(L'\\'); end != OleString::npos; end = path.find(L'\\', end + 1)) {
        OpenKey above;
        const LSTATUS status = MakeKey(path.substr(0, end), above.Put());
        if (status != ERROR_SUCCESS)
            return status;
    }
    return MakeKey(path, last);
}

LSTATUS ClassesWriter::MakeKey(OleString path, HKEY& key)
{
    steps_.reserve(steps_.size() + 1);
    DWORD made = 0;
    const LSTATUS status = RegCreateKeyExW(HKEY_CLASSES_ROOT, path.c_str(), 0, nullptr, 0,
                                           KEY_QUERY_VALUE | KEY_SET_VALUE, nullptr, &key, &made);
    if (status == ERROR_SUCCESS && made == REG_CREATED_NEW_KEY)
        steps_.push_back({std::move(path), std::nullopt});
    return status;
}

LSTATUS ClassesWriter::SetValue(HKEY key, const ClassesText& text)
{
    Step step{text.key, FormerValue{text.name, false, 0, {}}};
    LSTATUS status = ReadValue(key, *step.value);
    if (status != ERROR_SUCCESS)
        return status;
    steps_.reserve(steps_.size() + 1);
    const auto size = static_cast<DWORD>((text.text->size() + 1) * sizeof(OLECHAR));
    status = RegSetValueExW(key, text.name.c_str(), 0, REG_SZ,
                            reinterpret_cast<const BYTE*>(text.text->c_str()), size);
    if (status == ERROR_SUCCESS)
        steps_.push_back(std::move(step));
    return status;
}

// The value may grow between the two calls.
LSTATUS ClassesWriter::ReadValue(HKEY key, FormerValue& value)
{
    LSTATUS status = ERROR_MORE_DATA;
    while (status == ERROR_MORE_DATA) {
        DWORD size = 0;
        status = RegQueryValueExW(key, value.name.c_str(), nullptr, &value.type, nullptr, &size);
        if (status == ERROR_FILE_NOT_FOUND)
            return ERROR_SUCCESS;
        if (status != ERROR_SUCCESS)
            return status;
        value.bytes.resize(size + 1);
        status = RegQueryValueExW(key, value.name.c_str(), nullptr, &value.type, value.bytes.data(), &size);
        if (status == ERROR_SUCCESS)
            value.bytes.resize(size);
    }
    value.existed = status == ERROR_SUCCESS;
    return status;
}

// A key that wasn't there before goes with all that was put into it meanwhile. A step that can't be undone is
// left; those before it are undone all the same.
void ClassesWriter::Undo(const Step& step) noexcept
{
    if (!step.value) {
        RegDeleteTreeW(HKEY_CLASSES_ROOT, step.key.c_str());
        return;
    }
    OpenKey key;
    if (RegOpenKeyExW(HKEY_CLASSES_ROOT, step.key.c_str(), 0, KEY_SET_VALUE, &key.Put()) != ERROR_SUCCESS)
        return;
    const FormerValue& value = *step.value;
    if (value.existed)
        RegSetValueExW(key.Get(), value.name.c_str(), 0, value.type, value.bytes.data(),
                       static_cast<DWORD>(value.bytes.size()));
    else
        RegDeleteValueW(key.Get(), value.name.c_str());
}

}  // namespace quorvane
