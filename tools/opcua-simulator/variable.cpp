// SPDX-License-Identifier: MIT
#include "opcua-simulator/variable.hpp"

#include "opcua/value.hpp"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <numbers>

namespace OpcUaSimulator {
namespace {

using Orvik::PushInterface::TagType;

/// The same value twice, so that an array of two can refer to it too.
template <typename T>
void store(std::byte* target, T value) {
    std::memcpy(target, &value, sizeof value);
    std::memcpy(target + sizeof value, &value, sizeof value);
}

/// Up and down between the ends of a small range that every integer type holds.
template <typename Integer>
Integer ramp(double seconds) {
    constexpr double top = 100;
    const auto position = std::fmod(seconds * 5, 2 * top);
    const auto height = position < top ? position : 2 * top - position;
    constexpr double middle = std::numeric_limits<Integer>::is_signed ? top / 2 : 0;
    return static_cast<Integer>(height - middle);
}

double sine(double seconds) {
    return 50 + 25 * std::sin(seconds * std::numbers::pi / 15);
}

}  // namespace

void Variable::add(const Fault& fault) {
    std::erase_if(faults_, [&](const Fault& earlier) { return earlier.isOver(fault.begin); });
    faults_.insert(faults_.begin(), fault);
}

UA_StatusCode Variable::read(Seconds now, UA_DataValue& result) {
    ++counters_.values;
    move(now);
    const auto fault = std::ranges::find_if(
        faults_, [now](const Fault& candidate) { return candidate.isActive(now); });
    if (fault != faults_.end()) {
        return fail(fault->kind, result);
    }
    return refer(result, value_, dataType());
}

void Variable::move(Seconds now) {
    const auto seconds = now.count() + 3 * static_cast<double>(index_);
    switch (tag_->tagType) {
        case TagType::Bool:
            return store(value_, std::fmod(seconds, 4) < 2);
        case TagType::Int8:
            return store(value_, ramp<std::int8_t>(seconds));
        case TagType::UInt8:
            return store(value_, ramp<std::uint8_t>(seconds));
        case TagType::Int16:
            return store(value_, ramp<std::int16_t>(seconds));
        case TagType::UInt16:
            return store(value_, ramp<std::uint16_t>(seconds));
        case TagType::Int32:
            return store(value_, static_cast<std::int32_t>(-seconds));
        case TagType::UInt32:
            return store(value_, static_cast<std::uint32_t>(seconds));
        case TagType::Int64:
            return store(value_, static_cast<std::int64_t>(-seconds * 1000));
        case TagType::UInt64:
            return store(value_, static_cast<std::uint64_t>(seconds * 1000));
        case TagType::Float:
            return store(value_, static_cast<float>(sine(seconds)));
        case TagType::Double:
            return store(value_, sine(seconds));
        case TagType::String:
            return moveText(seconds);
        case TagType::Unknown:
            break;
    }
}

void Variable::moveText(double seconds) {
    text_ = "item " + std::to_string(static_cast<std::uint64_t>(seconds / 2));
    string_ = {text_.size(), reinterpret_cast<UA_Byte*>(text_.data())};
    static_assert(sizeof string_ <= sizeof value_);
    std::memcpy(value_, &string_, sizeof string_);
}

UA_StatusCode Variable::fail(FaultKind kind, UA_DataValue& result) {
    constexpr std::size_t longText = 1'000'000;
    switch (kind) {
        case FaultKind::BadStatus:
            return UA_STATUSCODE_BADDEVICEFAILURE;
        case FaultKind::NoValue:
            return UA_STATUSCODE_GOODNODATA;
        case FaultKind::OtherType:
            store(value_, std::int64_t{1});
            return refer(
                result, value_,
                UA_TYPES[tag_->tagType == TagType::Int32 ? UA_TYPES_INT64 : UA_TYPES_INT32]);
        case FaultKind::NullString:
            string_ = {0, nullptr};
            return refer(result, &string_, UA_TYPES[UA_TYPES_STRING]);
        case FaultKind::Array:
            return refer(result, value_, dataType(), tag_->tagType == TagType::String ? 1 : 2);
        case FaultKind::LongText:
            text_.assign(longText, 'x');
            string_ = {text_.size(), reinterpret_cast<UA_Byte*>(text_.data())};
            return refer(result, &string_, UA_TYPES[UA_TYPES_STRING]);
    }
    return UA_STATUSCODE_BADINTERNALERROR;
}

UA_StatusCode Variable::refer(UA_DataValue& result, const void* data, const UA_DataType& type,
                              std::size_t arrayLength) {
    UA_Variant_setScalar(&result.value, const_cast<void*>(data), &type);
    result.value.arrayLength = arrayLength;
    result.value.storageType = UA_VARIANT_DATA_NODELETE;
    result.hasValue = true;
    return UA_STATUSCODE_GOOD;
}

const UA_DataType& Variable::dataType() const noexcept {
    // The tag comes from a description that was accepted, so it has a type
    return *PullappOpcUa::dataTypeOf(tag_->tagType);
}

}  // namespace OpcUaSimulator
