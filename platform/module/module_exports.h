// platform/module/module_exports.h: exports whose names a linker can't carry.
//
// A library may offer exports under any name, such as "FreeProws@4", through one function. It is asked only
// for names that the library doesn't export as they are.
#ifndef QUORVANE_PLATFORM_MODULE_MODULE_EXPORTS_H_
#define QUORVANE_PLATFORM_MODULE_MODULE_EXPORTS_H_

#if defined(__GNUC__)
#define QUORVANE_MODULE_EXPORT extern "C" __attribute__((visibility("default")))
#else
#define QUORVANE_MODULE_EXPORT extern "C"
#endif

// name  [in]  the export's name, zero-terminated; compared by case.
//
// Returns the function's address, or null when the library has no such export. Any thread may call.
QUORVANE_MODULE_EXPORT void* QuorvaneModuleExport(const char* name);

// The name under which Module looks for that function.
inline constexpr char kQuorvaneModuleExportName[] = "QuorvaneModuleExport";

#endif  // QUORVANE_PLATFORM_MODULE_MODULE_EXPORTS_H_
