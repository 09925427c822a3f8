// host/mail/file_form.h: files that aren't lines of 8-bit text, made so.
#ifndef QUORVANE_HOST_MAIL_FILE_FORM_H_
#define QUORVANE_HOST_MAIL_FILE_FORM_H_

#include <string>
#include <string_view>

namespace quorvane {

// Turns a file in UTF-16 into UTF-8; what a file is in its beginning says.
class Utf16File {
public:
    // beginning  at least the first four bytes, if the file has as many.
    explicit Utf16File(std::string_view beginning) noexcept;

    // False: the file is in some 8-bit encoding, and its bytes are to stay as they are.
    [[nodiscard]] bool Is() const noexcept { return order_ != Order::kNo; }

    // Appends what a piece of the file is in clean UTF-8, without the mark at the file's beginning; pieces
    // may be cut anywhere. Half a letter at the end, and NULs, become U+FFFD.
    void Put(std::string_view piece, std::string& text);
    void End(std::string& text);

private:
    enum class Order { kNo, kLittle, kBig };

    Order order_;
    bool begun_ = false;
    std::string held_;  // half a letter, or the first half of a pair
};

// Turns a file in UTF-16 into UTF-8, and the line ends of one that knows only CR into LF; leaves others as
// they are.
void RepairForm(std::string& bytes);

}  // namespace quorvane

#endif  // QUORVANE_HOST_MAIL_FILE_FORM_H_
