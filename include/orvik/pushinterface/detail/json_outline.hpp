// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include <boost/property_tree/json_parser.hpp>
#include <boost/property_tree/ptree.hpp>

namespace Orvik::PushInterface::Detail {

/**
 * A JSON text that was read and found valid. A tree takes twenty times the memory of its text, so
 * only the upper two levels are kept as one. Each array and object on the third level, such as a
 * tag of a description, stays text until `expand` makes a tree of it.
 */
class JsonOutline {
  public:
    using Tree = boost::property_tree::ptree;

    /**
     * Reads a text.
     *
     * @param json must outlive this object
     * @return the first problem as one line, empty if there is none
     */
    [[nodiscard]] std::string read(std::string_view json) {
        std::string outline;
        if (!cut(json, outline)) {
            return "JSON parser error: nested too deep";
        }
        try {
            parse(outline, tree);
            for (const auto part : parts_) {
                Tree unused;
                parse(part, unused);
            }
        } catch (const boost::property_tree::json_parser_error&) {
            return problemOf(json);
        }
        return {};
    }

    /// Turns a node of the third level into its whole tree.
    void expand(Tree& node) const {
        if (!node.empty()) {
            parse(parts_.at(node.front().second.get_value<std::size_t>()), node);
        }
    }

    Tree tree;  ///< the upper two levels

  private:
    static constexpr std::size_t partLevel = 3;

    /// Deepest nesting of a text. The JSON reader calls itself for each level, so that a deeper
    /// text could exhaust the stack; a description needs three.
    static constexpr std::size_t maxLevel = 100;

    /**
     * Replaces each part of the text by an array that contains only the part's number. As no other
     * array or object is left on that level, the two cannot be confused. The text is valid if, and
     * only if, the outline and all parts are.
     *
     * @return false if the text is nested too deep
     */
    [[nodiscard]] bool cut(std::string_view json, std::string& outline) {
        std::size_t level = 0;
        std::size_t rest = 0;
        bool inString = false;
        for (std::size_t i = 0; i < json.size(); ++i) {
            const char c = json[i];
            if (inString && c == '\\') {
                ++i;
            } else if (c == '"') {
                inString = !inString;
            } else if (!inString && (c == '{' || c == '[')) {
                if (++level == partLevel) {
                    outline.append(json.substr(rest, i - rest));
                    outline.append("[").append(std::to_string(parts_.size())).append("]");
                    parts_.push_back(json.substr(i));
                } else if (level > maxLevel) {
                    return false;
                }
            } else if (!inString && (c == '}' || c == ']') && level > 0) {
                if (level-- == partLevel) {
                    rest = i + 1;
                    parts_.back().remove_suffix(json.size() - rest);
                }
            }
        }
        outline.append(json.substr(rest));  // after a part without an end, which is not valid
        return true;
    }

    /// @param tree filled in place: it can be copied, but not moved
    static void parse(std::string_view json, Tree& tree) {
        std::istringstream stream{std::string{json}};
        boost::property_tree::read_json(stream, tree);
    }

    /// Parses the whole text, so that the line number in the problem is right.
    [[nodiscard]] static std::string problemOf(std::string_view json) {
        try {
            Tree unused;
            parse(json, unused);
        } catch (const boost::property_tree::json_parser_error& error) {
            return std::string{"JSON parser error: "} + error.what();
        }
        return {};
    }

    std::vector<std::string_view> parts_;
};

}  // namespace Orvik::PushInterface::Detail
