// platform/registry/registry.h: the system's settings: keys with named values.
//
// On Windows this is the registry. Elsewhere each hive is a file in the text form of a registry export
// (registry_text.h), which a person may edit:
//   HKEY_CURRENT_USER   $XDG_CONFIG_HOME/quorvane3/registry.reg, or ~/.config/quorvane3/registry.reg
//   HKEY_LOCAL_MACHINE  the file that $QUORVANE_MACHINE_REGISTRY names, or /etc/quorvane3/registry.reg
// The environment and the file are read at every operation, so that a change by anyone is seen at once. A
// write puts a whole new file in place of the old one, under a lock that other processes respect. A line that
// can't be understood is skipped, and is gone after the next write.
//
// Key and value names have no case. Paths are separated by backslashes. Narrow text is of the ANSI code page
// (UTF-8 off Windows). Failures come as HRESULT_FROM_WIN32 of the Win32 code.
#ifndef QUORVANE_PLATFORM_REGISTRY_REGISTRY_H_
#define QUORVANE_PLATFORM_REGISTRY_REGISTRY_H_

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/com/com.h"

namespace quorvane {

enum class RegistryHive { CurrentUser, LocalMachine };

enum class RegistryAccess { Read, ReadWrite };

// The types with the registry's own numbers; others keep theirs.
enum class RegistryType : DWORD {
    None = 0,
    Text = 1,            // REG_SZ
    ExpandableText = 2,  // REG_EXPAND_SZ
    Binary = 3,          // REG_BINARY
    Dword = 4,           // REG_DWORD
    MultiText = 7,       // REG_MULTI_SZ
    Qword = 11,          // REG_QWORD
};

// A value. Of the text types, `bytes` is narrow text with a zero at its end (two for MultiText), as the ANSI
// functions of the registry give it; a Dword has four little-endian bytes.
struct RegistryValue {
    RegistryType type = RegistryType::None;
    std::string bytes;

    // Text types: the text up to the first zero. Empty for other types.
    std::string_view Text() const noexcept;
    // Dword: the number. 0 for other types, or fewer than four bytes.
    DWORD Number() const noexcept;

    // Throw std::bad_alloc.
    static RegistryValue OfText(std::string_view text);
    static RegistryValue OfNumber(DWORD number);
};

// One open key, or none. Keys opened twice are independent; one object is for one thread at a time.
// With no open key every operation gives ERROR_INVALID_HANDLE.
class RegistryKey {
public:
    RegistryKey() noexcept;
    RegistryKey(RegistryKey&&) noexcept;
    RegistryKey& operator=(RegistryKey&&) noexcept;
    ~RegistryKey();

    // Opens a key that exists. ERROR_FILE_NOT_FOUND: it doesn't. ERROR_ACCESS_DENIED: it may not be read, or
    // with ReadWrite not be written. Off Windows a file that isn't a registry export gives
    // ERROR_FILE_NOT_FOUND.
    [[nodiscard]] HRESULT Open(RegistryHive hive, std::string_view path,
                               RegistryAccess access = RegistryAccess::Read) noexcept;
    // Opens a key for writing, and makes it and those above it where missing. ERROR_ACCESS_DENIED and others.
    [[nodiscard]] HRESULT Create(RegistryHive hive, std::string_view path) noexcept;
    void Close() noexcept;
    bool IsOpen() const noexcept { return state_ != nullptr; }

    // Reads a value; an empty name is the key's default value. ERROR_FILE_NOT_FOUND: there is none, or the
    // key has been deleted. `value` is untouched after a failure.
    [[nodiscard]] HRESULT Query(std::string_view name, RegistryValue& value) const noexcept;
    // ERROR_ACCESS_DENIED: the key was opened for reading.
    [[nodiscard]] HRESULT Set(std::string_view name, const RegistryValue& value) noexcept;
    // ERROR_FILE_NOT_FOUND: there is none.
    [[nodiscard]] HRESULT DeleteValue(std::string_view name) noexcept;

    // Names of the values, and of the keys right below, in the order of their case-less names. The default
    // value has an empty name. The list is untouched after a failure.
    [[nodiscard]] HRESULT ValueNames(std::vector<std::string>& names) const noexcept;
    [[nodiscard]] HRESULT SubkeyNames(std::vector<std::string>& names) const noexcept;

    // Deletes a key with everything below it. ERROR_FILE_NOT_FOUND: there is none.
    [[nodiscard]] static HRESULT DeleteTree(RegistryHive hive, std::string_view path) noexcept;

private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace quorvane

#endif  // QUORVANE_PLATFORM_REGISTRY_REGISTRY_H_
