// platform/com/own_module.h: the module that this code is part of, as the system knows it. On Windows alone.
#ifndef QUORVANE_PLATFORM_COM_OWN_MODULE_H_
#define QUORVANE_PLATFORM_COM_OWN_MODULE_H_

#include "platform/com/com_ptr.h"

namespace quorvane {

// Full path of the module. The system's code; E_OUTOFMEMORY. Any thread may call.
[[nodiscard]] HRESULT OwnModulePath(OleString& path) noexcept;

// The type library among the module's resources. TYPE_E_CANTLOADLIBRARY and others of LoadTypeLibEx: there is
// none, or it can't be read. Any thread may call.
[[nodiscard]] HRESULT OpenOwnTypeLibrary(ComPtr<ITypeLib>& library) noexcept;

}  // namespace quorvane

#endif  // QUORVANE_PLATFORM_COM_OWN_MODULE_H_
