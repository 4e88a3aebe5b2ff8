// SPDX-License-Identifier: MIT
#include "opcua/number_text.hpp"

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <string_view>

namespace PullappOpcUa {
namespace {

/// The library's way, for every value: exact, but with big numbers.
char* writeAnyGeneral(char* out, double value, int precision) {
    return std::to_chars(out, out + generalSize, value, std::chars_format::general, precision).ptr;
}

#ifdef __SIZEOF_INT128__

__extension__ using Wide = unsigned __int128;

constexpr int largestPower = 22;

constexpr auto powersOfTen = [] {
    std::array<Wide, largestPower + 1> powers{1};
    for (std::size_t i = 1; i < powers.size(); ++i) {
        powers[i] = powers[i - 1] * 10;
    }
    return powers;
}();

/// Such values are written without exponent, and their digits are found in 128 bits: the mantissa
/// has 53, and the largest power of ten that is needed 74.
bool isCommon(double magnitude, int precision) {
    return magnitude >= 1e-4 && magnitude < (precision > 15 ? 1e15 : 1e9);
}

/// A positive binary number with its exponent.
struct Binary {
    std::uint64_t mantissa;
    int exponent;

    explicit Binary(double value)
        : mantissa{std::bit_cast<std::uint64_t>(value)},
          exponent{static_cast<int>(mantissa >> 52U) - 1075} {
        mantissa = (mantissa & ((std::uint64_t{1} << 52U) - 1)) | std::uint64_t{1} << 52U;
    }

    /// floor(log10), or one less.
    [[nodiscard]] int leastDecimalExponent() const { return ((exponent + 52) * 1233) >> 12; }

    /// The value times 10^power, rounded; the exponent is negative.
    [[nodiscard]] std::uint64_t scaled(int power) const {
        const Wide product = mantissa * powersOfTen[static_cast<std::size_t>(power)];
        const auto shift = static_cast<unsigned>(-exponent);
        const auto result = static_cast<std::uint64_t>(product >> shift);
        const Wide rest = product & ((Wide{1} << shift) - 1);
        const Wide half = Wide{1} << (shift - 1);
        return rest > half || (rest == half && result % 2 == 1) ? result + 1 : result;
    }
};

/// Writes digits of which so many stand behind the point; zeros at the end are left out.
char* writeDecimals(char* out, std::string_view digits, std::size_t decimals) {
    while (decimals > 0 && digits.ends_with('0')) {
        digits.remove_suffix(1);
        --decimals;
    }
    if (digits.size() <= decimals) {
        *out++ = '0';
        *out++ = '.';
        out = std::fill_n(out, decimals - digits.size(), '0');
        return std::ranges::copy(digits, out).out;
    }
    out = std::copy_n(digits.begin(), digits.size() - decimals, out);
    if (decimals > 0) {
        *out++ = '.';
    }
    return std::copy_n(std::prev(digits.end(), static_cast<std::ptrdiff_t>(decimals)), decimals,
                       out);
}

char* writeCommon(char* out, double magnitude, int precision) {
    const Binary value{magnitude};
    auto decimals = precision - 1 - value.leastDecimalExponent();
    auto number = value.scaled(decimals);
    if (number >= powersOfTen[static_cast<std::size_t>(precision)]) {  // a digit too many
        number = value.scaled(--decimals);
    }
    std::array<char, 20> digits;  // NOLINT(cppcoreguidelines-pro-type-member-init): filled below
    const auto* end = std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr;
    return writeDecimals(out, {digits.data(), end}, static_cast<std::size_t>(decimals));
}

#endif

}  // namespace

char* writeGeneral(char* out, double value, int precision) {
#ifdef __SIZEOF_INT128__
    if (const auto magnitude = std::abs(value); isCommon(magnitude, precision)) {
        if (value < 0) {
            *out++ = '-';
        }
        return writeCommon(out, magnitude, precision);
    }
#endif
    return writeAnyGeneral(out, value, precision);
}

}  // namespace PullappOpcUa
