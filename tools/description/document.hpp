// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Tools {

/// May stand before a JSON text, and is passed over.
inline constexpr std::string_view byteOrderMark = "\xef\xbb\xbf";

/// A piece of a text, in bytes from its begin.
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

/// An object of the description, or whatever stands in its place.
struct Object {
    Range range;
    bool isObject = false;
    std::vector<Member> members;  ///< in their order, all of them where a key stands twice

    /// The member that counts: the first one with this key. Null if there is none.
    [[nodiscard]] const Member* find(std::string_view key) const;
};

struct SyntaxError {
    std::size_t offset = 0;
    std::string text;
};

/// The JSON text of a device description, with the places of all that the daemon reads.
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
