#include "host/mime/rtf_text.h"

#include <array>
#include <cstdint>

namespace quorvane {
namespace {

constexpr std::size_t kHeaderSize = 16;
constexpr std::uint32_t kCompressed = 0x75465A4C;    // "LZFu"
constexpr std::uint32_t kUncompressed = 0x414C454D;  // "MELA"
constexpr std::uint32_t kMostBytes = std::uint32_t{64} << 20;
constexpr std::size_t kDictionarySize = 4096;

// What the dictionary holds at first: the words that RTF begins with.
constexpr std::string_view kInitial =
    "{\\rtf1\\ansi\\mac\\deff0\\deftab720{\\fonttbl;}{\\f0\\fnil \\froman \\fswiss \\fmodern \\fscript "
    "\\fdecor MS Sans SerifSymbolArialTimes New RomanCourier{\\colortbl\\red0\\green0\\blue0\r\n\\par "
    "\\pard\\plain\\f0\\fs20\\b\\i\\u\\tab\\tx";
static_assert(kInitial.size() == 207);

std::uint32_t ReadNumber(std::string_view bytes, std::size_t at)
{
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < 4; ++i)
        value |= std::uint32_t{static_cast<unsigned char>(bytes[at + i])} << (8 * i);
    return value;
}

class Expander {
public:
    Expander(std::string_view input, std::size_t most) : input_(input), most_(most)
    {
        kInitial.copy(dictionary_.data(), kInitial.size());
    }

    std::optional<std::string> Expand()
    {
        while (at_ < input_.size()) {
            const auto control = static_cast<unsigned char>(input_[at_++]);
            for (int bit = 0; bit < 8; ++bit) {
                const bool isReference = (control & (1 << bit)) != 0;
                if (at_ + (isReference ? 2u : 1u) > input_.size())
                    return std::nullopt;
                if (!isReference)
                    Put(input_[at_++]);
                else if (!CopyReference())
                    return std::move(output_);
                if (output_.size() > most_)
                    return std::nullopt;
            }
        }
        return std::nullopt;
    }

private:
    void Put(char c)
    {
        output_.push_back(c);
        dictionary_[write_] = c;
        write_ = (write_ + 1) % kDictionarySize;
    }

    // 12 bits of place, 4 of length less 2, high byte first; the place that is written next ends the text.
    bool CopyReference()
    {
        const unsigned pair =
            (static_cast<unsigned char>(input_[at_]) << 8) | static_cast<unsigned char>(input_[at_ + 1]);
        at_ += 2;
        std::size_t from = pair >> 4;
        if (from == write_)
            return false;
        for (unsigned count = (pair & 0xF) + 2; count > 0; --count) {
            Put(dictionary_[from]);
            from = (from + 1) % kDictionarySize;
        }
        return true;
    }

    std::string_view input_;
    std::size_t most_;
    std::size_t at_ = 0;
    std::size_t write_ = kInitial.size();
    std::array<char, kDictionarySize> dictionary_{};
    std::string output_;
};

}  // namespace

bool CanExpandRtf(std::string_view beginning)
{
    if (beginning.size() < kHeaderSize || ReadNumber(beginning, 4) > kMostBytes)
        return false;
    const std::uint32_t kind = ReadNumber(beginning, 8);
    return kind == kUncompressed || kind == kCompressed;
}

std::optional<std::string> DecompressRtf(std::string_view value)
{
    if (!CanExpandRtf(value))
        return std::nullopt;
    const std::uint32_t rawSize = ReadNumber(value, 4);
    const std::string_view content = value.substr(kHeaderSize);
    if (ReadNumber(value, 8) == kUncompressed)
        return std::string(content.substr(0, rawSize));
    auto text = Expander(content, std::size_t{rawSize} + 32).Expand();
    if (text && text->size() > rawSize)
        text->resize(rawSize);
    return text;
}

}  // namespace quorvane
