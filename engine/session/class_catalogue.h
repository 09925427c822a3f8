// session/class_catalogue.h: the classes of the library, and a factory for each.
#ifndef QUORVANE_ENGINE_SESSION_CLASS_CATALOGUE_H_
#define QUORVANE_ENGINE_SESSION_CLASS_CATALOGUE_H_

#include <span>

#include "platform/com/com.h"

namespace quorvane {

// One class. A host creates Library; the others come from the engine. One that a factory makes all the same
// belongs to no session: it keeps what is put into it, and what needs a session fails.
struct CatalogueEntry {
    const CLSID* clsid;
    const OLECHAR* name;            // as in the program identifiers quorvane3.NAME and quorvane3.NAME.1
    const IID* defaultInterface;    // which its objects answer, as they do IDispatch
    const IID* sourceInterface;     // of its objects' one connection point; null when they have none
    const OLECHAR* threadingModel;  // as it is registered
    bool creatable;                 // as the type library says it
    // Makes an object. E_OUTOFMEMORY, E_NOINTERFACE.
    HRESULT (*make)(REFIID riid, void** object) noexcept;
};

// All classes, in the order of the type library.
std::span<const CatalogueEntry> ClassCatalogue() noexcept;

// A factory, as DllGetClassObject gives it. CLASS_E_CLASSNOTAVAILABLE: no such class. E_NOINTERFACE,
// E_OUTOFMEMORY, E_POINTER. Any thread may call.
[[nodiscard]] HRESULT MakeClassFactory(REFCLSID clsid, REFIID riid, void** factory) noexcept;

}  // namespace quorvane

#endif  // QUORVANE_ENGINE_SESSION_CLASS_CATALOGUE_H_
