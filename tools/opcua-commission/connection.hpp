// SPDX-License-Identifier: MIT
#pragma once

#include "opcua/device.hpp"
#include "opcua/session.hpp"
#include "opcua/stack.hpp"

#include <cstdint>
#include <exception>
#include <stdexcept>
#include <string>

namespace OpcUaCommission {

/// The server cannot be reached, refuses, or the connection broke. In one line for the user.
class ServerError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// The user has interrupted the program: print what has been found.
class Interrupted : public std::exception {
  public:
    [[nodiscard]] const char* what() const noexcept override { return "interrupted"; }
};

using PullappOpcUa::BrowseNextResponse;
using PullappOpcUa::BrowseResponse;
using PullappOpcUa::ReadResponse;

/// The daemon's name of a status, or the stack's where the daemon has none.
[[nodiscard]] std::string statusText(UA_StatusCode status);

/// The daemon's session with a server, for requests of any kind. Every call ends: within 5 seconds
/// if the server does not answer, at once after an interrupt.
class Connection {
  public:
    /// Connects and logs in as the daemon does.
    /// @throws ServerError with the text that the daemon would publish; Interrupted
    explicit Connection(const PullappOpcUa::Device& device);
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    /// Each call is one request; the service result of the answer says whether it succeeded.
    /// @throws Interrupted
    [[nodiscard]] ReadResponse read(const UA_ReadRequest& request);
    [[nodiscard]] BrowseResponse browse(const UA_BrowseRequest& request);
    [[nodiscard]] BrowseNextResponse browseNext(const UA_BrowseNextRequest& request);

    /// Reconnects. @throws ServerError, Interrupted
    void reopen();

    /// Number of requests so far.
    [[nodiscard]] std::uint64_t requests() const noexcept { return requests_; }

  private:
    [[nodiscard]] UA_StatusCode open();
    void check(UA_StatusCode status) const;

    template <typename Call>
    [[nodiscard]] auto counted(Call call);

    std::string url_;
    std::string username_;
    std::string password_;
    bool isAnonymous_;
    PullappOpcUa::Session session_;
    std::uint64_t requests_ = 0;
};

}  // namespace OpcUaCommission
