// SPDX-License-Identifier: MIT
#pragma once

#include "opcua-simulator/options.hpp"
#include "opcua-simulator/sent_messages.hpp"
#include "opcua-simulator/variable.hpp"
#include "opcua/device.hpp"

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <open62541/server.h>

namespace OpcUaSimulator {

struct ServerDeleter {
    void operator()(UA_Server* server) const noexcept {
        UA_Server_run_shutdown(server);
        UA_Server_delete(server);
    }
};

/// An OPC UA server with the tags of a device. Everything runs in `iterate`, on one thread.
class Server {
  public:
    /// Listens, and serves as soon as `iterate` is called.
    /// @throws std::runtime_error if the port is taken or a node cannot be created
    Server(const Options& options, const PullappOpcUa::Device& device);

    [[nodiscard]] std::uint16_t port() const noexcept { return port_; }

    /// Waits for requests, at most 50 ms, and answers them; returns early on a signal.
    void iterate();

    /// Stops answering for a while.
    void silence(Seconds length) { silentUntil_ = Clock::now() + cast(length); }

    /// Starts a fault now. @throws std::runtime_error if there is no such variable
    void begin(Fault fault);

    /// One line: Read requests answered, values read, sessions refused, most alive at a time,
    /// opened and alive now. A session that was never activated counts as alive, too.
    [[nodiscard]] std::string statistics() const;

  private:
    using Clock = std::chrono::steady_clock;

    void configure(UA_ServerConfig& config, const Options& options);
    void countEndsOfSessions(UA_AccessControl& accessControl);
    [[nodiscard]] std::uint64_t aliveSessions() const { return sent_.sessions() - endedSessions_; }
    void addVariables(const PullappOpcUa::Device& device);
    void add(const Fault& fault);
    [[nodiscard]] static Clock::duration cast(Seconds seconds) {
        return std::chrono::duration_cast<Clock::duration>(seconds);
    }
    static UA_StatusCode read(UA_Server* server, const UA_NodeId* sessionId, void* sessionContext,
                              const UA_NodeId* nodeId, void* nodeContext,
                              UA_Boolean includeSourceTimeStamp, const UA_NumericRange* range,
                              UA_DataValue* value);

    Clock::time_point start_ = Clock::now();
    Clock::time_point silentUntil_ = start_;
    Seconds now_{0};  ///< time of this iteration; one clock read serves all values
    UA_DateTime wallClock_ = UA_DateTime_now();  ///< the same
    std::uint16_t port_ = 0;
    SentMessages sent_;  ///< outlives the server
    Counters counters_;
    decltype(UA_AccessControl::closeSession) closeSession_ = nullptr;
    std::uint64_t endedSessions_ = 0;
    std::uint64_t mostSessions_ = 0;
    std::vector<std::unique_ptr<Variable>> variables_;
    std::unique_ptr<UA_Server, ServerDeleter> server_;
};

}  // namespace OpcUaSimulator
