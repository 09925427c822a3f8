// session/context/type_catalogue.h: the types of the library, listed: what a type library of it says. Its
// classes are listed in session/class_catalogue.h.
//
// For whoever has to describe the object model; docs/object-model.txt is that description in text, and a test
// compares the two. Everything here lives as long as the process. Any thread may call.
#ifndef QUORVANE_ENGINE_SESSION_CONTEXT_TYPE_CATALOGUE_H_
#define QUORVANE_ENGINE_SESSION_CONTEXT_TYPE_CATALOGUE_H_

#include <span>

#include "platform/com/dispatch.h"

namespace quorvane {

struct LibraryType {
    const GUID* id;
    const OLECHAR* name;
    const OLECHAR* help;
    WORD majorVersion;
    WORD minorVersion;
    LCID locale;
};

struct EnumerationValue {
    const OLECHAR* name;
    LONG value;
};

struct EnumerationType {
    const OLECHAR* name;
    std::span<const EnumerationValue> values;
};

enum class InterfaceKind {
    Dual,      // the engine's: the operations have slots behind IDispatch's seven
    Callback,  // the host's: called through Invoke alone
    Source,    // of connection points, likewise
};

struct InterfaceType {
    const IID* id;
    const OLECHAR* name;
    InterfaceKind kind;
    std::span<const Operation> operations;  // by slot, or by identifier where there are no slots
};

const LibraryType& TypeLibrary() noexcept;
std::span<const EnumerationType> EnumerationTypes() noexcept;
std::span<const InterfaceType> InterfaceTypes() noexcept;

// Null: the library has no such interface.
const InterfaceType* FindInterfaceType(REFIID id) noexcept;

}  // namespace quorvane

#endif  // QUORVANE_ENGINE_SESSION_CONTEXT_TYPE_CATALOGUE_H_
