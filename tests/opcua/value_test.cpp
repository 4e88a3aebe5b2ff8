// SPDX-License-Identifier: MIT
#include "opcua/value.hpp"

#include "support/opcua_values.hpp"

#include <cmath>
#include <limits>
#include <locale>
#include <sstream>

#include <gtest/gtest.h>

namespace PullappOpcUa {
namespace {

using Orvik::PushInterface::TagType;
using TestSupport::borrow;
using TestSupport::scalar;

struct Sample {
    TagType tagType;
    std::size_t type;
    const void* value;
    std::string text;
    std::string_view description;
};

/// One value of each supported type.
std::vector<Sample> samples() {
    static const UA_Boolean boolean = true;
    static const UA_SByte int8 = -128;
    static const UA_Byte uint8 = 255;
    static const UA_Int16 int16 = -32768;
    static const UA_UInt16 uint16 = 65535;
    static const UA_Int32 int32 = -2147483647 - 1;
    static const UA_UInt32 uint32 = 4294967295;
    static const UA_Int64 int64 = std::numeric_limits<std::int64_t>::min();
    static const UA_UInt64 uint64 = std::numeric_limits<std::uint64_t>::max();
    static const UA_Float number = 0.1F;
    static const UA_Double longNumber = 0.1;
    static const UA_String string = UA_STRING_STATIC("abc");
    return {
        {TagType::Bool, UA_TYPES_BOOLEAN, &boolean, "t", " type should be boolean"},
        {TagType::Int8, UA_TYPES_SBYTE, &int8, "-128", " type should be int8"},
        {TagType::UInt8, UA_TYPES_BYTE, &uint8, "255", " type should be uint8"},
        {TagType::Int16, UA_TYPES_INT16, &int16, "-32768", " type should be int16"},
        {TagType::UInt16, UA_TYPES_UINT16, &uint16, "65535", " type should be uint16"},
        {TagType::Int32, UA_TYPES_INT32, &int32, "-2147483648", " type should be int32"},
        {TagType::UInt32, UA_TYPES_UINT32, &uint32, "4294967295", " type should be uint32"},
        {TagType::Int64, UA_TYPES_INT64, &int64, "-9223372036854775808", " type should be int64"},
        {TagType::UInt64, UA_TYPES_UINT64, &uint64, "18446744073709551615",
         " type should be uint64"},
        {TagType::Float, UA_TYPES_FLOAT, &number, "0.1000000015", " type should be float"},
        {TagType::Double, UA_TYPES_DOUBLE, &longNumber, "0.100000000000000006",
         " type should be double"},
        {TagType::String, UA_TYPES_STRING, &string, "3,abc", " type should be string"},
        {TagType{16}, UA_TYPES_LOCALIZEDTEXT, &string, "", " type unsupported"},
        {TagType{16}, UA_TYPES_BYTESTRING, &string, "", " type unsupported"},
        {TagType{16}, UA_TYPES_DATETIME, &int64, "", " type unsupported"},
    };
}

UA_Variant variantOf(const Sample& sample) {
    UA_Variant variant{};
    UA_Variant_setScalar(&variant, const_cast<void*>(sample.value), &UA_TYPES[sample.type]);
    return variant;
}

TEST(ValueTest, TakesOnlyTheTypeOfTheTag) {
    const auto all = samples();
    for (const auto& wanted : all) {
        for (const auto& given : all) {
            Tag tag;
            tag.address = "ns=2;i=7";
            tag.tagType = wanted.tagType;
            const auto variant = variantOf(given);
            const bool isChecked = wanted.tagType != TagType{16};
            const bool fits = !isChecked || wanted.tagType == given.tagType;
            const auto error = "Wrong type for tag: ns=2;i=7" + std::string{given.description};
            EXPECT_EQ(fits ? "" : error, checkTagType(tag, variant));
            EXPECT_EQ(given.description, describeVariantType(variant));
            const auto written = isChecked ? given.text : "";
            EXPECT_EQ(fits ? std::optional{written} : std::nullopt, formatValue(tag, variant));
        }
    }
}

TEST(ValueTest, RefusesUnknownTagTypeAndPassesUnassignedOnes) {
    UA_Boolean value = false;
    const auto variant = scalar(value, UA_TYPES_BOOLEAN);
    Tag tag;
    tag.address = "ns=1;i=1";
    EXPECT_EQ("unsupported tag type: ns=1;i=1", checkTagType(tag, variant));
    EXPECT_EQ("?", formatValue(tag, variant));
    for (const std::uint32_t number : {2U, 4U, 5U, 16U, 4294967295U}) {
        tag.tagType = TagType{number};
        EXPECT_EQ("", checkTagType(tag, variant));
        EXPECT_EQ("", formatValue(tag, variant));
    }
    tag.tagType = TagType::Bool;
    EXPECT_EQ("f", formatValue(tag, variant));
}

TEST(ValueTest, TakesTextUpToItsLengthOrFirstZeroByte) {
    using namespace std::string_literals;
    const struct {
        std::string value;
        std::uint32_t limit;
        std::string text;
    } rows[]{
        {"abc", 0, "3,abc"},
        {"abcdef", 4, "4,abcd"},
        {"abc", 3, "3,abc"},
        {"a\nb", 0, "3,a b"},
        {"ab\r\ncd", 5, "5,ab  c"},
        {"\r\n", 1, "1, "},
        {"a,\nb", 0, "4,a, b"},
        {"a\0b"s, 0, "1,a"},
        {"\0b"s, 0, "0,"},
        {"\xC3\xA4", 1, "1,\xC3"},
        {"5,=", 0, "3,5,="},
        {std::string(100000, 'x'), 0, "100000," + std::string(100000, 'x')},
    };
    Tag tag;
    tag.tagType = TagType::String;
    for (const auto& row : rows) {
        tag.maxStringLength = row.limit;
        auto value = borrow(row.value);
        EXPECT_EQ(row.text, formatValue(tag, scalar(value, UA_TYPES_STRING)));
    }
    UA_String empty{0, static_cast<UA_Byte*>(UA_EMPTY_ARRAY_SENTINEL)};
    EXPECT_EQ("0,", formatValue(tag, scalar(empty, UA_TYPES_STRING)));
    UA_String null{};
    EXPECT_EQ(std::nullopt, formatValue(tag, scalar(null, UA_TYPES_STRING)));
}

template <typename Float>
void expectStreamed(TagType tagType, std::size_t type, int precision) {
    using Limits = std::numeric_limits<Float>;
    Tag tag;
    tag.tagType = tagType;
    for (const auto magnitude :
         {0.0, 0.1, 0.5, 2.5, 1e-4, 1e-5, 123456.789, 1e9, 9999999999.5, 1e17, 1e18, 1e30,
          99999.99999999999, double{Limits::denorm_min()}, double{Limits::max()},
          double{Limits::infinity()}, double{Limits::quiet_NaN()}}) {
        for (const auto sign : {1.0, -1.0}) {
            auto value = static_cast<Float>(std::copysign(magnitude, sign));
            std::ostringstream stream;
            stream.imbue(std::locale::classic());
            stream.precision(precision);
            stream << value;
            EXPECT_EQ(stream.str(), formatValue(tag, scalar(value, type)));
        }
    }
}

TEST(ValueTest, WritesNumbersAsStreamsDo) {
    expectStreamed<UA_Float>(TagType::Float, UA_TYPES_FLOAT, 10);
    expectStreamed<UA_Double>(TagType::Double, UA_TYPES_DOUBLE, 18);
}

}  // namespace
}  // namespace PullappOpcUa
