// SPDX-License-Identifier: MIT
#include "opcua/protocol_handler.hpp"

#include "opcua/read_response.hpp"
#include "opcua/status_code_name.hpp"

#include <chrono>

#include <boost/asio/ip/address.hpp>
#include <boost/system/error_code.hpp>

namespace PullappOpcUa {
namespace {

/// Longer than every pause between two pulls, but not by much: until it times out, a session that
/// was never closed counts towards the server's limit.
std::chrono::milliseconds sessionTimeout(const Device& device) {
    constexpr std::chrono::seconds margin{15};
    return margin + std::chrono::milliseconds{device.pullDelay};
}

}  // namespace

std::string ProtocolHandler::connect(Device& device) {
    boost::system::error_code error;
    boost::asio::ip::make_address(device.ipAddress, error);
    if (error) {
        return "Connection error: invalid ip address";
    }
    const auto url = "opc.tcp://" + device.ipAddress + ":" + std::to_string(device.port);
    SessionSettings settings{.timeout = sessionTimeout(device)};
    if (device.authenticationType == AuthenticationType::Username) {
        settings.username = device.username.c_str();
        settings.password = device.password.c_str();
    }
    const auto status = session_.open(url, settings);
    if (status != UA_STATUSCODE_GOOD) {
        return "Error: " + std::string{statusCodeName(status)};
    }
    return {};
}

void ProtocolHandler::disconnect(Device& /*device*/) {
    session_.close();
}

std::pair<std::string, ReadResponse> ProtocolHandler::readAll(const Device& device) {
    auto response = session_.read(device.readRequest);
    const auto status = statusOf(response, device.tags.size());
    const auto error = status == UA_STATUSCODE_GOOD ? std::string_view{} : statusCodeName(status);
    return {std::string{error}, std::move(response)};
}

std::string ProtocolHandler::verifyTags(Device& device) {
    const auto [failure, response] = readAll(device);
    if (!failure.empty()) {
        return failure;
    }
    return checkTypes(device, response);
}

std::string ProtocolHandler::pullData(Device& device, Orvik::PushInterface::Client& client) {
    const auto [failure, response] = readAll(device);
    if (!failure.empty()) {
        return failure;
    }
    std::string batch;
    batch.reserve(batchSize_ + batchSize_ / 8);
    if (auto error = appendBatch(batch, device, response); !error.empty()) {
        return error;
    }
    batchSize_ = batch.size();
    client.write(std::move(batch));
    return {};
}

}  // namespace PullappOpcUa
