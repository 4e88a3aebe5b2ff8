// SPDX-License-Identifier: MIT
#pragma once

#include "description/key_check.hpp"
#include "description/problem_list.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <boost/property_tree/ptree.hpp>

/// How the checks find what the daemon cannot read.
namespace Tools {

/// What a key may hold.
struct KeyForm {
    std::string_view key;
    std::string_view form;   ///< for advice: `"port": a number from 0 to 65535`
    std::string_view value;  ///< that the daemon's parser accepts
};

/// The number that the daemon reads from a value; nothing if it does not convert or does not fit.
template <typename Number>
[[nodiscard]] std::optional<Number> numberOf(const Member& member) {
    const auto value = boost::property_tree::ptree{member.text}.get_value_optional<std::int64_t>();
    if (!value || !std::in_range<Number>(*value)) {
        return std::nullopt;
    }
    return static_cast<Number>(*value);
}

/**
 * Runs an object of the description through the daemon's parser, which stops at the first problem:
 * each key that it cannot read is reported and then given a usable value, so that the parser gets
 * to the next one.
 */
class ObjectCheck {
  public:
    ObjectCheck(ProblemList& list, const Document& description, Scope scope, const Keys& keys);

    /// Reports a key that is missing or cannot be read. @param text the daemon's
    void reportUnreadable(const KeyForm& form, const std::string& text);

    /// Reports an optional key that is misspelt. @return whether it is
    bool reportMisspelt(std::string_view key, const std::string& consequence);

    /// Reports an optional number that is misspelt or that the daemon cannot read, and then
    /// silently takes as 0.
    template <typename Number>
    void checkOptionalNumber(const KeyForm& form, const std::string& consequence) {
        const auto* member = scope_.object.find(form.key);
        if (member == nullptr) {
            reportMisspelt(form.key, consequence);
        } else if (!numberOf<Number>(*member)) {
            reportUnreadable(form, describe(*member) + " cannot be read, so " + consequence);
        }
    }

    /// The member with this key, or a misspelt one that stands for it. Null if there is none.
    [[nodiscard]] const Member* member(std::string_view key) const;

    /// As JSON. @param leftOut keys that do not matter
    [[nodiscard]] std::string repaired(const std::vector<std::string_view>& leftOut = {}) const;

    [[nodiscard]] const Scope& scope() const noexcept { return scope_; }

  private:
    [[nodiscard]] std::string describe(const Member& member) const;
    [[nodiscard]] std::string writeInstead(std::string_view key, const Member& member) const;
    void repair(std::string_view key, std::string_view value);

    ProblemList& list_;
    const Document& description_;
    Scope scope_;
    Misspelt misspelt_;
    std::vector<std::string> repairs_;  // the last one first, because it overrides earlier ones
};

}  // namespace Tools
