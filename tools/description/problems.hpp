// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace PullappOpcUa {
class Device;
}

namespace Tools {

struct Document;

/// Where in a description something is.
struct Place {
    std::size_t offset = 0;  ///< in bytes
    std::size_t line = 1;
    std::size_t column = 1;  ///< in characters
    std::string pointer{};   ///< JSON pointer, such as "/tags/2/width"; empty for the whole
    std::string tag{};       ///< such as "tag 3 (id 7, ns=2;i=5)"; empty for what belongs to no tag
    std::size_t tagIndex = noTag;  ///< in the order of the description

    static constexpr std::size_t noTag = static_cast<std::size_t>(-1);
};

enum class Severity {
    Note,    ///< makes no difference to the daemon
    Problem  ///< the daemon refuses it, or does not do what was meant
};

/// Something in a description that its author should know.
struct Problem {
    Severity severity = Severity::Problem;
    Place place{};
    std::string text;      ///< what is wrong; in the daemon's own words where it has some
    std::string advice{};  ///< what to write instead; empty if there is nothing to say
};

/// Everything that is wrong with a description, in the order of its text.
[[nodiscard]] std::vector<Problem> findProblems(const Document& description);
[[nodiscard]] std::vector<Problem> findProblems(std::string_view json);

/// A problem on one line: "12:9, tag 3 (id 7, ns=2;i=5), /tags/2/width: TEXT; ADVICE".
[[nodiscard]] std::string oneLine(const Problem& problem);

/**
 * The daemon's verdict on a description.
 *
 * @param device new; filled as the daemon fills it, and of no use after an error
 * @return empty if it accepts it, otherwise the text that it logs before it ends
 */
[[nodiscard]] std::string daemonVerdict(std::string_view json,
                                        const std::shared_ptr<PullappOpcUa::Device>& device);

}  // namespace Tools
