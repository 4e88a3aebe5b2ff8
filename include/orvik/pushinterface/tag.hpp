// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace Orvik::PushInterface {

/// Type of a tag's value. The numbers are fixed; 2, 4 and 5 are unassigned.
enum class TagType : std::uint32_t {
    Unknown = 0,
    Bool = 1,
    String = 3,
    Float = 6,
    Double = 7,
    Int8 = 8,
    Int16 = 9,
    Int32 = 10,
    Int64 = 11,
    UInt8 = 12,
    UInt16 = 13,
    UInt32 = 14,
    UInt64 = 15,
};

namespace Detail {

/// Integer codes: 8, plus 0 to 3 for 8 to 64 bits, plus 4 when unsigned.
[[nodiscard]] constexpr TagType integerTagType(bool isSigned, std::uint8_t width) noexcept {
    for (std::uint32_t exponent = 0; exponent < 4; ++exponent) {
        if (width == 8U << exponent) {
            return static_cast<TagType>(8 + exponent + (isSigned ? 0 : 4));
        }
    }
    return TagType::Unknown;
}

}  // namespace Detail

/// The tag type a description means; exact and case-sensitive, `Unknown` for anything not listed.
[[nodiscard]] constexpr TagType resolveTagType(std::string_view type, bool isSigned,
                                               std::uint8_t width) noexcept {
    if (type == "bool") {
        return TagType::Bool;
    }
    if (type == "int") {
        return Detail::integerTagType(isSigned, width);
    }
    if (type == "float" && (width == 32 || width == 64)) {
        return width == 32 ? TagType::Float : TagType::Double;
    }
    return type == "string" || type == "str" ? TagType::String : TagType::Unknown;
}

/**
 * One value of a device, as described. A protocol derives its own tag and adds what
 * its addresses hold. Filled by the parser, not changed afterwards.
 */
class Tag {
  public:
    Tag() = default;
    virtual ~Tag() = default;
    Tag(const Tag&) = delete;
    Tag& operator=(const Tag&) = delete;

    std::uint16_t id = 0;               ///< identifies the tag on the push interface
    std::string address;                ///< where the value is in the field device; protocol syntax
    std::string type;                   ///< type name as described
    bool isSigned = false;              ///< read for "int" only
    std::uint8_t width = 0;             ///< bits; read for "int" and "float" only
    std::uint32_t maxStringLength = 0;  ///< bytes; 0 means no limit
    TagType tagType = TagType::Unknown;
};

}  // namespace Orvik::PushInterface
