#include "msgstore/form/form_registry.h"

#include <algorithm>

#include "platform/com/bstr.h"
#include "platform/mapi/mapi.h"
#include "platform/registry/registry.h"

namespace quorvane {
namespace {

constexpr std::string_view kFormsKey = R"(Software\Brindlemoor\Quorvane\Message Store\Forms)";
constexpr std::size_t kLongestClass = 255;

// What a mail calls its class becomes the name of a key, and must be one name.
bool CanBeKey(std::string_view messageClass) noexcept
{
    return !messageClass.empty() && messageClass.size() <= kLongestClass &&
           std::none_of(messageClass.begin(), messageClass.end(),
                        [](char c) { return c == '\\' || static_cast<unsigned char>(c) < ' '; });
}

std::string TextIn(const RegistryKey& key, std::string_view name)
{
    RegistryValue value;
    return SUCCEEDED(key.Query(name, value)) ? std::string(value.Text()) : std::string();
}

bool ReadForm(const RegistryKey& key, FormChoice& form)
{
    form = {};
    std::string library = TextIn(key, "Library");
    if (!library.empty() &&
        SUCCEEDED(CLSIDFromString(Bstr(Widen(TextIn(key, "ClassID"))).Get(), &form.classId))) {
        form.library = std::move(library);
        return true;
    }
    form.viewer = TextIn(key, "Viewer");
    RegistryValue wait;
    form.wait = SUCCEEDED(key.Query("Wait", wait)) && wait.Number() != 0;
    return !form.viewer.empty();
}

bool ReadFormAt(const std::string& path, FormChoice& form)
{
    RegistryKey key;
    return SUCCEEDED(key.Open(RegistryHive::CurrentUser, path)) && ReadForm(key, form);
}

}  // namespace

HRESULT FindForm(std::string_view messageClass, bool exact, FormChoice& form)
{
    std::string_view name = CanBeKey(messageClass) ? messageClass : std::string_view();
    while (!name.empty()) {
        if (ReadFormAt(std::string(kFormsKey).append("\\").append(name), form))
            return S_OK;
        if (exact)
            break;
        const std::size_t dot = name.rfind('.');
        name = dot == std::string_view::npos ? std::string_view() : name.substr(0, dot);
    }
    if (exact)
        return MAPI_E_NOT_FOUND;
    if (!ReadFormAt(std::string(kFormsKey), form)) {
        const bool wait = form.wait;
        form = {};
        form.viewer = DefaultViewer();
        form.wait = wait;
    }
    return S_OK;
}

}  // namespace quorvane
