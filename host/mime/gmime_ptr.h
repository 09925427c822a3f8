// host/mime/gmime_ptr.h: owners of what GMime hands out.
#ifndef QUORVANE_HOST_MIME_GMIME_PTR_H_
#define QUORVANE_HOST_MIME_GMIME_PTR_H_

#include <gmime/gmime.h>

#include <memory>
#include <string>
#include <utility>

namespace quorvane {

// One counted reference to a GObject, or none. One thread at a time.
template <class T>
class GObjectPtr {
public:
    GObjectPtr() noexcept = default;
    GObjectPtr(const GObjectPtr& other) noexcept : object_(other.object_)
    {
        if (object_)
            g_object_ref(object_);
    }
    GObjectPtr(GObjectPtr&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
    ~GObjectPtr()
    {
        if (object_)
            g_object_unref(object_);
    }
    GObjectPtr& operator=(GObjectPtr other) noexcept
    {
        std::swap(object_, other.object_);
        return *this;
    }

    // Takes over a reference that the caller owns; null is allowed.
    static GObjectPtr Attach(T* owned) noexcept
    {
        GObjectPtr result;
        result.object_ = owned;
        return result;
    }
    // Adds a reference to what somebody else owns; null is allowed.
    static GObjectPtr Share(T* borrowed) noexcept
    {
        if (borrowed)
            g_object_ref(borrowed);
        return Attach(borrowed);
    }

    T* Get() const noexcept { return object_; }
    explicit operator bool() const noexcept { return object_ != nullptr; }

private:
    T* object_ = nullptr;
};

struct GFree {
    void operator()(void* memory) const noexcept { g_free(memory); }
};
using GText = std::unique_ptr<char, GFree>;

// A copy of a text that GMime owns; empty for null.
inline std::string TextOf(const char* text)
{
    return text ? std::string(text) : std::string();
}
inline std::string TextOf(const GText& text)
{
    return TextOf(text.get());
}

}  // namespace quorvane

#endif  // QUORVANE_HOST_MIME_GMIME_PTR_H_
