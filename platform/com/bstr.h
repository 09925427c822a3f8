// platform/com/bstr.h: Bstr, the owner of one BSTR, and conversions between 8-bit and UTF-16 text.
#ifndef QUORVANE_PLATFORM_COM_BSTR_H_
#define QUORVANE_PLATFORM_COM_BSTR_H_

#include <string>
#include <string_view>
#include <utility>

#include "platform/com/com.h"
#include "platform/com/utf8.h"

namespace quorvane {

// UTF-16 to the ANSI code page, and back. Off Windows the ANSI code page is UTF-8; a lone surrogate or a
// malformed byte becomes U+FFFD. Throw std::bad_alloc.
std::string Narrow(OleStringView text);
OleString Widen(std::string_view text);

// The text of a BSTR, which may be null (empty then). The view lives as long as the BSTR.
inline OleStringView ViewOf(BSTR text) noexcept
{
    return text ? OleStringView(text, SysStringLen(text)) : OleStringView();
}

// Owns a BSTR or null. Null and empty are two different values, as some callers tell them apart.
class Bstr {
public:
    Bstr() noexcept = default;
    // Throws std::bad_alloc. A null view's data (a default-made view) still makes an empty text.
    explicit Bstr(OleStringView text) : text_(Allocate(text)) {}
    Bstr(const Bstr& other) : text_(other.text_ ? Allocate(other.View()) : nullptr) {}
    Bstr(Bstr&& other) noexcept : text_(std::exchange(other.text_, nullptr)) {}
    ~Bstr() { SysFreeString(text_); }

    Bstr& operator=(Bstr other) noexcept
    {
        std::swap(text_, other.text_);
        return *this;
    }

    // A copy of a caller's text, null for null. Throws std::bad_alloc.
    static Bstr CopyOf(BSTR text) { return text ? Bstr(ViewOf(text)) : Bstr(); }
    // Takes over a BSTR that the caller owns.
    static Bstr Attach(BSTR owned) noexcept
    {
        Bstr result;
        result.text_ = owned;
        return result;
    }

    BSTR Get() const noexcept { return text_; }
    OleStringView View() const noexcept { return ViewOf(text_); }
    UINT Length() const noexcept { return SysStringLen(text_); }
    bool IsEmpty() const noexcept { return Length() == 0; }
    bool IsNull() const noexcept { return text_ == nullptr; }

    // The place for an out-parameter; what was held is freed first.
    BSTR* Put() noexcept
    {
        SysFreeString(std::exchange(text_, nullptr));
        return &text_;
    }
    BSTR Detach() noexcept { return std::exchange(text_, nullptr); }

    // Gives a caller a copy of its own, null for null. E_POINTER, E_OUTOFMEMORY.
    HRESULT CopyTo(BSTR* out) const noexcept;
    // Replaces the text by a copy of a caller's, null for null. E_OUTOFMEMORY, the old text kept.
    HRESULT Assign(BSTR text) noexcept;

private:
    static BSTR Allocate(OleStringView text);

    BSTR text_ = nullptr;
};

}  // namespace quorvane

#endif  // QUORVANE_PLATFORM_COM_BSTR_H_
