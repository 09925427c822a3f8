#include "platform/com/collation_weights_posix.h"

#include <array>
#include <string_view>

namespace quorvane {

namespace {

using Unit = std::uint16_t;

constexpr std::uint32_t kPunctuationBase = 0x100;
constexpr std::uint32_t kSignBase = 0x10000;
constexpr std::uint32_t kDigitBase = 0x30000;
constexpr std::uint32_t kLatinBase = 0x40000;
constexpr std::uint32_t kGreekBase = 0x50000;
constexpr std::uint32_t kCyrillicBase = 0x60000;
constexpr std::uint32_t kOtherBase = 0x100000;

enum Case : std::uint8_t { kSmall, kFinal, kRaised, kCapital };

// Each in its order.
constexpr std::u16string_view kPunctuation =
    u" \u00A0\t\n\v\f\r!\"#$%&()*,./:;?@[\\]^_`{|}~\u00A1\u00A6\u00A8\u00AF\u00B4\u00B8\u00BF"
    u"\u2016\u2017\u2018\u2019\u201A\u201B\u201C\u201D\u201E\u201F\u00A2\u00A3\u00A4\u00A5"
    u"+<=>"
    u"\u00B1\u00AB\u00BB\u00D7\u00F7\u00A7\u00A9\u00AC\u00AE\u00B0\u00B5\u00B6\u00B7\u2026\u2020\u2021\u2022";
constexpr std::u16string_view kDigits = u"0\u00BC\u00BD\u00BE123456789";
// '#' is eng, '$' the long s, '%' the barred t; '@' and '&' are the first's and the last's capitals.
constexpr std::string_view kLatin = "abcdefghijklmn#opqrs$t%uvwxyz";
constexpr std::u16string_view kGreek =
    u"\u03B1\u03B2\u03B3\u03B4\u03B5\u03B6\u03B7\u03B8\u03B9\u03BA\u03BB\u03BC\u03BD\u03BE\u03BF\u03C0\u03C1"
    u"\u03C3\u03C4\u03C5\u03C6\u03C7\u03C8\u03C9";
constexpr std::u16string_view kCyrillic =
    u"\u0430\u0431\u0432\u0433\u0434\u0452\u0435\u0454\u0436\u0437\u0455\u0438\u0456\u0458\u043A\u043B\u0459"
    u"\u043C\u043D\u045A\u043E\u043F\u0440\u0441\u0442\u045B\u0443\u0444\u0445\u0446\u0447\u045F\u0448\u0449"
    u"\u044A\u044B\u044C\u044D\u044E\u044F";
// Passed over at first; the text that has one further to the end comes first.
constexpr std::u16string_view kSpecial =
    u"\u0001\u0002\u0003\u0004\u0005\u0006\u0007\u0008\u000E\u000F\u0010\u0011\u0012\u0013\u0014\u0015\u0016"
    u"\u0017\u0018\u0019\u001A\u001B\u001C\u001D\u001E\u001F\u007F'-"
    u"\u2010\u2011\u2027\u2043\u2012\u2013\u2014"
    u"\u2015";

// An accent's sign in the tables below, its weight, and the mark that adds it to the letter before.
struct Accent {
    char sign;
    std::uint8_t weight;
    Unit mark;
};
constexpr Accent kAccents[] = {
    {'a', 0x01, 0},      {'i', 0x02, 0},  // raised; without its dot
    {'\'', 0x0C, 0x301}, {'`', 0x0D, 0x300},
    {'.', 0x0E, 0x307},  {'m', 0x0F, 0},  // dot above; dot in the middle
    {'^', 0x10, 0x302},  {':', 0x11, 0x308},
    {'v', 0x12, 0x30C},  {'u', 0x13, 0x306},  // caron; breve
    {'-', 0x15, 0x304},  {'~', 0x17, 0x303},
    {'o', 0x18, 0x30A},  {';', 0x19, 0x328},  // ring; ogonek
    {',', 0x1A, 0x327},  {'"', 0x1B, 0x30B},  // cedilla; two acutes
    {'|', 0x1C, 0},      {'l', 0x1D, 0},      // stroke through the stem; through l
    {'!', 0x1D, 0},      {'/', 0x1F, 0},      // diaeresis and acute; stroke through o
    {'n', 0x46, 0},      {'d', 0x66, 0},      // apostrophe before n; eth
};

// The Latin letter that each of U+00C0 to U+017F is a form of, and the accent that it bears; '.' for those
// that are none.
constexpr Unit kFirstForm = 0xC0;
constexpr Unit kEndOfForms = 0x180;
constexpr std::string_view kFormLetters =
    "AAAAAA.CEEEEIIII"
    "DNOOOOO.OUUUUY.."
    "aaaaaa.ceeeeiiii"
    "dnooooo.ouuuuy.y"
    "AaAaAaCcCcCcCcDd"
    "DdEeEeEeEeEeGgGg"
    "GgGgHhHhIiIiIiIi"
    "Ii..JjKkkLlLlLlL"
    "lLlNnNnNnn@#OoOo"
    "Oo..RrRrRrSsSsSs"
    "SsTtTt&%UuUuUuUu"
    "UuUuWwYyYZzZzZz$";
constexpr std::string_view kFormAccents =
    "`'^~:o ,`'^:`'^:"
    "d~`'^~: /`'^:'  "
    "`'^~:o ,`'^:`'^:"
    "d~`'^~: /`'^:' :"
    "--uu;;''^^..vvvv"
    "||--uu..;;vv^^uu"
    "..,,^^||~~--uu;;"
    ".i  ^^,,i'',,vvm"
    "mll'',,vvn  --uu"
    "\"\"  '',,vv''^^,,"
    "vv,,vv||~~--uuoo"
    "\"\";;^^^^:''..vv ";
static_assert(kFormLetters.size() == kEndOfForms - kFirstForm && kFormAccents.size() == kFormLetters.size());

struct Ligature {
    Unit unit;
    char first;
    char second;
};
constexpr Ligature kLigatures[] = {
    {0xC6, 'A', 'E'},  {0xDE, 'T', 'H'},  {0xDF, 's', 's'},  {0xE6, 'a', 'e'},  {0xFE, 't', 'h'},
    {0x132, 'I', 'J'}, {0x133, 'i', 'j'}, {0x152, 'O', 'E'}, {0x153, 'o', 'e'},
};

// A small Greek or Cyrillic letter that is another with an accent.
struct Composite {
    Unit unit;
    Unit letter;
    char accent;
};
constexpr Composite kComposites[] = {
    {0x390, 0x3B9, '!'},  {0x3AC, 0x3B1, '\''}, {0x3AD, 0x3B5, '\''}, {0x3AE, 0x3B7, '\''},
    {0x3AF, 0x3B9, '\''}, {0x3B0, 0x3C5, '!'},  {0x3CA, 0x3B9, ':'},  {0x3CB, 0x3C5, ':'},
    {0x3CC, 0x3BF, '\''}, {0x3CD, 0x3C5, '\''}, {0x3CE, 0x3C9, '\''}, {0x439, 0x438, 'u'},
    {0x450, 0x435, '`'},  {0x451, 0x435, ':'},  {0x453, 0x433, '\''}, {0x457, 0x456, ':'},
    {0x45C, 0x43A, '\''}, {0x45D, 0x438, '`'},  {0x45E, 0x443, 'u'},
};

template <class Text>
constexpr std::uint32_t PlaceIn(Text text, char16_t unit) noexcept
{
    for (std::uint32_t place = 0; place < text.size(); ++place)
        if (static_cast<char16_t>(static_cast<Unit>(text[place])) == unit)
            return place + 1;
    return 0;
}

constexpr std::uint8_t AccentWeight(char sign) noexcept
{
    for (const Accent& accent : kAccents)
        if (accent.sign == sign)
            return accent.weight;
    return 0;
}

constexpr CollationWeights LatinWeights(char letter, char accent) noexcept
{
    char small = letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
    small = letter == '@' ? '#' : letter == '&' ? '%' : small;
    const std::uint32_t place = PlaceIn(kLatin, static_cast<Unit>(small));
    return {kLatinBase + place, 0, AccentWeight(accent), small == letter ? kSmall : kCapital, 0};
}

constexpr CollationWeights FormWeights(Unit unit) noexcept
{
    for (const Ligature& ligature : kLigatures) {
        if (ligature.unit != unit)
            continue;
        CollationWeights weights = LatinWeights(ligature.first, ' ');
        weights.secondBase = LatinWeights(ligature.second, ' ').base;
        return weights;
    }
    return LatinWeights(kFormLetters[unit - kFirstForm], kFormAccents[unit - kFirstForm]);
}

// Raised digits and letters.
constexpr CollationWeights RaisedWeights(Unit unit) noexcept
{
    switch (unit) {
        case 0xAA:
            return {LatinWeights('a', ' ').base, 0, AccentWeight('a'), kRaised, 0};
        case 0xBA:
            return {LatinWeights('o', ' ').base, 0, AccentWeight('a'), kRaised, 0};
        case 0xB2:
        case 0xB3:
            return {kDigitBase + PlaceIn(kDigits, static_cast<Unit>(unit - 0xB2 + '2')), 0, 0, kRaised, 0};
        case 0xB9:
            return {kDigitBase + PlaceIn(kDigits, u'1'), 0, 0, kRaised, 0};
        default:
            return {};
    }
}

constexpr CollationWeights FirstWeights(Unit unit) noexcept
{
    if (const std::uint32_t special = PlaceIn(kSpecial, unit))
        return {0, 0, 0, 0, static_cast<std::uint8_t>(special)};
    if (const std::uint32_t place = PlaceIn(kPunctuation, unit))
        return {kPunctuationBase + place, 0, 0, 0, 0};
    if (const std::uint32_t place = PlaceIn(kDigits, unit))
        return {kDigitBase + place, 0, 0, 0, 0};
    if (unit < 0x80)
        return unit >= 'A' ? LatinWeights(static_cast<char>(unit), ' ') : CollationWeights();
    if (unit >= kFirstForm)
        return FormWeights(unit);
    if (unit < 0xA0)
        return {kSignBase + unit, 0, 0, 0, 0};
    return RaisedWeights(unit);
}

using FirstTable = std::array<CollationWeights, kEndOfForms>;
constexpr FirstTable MakeFirstTable() noexcept
{
    FirstTable table{};
    for (Unit unit = 0; unit < kEndOfForms; ++unit)
        table[unit] = FirstWeights(unit);
    return table;
}

constexpr bool IsBetween(Unit unit, Unit first, Unit last) noexcept
{
    return unit >= first && unit <= last;
}

// The small form of a Greek or Cyrillic capital; of others the same.
constexpr Unit SmallForm(Unit unit) noexcept
{
    if (IsBetween(unit, 0x391, 0x3AB) || IsBetween(unit, 0x410, 0x42F))
        return static_cast<Unit>(unit + 0x20);
    if (IsBetween(unit, 0x400, 0x40F))
        return static_cast<Unit>(unit + 0x50);
    if (IsBetween(unit, 0x388, 0x38A))
        return static_cast<Unit>(unit + 0x25);
    switch (unit) {
        case 0x386:
            return 0x3AC;
        case 0x38C:
            return 0x3CC;
        case 0x38E:
            return 0x3CD;
        case 0x38F:
            return 0x3CE;
        default:
            return unit;
    }
}

CollationWeights GreekOrCyrillicWeights(Unit unit) noexcept
{
    constexpr Unit kFinalSigma = 0x3C2;
    constexpr Unit kSigma = 0x3C3;
    const Unit small = SmallForm(unit);
    Unit letter = small == kFinalSigma ? kSigma : small;
    CollationWeights weights;
    weights.letterCase = unit == kFinalSigma ? kFinal : small == unit ? kSmall : kCapital;
    for (const Composite& composite : kComposites) {
        if (composite.unit == small) {
            letter = composite.letter;
            weights.accent = AccentWeight(composite.accent);
        }
    }
    if (const std::uint32_t greek = PlaceIn(kGreek, letter))
        weights.base = kGreekBase + greek;
    else if (const std::uint32_t cyrillic = PlaceIn(kCyrillic, letter))
        weights.base = kCyrillicBase + cyrillic;
    else
        weights.base = kOtherBase + letter;
    return weights;
}

CollationWeights MarkWeights(Unit unit) noexcept
{
    for (const Accent& accent : kAccents)
        if (accent.mark == unit)
            return {0, 0, accent.weight, 0, 0};
    return {0, 0, static_cast<std::uint8_t>(0x70 + (unit - 0x300)), 0, 0};
}

constexpr bool IsPassedOver(Unit unit) noexcept
{
    return IsBetween(unit, 0x200C, 0x200F) || IsBetween(unit, 0x202A, 0x202E) ||
           IsBetween(unit, 0x2060, 0x206F) || unit >= 0xFFFE || unit == 0xFEFF;
}

CollationWeights SignWeights(Unit unit) noexcept
{
    if (const std::uint32_t special = PlaceIn(kSpecial, unit))
        return {0, 0, 0, 0, static_cast<std::uint8_t>(special)};
    if (const std::uint32_t place = PlaceIn(kPunctuation, unit))
        return {kPunctuationBase + place, 0, 0, 0, 0};
    return {kSignBase + unit, 0, 0, 0, 0};
}

}  // namespace

CollationWeights CollationWeightsOf(std::uint16_t unit) noexcept
{
    static constexpr FirstTable kFirst = MakeFirstTable();
    if (unit < kFirst.size())
        return kFirst[unit];
    if (IsBetween(unit, 0x300, 0x36F))
        return MarkWeights(unit);
    if (IsBetween(unit, 0x386, 0x3CE) || IsBetween(unit, 0x400, 0x45F))
        return GreekOrCyrillicWeights(unit);
    if (IsPassedOver(unit))
        return {};
    if (IsBetween(unit, 0x2000, 0x2BFF) || IsBetween(unit, 0x3000, 0x303F))
        return SignWeights(unit);
    return {kOtherBase + unit, 0, 0, 0, 0};
}

}  // namespace quorvane
