// host/base/screen.h: a terminal that one picture fills, drawn anew as it changes.
#ifndef QUORVANE_HOST_BASE_SCREEN_H_
#define QUORVANE_HOST_BASE_SCREEN_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace quorvane::host {

// Standard output, where that is a terminal, with the keys of standard input where that is one. What it
// showed before is there again at the end. One at a time, made before any thread.
class Screen {
public:
    Screen();
    Screen(const Screen&) = delete;
    Screen& operator=(const Screen&) = delete;
    ~Screen();

    // For ChangeWatch::AlsoWaitFor: something when a key was pressed or the size has changed.
    std::intptr_t Handle() const noexcept;
    // Takes what came. True where it was a q, in either case.
    bool TakeKeys();
    // Shows a text: as many of its lines as there is room for, each cut to the width.
    void Draw(const std::string& text) const;

private:
    // What begins another picture, without a cursor, and ends it.
    static constexpr char kBegin[] = "\033[?1049h\033[?25l";
    static constexpr char kEnd[] = "\033[?25h\033[?1049l";

    struct System;
    std::unique_ptr<System> system_;
};

// What draws a text on a terminal of that size.
std::string Drawn(const std::string& text, std::size_t width, std::size_t height);

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_BASE_SCREEN_H_
