// tests/oledb_provider/registration.h: the provider in the system's registry of classes.
#ifndef QUORVANE_TESTS_OLEDB_PROVIDER_REGISTRATION_H_
#define QUORVANE_TESTS_OLEDB_PROVIDER_REGISTRATION_H_

#include "platform/com/com.h"

namespace quorvane::test {

// CO_E_OBJISREG: another class is registered under the program identifier; it stays. The registry's code.
[[nodiscard]] HRESULT RegisterProvider() noexcept;

// Takes back what registration writes, and nothing of another class. The registry's code.
[[nodiscard]] HRESULT UnregisterProvider() noexcept;

}  // namespace quorvane::test

#endif  // QUORVANE_TESTS_OLEDB_PROVIDER_REGISTRATION_H_
