// SPDX-License-Identifier: MIT
#include "description/nearest.hpp"

#include <algorithm>
#include <numeric>
#include <vector>

#include <boost/algorithm/string/case_conv.hpp>

namespace Tools {
namespace {

/// 0 for the same word in another case; a prefix of the known word is closer than one wrong letter.
std::size_t distanceOf(const std::string& word, std::string_view knownWord) {
    constexpr std::size_t shortestPart = 2;
    const auto known = lowerCase(knownWord);
    const auto at = word.size() < shortestPart ? std::string::npos : known.find(word);
    if (word != known && at != std::string::npos) {
        return at == 0 ? 1 : 2;
    }
    return 2 * editDistance(word, known);
}

}  // namespace

std::size_t editDistance(std::string_view left, std::string_view right) {
    std::vector<std::size_t> beforeLast(right.size() + 1);
    std::vector<std::size_t> last(right.size() + 1);
    std::vector<std::size_t> current(right.size() + 1);
    std::iota(last.begin(), last.end(), std::size_t{0});
    for (std::size_t row = 1; row <= left.size(); ++row) {
        current[0] = row;
        for (std::size_t column = 1; column <= right.size(); ++column) {
            const bool isSame = left[row - 1] == right[column - 1];
            auto least = std::min(
                {last[column] + 1, current[column - 1] + 1, last[column - 1] + (isSame ? 0 : 1)});
            if (row > 1 && column > 1 && left[row - 1] == right[column - 2] &&
                left[row - 2] == right[column - 1]) {
                least = std::min(least, beforeLast[column - 2] + 1);
            }
            current[column] = least;
        }
        beforeLast.swap(last);
        last.swap(current);
    }
    return last.back();
}

std::string lowerCase(std::string_view text) {
    return boost::algorithm::to_lower_copy(std::string{text}, std::locale::classic());
}

std::optional<std::string_view> nearest(std::string_view word,
                                        std::span<const std::string_view> known) {
    const auto lower = lowerCase(word);
    auto least = 2 * std::max<std::size_t>(1, word.size() / 3) + 1;
    std::optional<std::string_view> best;
    for (const auto candidate : known) {
        const auto distance = distanceOf(lower, candidate);
        if (distance < least) {
            least = distance;
            best = candidate;
        }
    }
    return best;
}

}  // namespace Tools
