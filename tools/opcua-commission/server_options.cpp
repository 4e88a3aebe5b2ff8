// SPDX-License-Identifier: MIT
#include "opcua-commission/server_options.hpp"

#include "common/file.hpp"
#include "opcua-commission/password_prompt.hpp"

#include <memory>

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <fmt/format.h>

namespace OpcUaCommission {
namespace {

using PullappOpcUa::AuthenticationType;
using PullappOpcUa::Device;
using Tools::UsageError;

constexpr std::uint16_t usualPort = 4840;

bool isIpv4(const std::string& text) {
    in_addr address{};
    return ::inet_pton(AF_INET, text.c_str(), &address) == 1;
}

bool isIpv6(const std::string& text) {
    in6_addr address{};
    return ::inet_pton(AF_INET6, text.c_str(), &address) == 1;
}

/// The IPv4 addresses of a host, as the system knows them; empty if it knows none.
std::string addressesOf(const std::string& host) {
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    if (::getaddrinfo(host.c_str(), nullptr, &hints, &found) != 0) {
        return {};
    }
    const std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)> owner{found, ::freeaddrinfo};
    std::string addresses;
    for (const auto* entry = found; entry != nullptr; entry = entry->ai_next) {
        char text[INET_ADDRSTRLEN];
        const auto* address = reinterpret_cast<const sockaddr_in*>(entry->ai_addr);
        ::inet_ntop(AF_INET, &address->sin_addr, text, sizeof text);
        addresses += (addresses.empty() ? "" : ", ") + std::string{text};
    }
    return addresses;
}

void checkAddress(const std::string& host) {
    if (host.empty()) {
        throw UsageError{"option '--host' is missing"};
    }
    if (isIpv4(host)) {
        return;
    }
    if (isIpv6(host)) {
        throw UsageError{
            fmt::format("'{}' is an IPv6 address, with which the daemon cannot "
                        "connect; give an IPv4 address",
                        host)};
    }
    if (host.find_first_of("/:") != std::string::npos) {
        throw UsageError{
            fmt::format("'{}' is no IPv4 address; of \"opc.tcp://192.168.1.10:4840\" write "
                        "--host=192.168.1.10 --port=4840",
                        host)};
    }
    const auto addresses = addressesOf(host);
    throw UsageError{fmt::format(
        "'{}' is no IPv4 address; the daemon looks up no host names, and a description holds an "
        "address; {}",
        host,
        addresses.empty() ? "this system knows no host of that name"
                          : "this system resolves it to " + addresses)};
}

std::string readPassword(const std::string& path) {
    auto text = Tools::readFile(path);
    return text.substr(0, text.find_first_of("\r\n"));
}

}  // namespace

void addServerOptions(Tools::CommandLine& commandLine, ServerOptions& options) {
    commandLine.text("host", "ADDRESS", options.host, "IPv4 address of the server")
        .number("port", "N", options.port, std::uint16_t{1}, std::uint16_t{65535},
                "port of the server; default: 4840")
        .text("username", "NAME", options.username,
              "log in as this user; default: anonymous. The password comes from --password-file, "
              "or else from the terminal")
        .text("password-file", "FILE", options.passwordFile,
              "take the password from the first line of this file");
}

void applyServerOptions(const ServerOptions& options, Device& device) {
    if (!options.passwordFile.empty() && options.username.empty() && device.username.empty()) {
        throw UsageError{"option '--password-file' needs '--username'"};
    }
    if (!options.host.empty()) {
        device.ipAddress = options.host;
    }
    checkAddress(device.ipAddress);
    device.port = options.port.value_or(device.port != 0 ? device.port : usualPort);
    if (!options.username.empty()) {
        const bool isOther = device.authenticationType != AuthenticationType::Username ||
                             device.username != options.username;
        device.authenticationType = AuthenticationType::Username;
        device.username = options.username;
        if (isOther && options.passwordFile.empty()) {
            device.password = promptForPassword(device.username);
        }
    }
    if (!options.passwordFile.empty()) {
        device.password = readPassword(options.passwordFile);
    }
}

void copyServer(const Device& from, Device& to) {
    to.ipAddress = from.ipAddress;
    to.port = from.port;
    to.authenticationType = from.authenticationType;
    to.username = from.username;
    to.password = from.password;
}

void addFormatOption(Tools::CommandLine& commandLine, std::string& format) {
    commandLine.text("format", "FORMAT", format, "table, csv or json; default: table");
}

Format toFormat(const std::string& text) {
    if (text.empty() || text == "table") {
        return Format::Table;
    }
    if (text == "csv") {
        return Format::Csv;
    }
    if (text == "json") {
        return Format::Json;
    }
    throw UsageError{fmt::format("option '--format' takes table, csv or json, not '{}'", text)};
}

}  // namespace OpcUaCommission
