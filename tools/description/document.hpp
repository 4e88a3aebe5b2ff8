// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Tools {

/// May precede a JSON text, and is skipped.
inline constexpr std::string_view byteOrderMark = "\xef\xbb\xbf";

/// A part of a text, in bytes from its start.
struct Range {
    std::size_t begin = 0;
    std::size_t end = 0;

    [[nodiscard]] std::string_view of(std::string_view text) const {
        return text.substr(begin, end - begin);
    }
};

/// A key with its value, or an element of an array, whose key is empty.
struct Member {
    std::string key;
    Range keyRange;         ///< with its quotes
    Range range;            ///< of the value
    std::string text;       ///< of the value as the daemon reads it: strings without quotes
    bool isNested = false;  ///< an object or an array; the daemon reads an empty text
};

/// An object of the description, or whatever is in its place.
struct Object {
    Range range;
    bool isObject = false;
    std::vector<Member> members;  ///< in order, all of them if a key occurs twice

    /// The member that is used: the first one with this key. Null if there is none.
    [[nodiscard]] const Member* find(std::string_view key) const;
};

struct SyntaxError {
    std::size_t offset = 0;
    std::string text;
};

/// The JSON text of a device description, with the positions of everything that the daemon reads.
struct Document {
    std::string_view json;
    Object device;
    Object options;            ///< "protocolOptions"
    std::vector<Object> tags;  ///< elements of "tags"
    std::optional<SyntaxError> syntaxError;
};

/// @param json must outlive the result
[[nodiscard]] Document readDocument(std::string_view json);

}  // namespace Tools
