// SPDX-License-Identifier: MIT
#include "opcua-simulator/server.hpp"

#include "opcua/status_code_name.hpp"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include <poll.h>

#include <open62541/plugin/accesscontrol_default.h>
#include <open62541/plugin/log_stdout.h>
#include <open62541/server_config_default.h>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>

namespace OpcUaSimulator {
namespace {

void require(UA_StatusCode status, const std::string& what) {
    if (status != UA_STATUSCODE_GOOD) {
        throw std::runtime_error{what + ": " + std::string{PullappOpcUa::statusCodeName(status)}};
    }
}

/// A port that is free now: the stack must know its port to advertise it.
std::uint16_t freePort(const std::string& address) {
    using boost::asio::ip::tcp;
    boost::asio::io_context loop;
    return tcp::acceptor{loop, {boost::asio::ip::make_address(address), 0}}.local_endpoint().port();
}

void logToStandardError(void* /*context*/, UA_LogLevel /*level*/, UA_LogCategory /*category*/,
                        const char* text, va_list arguments) {
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

Server::Server(const Options& options, const PullappOpcUa::Device& device)
    : port_{options.port != 0 ? options.port : freePort(options.listen)} {
    UA_ServerConfig config{};
    config.logging = options.verbose ? &verboseLogger : &quietLogger;
    require(UA_ServerConfig_setMinimal(&config, port_, nullptr), "cannot configure the server");
    configure(config, options);
    server_.reset(UA_Server_newWithConfig(&config));
    if (!server_) {
        throw std::runtime_error{"cannot make the server"};
    }
    addVariables(device);
    for (const auto& fault : options.faults) {
        add(fault);
    }
    require(UA_Server_run_startup(server_.get()),
            "cannot listen on " + options.listen + ":" + std::to_string(port_));
}

void Server::configure(UA_ServerConfig& config, const Options& options) {
    config.context = this;
    const auto host = options.advertise.empty() ? options.listen : options.advertise;
    setText(config.serverUrls[0], "opc.tcp://" + options.listen + ":" + std::to_string(port_));
    if (!options.advertise.empty()) {
        const auto url = "opc.tcp://" + host + ":" + std::to_string(port_);
        for (std::size_t i = 0; i < config.endpointsSize; ++i) {
            setText(config.endpoints[i].endpointUrl, url);
        }
        config.applicationDescription.discoveryUrls =
            static_cast<UA_String*>(UA_Array_new(1, &UA_TYPES[UA_TYPES_STRING]));
        config.applicationDescription.discoveryUrlsSize = 1;
        config.applicationDescription.discoveryUrls[0] = UA_STRING_ALLOC(url.c_str());
    }
    config.tcpReuseAddr = true;
    config.allowNonePolicyPassword = true;
    config.maxSessions = options.maxSessions;
    config.maxSecureChannels = static_cast<UA_UInt16>(std::max<int>(options.maxSessions, 100) + 10);
    config.maxSessionTimeout = options.sessionTimeout * 1000.0;
    config.maxSecurityTokenLifetime = options.channelLifetime * 1000;
    if (!options.user.empty()) {
        const UA_UsernamePasswordLogin logIn{
            UA_STRING(const_cast<char*>(options.user.c_str())),
            UA_STRING(const_cast<char*>(options.password.c_str()))};
        require(UA_AccessControl_default(&config, false, nullptr, 1, &logIn),
                "cannot configure the log-in");
    }
}

void Server::addVariables(const PullappOpcUa::Device& device) {
    for (std::size_t i = 0; i < device.tags.size(); ++i) {
        const auto& nodeId = device.readRequest.nodesToRead[i].nodeId;
        for (std::size_t count = 0; count <= nodeId.namespaceIndex;) {
            const auto uri = "urn:opcua-simulator:" + std::to_string(count);
            count = UA_Server_addNamespace(server_.get(), uri.c_str()) + std::size_t{1};
            if (count > nodeId.namespaceIndex) {
                break;
            }
        }
        variables_.push_back(std::make_unique<Variable>(device.tags[i], i, counters_));
        addVariable(*variables_.back(), nodeId);
    }
}

void Server::addVariable(Variable& variable, const UA_NodeId& nodeId) {
    auto address = variable.tag().address;
    auto attributes = UA_VariableAttributes_default;
    attributes.displayName = UA_LOCALIZEDTEXT(const_cast<char*>(""), address.data());
    attributes.dataType = UA_TYPES[UA_TYPES_VARIANT].typeId;  // faults change the type
    attributes.valueRank = UA_VALUERANK_ANY;
    attributes.accessLevel = UA_ACCESSLEVELMASK_READ;
    require(UA_Server_addDataSourceVariableNode(
                server_.get(), nodeId, UA_NODEID_NUMERIC(0, UA_NS0ID_OBJECTSFOLDER),
                UA_NODEID_NUMERIC(0, UA_NS0ID_ORGANIZES),
                UA_QUALIFIEDNAME(nodeId.namespaceIndex, address.data()),
                UA_NODEID_NUMERIC(0, UA_NS0ID_BASEDATAVARIABLETYPE), attributes, {read, nullptr},
                &variable, nullptr),
            "cannot serve " + address);
}

UA_StatusCode Server::read(UA_Server* server, const UA_NodeId* /*sessionId*/,
                           void* /*sessionContext*/, const UA_NodeId* /*nodeId*/, void* nodeContext,
                           UA_Boolean /*includeSourceTimeStamp*/, const UA_NumericRange* /*range*/,
                           UA_DataValue* value) {
    const auto& self = *static_cast<Server*>(UA_Server_getConfig(server)->context);
    static_cast<Variable*>(nodeContext)->read(self.now(), *value);
    return UA_STATUSCODE_GOOD;
}

void Server::iterate() {
    const auto silent =
        std::chrono::ceil<std::chrono::milliseconds>(silentUntil_ - Clock::now()).count();
    if (silent > 0) {
        constexpr std::int64_t longest = 200;
        ::poll(nullptr, 0, static_cast<int>(std::min<std::int64_t>(silent, longest)));
    } else {
        UA_Server_run_iterate(server_.get(), true);
    }
}

void Server::begin(Fault fault) {
    fault.begin = now();
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
    const auto reads = variables_.empty() ? 0 : counters_.values / variables_.size();
    return "reads " + std::to_string(reads) + ", values " + std::to_string(counters_.values) +
           ", sessions opened " + std::to_string(sessions.cumulatedSessionCount) +
           ", sessions alive " + std::to_string(sessions.currentSessionCount);
}

}  // namespace OpcUaSimulator
