// tests/support/registered_library.h: quorvane3 in the system's registry of classes, for the length of a
// test.
#ifndef QUORVANE_TESTS_SUPPORT_REGISTERED_LIBRARY_H_
#define QUORVANE_TESTS_SUPPORT_REGISTERED_LIBRARY_H_

namespace quorvane::test {

// What a host needs whose callbacks are made from one apartment into another: on Windows COM marshals
// interfaces by their registered descriptions. Elsewhere nothing is registered or needed. One at a time on a
// machine.
class RegisteredLibrary {
public:
    // Throws std::runtime_error.
    RegisteredLibrary();
    RegisteredLibrary(const RegisteredLibrary&) = delete;
    RegisteredLibrary& operator=(const RegisteredLibrary&) = delete;
    ~RegisteredLibrary();
};

}  // namespace quorvane::test

#endif  // QUORVANE_TESTS_SUPPORT_REGISTERED_LIBRARY_H_
