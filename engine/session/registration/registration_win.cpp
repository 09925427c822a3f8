#include <new>

#include "engine/session/registration/classes_writer.h"
#include "engine/session/registration/registration.h"
#include "engine/session/trace/trace.h"
#include "platform/com/bstr.h"
#include "platform/com/own_module.h"

namespace quorvane {

namespace {

constexpr Traced kRegister{"DllRegisterServer"};
constexpr Traced kUnregister{"DllUnregisterServer"};

// The module's type library and what it is registered by.
class TypeLibraryEntry {
public:
    TypeLibraryEntry() noexcept = default;
    TypeLibraryEntry(const TypeLibraryEntry&) = delete;
    TypeLibraryEntry& operator=(const TypeLibraryEntry&) = delete;
    ~TypeLibraryEntry()
    {
        if (attributes_)
            library_->ReleaseTLibAttr(attributes_);
    }

    HRESULT Open() noexcept
    {
        const HRESULT hr = OpenOwnTypeLibrary(library_);
        return FAILED(hr) ? hr : library_->GetLibAttr(&attributes_);
    }

    bool IsRegistered() const noexcept
    {
        Bstr path;
        return SUCCEEDED(QueryPathOfRegTypeLib(attributes_->guid, attributes_->wMajorVerNum,
                                               attributes_->wMinorVerNum, attributes_->lcid, path.Put()));
    }

    // What a failure leaves of a library that wasn't registered before is removed.
    HRESULT Register(OleString modulePath)
    {
        const bool wasRegistered = IsRegistered();
        OleString folder = modulePath.substr(0, modulePath.find_last_of(L'\\'));
        const HRESULT hr = RegisterTypeLib(library_.Get(), modulePath.data(), folder.data());
        if (FAILED(hr) && !wasRegistered)
            HR_IGNORE(Remove(), "the failure to register is what counts");
        return hr;
    }

    HRESULT Unregister() noexcept { return IsRegistered() ? Remove() : S_OK; }

private:
    HRESULT Remove() noexcept
    {
        return UnRegisterTypeLib(attributes_->guid, attributes_->wMajorVerNum, attributes_->wMinorVerNum,
                                 attributes_->lcid, attributes_->syskind);
    }

    ComPtr<ITypeLib> library_;
    TLIBATTR* attributes_ = nullptr;
};

HRESULT WriteAll(ClassesWriter& writer, const std::vector<ClassesText>& texts) noexcept
{
    for (const ClassesText& text : texts)
        HR_TRY_QUIET(writer.Write(text));
    return S_OK;
}

HRESULT RegisterEverything()
{
    OleString path;
    HR_TRY(kRegister, OwnModulePath(path));
    TypeLibraryEntry typeLibrary;
    HR_TRY(kRegister, typeLibrary.Open());
    ClassesWriter writer;
    HR_TRY(kRegister, WriteAll(writer, ClassTexts(ClassCatalogue(), path)));
    // The system doesn't tell of every key that it can't write.
    HR_TRY(kRegister, WriteAll(writer, TypeLibraryTexts()));
    HR_TRY(kRegister, typeLibrary.Register(path));
    writer.Keep();
    return S_OK;
}

HRESULT RemoveKey(const OleString& key) noexcept
{
    const LSTATUS status = RegDeleteTreeW(HKEY_CLASSES_ROOT, key.c_str());
    return status == ERROR_FILE_NOT_FOUND ? S_OK : HRESULT_FROM_WIN32(static_cast<DWORD>(status));
}

HRESULT RemoveTypeLibrary() noexcept
{
    TypeLibraryEntry typeLibrary;
    HR_TRY(kUnregister, typeLibrary.Open());
    return kUnregister(typeLibrary.Unregister());
}

HRESULT RemoveEverything()
{
    HRESULT result = RemoveTypeLibrary();
    for (const OleString& key : ClassKeys(ClassCatalogue())) {
        const HRESULT hr = kUnregister(RemoveKey(key));
        if (SUCCEEDED(result))
            result = hr;
    }
    return result;
}

}  // namespace

HRESULT RegisterServer() noexcept
{
    try {
        return RegisterEverything();
    } catch (const std::bad_alloc&) {
        return kRegister(E_OUTOFMEMORY);
    }
}

HRESULT UnregisterServer() noexcept
{
    try {
        return RemoveEverything();
    } catch (const std::bad_alloc&) {
        return kUnregister(E_OUTOFMEMORY);
    }
}

}  // namespace quorvane
