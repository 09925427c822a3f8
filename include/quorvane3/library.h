// quorvane3/library.h: the one object that a host creates.
#ifndef QUORVANE3_LIBRARY_H_
#define QUORVANE3_LIBRARY_H_

#include "quorvane3/com.h"
#include "quorvane3/entry_points.h"
#include "quorvane3/object_model.h"

namespace quorvane {

// Makes a Library, from the linked library `quorvane3` itself: no registration is needed.
//
// library  [out]  the caller's; empty after a failure.
//
// S_OK; E_OUTOFMEMORY. Called on the thread that then logs on; the Library and its session are released
// there.
[[nodiscard]] inline HRESULT CreateLibrary(ComPtr<ILibrary>& library) noexcept
{
    ComPtr<IClassFactory> factory;
    const HRESULT hr = DllGetClassObject(CLSID_Library, IID_IClassFactory, factory.PutVoid());
    return FAILED(hr) ? hr : factory->CreateInstance(nullptr, IID_ILibrary, library.PutVoid());
}

}  // namespace quorvane

#endif  // QUORVANE3_LIBRARY_H_
