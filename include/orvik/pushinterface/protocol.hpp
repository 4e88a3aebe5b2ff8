// SPDX-License-Identifier: MIT
#pragma once

#include <charconv>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <string_view>

/**
 * The text protocol of the push interface, in and out, without a socket. Every line ends with one
 * line feed; all else is opaque bytes: no character set, no escaping, no carriage returns.
 */
namespace Orvik::PushInterface {

/// Types of messages of the server; the client sends some of them too.
namespace MessageType {
inline constexpr std::string_view helo = "HELO";
inline constexpr std::string_view devc = "DEVC";
inline constexpr std::string_view info = "INFO";
inline constexpr std::string_view ifch = "IFCH";
inline constexpr std::string_view rtch = "RTCH";
inline constexpr std::string_view eror = "EROR";
inline constexpr std::string_view tgnf = "TGNF";
inline constexpr std::string_view invl = "INVL";
inline constexpr std::string_view toof = "TOOF";
inline constexpr std::string_view exit = "EXIT";
}  // namespace MessageType

/// A received line, split. Both views point into the line.
struct Message {
    std::string_view type;
    std::string_view payload;

    friend bool operator==(const Message&, const Message&) = default;
};

/**
 * Splits a line into four characters of type and, after exactly one blank, the payload.
 *
 * @param line without its line feed
 * @return nothing if the line has another shape
 */
[[nodiscard]] constexpr std::optional<Message> splitLine(std::string_view line) noexcept {
    constexpr std::size_t typeLength = 4;
    if (line.size() == typeLength) {
        return Message{.type = line, .payload = {}};
    }
    if (line.size() > typeLength && line[typeLength] == ' ') {
        return Message{.type = line.substr(0, typeLength), .payload = line.substr(typeLength + 1)};
    }
    return std::nullopt;
}

/// Appends an integer in decimal; never reads a locale.
template <std::integral Integer>
void appendDecimal(std::string& text, Integer value) {
    char digits[std::numeric_limits<Integer>::digits10 + 2];  // the sign included
    const char* end = std::to_chars(digits, digits + sizeof digits, value).ptr;
    text.append(std::string_view{digits, end});  // appending a view is faster than iterators
}

/**
 * Appends a text value as its byte count, "," and its bytes; nothing is escaped.
 *
 * @param maxLength longest text in bytes; a longer one is cut. 0 means no limit.
 */
inline void appendStringValue(std::string& text, std::string_view value, std::size_t maxLength) {
    if (maxLength != 0 && maxLength < value.size()) {
        value = value.substr(0, maxLength);
    }
    appendDecimal(text, value.size());
    text += ',';
    text += value;
}

/// The same, returned as a string.
[[nodiscard]] inline std::string encodeStringValue(std::string_view value, std::size_t maxLength) {
    std::string text;
    appendStringValue(text, value, maxLength);
    return text;
}

/// Begins one line of a value batch; the value text and a line feed follow.
/// It begins with a digit: a line that begins with "@" is a named value.
inline void appendTagId(std::string& batch, std::uint16_t id) {
    appendDecimal(batch, id);
    batch += '=';
}

/// A value that is addressed by a name instead of a tag id.
[[nodiscard]] inline std::string encodeNamedValue(std::string_view name, std::string_view value,
                                                  std::size_t maxLength) {
    std::string line{"@"};
    line += name;
    line += '=';
    appendStringValue(line, value, maxLength);
    return line;
}

/// Name of the value that holds the device's current fault; empty for none.
inline constexpr std::string_view errorMessageName = "__nimbara_error_msg__";
inline constexpr std::size_t maxErrorMessageLength = 255;  ///< bytes; a longer text is cut

/// Distinguishes a named value from a value batch.
[[nodiscard]] constexpr bool isNamedValue(std::string_view message) noexcept {
    return message.starts_with('@');
}

/// The line that identifies the device to the server.
[[nodiscard]] inline std::string encodeDevc(std::string_view id, std::string_view key) {
    std::string line{MessageType::devc};
    line += ' ';
    line += id;
    line += ' ';
    line += key;
    return line;
}

}  // namespace Orvik::PushInterface
