// SPDX-License-Identifier: MIT
#include "opcua-simulator/server.hpp"

#include "opcua-simulator/address_space.hpp"
#include "opcua-simulator/odd_nodes.hpp"
#include "opcua-simulator/require.hpp"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <stdexcept>

#include <poll.h>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>

#include <open62541/plugin/accesscontrol_default.h>
#include <open62541/server_config_default.h>

namespace OpcUaSimulator {
namespace {

/// "opc.tcp://HOST:PORT", an IPv6 address in brackets.
std::string urlOf(const std::string& host, std::uint16_t port) {
    const bool isIpv6 = host.find(':') != std::string::npos;
    return "opc.tcp://" + (isIpv6 ? '[' + host + ']' : host) + ':' + std::to_string(port);
}

/// Binds a port without listening: it is then known, and no other program takes it before the
/// stack.
void reserve(boost::asio::ip::tcp::acceptor& acceptor, const Options& options) {
    const boost::asio::ip::tcp::endpoint endpoint{boost::asio::ip::make_address(options.listen),
                                                  options.port};
    boost::system::error_code error;
    acceptor.open(endpoint.protocol());
    acceptor.set_option(boost::asio::socket_base::reuse_address{true});
    acceptor.bind(endpoint, error);
    if (error) {
        throw std::runtime_error{"cannot listen on " + options.listen + ":" +
                                 std::to_string(options.port) + ": " + error.message()};
    }
}

void logToStandardError(void* /*context*/, UA_LogLevel level, UA_LogCategory /*category*/,
                        const char* text, va_list arguments) {
    if (level < UA_LOGLEVEL_INFO) {
        return;
    }
    std::vfprintf(stderr, text, arguments);
    std::fputc('\n', stderr);
}

void logNothing(void* /*context*/, UA_LogLevel /*level*/, UA_LogCategory /*category*/,
                const char* /*text*/, va_list /*arguments*/) {}

UA_Logger quietLogger{logNothing, nullptr, nullptr};
UA_Logger verboseLogger{logToStandardError, nullptr, nullptr};

void setText(UA_String& target, const std::string& text) {
    UA_String_clear(&target);
    target = UA_STRING_ALLOC(text.c_str());
}

}  // namespace

Server::Server(const Options& options, const PullappOpcUa::Device& device) {
    boost::asio::io_context loop;
    boost::asio::ip::tcp::acceptor reserved{loop};
    reserve(reserved, options);
    port_ = reserved.local_endpoint().port();
    UA_ServerConfig config{};
    config.logging = options.verbose ? &verboseLogger : &quietLogger;
    require(UA_ServerConfig_setMinimal(&config, port_, nullptr), "cannot configure the server");
    configure(config, options);
    server_.reset(UA_Server_newWithConfig(&config));
    if (!server_) {
        throw std::runtime_error{"cannot make the server"};
    }
    addVariables(device);
    if (options.odd) {
        addOddNodes(*server_);
    }
    for (const auto& fault : options.faults) {
        add(fault);
    }
    require(UA_Server_run_startup(server_.get()), "cannot start the server");
    // Not earlier: the stack browses while it creates its own nodes
    UA_Server_getConfig(server_.get())->maxReferencesPerNode = options.maxReferences;
    counters_ = {};  // the stack reads a new variable to check its type
}

void Server::configure(UA_ServerConfig& config, const Options& options) {
    config.context = this;
    setText(config.serverUrls[0], urlOf(options.listen, port_));
    sent_.watch(*config.eventLoop);
    if (!options.advertise.empty()) {
        sent_.replace(urlOf(options.listen, port_), urlOf(options.advertise, port_));
    }
    config.tcpReuseAddr = true;
    config.allowNonePolicyPassword = true;
    config.maxSessions = options.maxSessions;
    config.maxSecureChannels =
        static_cast<UA_UInt16>(std::clamp<int>(options.maxSessions + 10, 100, UA_UINT16_MAX));
    config.maxNodesPerRead = options.maxNodes;
    config.maxNodesPerBrowse = options.maxNodes;
    config.maxSessionTimeout = options.sessionTimeout * 1000.0;
    config.maxSecurityTokenLifetime = options.channelLifetime * 1000U;
    if (!options.user.empty()) {
        const UA_UsernamePasswordLogin logIn{
            UA_STRING(const_cast<char*>(options.user.c_str())),
            UA_STRING(const_cast<char*>(options.password.c_str()))};
        require(UA_AccessControl_default(&config, false, nullptr, 1, &logIn),
                "cannot configure the log-in");
    }
    countEndsOfSessions(config.accessControl);
}

/// The stack itself counts only sessions that were activated.
void Server::countEndsOfSessions(UA_AccessControl& accessControl) {
    closeSession_ = accessControl.closeSession;
    accessControl.closeSession = [](UA_Server* server, UA_AccessControl* control,
                                    const UA_NodeId* sessionId, void* sessionContext) {
        auto& self = *static_cast<Server*>(UA_Server_getConfig(server)->context);
        ++self.endedSessions_;
        self.closeSession_(server, control, sessionId, sessionContext);
    };
}

void Server::addVariables(const PullappOpcUa::Device& device) {
    AddressSpace space{*server_};
    for (std::size_t i = 0; i < device.tags.size(); ++i) {
        variables_.push_back(std::make_unique<Variable>(device.tags[i], i, counters_));
        space.addVariable(*variables_.back(), device.readRequest.nodesToRead[i].nodeId, read);
    }
}

UA_StatusCode Server::read(UA_Server* server, const UA_NodeId* /*sessionId*/,
                           void* /*sessionContext*/, const UA_NodeId* /*nodeId*/, void* nodeContext,
                           UA_Boolean /*includeSourceTimeStamp*/, const UA_NumericRange* /*range*/,
                           UA_DataValue* value) {
    const auto& self = *static_cast<Server*>(UA_Server_getConfig(server)->context);
    value->hasSourceTimestamp = true;
    value->sourceTimestamp = self.wallClock_;
    return static_cast<Variable*>(nodeContext)->read(self.now_, *value);
}

void Server::iterate() {
    using std::chrono::milliseconds;
    constexpr milliseconds longestWait{50};
    now_ = Clock::now() - start_;
    wallClock_ = UA_DateTime_now();
    const auto silent = std::chrono::ceil<milliseconds>(silentUntil_ - Clock::now());
    if (silent > milliseconds::zero()) {
        ::poll(nullptr, 0, static_cast<int>(std::min(silent, longestWait).count()));
    } else {
        auto* const loop = UA_Server_getConfig(server_.get())->eventLoop;
        loop->run(loop, static_cast<UA_UInt32>(longestWait.count()));
        mostSessions_ = std::max(mostSessions_, aliveSessions());
    }
}

void Server::begin(Fault fault) {
    fault.begin = now_;
    add(fault);
}

void Server::add(const Fault& fault) {
    const auto variable = std::ranges::find_if(variables_, [&](const auto& candidate) {
        return candidate->tag().address == fault.nodeId;
    });
    if (variable == variables_.end()) {
        throw std::runtime_error{"no variable " + fault.nodeId};
    }
    (*variable)->add(fault);
}

std::string Server::statistics() const {
    const auto sessions = UA_Server_getStatistics(server_.get()).ss;
    return "reads " + std::to_string(sent_.reads()) + ", values " +
           std::to_string(counters_.values) + ", sessions refused " +
           std::to_string(sessions.rejectedSessionCount) + ", sessions at most " +
           std::to_string(mostSessions_) + ", sessions opened " +
           std::to_string(sessions.cumulatedSessionCount) + ", sessions alive " +
           std::to_string(aliveSessions());
}

}  // namespace OpcUaSimulator
