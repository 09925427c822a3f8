#include "host/mime/header_repair.h"

#include <algorithm>
#include <unordered_set>

#include "host/mail/ascii.h"
#include "host/mail/mail_check.h"

namespace quorvane {
namespace {

constexpr std::string_view kBlanks = " \t";

// The name under which a line that is no field stays among fields.
constexpr const char* kStrangeLine = "X-Unparsed-Line: ";

// How much of a mail is seen at the least, and read at once.
constexpr std::size_t kLookahead = std::size_t{1} << 20;
constexpr std::size_t kBlock = std::size_t{1} << 20;

// How far a broken line may be folded.
constexpr int kLinesAhead = 50;

// The value of boundary= in a header block, anywhere in it; empty when there is none.
std::string BoundaryOf(const std::string& block)
{
    constexpr std::string_view kName = "boundary";
    std::size_t at = LowerAscii(block).find(kName);
    if (at == std::string::npos)
        return {};
    at = block.find_first_not_of(" \t\r\n", at + kName.size());
    if (at == std::string::npos || block[at] != '=')
        return {};
    at = block.find_first_not_of(" \t\r\n", at + 1);
    if (at == std::string::npos)
        return {};
    if (block[at] == '"')
        return block.substr(at + 1, block.find('"', at + 1) - at - 1);
    return block.substr(at, block.find_first_of(" \t\r\n;", at) - at);
}

std::string WithoutBlanksBeforeColon(std::string_view line)
{
    const std::size_t colon = line.find(':');
    std::string result(line.substr(0, line.find_last_not_of(kBlanks, colon - 1) + 1));
    return result.append(line.substr(colon));
}

class Repair {
public:
    explicit Repair(const MailBytes& mail) : mail_(mail)
    {
        if (mail.IsInMemory()) {
            rest_ = mail.Memory();
            shown_ = mail.Size();
        }
    }

    MailBytes Run()
    {
        BeginBlock();
        while (Look()) {
            const std::string_view line = rest_.substr(0, LineLength(rest_));
            rest_.remove_prefix(line.size());
            if (goesOn_)
                result_.Append(line);
            else if (inBlock_)
                HeaderLine(line);
            else
                BodyLine(line);
            goesOn_ = !line.ends_with('\n');
        }
        return std::move(result_);
    }

private:
    // Sees to it that the next line, and those that its repair may depend on, can be seen. False at the end.
    bool Look()
    {
        if (rest_.size() < kLookahead && shown_ < mail_.Size()) {
            std::string window(rest_);
            const std::size_t had = window.size();
            window.resize(had + kBlock);
            const std::size_t got = mail_.Read(shown_, window.data() + had, kBlock);
            window.resize(had + got);
            shown_ = got == 0 ? mail_.Size() : shown_ + got;
            window_ = std::move(window);
            rest_ = window_;
        }
        return !rest_.empty();
    }

    void BeginBlock()
    {
        inBlock_ = true;
        hasField_ = false;
        block_.clear();
    }

    void HeaderLine(std::string_view line)
    {
        if (IsBlankLine(line)) {
            result_.Append(line);
            return EndBlock();
        }
        std::string clean(line);
        std::replace(clean.begin(), clean.end(), '\0', ' ');
        const bool continues = hasField_ && (clean.front() == ' ' || clean.front() == '\t');
        const bool isField = IsFieldOfBlock(clean);
        if (!continues && !isField && EndsBlock(clean)) {
            result_.Append(line.ends_with("\r\n") ? "\r\n" : "\n");
            EndBlock();
            return inBlock_ ? HeaderLine(line) : BodyLine(line);
        }
        hasField_ = true;
        if (!continues && !isField)
            clean.insert(0, kStrangeLine);
        clean = isField && !continues ? WithoutBlanksBeforeColon(clean) : clean;
        block_ += clean;
        result_.Append(clean);
    }

    // Whether a line that is no field belongs to the text behind the block.
    bool EndsBlock(std::string_view line) const
    {
        if (line.starts_with("--"))
            return true;
        std::string_view after = rest_;
        for (int i = 0; i < kLinesAhead && (after.starts_with(' ') || after.starts_with('\t')); ++i)
            after.remove_prefix(LineLength(after));
        const std::string_view next = after.substr(0, LineLength(after));
        // The outermost block is kept as a whole; in others, what is no field would be lost.
        const bool endsHeader = outermost_ && hasField_ && (next.empty() || IsBlankLine(next));
        return !IsFieldOfBlock(next) && !endsHeader;
    }

    void EndBlock()
    {
        std::string boundary = BoundaryOf(block_);
        const std::string lower = LowerAscii(block_);
        const bool nests = lower.find("message/rfc822") != std::string::npos && boundary.empty() &&
                           lower.find("base64") == std::string::npos &&
                           lower.find("quoted-printable") == std::string::npos;
        if (!boundary.empty())
            boundaries_.insert(std::move(boundary));
        inBlock_ = outermost_ = false;
        if (nests)
            BeginBlock();
    }

    void BodyLine(std::string_view line)
    {
        result_.Append(line);
        if (!line.starts_with("--"))
            return;
        const std::string text(line.substr(2, line.find_last_not_of(" \t\r\n") - 1));
        if (boundaries_.contains(text))
            BeginBlock();
    }

    const MailBytes& mail_;
    std::string window_;     // a part of the mail, when that isn't in memory
    std::string_view rest_;  // what comes next
    std::uint64_t shown_ = 0;
    bool goesOn_ = false;  // a line that is longer than the window isn't at its end
    MailBytes result_;
    std::string block_;  // the block that is being read, as written to the result
    bool inBlock_ = false;
    bool outermost_ = true;
    bool hasField_ = false;
    std::unordered_set<std::string> boundaries_;
};

}  // namespace

MailBytes RepairHeaders(const MailBytes& mail)
{
    return Repair(mail).Run();
}

}  // namespace quorvane
