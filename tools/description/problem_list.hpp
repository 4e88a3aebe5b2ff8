// SPDX-License-Identifier: MIT
#pragma once

#include "description/document.hpp"
#include "description/problems.hpp"

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

/// What all checks use.
namespace Tools {

/// An object of the description that is being looked at.
struct Scope {
    const Object& object;
    nlohmann::json::json_pointer pointer{};
    std::string tag{};  ///< as in a place
    std::size_t tagIndex = Place::noTag;
};

/// Collects problems in any order.
class ProblemList {
  public:
    explicit ProblemList(std::string_view json) : json_{json} {}

    void add(Problem problem) { problems_.push_back(std::move(problem)); }
    /// About a member, or about the whole object where it is null.
    void add(const Scope& scope, const Member* member, std::string text, std::string advice);
    /// What makes no difference to the daemon. The same text is reported once, with a count.
    void note(const Scope& scope, const Member* member, const std::string& text);

    [[nodiscard]] bool hasProblems() const;
    /// All of them in the order of the text, with lines and columns.
    [[nodiscard]] std::vector<Problem> finish() &&;

  private:
    struct Note {
        Place place;
        std::size_t count = 0;
    };

    std::string_view json_;
    std::vector<Problem> problems_;
    std::map<std::string, Note, std::less<>> notes_;
};

}  // namespace Tools
