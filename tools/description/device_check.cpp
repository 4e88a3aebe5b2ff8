// SPDX-License-Identifier: MIT
#include "description/checks.hpp"
#include "description/nearest.hpp"
#include "description/object_check.hpp"
#include "opcua/device.hpp"

#include <algorithm>
#include <array>

#include <boost/asio/ip/address.hpp>
#include <fmt/format.h>

namespace Tools {
namespace {

constexpr std::array requiredForms{
    KeyForm{"id", R"("id": the identifier of the device)", R"("")"},
    KeyForm{"ipAddress", R"("ipAddress": the IPv4 address of the server)", R"("127.0.0.1")"},
    KeyForm{"port", R"("port": a number from 1 to 65535, mostly 4840)", "1"},
};

constexpr KeyForm pullDelayForm{
    "pullDelay", R"("pullDelay": a whole number of milliseconds from 0 to 65535)", "0"};
constexpr auto backToBack =
    "the pull delay is 0: the daemon reads back to back, up to thousands of times a second";

constexpr std::array<std::string_view, 3> optionKeys{"authenticationtype", "username", "password"};
constexpr std::array<std::string_view, 3> authenticationTypes{"anonymous", "username",
                                                              "certificate"};

void checkRequired(ObjectCheck& check) {
    for (;;) {
        const auto text = daemonVerdict(check.repaired({"tags", "protocolOptions"}),
                                        std::make_shared<PullappOpcUa::Device>());
        const auto form = std::ranges::find_if(requiredForms, [&](const KeyForm& candidate) {
            return text == fmt::format("Could not read {}", candidate.key);
        });
        if (form == requiredForms.end()) {
            return;
        }
        check.reportUnreadable(*form, text);
    }
}

/// Checks what the daemon notices only when it connects.
void checkEndpoint(ProblemList& list, const ObjectCheck& check) {
    const auto& scope = check.scope();
    if (const auto* port = check.member("port");
        port != nullptr && numberOf<std::uint16_t>(*port) == 0) {
        list.add(scope, port, "no server listens on port 0",
                 "write " + std::string{requiredForms[2].form});
    }
    const auto* address = check.member("ipAddress");
    if (address == nullptr) {
        return;
    }
    boost::system::error_code error;
    const auto parsed = boost::asio::ip::make_address(address->text, error);
    if (error) {
        list.add(scope, address, "Connection error: invalid ip address",
                 "write the IPv4 address of the server; host names are not looked up");
    } else if (parsed.is_v6()) {
        list.add(scope, address, "Error: BADTCPENDPOINTURLINVALID",
                 "write the IPv4 address of the server; IPv6 addresses do not work");
    }
}

std::string optionAdvice(const Member& option) {
    const bool isType = option.key == optionKeys[0];
    const auto meant =
        isType ? nearest(option.text, authenticationTypes) : nearest(option.key, optionKeys);
    if (meant) {
        return fmt::format("write \"{}\" instead of \"{}\"", *meant,
                           isType ? option.text : option.key);
    }
    return fmt::format("write one of \"{}\"",
                       fmt::join(isType ? authenticationTypes : optionKeys, "\", \""));
}

void checkLogIn(ProblemList& list, const Scope& scope) {
    const auto* type = scope.object.find(optionKeys[0]);
    const auto* username = scope.object.find(optionKeys[1]);
    if (type != nullptr && type->text == "certificate") {
        list.note(scope, type, "\"certificate\" logs in anonymously");
    } else if (type != nullptr && type->text == "username" && username == nullptr) {
        list.add(scope, nullptr, "the user name is empty", R"(add "username" and "password")");
    } else if (type == nullptr && username != nullptr) {
        list.add(scope, username, "\"username\" is ignored, so the daemon logs in anonymously",
                 R"(add "authenticationtype": "username")");
    }
}

/// Options are applied in order: of one that occurs twice, the last is used.
void checkOptions(ProblemList& list, const Document& description, const Scope& device) {
    const auto* member = device.object.find("protocolOptions");
    if (member == nullptr) {
        return;
    }
    if (!member->isNested) {
        list.add(device, member,
                 "\"protocolOptions\" is not an object and is ignored, so the daemon logs in "
                 "anonymously",
                 R"(write { "authenticationtype": "username", "username": …, "password": … })");
        return;
    }
    const Scope scope{.object = description.options, .pointer = device.pointer / member->key};
    PullappOpcUa::Device probe;
    bool isRefused = false;
    for (const auto& option : scope.object.members) {
        if (const auto error = probe.setProtocolOption(option.key, option.text); !error.empty()) {
            isRefused = true;
            list.add(scope, &option,
                     fmt::format("Could not read protocolOptions[{}]: {}", option.key, error),
                     optionAdvice(option));
        } else if (scope.object.find(option.key) != &option) {
            list.add(scope, &option,
                     fmt::format("\"{}\" occurs twice, and this one counts", option.key),
                     "remove one of them");
        }
    }
    if (!isRefused) {
        checkLogIn(list, scope);
    }
}

void checkTagCount(ProblemList& list, const Document& description, ObjectCheck& check) {
    const std::string consequence =
        "there are no tags: the daemon connects and publishes what the server says to a Read of "
        "nothing, mostly BADNOTHINGTODO";
    const auto* tags = check.scope().object.find("tags");
    if (tags == nullptr) {
        if (!check.reportMisspelt("tags", consequence)) {
            list.add(check.scope(), nullptr, consequence, R"(add "tags": [ … ])");
        }
    } else if (description.tags.empty()) {
        list.add(check.scope(), tags, consequence, "add tags");
    }
}

}  // namespace

void checkDevice(ProblemList& list, const Document& description) {
    const Keys keys{.read = {"id", "ipAddress", "port", "pullDelay", "protocolOptions", "tags"},
                    .ignored = {}};
    ObjectCheck check{list, description, Scope{.object = description.device}, keys};
    checkRequired(check);
    checkEndpoint(list, check);
    check.checkOptionalNumber<std::uint16_t>(pullDelayForm, backToBack);
    if (check.member("pullDelay") == nullptr) {
        list.note(check.scope(), nullptr, fmt::format("no \"pullDelay\", so {}", backToBack));
    }
    check.reportMisspelt("protocolOptions", "the daemon logs in anonymously");
    checkOptions(list, description, check.scope());
    checkTagCount(list, description, check);
}

}  // namespace Tools
