// SPDX-License-Identifier: MIT
#include "opcua/session.hpp"

#include "opcua/message_guard.hpp"

#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <cstdint>
#include <memory>

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <open62541/plugin/eventloop.h>
#include <open62541/plugin/log_stdout.h>

namespace PullappOpcUa {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

/// Longest wait for a server to confirm the end of a session.
constexpr milliseconds closeTimeout{1000};

/// Discovery closes the connection and opens it anew up to twice; a peer that closes by itself
/// must not keep the stack connecting in a loop.
constexpr int maxConnectionsPerAttempt = 4;

struct State {
    UA_SecureChannelState channel = UA_SECURECHANNELSTATE_CLOSED;
    UA_SessionState session = UA_SESSIONSTATE_CLOSED;
    UA_StatusCode status = UA_STATUSCODE_GOOD;
};

State stateOf(UA_Client& client) noexcept {
    State state;
    UA_Client_getState(&client, &state.channel, &state.session, &state.status);
    return state;
}

/// Runs the stack's event loop until something holds or the time is over.
template <typename Predicate>
void iterateUntil(UA_Client& client, milliseconds limit, Predicate predicate) {
    constexpr milliseconds maxWait{100};
    const auto deadline = Clock::now() + limit;
    const auto iterate = [&](milliseconds wait) {
        return UA_Client_run_iterate(&client, static_cast<UA_UInt32>(wait.count())) ==
                   UA_STATUSCODE_GOOD &&
               !predicate();
    };
    for (auto left = limit; left.count() > 0;
         left = std::chrono::ceil<milliseconds>(deadline - Clock::now())) {
        // The loop handles a closed socket before it waits for others: look before it waits, and
        // do not let it wait for long
        if (!iterate(milliseconds{0}) || !iterate(std::min(left, maxWait))) {
            return;
        }
    }
}

// Connecting

/// The stack waits without limit for somebody to read the standard output, and the whole daemon
/// with it. A note that would have to wait is dropped.
void logUnlessFull(void* context, UA_LogLevel level, UA_LogCategory category, const char* message,
                   va_list arguments) {
    pollfd writable{.fd = STDOUT_FILENO, .events = POLLOUT, .revents = 0};
    if (::poll(&writable, 1, 0) == 1) {
        UA_Log_Stdout->log(context, level, category, message, arguments);
    }
}

/// What we know of a client's connections; lives as long as the client.
struct Link {
    int connections = 0;
    MessageGuard guard;  // of the current connection
    bool isRefused = false;
};

Link& linkOf(const UA_ClientConfig& config) noexcept {
    return *static_cast<Link*>(config.clientContext);
}

/// Counts the connections of one attempt.
void onState(UA_Client* client, UA_SecureChannelState channel, UA_SessionState /*session*/,
             UA_StatusCode /*status*/) {
    auto* config = UA_Client_getConfig(client);
    if (channel == UA_SECURECHANNELSTATE_CONNECTING) {
        config->noReconnect |= ++linkOf(*config).connections >= maxConnectionsPerAttempt;
    }
}

using SendWithConnection = decltype(UA_ConnectionManager::sendWithConnection);

std::atomic<SendWithConnection> originalSend = nullptr;

/// The stack waits without limit for a server to take what it sends. With this option the system
/// gives up the connection instead.
UA_StatusCode sendWithLimit(UA_ConnectionManager* manager, uintptr_t connection,
                            const UA_KeyValueMap* parameters, UA_ByteString* buffer) {
    const unsigned int limit = requestTimeout.count();
    ::setsockopt(static_cast<int>(connection), IPPROTO_TCP, TCP_USER_TIMEOUT, &limit, sizeof limit);
    return originalSend.load()(manager, connection, parameters, buffer);
}

using OpenConnection = decltype(UA_ConnectionManager::openConnection);

std::atomic<OpenConnection> originalOpen = nullptr;
std::atomic<UA_ConnectionManager_connectionCallback> originalReceive = nullptr;

/// Ends the connection where something arrives that is not safe to hand on.
void receiveGuarded(UA_ConnectionManager* manager, uintptr_t connection, void* client,
                    void** context, UA_ConnectionState state, const UA_KeyValueMap* parameters,
                    UA_ByteString bytes) {
    auto* config = UA_Client_getConfig(static_cast<UA_Client*>(client));
    auto& link = linkOf(*config);
    if (state == UA_CONNECTIONSTATE_OPENING) {
        link.guard = {};
    }
    if (link.guard.accepts(bytesOf(bytes))) {
        originalReceive.load()(manager, connection, client, context, state, parameters, bytes);
        return;
    }
    link.isRefused = true;
    config->noReconnect = true;
    manager->closeConnection(manager, connection);
}

UA_StatusCode openGuarded(UA_ConnectionManager* manager, const UA_KeyValueMap* parameters,
                          void* client, void* context,
                          UA_ConnectionManager_connectionCallback receive) {
    originalReceive = receive;
    return originalOpen.load()(manager, parameters, client, context, receiveGuarded);
}

/// Puts our own steps in front of those of the stack.
void interceptTraffic(const UA_EventLoop& loop) {
    const UA_String tcp = UA_STRING_STATIC("tcp");
    for (auto* source = loop.eventSources; source != nullptr; source = source->next) {
        if (source->eventSourceType != UA_EVENTSOURCETYPE_CONNECTIONMANAGER) {
            continue;
        }
        auto* manager = reinterpret_cast<UA_ConnectionManager*>(source);
        if (UA_String_equal(&manager->protocol, &tcp)) {
            originalSend = manager->sendWithConnection;
            manager->sendWithConnection = sendWithLimit;
            originalOpen = manager->openConnection;
            manager->openConnection = openGuarded;
        }
    }
}

UA_StatusCode configure(UA_ClientConfig& config, const SessionSettings& settings) {
    if (const auto status = UA_ClientConfig_setDefault(&config); status != UA_STATUSCODE_GOOD) {
        return status;
    }
    if (config.logging != nullptr) {
        config.logging->log = logUnlessFull;
    }
    config.timeout = requestTimeout.count();
    config.secureChannelLifeTime = 600000;
    config.requestedSessionTimeout = static_cast<UA_UInt32>(settings.timeout.count());
    config.localConnectionConfig.protocolVersion = 0;
    config.localConnectionConfig.sendBufferSize = 65535;
    config.localConnectionConfig.recvBufferSize = 65535;
    config.localConnectionConfig.localMaxMessageSize = 0;   // no limit
    config.localConnectionConfig.remoteMaxMessageSize = 0;  // no limit
    config.localConnectionConfig.localMaxChunkCount = 0;    // no limit
    config.localConnectionConfig.remoteMaxChunkCount = 0;   // no limit
    config.customDataTypes = nullptr;
    config.outStandingPublishRequests = 10;
    config.connectivityCheckInterval = 0;
    config.noNewSession = true;
    config.clientContext = std::make_unique<Link>().release();  // the deleter owns it
    config.stateCallback = onState;
    interceptTraffic(*config.eventLoop);
    if (settings.username == nullptr) {
        return UA_STATUSCODE_GOOD;
    }
    return UA_ClientConfig_setAuthenticationUsername(&config, settings.username, settings.password);
}

/// Not the stack's own synchronous connect: that one never returns when the peer sends a message
/// of a wrong type and leaves the connection open, since it waits for a close that nobody began.
UA_StatusCode connect(UA_Client& client, const std::string& endpointUrl) {
    auto* config = UA_Client_getConfig(&client);
    UA_Client_connectAsync(&client, endpointUrl.c_str());
    const auto& link = linkOf(*config);
    iterateUntil(client, requestTimeout, [&] {
        const auto state = stateOf(client);
        return link.isRefused || state.status != UA_STATUSCODE_GOOD ||
               state.session == UA_SESSIONSTATE_ACTIVATED;
    });
    const auto state = stateOf(client);
    config->noReconnect = true;  // from here on a lost connection is a failed pull
    if (link.isRefused) {
        return UA_STATUSCODE_BADDECODINGERROR;
    }
    if (state.status != UA_STATUSCODE_GOOD) {
        return state.status;
    }
    return state.session == UA_SESSIONSTATE_ACTIVATED ? UA_STATUSCODE_GOOD
                                                      : UA_STATUSCODE_BADTIMEOUT;
}

// Closing

void closeSession(UA_Client& client) {
    UA_Client_disconnectAsync(&client);
    iterateUntil(client, closeTimeout,
                 [&] { return stateOf(client).channel == UA_SECURECHANNELSTATE_CLOSED; });
}

/// Closes every socket. Without this the stack's own delete would wait for ever for a channel that
/// it marked as closing and never closed.
void stopEventLoop(UA_EventLoop& loop) {
    if (loop.state == UA_EVENTLOOPSTATE_STARTED) {
        loop.stop(&loop);
    }
    while (loop.state == UA_EVENTLOOPSTATE_STOPPING) {
        loop.run(&loop, 0);
    }
}

}  // namespace

