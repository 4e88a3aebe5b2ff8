// SPDX-License-Identifier: MIT
#include "opcua-commission/connection.hpp"

#include "opcua-commission/interrupt.hpp"
#include "opcua/status_code_name.hpp"

#include <chrono>
#include <thread>

#include <fmt/format.h>

namespace OpcUaCommission {
namespace {

using PullappOpcUa::AuthenticationType;

/// Short, since there are no pauses: a session that a lost connection leaves behind should end
/// soon.
constexpr std::chrono::seconds sessionTimeout{15};

}  // namespace

std::string statusText(UA_StatusCode status) {
    const auto name = PullappOpcUa::statusCodeName(status);
    return name == "UNKNOWN_ERROR" ? fmt::format("{} ({})", name, UA_StatusCode_name(status))
                                   : std::string{name};
}

Connection::Connection(const PullappOpcUa::Device& device)
    : url_{fmt::format("opc.tcp://{}:{}", device.ipAddress, device.port)},
      username_{device.username},
      password_{device.password},
      isAnonymous_{device.authenticationType == AuthenticationType::Anonymous} {
    check(open());
}

/// Retries: the server may still count broken sessions until they time out.
void Connection::reopen() {
    const auto deadline = std::chrono::steady_clock::now() + 2 * sessionTimeout;
    auto status = open();
    while (status == UA_STATUSCODE_BADTOOMANYSESSIONS && !isInterrupted() &&
           std::chrono::steady_clock::now() < deadline) {
        InterruptWatchdog::await(
            [] { std::this_thread::sleep_for(std::chrono::milliseconds{500}); });
        status = open();
    }
    check(status);
}

UA_StatusCode Connection::open() {
    PullappOpcUa::SessionSettings settings{.timeout = sessionTimeout, .isLogged = false};
    if (!isAnonymous_) {
        settings.username = username_.c_str();
        settings.password = password_.c_str();
    }
    return InterruptWatchdog::await([&] { return session_.open(url_, settings); });
}

void Connection::check(UA_StatusCode status) const {
    if (isInterrupted()) {
        throw Interrupted{};
    }
    if (status != UA_STATUSCODE_GOOD) {
        throw ServerError{fmt::format("{}: Error: {}", url_, statusText(status))};
    }
}

Connection::~Connection() {
    InterruptWatchdog::await([this] { session_.close(); });
}

template <typename Call>
auto Connection::counted(Call call) {
    if (isInterrupted()) {
        throw Interrupted{};
    }
    ++requests_;
    auto response = InterruptWatchdog::await(call);
    if (isInterrupted()) {
        throw Interrupted{};
    }
    return response;
}

ReadResponse Connection::read(const UA_ReadRequest& request) {
    return counted([&] { return session_.read(request); });
}

BrowseResponse Connection::browse(const UA_BrowseRequest& request) {
    return counted([&] { return session_.browse(request); });
}

BrowseNextResponse Connection::browseNext(const UA_BrowseNextRequest& request) {
    return counted([&] { return session_.browseNext(request); });
}

}  // namespace OpcUaCommission
