// The same host bound late: it knows the engine by docs/object-model.txt alone, loads it when it runs, finds
// operations by their names, and answers the engine's calls by their identifiers. No header of the object
// model is included, and nothing of the engine is linked.
//
//   late_bound_host ENGINE ID     ENGINE: the library's path; ID: what all members of the folder call it
#include <dlfcn.h>

#include <chrono>
#include <filesystem>
#include <iostream>
#include <thread>
#include <vector>

#include "notes_folder.h"

using namespace quorvane;

namespace {

// Of the page: the class Library, the callback interface, and identifiers of its operations.
constexpr CLSID kLibrary = {0xB95EEE80, 0xC751, 0x4B04, {0x9B, 0x50, 0xD5, 0x54, 0xC6, 0x0F, 0x13, 0x72}};
constexpr IID kHostCallbacks = {0x8673F214, 0xAE1D, 0x4297, {0xBD, 0xD9, 0xA4, 0x18, 0xB8, 0x28, 0x3F, 0xF2}};
constexpr DISPID kOnItemAdded = 3, kDatabasePath = 9, kProductCode = 10;
constexpr LONG kResumeBoth = 0;

Variant Text(const std::string& text)
{
    return Variant::Text(FromUtf8(text));
}

std::string TextOf(const Variant& value)
{
    return value.Is(VT_BSTR) ? ToUtf8(ViewOf(value.Raw().bstrVal)) : "";
}

// An object known by its operations' names.
class Object {
public:
    explicit Object(IDispatch* object) : object_(object) {}
    explicit Object(const Variant& value)
    {
        const bool isObject = value.Is(VT_DISPATCH) || value.Is(VT_UNKNOWN);
        Check(isObject && value.Raw().punkVal ? S_OK : E_NOINTERFACE, "take an object");
        Check(value.Raw().punkVal->QueryInterface(IID_IDispatch, object_.PutVoid()), "take an object");
    }

    Variant Get(const char* name) const { return Do(name, DISPATCH_PROPERTYGET, {}); }
    // Arguments first to last; those that are left out at the end are optional ones.
    template <class... Values>
    Variant Call(const char* name, Values... values) const
    {
        std::vector<Variant> arguments;
        (arguments.push_back(std::move(values)), ...);
        return Do(name, DISPATCH_METHOD, std::move(arguments));
    }
    template <class... Values>
    Variant Get(const char* name, Values... values) const
    {
        std::vector<Variant> arguments;
        (arguments.push_back(std::move(values)), ...);
        return Do(name, DISPATCH_PROPERTYGET, std::move(arguments));
    }

private:
    Variant Do(const char* name, WORD kind, const std::vector<Variant>& arguments) const
    {
        OleString wide = FromUtf8(name);
        LPOLESTR names = wide.data();
        DISPID id = DISPID_UNKNOWN;
        Check(object_->GetIDsOfNames(IID_NULL, &names, 1, LOCALE_USER_DEFAULT, &id),
              std::string("find ") + name);
        std::vector<VARIANT> raw;  // last to first
        for (auto one = arguments.rbegin(); one != arguments.rend(); ++one)
            raw.push_back(one->Raw());
        DISPPARAMS params{raw.data(), nullptr, static_cast<UINT>(raw.size()), 0};
        Variant result;
        Check(
            object_->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, kind, &params, result.Put(), nullptr, nullptr),
            name);
        return result;
    }

    ComPtr<IDispatch> object_;
};

// What the engine asks and tells; called on its own threads.
class Host final : public ComObject<Host, IDispatch> {
public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** object) override
    {
        return ComObject::QueryInterface(IsEqualIID(riid, kHostCallbacks) ? IID_IDispatch : riid, object);
    }
    HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* count) override
    {
        *count = 0;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override
    {
        return DISP_E_UNKNOWNNAME;  // the engine calls by identifiers
    }
    HRESULT STDMETHODCALLTYPE Invoke(DISPID id, REFIID, LCID, WORD, DISPPARAMS* params, VARIANT* result,
                                     EXCEPINFO*, UINT*) override
    try {
        if (id == kDatabasePath)
            *result = Text(std::filesystem::absolute("sharing.db").string()).Detach();
        if (id == kProductCode)
            *result = Text("late_bound_host").Detach();
        if (id == kOnItemAdded)  // the item is the first argument, so the last one here
            std::cout << "added " << TextOf(Object(params->rgvarg[params->cArgs - 1].pdispVal).Get("ID"))
                      << std::endl;
        return S_OK;  // of what else it is told nothing follows here
    } catch (const std::exception&) {
        return E_FAIL;
    }
};

// The engine's library, which stays loaded.
ComPtr<IDispatch> MakeLibrary(const char* path)
{
    void* const module = dlopen(path, RTLD_NOW);
    if (!module)
        throw std::runtime_error(dlerror());
    using GetClassObject = HRESULT(REFCLSID, REFIID, void**);
    const auto find = reinterpret_cast<GetClassObject*>(dlsym(module, "DllGetClassObject"));
    ComPtr<IClassFactory> factory;
    Check(find ? find(kLibrary, IID_IClassFactory, factory.PutVoid()) : E_FAIL, "find the engine's classes");
    ComPtr<IDispatch> library;
    Check(factory->CreateInstance(nullptr, IID_IDispatch, library.PutVoid()), "make the library");
    return library;
}

// Names the packages; how many there are.
LONG ListPackages(const Object& session)
{
    const Object packages(session.Get("StorageFiles"));
    const LONG count = packages.Get("Count").Raw().lVal;
    for (LONG i = 1; i <= count; ++i)
        std::cout << "package " << TextOf(Object(packages.Get("Item", Variant::Long(i))).Get("Path"))
                  << std::endl;
    return count;
}

void Run(const char* engine, const std::string& id)
{
    const NotesFolder notes;
    const Object library(MakeLibrary(engine).Get());
    const auto host = MakeComObject<Host>();
    const Object session(library.Call("Logon", Variant::Dispatch(host.Get())));
    const Object folders(session.Get("Folders"));
    const Object folder(folders.Call("Add", Variant::Text(OleString(notes.EntryId().View())),
                                     Variant::Text(OleString(notes.StoreId().View())), Text(id)));
    session.Call("ResumeJobs", Variant::Long(kResumeBoth));
    notes.AddMail("Hello");
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (ListPackages(session) == 0) {
        if (std::chrono::steady_clock::now() > end)
            throw std::runtime_error("no package came");
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
}

}  // namespace

int main(int argc, char** argv)
{
    try {
        if (argc < 3)
            throw std::runtime_error("usage: late_bound_host ENGINE ID");
        Run(argv[1], argv[2]);
        return 0;
    } catch (const std::exception& error) {
        std::cerr << "late_bound_host: " << error.what() << '\n';
        return 1;
    }
}
