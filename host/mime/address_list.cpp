#include "host/mime/address_list.h"

#include <algorithm>

#include "host/mime/charset.h"
#include "host/mime/gmime_setup.h"
#include "quorvane3/com.h"

namespace quorvane {
namespace {

// A name as it is shown: on one line, runs of blanks as one.
std::string ShownText(std::string_view text)
{
    std::string shown;
    for (const char c : text) {
        const bool blank = c == ' ' || c == '\t' || c == '\r' || c == '\n';
        if (!blank)
            shown.push_back(c);
        else if (!shown.empty() && shown.back() != ' ')
            shown.push_back(' ');
    }
    if (shown.ends_with(' '))
        shown.pop_back();
    return shown;
}

std::string DecodedName(const std::string& text)
{
    return ShownText(CleanUtf8(DecodedHeader(DecodeText(ShownText(text), "").c_str())));
}

// The length of the encoded word at the beginning of `text`; 0 when there is none.
std::size_t EncodedWordLength(std::string_view text)
{
    if (!text.starts_with("=?"))
        return 0;
    const std::string_view word = text.substr(0, text.find_first_of(" \t\r\n\"<>"));
    const std::size_t encoding = word.find('?', 2);
    const std::size_t content = encoding == std::string_view::npos ? encoding : word.find('?', encoding + 1);
    const std::size_t end = content == std::string_view::npos ? content : word.find("?=", content + 1);
    return end == std::string_view::npos ? 0 : end + 2;
}

std::string WithoutBlanks(std::string text)
{
    std::erase_if(text, [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; });
    return text;
}

// What stands between two separators.
struct Entry {
    std::string phrase;   // outside of all brackets, quotes taken away
    std::string raw;      // the same with its quotes
    std::string angle;    // within <...>
    std::string comment;  // within (...)
    bool hasAngle = false;

    [[nodiscard]] bool IsBlank() const
    {
        return ShownText(raw).empty() && !hasAngle && ShownText(comment).empty();
    }
    [[nodiscard]] bool HasAddress() const { return hasAngle || raw.find('@') != std::string::npos; }
};

class Parser {
public:
    explicit Parser(std::string_view value) : value_(value) {}

    std::vector<MailAddress> Run()
    {
        while (at_ < value_.size())
            Step(value_[at_]);
        EndEntry(false);
        return std::move(people_);
    }

private:
    void Step(char c)
    {
        if (const std::size_t length = EncodedWordLength(value_.substr(at_)); length > 0) {
            for (const char byte : value_.substr(at_, length))
                Put(byte);
            at_ += length;
            return;
        }
        switch (c) {
            case '"':
                return Quoted();
            case '(':
                return Comment();
            case '<':
                return Angle();
            case ',':
                ++at_;
                return EndEntry(true);
            case ';':
                ++at_;
                return EndEntry(false);
            case ':':
                ++at_;
                return GroupBegins();
            default:
                Put(c);
                ++at_;
        }
    }

    void Put(char c)
    {
        // A second person without a comma between.
        if (entry_.hasAngle && c != ' ' && c != '\t' && c != '\r' && c != '\n')
            EndEntry(false);
        entry_.phrase.push_back(c);
        entry_.raw.push_back(c);
    }

    void Quoted()
    {
        Put('"');
        entry_.phrase.pop_back();
        for (++at_; at_ < value_.size(); ++at_) {
            const char c = value_[at_];
            entry_.raw.push_back(c);
            if (c == '"') {
                ++at_;
                return;
            }
            if (c == '\\' && at_ + 1 < value_.size()) {
                entry_.raw.push_back(value_[++at_]);
                entry_.phrase.push_back(value_[at_]);
            } else {
                entry_.phrase.push_back(c);
            }
        }
    }

    void Comment()
    {
        int depth = 0;
        for (; at_ < value_.size(); ++at_) {
            char c = value_[at_];
            if (c == '(' && ++depth == 1)
                continue;
            if (c == ')' && --depth == 0) {
                ++at_;
                break;
            }
            if (c == '\\' && at_ + 1 < value_.size())
                c = value_[++at_];
            entry_.comment.push_back(c);
        }
        entry_.comment.push_back(' ');
    }

