#include "host/mail/mail_reader.h"

#include <algorithm>
#include <array>
#include <fstream>
#include <string_view>

#include "host/mail/ascii.h"
#include "host/mail/mail_check.h"
#include "host/mail/mail_files.h"
#include "host/mail/mail_form.h"
#include "host/mail/mbox_reader.h"

namespace quorvane {
namespace fs = std::filesystem;
namespace {

constexpr std::size_t kSniffed = std::size_t{64} << 10;
constexpr std::size_t kBlock = std::size_t{256} << 10;
constexpr const char* kTooLarge = "it is larger than 1 GB";

struct Signature {
    std::string_view bytes;
    const char* meaning;
};

constexpr std::string_view kCompoundFile = "\xD0\xCF\x11\xE0\xA1\xB1\x1A\xE1";
constexpr auto kForeign = std::to_array<Signature>({
    {std::string_view("\xFD"
                      "7zXZ\0",
                      6),
     "it is compressed; unpack it first"},
    {"\x1F\x8B", "it is compressed; unpack it first"},
    {"BZh", "it is compressed; unpack it first"},
    {"PK\x03\x04", "it is a compressed archive; unpack it first"},
    {"!BDN", "it is a mailbox file that only its own mail program reads"},
    {"SQLite format 3", "it is a database, not mail"},
});

bool IsMailName(const fs::path& path)
{
    const std::string extension = LowerAscii(path.extension().string());
    return extension == ".eml" || extension == ".mime" || extension == ".mht" || extension == ".mhtml";
}

std::string_view WithoutBlankLines(std::string_view bytes)
{
    while (!bytes.empty() && IsBlankLine(bytes.substr(0, LineLength(bytes))))
        bytes.remove_prefix(LineLength(bytes));
    return bytes;
}

bool IsMbox(std::string_view beginning)
{
    if (beginning.starts_with("\xEF\xBB\xBF"))
        beginning.remove_prefix(3);
    beginning = WithoutBlankLines(beginning);
    if (!beginning.starts_with("From "))
        return false;
    const std::string_view line = beginning.substr(0, LineLength(beginning));
    return IsDatedSeparator(line) || IsHeaderField(beginning.substr(line.size()));
}

// Sets all bytes of a file aside; false when it can't be read to its end.
bool ReadAll(std::istream& stream, std::uint64_t size, MailBytes& bytes)
{
    std::string piece;
    for (std::uint64_t left = size; left > 0; left -= piece.size()) {
        piece.resize(static_cast<std::size_t>(std::min<std::uint64_t>(left, kBlock)));
        if (!stream.read(piece.data(), static_cast<std::streamsize>(piece.size())))
            return false;
        bytes.Append(piece);
    }
    return true;
}

}  // namespace

class MailReader::State {
public:
    State(const std::vector<fs::path>& paths, MboxVariant variant)
        : files_(FindMailFiles(paths)), variant_(variant)
    {
        for (const MailFile& file : files_)
            total_ += file.size;
    }

    Step Next(FoundMail& mail, LeftOutFile& leftOut)
    {
        mail = {};
        for (;;) {
            if (mbox_) {
                const Step step = NextOfMbox(mail, leftOut);
                if (step != Step::End)
                    return step;
                CloseFile();
                continue;
            }
            if (at_ == files_.size())
                return Step::End;
            const Step step = OpenFile(files_[at_], mail, leftOut);
            if (step == Step::End)
                continue;  // an mbox was opened
            CloseFile();
            return step;
        }
    }

    std::uint64_t Total() const noexcept { return total_; }
    std::uint64_t Done() const noexcept
    {
        return done_ + (mbox_ ? std::min(mbox_->Offset(), files_[at_].size) : 0);
    }

private:
    static Step LeaveOut(LeftOutFile& leftOut, std::string source, std::string reason)
    {
        leftOut = {std::move(source), std::move(reason)};
        return Step::LeftOut;
    }

    void CloseFile()
    {
        mbox_.reset();
        done_ += files_[at_].size;
        ++at_;
    }

