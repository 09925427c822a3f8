// host/mail/mbox_writer.h: mails one behind the other in an mbox file, as MboxReader reads them.
#ifndef QUORVANE_HOST_MAIL_MBOX_WRITER_H_
#define QUORVANE_HOST_MAIL_MBOX_WRITER_H_

#include <ctime>
#include <ostream>
#include <streambuf>
#include <string>

namespace quorvane {

// Writes mails with one ">" more before each line of ">...From " (MboxVariant::MboxRd), so that the reader
// gives back their bytes; a mail that doesn't end its last line gets a line end. One thread at a time.
class MboxWriter {
public:
    // out  opened in binary mode; must outlive this. Whether it took everything is its own to tell.
    explicit MboxWriter(std::ostream& out) : quoting_(out), mail_(&quoting_) {}

    // Begins a mail with its separator; what is written to the result until End is the mail.
    std::ostream& Begin(std::time_t sent);
    void End();

private:
    class Quoting : public std::streambuf {
    public:
        explicit Quoting(std::ostream& out) : out_(out) {}
        // Writes what was held back of a line, and a line end where the last one is missing.
        void EndMail();
        std::ostream& Out() noexcept { return out_; }

    protected:
        int_type overflow(int_type c) override;
        std::streamsize xsputn(const char* bytes, std::streamsize count) override;

    private:
        void Put(char c);

        std::ostream& out_;
        bool atStart_ = true;  // of a line, or what was read of it is held
        std::string held_;     // the beginning of a line, while it may be one to quote
    };

    Quoting quoting_;
    std::ostream mail_;
};

}  // namespace quorvane

#endif  // QUORVANE_HOST_MAIL_MBOX_WRITER_H_
