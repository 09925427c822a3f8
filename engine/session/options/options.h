// session/options/options.h: named values in memory by which a host adjusts the engine.
//
// The session has one collection, each folder another. Names and first values are the engine's; the host
// changes values through IOption and can't add names. Nothing is kept beyond the owner's life.
//
// Threading: any thread may call. Names are added before the collection is given to anyone.
#ifndef QUORVANE_ENGINE_SESSION_OPTIONS_OPTIONS_H_
#define QUORVANE_ENGINE_SESSION_OPTIONS_OPTIONS_H_

#include <map>

#include "engine/session/context/operations.h"
#include "engine/session/context/session_context.h"
#include "engine/session/trace/trace.h"
#include "platform/com/mutex.h"
#include "platform/com/variant.h"

namespace quorvane {

// The options that there are.
inline constexpr OLECHAR kNoListeners[] = OLESTR("NoListeners");
inline constexpr OLECHAR kIgnoreModificationTimeChanges[] = OLESTR("IgnoreModificationTimeChanges");
inline constexpr OLECHAR kUpdateReadStatus[] = OLESTR("UpdateReadStatus");

class COption final : public ComObject<COption, DispatchImpl<IOption>> {
public:
    explicit COption(SessionContext* session = nullptr) noexcept : m_pSession(session) {}

    // The name has no setter in the interface. Before anyone else has the object.
    void SetName(Bstr name) noexcept { m_bstrName = std::move(name); }
    // Whose option it is; null for one that no session made.
    SessionContext* Session() const noexcept { return m_pSession; }

    // A copy of the name. E_POINTER, E_OUTOFMEMORY.
    HRESULT STDMETHODCALLTYPE get_Name(BSTR* pVal) override;
    // A copy of the value. E_POINTER, E_OUTOFMEMORY.
    HRESULT STDMETHODCALLTYPE get_Value(VARIANT* pVal) override;
    // Takes any value, of any type. S_OK always; the old value stays when memory is short.
    HRESULT STDMETHODCALLTYPE put_Value(VARIANT newVal) override;

private:
    Mutex m_csValue;
    Variant m_Value QV_GUARDED_BY(m_csValue);
    Bstr m_bstrName;
    SessionContext* const m_pSession;
};

class COptions final : public ComObject<COptions, DispatchImpl<IOptions>> {
public:
    // session  [in]  handed down to the options; not counted. May be null.
    explicit COptions(SessionContext* session = nullptr) noexcept : m_pSession(session) {}

    // Makes an option, in place of one of the same name.
    //
    // name   [in]  not empty.
    // value  [in]  copied.
    //
    // S_OK, E_OUTOFMEMORY (traced).
    [[nodiscard]] HRESULT Add(OleStringView name, const VARIANT& value) noexcept;

    // An enumerator of the options, each in a VARIANT of type VT_DISPATCH, in the order of their names.
    HRESULT STDMETHODCALLTYPE get__NewEnum(IUnknown** pVal) override;
    // Index  [in]   a name, or a position from 1 in the order of the names.
    // pvar   [out]  VT_DISPATCH; VT_EMPTY after a failure.
    //
    // E_FAIL: no such name, or a position past the end. E_INVALIDARG: a position below 1. E_POINTER.
    // Others come from the change of Index to a number.
    HRESULT STDMETHODCALLTYPE get_Item(VARIANT Index, VARIANT* pvar) override;
    HRESULT STDMETHODCALLTYPE get_Count(LONG* pVal) override;

private:
    using OptionMap = std::map<OleString, ComPtr<IOption>, std::less<>>;

    OptionMap m_Options;
    SessionContext* const m_pSession;
};

// Reads an option as a boolean: the item of that name, its value, changed to VT_BOOL.
//
// options  [in]   may be null: E_POINTER.
// isTrue   [out]  whether the value is exactly VARIANT_TRUE; untouched after a failure.
//
// E_INVALIDARG: the collection gave something that isn't VT_DISPATCH. Others come from the collection, the
// option, or the change of type. Nothing is traced.
[[nodiscard]] HRESULT ReadBooleanOption(IOptions* options, OleStringView name, bool& isTrue) noexcept;

// Whether an option of the session is set. A failure on the way is traced under the caller's name and goes no
// further: the option then counts as not set.
bool IsSessionOptionSet(const Traced& traced, SessionContext& session, OleStringView name) noexcept;

}  // namespace quorvane

#endif  // QUORVANE_ENGINE_SESSION_OPTIONS_OPTIONS_H_