    // End means that the file is an mbox, which is open now.
    Step OpenFile(const MailFile& file, FoundMail& mail, LeftOutFile& leftOut)
    {
        const std::string source = file.Path().string();
        if (!file.problem.empty())
            return LeaveOut(leftOut, source, file.problem);
        std::ifstream stream(file.Path(), std::ios::binary);
        if (!stream)
            return LeaveOut(leftOut, source, "it can't be opened");

        std::string bytes(static_cast<std::size_t>(std::min<std::uint64_t>(file.size, kSniffed)), '\0');
        if (!stream.read(bytes.data(), static_cast<std::streamsize>(bytes.size())))
            return LeaveOut(leftOut, source, "it can't be read");
        if (bytes.starts_with(kCompoundFile)) {
            mail.kind = FoundMail::Kind::CompoundFile;
            mail.source = source;
            mail.path = file.Path();
            return Step::Found;
        }
        for (const Signature& foreign : kForeign) {
            if (bytes.starts_with(foreign.bytes))
                return LeaveOut(leftOut, source, foreign.meaning);
        }
        const bool single = file.inMaildir || IsMailName(file.Path());
        if (!single && IsMbox(bytes)) {
            mbox_ = std::make_unique<MboxReader>(file.Path(), variant_);
            return Step::End;
        }
        if (auto reason = WhyNotMail(bytes, single ? MailHint::Named : MailHint::Unnamed))
            return LeaveOut(leftOut, source, std::move(*reason));
        stream.clear();
        stream.seekg(0);
        return ReadSingle(file, stream, mail, leftOut);
    }

    static Step ReadSingle(const MailFile& file, std::ifstream& stream, FoundMail& mail, LeftOutFile& leftOut)
    {
        const std::string source = file.Path().string();
        if (file.size > kLargestMail)
            return LeaveOut(leftOut, source, kTooLarge);
        if (!ReadAll(stream, file.size, mail.bytes))
            return LeaveOut(leftOut, source, "it can't be read");
        if (auto within = MailWithin(mail.bytes)) {
            mail.file = std::move(mail.bytes);
            mail.bytes = std::move(*within);
        }
        mail.source = source;
        mail.path = file.Path();
        mail.read = file.read;
        return Kept(mail, leftOut);
    }

    // A mail is found only when all of it could be set aside.
    static Step Kept(FoundMail& mail, LeftOutFile& leftOut)
    {
        const HRESULT hr =
            mail.file && FAILED(mail.file->Result()) ? mail.file->Result() : mail.bytes.Result();
        if (SUCCEEDED(hr))
            return Step::Found;
        const std::string source = std::move(mail.source);
        mail = {};
        return LeaveOut(leftOut, source,
                        hr == STG_E_MEDIUMFULL
                            ? "there is no room for a copy of it in the temporary directory"
                            : "it can't be copied to the temporary directory");
    }

    Step NextOfMbox(FoundMail& mail, LeftOutFile& leftOut)
    {
        const fs::path path = files_[at_].Path();
        const MboxReader::Step step = mbox_->Next(mail.bytes);
        const std::string source = path.string() + " #" + std::to_string(mbox_->Number());
        switch (step) {
            case MboxReader::Step::Mail:
                mail.source = source;
                mail.path = path;
                mail.read = ReadStateOfHeader(mail.bytes.Header());
                mail.doubt = mbox_->Doubt();
                return Kept(mail, leftOut);
            case MboxReader::Step::Empty:
                return LeaveOut(leftOut, source, "the mail is empty");
            case MboxReader::Step::TooLarge:
                return LeaveOut(leftOut, source, kTooLarge);
            case MboxReader::Step::Unreadable:
                return LeaveOut(leftOut, path.string(), "it can't be read");
            case MboxReader::Step::End:
                break;
        }
        return Step::End;
    }

    std::vector<MailFile> files_;
    MboxVariant variant_;
    std::size_t at_ = 0;
    std::uint64_t total_ = 0;
    std::uint64_t done_ = 0;
    std::unique_ptr<MboxReader> mbox_;
};

MailReader::MailReader(std::vector<fs::path> paths, MboxVariant variant)
    : state_(std::make_unique<State>(paths, variant))
{}

MailReader::~MailReader() = default;

MailReader::Step MailReader::Next(FoundMail& mail, LeftOutFile& leftOut)
{
    return state_->Next(mail, leftOut);
}

std::uint64_t MailReader::TotalBytes() const noexcept
{
    return state_->Total();
}
std::uint64_t MailReader::DoneBytes() const noexcept
{
    return state_->Done();
}

}  // namespace quorvane
