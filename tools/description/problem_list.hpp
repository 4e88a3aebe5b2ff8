// SPDX-License-Identifier: MIT
#pragma once

#include "description/document.hpp"
#include "description/problems.hpp"

#include <map>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

/// What the parts of the search for problems share.
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

/// What an object of the description may hold.
struct Keys {
    std::vector<std::string_view> read;     ///< by the daemon, in this object
    std::vector<std::string_view> ignored;  ///< known, but not read here
};

/// For a known key that is missing, the member that was most likely meant.
using Misspelt = std::map<std::string_view, const Member*>;

/// Reports keys that occur twice and keys that the daemon does not read, and finds misspelt ones.
[[nodiscard]] Misspelt checkKeys(ProblemList& list, const Scope& scope, const Keys& keys);

}  // namespace Tools
