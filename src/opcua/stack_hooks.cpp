// SPDX-License-Identifier: MIT
#include "opcua/stack_hooks.hpp"

#include "opcua/session.hpp"

#include <array>
#include <climits>
#include <cstdarg>
#include <cstdio>

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <open62541/plugin/log_stdout.h>

namespace PullappOpcUa {
namespace {

/// Discovery closes and reopens the connection up to twice.
constexpr int maxConnections = 4;

// The log

void logLine(UA_LogLevel level, UA_LogCategory category, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    UA_Log_Stdout->log(UA_Log_Stdout->context, level, category, format, arguments);
    va_end(arguments);
}

/// A writable pipe takes PIPE_BUF bytes at once; time and category must fit in as well.
void logWithoutWaiting(void* /*context*/, UA_LogLevel level, UA_LogCategory category,
                       const char* message, va_list arguments) {
    pollfd writable{.fd = STDOUT_FILENO, .events = POLLOUT, .revents = 0};
    // Check the level first: the stack logs a dozen debug messages for each Read
    if (level < UA_LOGLEVEL_INFO || ::poll(&writable, 1, 0) != 1) {
        return;
    }
    std::array<char, PIPE_BUF / 2> text{};
    std::vsnprintf(text.data(), text.size(), message, arguments);
    logLine(level, category, "%s", text.data());
}

UA_Logger logger{logWithoutWaiting, nullptr, nullptr};
UA_Logger noLogger{nullptr, nullptr, nullptr};

// The connection

void limitSending(uintptr_t connection) {
    const unsigned int limit = requestTimeout.count();
    ::setsockopt(static_cast<int>(connection), IPPROTO_TCP, TCP_USER_TIMEOUT, &limit, sizeof limit);
}

UA_ConnectionManager* findTcp(const UA_EventLoop& loop) {
    const UA_String tcp = UA_STRING_STATIC("tcp");
    for (auto* source = loop.eventSources; source != nullptr; source = source->next) {
        auto* const manager = reinterpret_cast<UA_ConnectionManager*>(source);
        if (source->eventSourceType == UA_EVENTSOURCETYPE_CONNECTIONMANAGER &&
            UA_String_equal(&manager->protocol, &tcp)) {
            return manager;
        }
    }
    return nullptr;
}

UA_ClientConfig& configOf(void* client) {
    return *UA_Client_getConfig(static_cast<UA_Client*>(client));
}

StackHooks& hooksOf(void* client) {
    return *static_cast<StackHooks*>(configOf(client).clientContext);
}

}  // namespace

UA_StatusCode StackHooks::configure(UA_ClientConfig& config, bool isLogged) {
    config.logging = isLogged ? &logger : &noLogger;
    if (const auto status = UA_ClientConfig_setDefault(&config); status != UA_STATUSCODE_GOOD) {
        return status;
    }
    auto* const manager = findTcp(*config.eventLoop);
    if (manager == nullptr) {
        return UA_STATUSCODE_BADINTERNALERROR;
    }
    config.clientContext = this;
    open_ = manager->openConnection;
    manager->openConnection = open;
    return UA_STATUSCODE_GOOD;
}

UA_StatusCode StackHooks::open(UA_ConnectionManager* manager, const UA_KeyValueMap* parameters,
                               void* client, void* context, Receive receive) noexcept {
    auto& hooks = hooksOf(client);
    hooks.receive_ = receive;
    configOf(client).noReconnect |= ++hooks.connections_ >= maxConnections;
    return hooks.open_(manager, parameters, client, context, StackHooks::receive);
}

void StackHooks::receive(UA_ConnectionManager* manager, uintptr_t connection, void* client,
                         void** context, UA_ConnectionState state, const UA_KeyValueMap* parameters,
                         UA_ByteString bytes) noexcept {
    auto& hooks = hooksOf(client);
    if (state == UA_CONNECTIONSTATE_ESTABLISHED && bytes.length == 0) {  // the connection is new
        hooks.guard_ = {};
        limitSending(connection);
    }
    if (hooks.accepts(bytesOf(bytes))) {
        hooks.receive_(manager, connection, client, context, state, parameters, bytes);
        return;
    }
    hooks.hasRefused_ = true;
    configOf(client).noReconnect = true;
    manager->closeConnection(manager, connection);
}

/// Called from C, so no exception may leave it: out of memory, the bytes are refused.
bool StackHooks::accepts(std::string_view bytes) noexcept {
    try {
        return guard_.accepts(bytes);
    } catch (...) {
        return false;
    }
}

}  // namespace PullappOpcUa