    void Angle()
    {
        if (entry_.hasAngle)
            EndEntry(false);
        entry_.hasAngle = true;
        bool quoted = false;
        for (++at_; at_ < value_.size(); ++at_) {
            const char c = value_[at_];
            if (c == '"')
                quoted = !quoted;
            if (c == '>' && !quoted) {
                ++at_;
                return;
            }
            if (c == '(' && !quoted) {
                Comment();
                --at_;
            } else {
                entry_.angle.push_back(c);
            }
        }
    }

    // The colon of a group, or one that belongs to a word.
    void GroupBegins()
    {
        const bool isWord =
            entry_.raw.find('@') != std::string::npos || entry_.raw.find('[') != std::string::npos;
        if (isWord)
            return Put(':');
        FlushHeld();
        entry_ = {};
    }

    void EndEntry(bool byComma)
    {
        Entry entry = std::exchange(entry_, {});
        if (entry.IsBlank()) {
            if (!byComma)
                FlushHeld();
            return;
        }
        if (!entry.HasAddress() && byComma) {
            held_ += entry.phrase + ", ";
            return;
        }
        if (entry.hasAngle)
            entry.phrase = std::exchange(held_, {}) + entry.phrase;
        FlushHeld();
        Add(entry);
    }

    // Words before a comma that turned out to begin no name: somebody without an address, each.
    void FlushHeld()
    {
        std::string held = std::exchange(held_, {});
        for (std::size_t at = 0; at < held.size();) {
            const std::size_t end = std::min(held.find(", ", at), held.size());
            if (std::string name = DecodedName(held.substr(at, end - at)); !name.empty())
                people_.push_back({std::move(name), {}});
            at = end + 2;
        }
    }

    void Add(const Entry& entry)
    {
        if (entry.hasAngle) {
            std::string name = entry.phrase;
            if (ShownText(name).empty())
                name = entry.comment;
            return AddPerson(name, entry.angle);
        }
        if (!entry.HasAddress())
            return AddPerson(entry.phrase + " " + entry.comment, {});
        AddBareWords(entry);
    }

    // "somebody@example.org", perhaps several without a comma, perhaps with words between.
    void AddBareWords(const Entry& entry)
    {
        const std::string raw = ShownText(entry.raw);
        if (raw.find("\"@") != std::string::npos)
            return AddPerson(entry.comment, raw);
        AddWords(ShownText(entry.phrase), entry.comment);
    }

    void AddWords(const std::string& words, const std::string& comment)
    {
        std::string name;
        std::string comments = comment;
        for (std::size_t at = 0; at < words.size();) {
            const std::size_t end = std::min(words.find(' ', at), words.size());
            const std::string word = words.substr(at, end - at);
            if (word.find('@') != std::string::npos)
                AddPerson(std::exchange(name, {}) + std::exchange(comments, {}), word);
            else
                name += word + " ";
            at = end + 1;
        }
        AddPerson(name, {});
    }

    void AddPerson(const std::string& name, std::string address)
    {
        // A route ("@relay,@relay:user@host") is history.
        if (address.starts_with('@') && address.find(':') != std::string::npos)
            address.erase(0, address.find(':') + 1);
        if (address.find('"') == std::string::npos)
            address = WithoutBlanks(std::move(address));
        MailAddress person{DecodedName(name), DecodeText(ShownText(address), "")};
        if (person.name == person.address)
            person.name.clear();
        if (!person.Shown().empty())
            people_.push_back(std::move(person));
    }

    std::string_view value_;
    std::size_t at_ = 0;
    Entry entry_;
    std::string held_;  // words without an address before a comma
    std::vector<MailAddress> people_;
};

}  // namespace

std::vector<MailAddress> ParseAddressList(std::string_view value)
{
    return Parser(value).Run();
}

}  // namespace quorvane
