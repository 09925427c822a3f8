// persist/small_text.h: a text that lies in its object where it is short, as very many of them do.
#ifndef QUORVANE_ENGINE_PERSIST_SMALL_TEXT_H_
#define QUORVANE_ENGINE_PERSIST_SMALL_TEXT_H_

#include <cstddef>
#include <cstring>
#include <functional>
#include <string_view>
#include <utility>

namespace quorvane {

// Up to kRoom bytes lie in the object, which has one more and no alignment; a longer text lies elsewhere.
template <std::size_t kRoom>
class SmallText {
public:
    SmallText() noexcept = default;
    // Throws std::bad_alloc.
    explicit SmallText(std::string_view text)
    {
        char* to = room_;
        if (text.size() > kRoom) {
            const Elsewhere place{new char[text.size()], text.size()};
            std::memcpy(room_, &place, sizeof place);
            to = place.bytes;
        }
        std::memcpy(to, text.data(), text.size());
        size_ = text.size() > kRoom ? kElsewhere : static_cast<unsigned char>(text.size());
    }
    SmallText(SmallText&& other) noexcept { Swap(other); }
    SmallText& operator=(SmallText&& other) noexcept
    {
        Swap(other);
        return *this;
    }
    ~SmallText()
    {
        if (size_ == kElsewhere)
            delete[] Place().bytes;
    }

    // Good until the object changes.
    std::string_view View() const noexcept
    {
        if (size_ != kElsewhere)
            return {room_, size_};
        const Elsewhere place = Place();
        return {place.bytes, place.size};
    }

private:
    struct Elsewhere {
        char* bytes;
        std::size_t size;
    };
    static constexpr unsigned char kElsewhere = 0xFF;
    static_assert(kRoom >= sizeof(Elsewhere) && kRoom < kElsewhere);

    Elsewhere Place() const noexcept
    {
        Elsewhere place;
        std::memcpy(&place, room_, sizeof place);
        return place;
    }
    void Swap(SmallText& other) noexcept
    {
        std::swap(size_, other.size_);
        std::swap(room_, other.room_);
    }

    unsigned char size_ = 0;
    char room_[kRoom] = {};
};

// For containers that look such texts up by views of others.
struct SmallTextHash {
    using is_transparent = void;
    std::size_t operator()(std::string_view text) const noexcept
    {
        return std::hash<std::string_view>()(text);
    }
    template <std::size_t kRoom>
    std::size_t operator()(const SmallText<kRoom>& text) const noexcept
    {
        return (*this)(text.View());
    }
};
struct SmallTextEqual {
    using is_transparent = void;
    template <class Left, class Right>
    bool operator()(const Left& left, const Right& right) const noexcept
    {
        return ViewOfText(left) == ViewOfText(right);
    }

private:
    static std::string_view ViewOfText(std::string_view text) noexcept { return text; }
    template <std::size_t kRoom>
    static std::string_view ViewOfText(const SmallText<kRoom>& text) noexcept
    {
        return text.View();
    }
};

}  // namespace quorvane

#endif  // QUORVANE_ENGINE_PERSIST_SMALL_TEXT_H_
