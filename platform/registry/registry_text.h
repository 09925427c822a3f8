// platform/registry/registry_text.h: keys and values as the text of a registry export. Off Windows.
//
//   Windows Registry Editor Version 5.00
//
//   [HKEY_CURRENT_USER\Software\Example]
//   ; a comment
//   @="the default value"
//   "Text"="with \"quotes\" and back\\slashes"
//   "Number"=dword:0000001f
//   "Bytes"=hex:01,02,03
//   "Other types"=hex(2):41,00,00,00
//
// A hexadecimal line that ends in a backslash goes on in the next.
// Text is UTF-8, or UTF-16 with a byte order mark as Windows writes it. The bytes of text types in hex(1),
// hex(2) and hex(7) are UTF-16, little-endian. A section that begins with "[-" and a value "-" delete what
// stood before.
#ifndef QUORVANE_PLATFORM_REGISTRY_REGISTRY_TEXT_H_
#define QUORVANE_PLATFORM_REGISTRY_REGISTRY_TEXT_H_

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "platform/registry/registry.h"

namespace quorvane {

// The case-less form of a key's or value's name. Throws std::bad_alloc.
std::string FoldedName(std::string_view name);

// The keys of one file, by whole path ("HKEY_CURRENT_USER\Software"). All operations may throw
// std::bad_alloc.
class RegistryText {
public:
    struct Value {
        std::string name;
        RegistryValue value;
    };
    // By case-less name; the default value has an empty one.
    using Values = std::map<std::string, Value, std::less<>>;

    // Reads what can be understood of a text; lines that can't be are passed over. False when the first line
    // isn't an export's: nothing is read then.
    bool Parse(std::string_view text);
    // The whole text, with keys and values in the order of their names.
    std::string Format() const;

    // Whether there is the key, or one below it.
    bool HasKey(std::string_view path) const;
    // Null when the key has no section of its own.
    const Values* FindValues(std::string_view path) const;
    // Makes the key where it is missing.
    Values& MakeKey(std::string_view path);
    // Removes a key and all below. False: there was none.
    bool RemoveKey(std::string_view path);
    std::vector<std::string> SubkeyNames(std::string_view path) const;

private:
    struct Key {
        std::string path;
        Values values;
    };

    void ReadSection(std::string_view line, Values*& current);
    static void ReadValue(std::string_view line, Values& values);

    std::map<std::string, Key, std::less<>> keys_;  // by case-less path
};

}  // namespace quorvane

#endif  // QUORVANE_PLATFORM_REGISTRY_REGISTRY_TEXT_H_