void ClientDeleter::operator()(UA_Client* client) const noexcept {
    auto* config = UA_Client_getConfig(client);
    const std::unique_ptr<Link> link{static_cast<Link*>(config->clientContext)};
    config->noReconnect = true;
    if (config->eventLoop != nullptr) {
        if (stateOf(*client).session >= UA_SESSIONSTATE_CREATED) {
            closeSession(*client);
        }
        stopEventLoop(*config->eventLoop);
    }
    UA_Client_delete(client);
}

UA_StatusCode openSession(const std::string& endpointUrl, const SessionSettings& settings,
                          ClientPtr& client) {
    client.reset();
    ClientPtr opened{UA_Client_new()};
    if (!opened) {
        return UA_STATUSCODE_BADOUTOFMEMORY;
    }
    auto status = configure(*UA_Client_getConfig(opened.get()), settings);
    if (status == UA_STATUSCODE_GOOD) {
        status = connect(*opened, endpointUrl);
    }
    if (status == UA_STATUSCODE_GOOD) {
        client = std::move(opened);
    }
    return status;
}

bool isSessionOpen(UA_Client& client) noexcept {
    const auto state = stateOf(client);
    return state.session == UA_SESSIONSTATE_ACTIVATED &&
           state.channel == UA_SECURECHANNELSTATE_OPEN;
}

}  // namespace PullappOpcUa
