// session/registration/registration.h: the library in the system's registry of classes. On Windows alone.
//
// Registered are the classes, their application (class_keys.h) and the type library of the module that this
// code is part of, the latter by the system's own hand: with it come the interfaces, which the system can
// then marshal between apartments.
#ifndef QUORVANE_ENGINE_SESSION_REGISTRATION_REGISTRATION_H_
#define QUORVANE_ENGINE_SESSION_REGISTRATION_REGISTRATION_H_

#include "platform/com/com.h"

namespace quorvane {

// Puts the module in place of whatever the classes were registered with before.
//
// S_OK. The registry's code: the first write that failed. Those of LoadTypeLibEx and RegisterTypeLib. After a
// failure the classes are registered as they were before, or not at all; likewise the type library, unless
// one was registered before and the system failed in the midst of replacing it. What the system has written
// for programs of 32 bits by then may stay.
[[nodiscard]] HRESULT RegisterServer() noexcept;

// Removes what registration writes, whichever module it was for.
//
// S_OK, also when nothing is registered. Otherwise the first failure, of the registry or of
// UnRegisterTypeLib; what could be removed is removed.
[[nodiscard]] HRESULT UnregisterServer() noexcept;

}  // namespace quorvane

#endif  // QUORVANE_ENGINE_SESSION_REGISTRATION_REGISTRATION_H_
