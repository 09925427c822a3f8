// host/mail/line_reader.h: a file read line by line through a window of bounded size.
#ifndef QUORVANE_HOST_MAIL_LINE_READER_H_
#define QUORVANE_HOST_MAIL_LINE_READER_H_

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

namespace quorvane {

// One line with its line end, or a piece of a line that is longer than the window.
struct FileLine {
    std::string_view text;    // valid until the reader's next call of any method
    bool startsLine = false;  // false: goes on where the last piece ended
};

class LineReader {
public:
    static constexpr std::size_t kWindow = std::size_t{256} << 10;

    explicit LineReader(const std::filesystem::path& path);

    [[nodiscard]] bool IsOpen() const noexcept { return opened_; }
    // True once a read failed for another reason than the end of the file.
    [[nodiscard]] bool Failed() const noexcept { return failed_; }

    // Gives the next line; false at the end of the file.
    [[nodiscard]] bool Next(FileLine& line);

    // The line that Next gives next, or as much of it as the window shows; empty at the end of the file.
    [[nodiscard]] std::string_view Peek();

    // Where the line begins that Next gives next.
    [[nodiscard]] std::uint64_t Offset() const noexcept { return windowOffset_ + at_; }
    [[nodiscard]] std::uint64_t Size() const noexcept { return size_; }

    // Goes on reading at `offset`, the beginning of a line; false when that isn't in the file.
    [[nodiscard]] bool Seek(std::uint64_t offset);

private:
    bool Fill();
    std::size_t FindLineEnd();

    std::ifstream file_;
    bool opened_ = false;
    bool failed_ = false;
    std::uint64_t size_ = 0;
    std::string window_;
    std::uint64_t windowOffset_ = 0;  // of window_[0] in the file
    std::size_t at_ = 0;              // where the next line begins in the window
    bool atLineStart_ = true;
};

}  // namespace quorvane

#endif  // QUORVANE_HOST_MAIL_LINE_READER_H_
