// SPDX-License-Identifier: MIT
#include "opcua-simulator/fault.hpp"

#include <array>
#include <cmath>
#include <stdexcept>
#include <utility>
#include <vector>

#include <boost/algorithm/string/classification.hpp>
#include <boost/algorithm/string/split.hpp>
#include <boost/lexical_cast/try_lexical_convert.hpp>

namespace OpcUaSimulator {

bool Fault::isActive(Seconds now) const noexcept {
    const auto since = now - begin;
    if (since < every) {
        return false;  // so that there is a good value first
    }
    const auto sinceLast =
        every == Seconds{0} ? since : Seconds{std::fmod(since.count(), every.count())};
    return length == Seconds{0} || sinceLast < length;
}

bool Fault::isOver(Seconds now) const noexcept {
    return every == Seconds{0} && length != Seconds{0} && now - begin >= length;
}

FaultKind faultKind(std::string_view name) {
    constexpr std::array<std::pair<std::string_view, FaultKind>, 6> kinds{{
        {"bad-status", FaultKind::BadStatus},
        {"no-value", FaultKind::NoValue},
        {"other-type", FaultKind::OtherType},
        {"null-string", FaultKind::NullString},
        {"array", FaultKind::Array},
        {"long-text", FaultKind::LongText},
    }};
    for (const auto& [known, kind] : kinds) {
        if (known == name) {
            return kind;
        }
    }
    throw std::runtime_error{"unknown fault '" + std::string{name} +
                             "': bad-status, no-value, other-type, null-string, array, long-text"};
}

Seconds parseSeconds(const std::string& text) {
    double seconds = 0;
    if (!boost::conversion::try_lexical_convert(text, seconds) || !std::isfinite(seconds) ||
        seconds < 0) {
        throw std::runtime_error{"'" + text + "' is no number of seconds"};
    }
    return Seconds{seconds};
}

Fault parseFault(const std::string& text) {
    const auto at = text.find('@');
    std::vector<std::string> parts;
    const auto front = text.substr(0, at);
    boost::algorithm::split(parts, front, boost::algorithm::is_any_of(":"));
    if (at == std::string::npos || (parts.size() != 1 && parts.size() != 3)) {
        throw std::runtime_error{"fault '" + text +
                                 "' is neither KIND@NODEID nor KIND:EVERY:FOR@NODEID"};
    }
    Fault fault{.kind = faultKind(parts[0]), .nodeId = text.substr(at + 1)};
    if (parts.size() == 3) {
        fault.every = parseSeconds(parts[1]);
        fault.length = parseSeconds(parts[2]);
    }
    return fault;
}

}  // namespace OpcUaSimulator
