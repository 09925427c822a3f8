#include "host/mail/line_reader.h"

#include <algorithm>

namespace quorvane {

LineReader::LineReader(const std::filesystem::path& path)
    : file_(path, std::ios::binary), opened_(file_.is_open())
{
    std::error_code failure;
    size_ = std::filesystem::file_size(path, failure);
    if (failure)
        size_ = 0;
}

// Drops what was read already and reads more; false at the end of the file.
bool LineReader::Fill()
{
    window_.erase(0, at_);
    windowOffset_ += at_;
    at_ = 0;
    if (!file_)
        return false;
    const std::size_t had = window_.size();
    window_.resize(had + kWindow);
    file_.read(window_.data() + had, static_cast<std::streamsize>(kWindow));
    window_.resize(had + static_cast<std::size_t>(file_.gcount()));
    failed_ = failed_ || file_.bad();
    return window_.size() > had;
}

// Where the line at `at_` ends within the window, behind its line end; a line longer than the window
// ends with the window.
std::size_t LineReader::FindLineEnd()
{
    for (std::size_t searched = 0;;) {
        const std::size_t end = window_.find('\n', at_ + searched);
        if (end != std::string::npos)
            return end + 1;
        searched = window_.size() - at_;
        if (searched >= kWindow || !Fill())
            return window_.size();
    }
}

bool LineReader::Next(FileLine& line)
{
    const std::size_t end = FindLineEnd();
    if (end == at_)
        return false;
    line.text = std::string_view(window_).substr(at_, end - at_);
    line.startsLine = atLineStart_;
    atLineStart_ = line.text.back() == '\n';
    at_ = end;
    return true;
}

std::string_view LineReader::Peek()
{
    const std::size_t end = FindLineEnd();
    return std::string_view(window_).substr(at_, end - at_);
}

bool LineReader::Seek(std::uint64_t offset)
{
    if (offset > size_)
        return false;
    atLineStart_ = true;
    if (offset >= windowOffset_ && offset - windowOffset_ <= window_.size()) {
        at_ = static_cast<std::size_t>(offset - windowOffset_);
        return true;
    }
    file_.clear();
    file_.seekg(static_cast<std::streamoff>(offset));
    window_.clear();
    windowOffset_ = offset;
    at_ = 0;
    return static_cast<bool>(file_);
}

}  // namespace quorvane
