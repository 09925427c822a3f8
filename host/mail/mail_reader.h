// host/mail/mail_reader.h: every mail that lies at a list of paths, one at a time.
//
// A path may be a file (one mail, an mbox, a compound file) or a folder of such files and of Maildirs, to
// any depth. What a file is, its content says; a name only helps where the content allows two readings.
//
// Memory: one mail at a time, of which what exceeds 1 MB lies in a temporary file; files of any size are read
// through a window.
// Threading: one thread at a time for each object.
#ifndef QUORVANE_HOST_MAIL_MAIL_READER_H_
#define QUORVANE_HOST_MAIL_MAIL_READER_H_

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/mail/mail_bytes.h"
#include "host/mail/mbox_variant.h"

namespace quorvane {

inline constexpr std::uint64_t kLargestMail = std::uint64_t{1} << 30;

// One mail as it was found.
struct FoundMail {
    enum class Kind {
        Mime,          // `bytes` holds the mail, from its first header field on, with LF or CRLF line ends.
        CompoundFile,  // `path` is a compound file, for whoever reads .msg files; `bytes` is empty.
    };

    Kind kind = Kind::Mime;
    std::string
        source;  // for messages to a person: the path, and the mail's number in an mbox ("a.mbox #3").
    std::filesystem::path path;
    MailBytes bytes;
    std::optional<MailBytes>
        file;  // all bytes of the file, where the mail isn't all of them or needed repair.
    // The bytes as they came.
    [[nodiscard]] const MailBytes& Original() const noexcept { return file ? *file : bytes; }
    std::optional<bool>
        read;           // what a Maildir's flags or an mbox's status fields say; nothing where they don't.
    std::string doubt;  // why it may be more than one mail (MboxReader::Doubt); usually empty.
};

// Something that isn't mail, or couldn't be read.
struct LeftOutFile {
    std::string source;  // as FoundMail's.
    std::string reason;  // one line in plain words, for "SOURCE: REASON".
};

class MailReader {
public:
    enum class Step { Found, LeftOut, End };

    // Looks at the folders below `paths`; no file is opened yet. Files come in the order of `paths`, within
    // a folder in the order of their names. `variant` is how mbox files quote (see mbox_variant.h).
    //
    // Left aside without a word: hidden files, Maildirs' tmp/ folders, and the index files that mail
    // programs keep beside mail (README files among them). A path that doesn't exist is left out by name.
    explicit MailReader(std::vector<std::filesystem::path> paths, MboxVariant variant = MboxVariant::Auto);
    ~MailReader();

    MailReader(const MailReader&) = delete;
    MailReader& operator=(const MailReader&) = delete;

    // Goes on to the next mail.
    //
    // mail     [out]  set when Found is returned; its old content is dropped otherwise.
    // leftOut  [out]  set when LeftOut is returned; the next call goes on behind it.
    //
    // End: nothing is left, now and at each later call. Throws std::bad_alloc alone.
    [[nodiscard]] Step Next(FoundMail& mail, LeftOutFile& leftOut);

    // The size of all files found, and how much of it Next has gone through: for a progress display.
    [[nodiscard]] std::uint64_t TotalBytes() const noexcept;
    [[nodiscard]] std::uint64_t DoneBytes() const noexcept;

private:
    class State;
    std::unique_ptr<State> state_;
};

}  // namespace quorvane

#endif  // QUORVANE_HOST_MAIL_MAIL_READER_H_
