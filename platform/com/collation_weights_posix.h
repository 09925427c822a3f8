// platform/com/collation_weights_posix.h: what each character weighs when texts are ordered.
#ifndef QUORVANE_PLATFORM_COM_COLLATION_WEIGHTS_POSIX_H_
#define QUORVANE_PLATFORM_COM_COLLATION_WEIGHTS_POSIX_H_

#include <cstdint>

namespace quorvane {

// A character counts on the first level (base), on the last alone (special), adds its accent to the character
// before it (only accent), or is passed over (nothing).
struct CollationWeights {
    std::uint32_t base = 0;
    std::uint32_t secondBase = 0;  // of a ligature, which counts as two letters
    std::uint8_t accent = 0;       // 0: none
    std::uint8_t letterCase = 0;   // 0: small
    std::uint8_t special = 0;
};

// The order of bases: blanks, punctuation, signs, digits, Latin, Greek and Cyrillic letters, and all others
// by their code.
CollationWeights CollationWeightsOf(std::uint16_t unit) noexcept;

}  // namespace quorvane

#endif  // QUORVANE_PLATFORM_COM_COLLATION_WEIGHTS_POSIX_H_
