// SPDX-License-Identifier: MIT
#include "opcua/session.hpp"

#include "opcua/message_guard.hpp"

#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>

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

/// How late a server may notice that the time of a session is over.
constexpr milliseconds cleanUpTime{1000};

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
    // The level first: the stack has a dozen notes on every Read that nobody wants
    if (level >= UA_LOGLEVEL_INFO && ::poll(&writable, 1, 0) == 1) {
        UA_Log_Stdout->log(context, level, category, message, arguments);
    }
}

std::optional<SessionToken> tokenOf(UA_Client& client) {
    std::optional<SessionToken> token{std::in_place};
    if (UA_Client_getSessionAuthenticationToken(&client, &*token->id, &*token->nonce) !=
        UA_STATUSCODE_GOOD) {
        token.reset();
    }
    return token;
}

/// What we know of a client's connections; lives as long as the client.
struct Link {
    int connections = 0;
    MessageGuard guard;  // of the current connection
    bool isRefused = false;

    // The session that it connects for
    bool isNew = false;                ///< the server was asked for it
    bool isAnswerDue = false;          ///< about the new one, or about one that is taken up again
    bool isDenied = false;             ///< that was the answer, and the channel ends
    std::optional<SessionToken> made;  ///< by the server, and ours to close
};

Link& linkOf(const UA_ClientConfig& config) noexcept {
    return *static_cast<Link*>(config.clientContext);
}

void onState(UA_Client* client, UA_SecureChannelState channel, UA_SessionState session,
             UA_StatusCode /*status*/) {
    auto* config = UA_Client_getConfig(client);
    auto& link = linkOf(*config);
    if (channel == UA_SECURECHANNELSTATE_CONNECTING) {
        config->noReconnect |= ++link.connections >= maxConnectionsPerAttempt;
    }
    if (session == UA_SESSIONSTATE_CREATE_REQUESTED) {
        link.isNew = true;
        config->noNewSession = true;  // one is enough, whatever becomes of it
    }
    link.isAnswerDue = link.isNew || session == UA_SESSIONSTATE_ACTIVATE_REQUESTED;
    if (session == UA_SESSIONSTATE_CREATED && link.isNew) {
        link.made = tokenOf(*client);
    }
}

std::string encoded(const void* value, const UA_DataType& type) {
    Owned<UA_ByteString, UA_TYPES_BYTESTRING> bytes;
    UA_encodeBinary(value, &type, &*bytes);
    return std::string{bytesOf(*bytes)};
}

/**
 * A request to close the session, to be sent instead of the message that closes the channel. The
 * stack sends that one at once when a log-in is refused, and forgets the session, which would
 * count on the server until its time is over. The channel ends with the connection just as well.
 * Nothing is encrypted: the only security policy that `configure` sets up is None.
 */
std::string closeSessionMessage(const UA_ByteString& replaced, SessionToken& token) {
    constexpr std::size_t headerSize = 24;
    constexpr std::size_t numbers = 8;  // behind type and size
    UA_CloseSessionRequest request;
    UA_CloseSessionRequest_init(&request);
    request.requestHeader.authenticationToken = *token.id;
    request.requestHeader.timestamp = UA_DateTime_now();
    const auto& type = UA_TYPES[UA_TYPES_CLOSESESSIONREQUEST];
    const auto body =
        encoded(&type.binaryEncodingId, UA_TYPES[UA_TYPES_NODEID]) + encoded(&request, type);
    const auto size = static_cast<UA_UInt32>(headerSize + body.size());
    return "MSGF" + encoded(&size, UA_TYPES[UA_TYPES_UINT32]) +
           std::string{bytesOf(replaced).substr(numbers, headerSize - numbers)} + body;
}

void replace(UA_ConnectionManager* manager, uintptr_t connection, UA_ByteString& message,
             const std::string& text) {
    UA_ByteString replacement{};
    if (manager->allocNetworkBuffer(manager, connection, &replacement, text.size()) ==
        UA_STATUSCODE_GOOD) {
        std::ranges::copy(text, replacement.data);
        std::swap(message, replacement);
        manager->freeNetworkBuffer(manager, connection, &replacement);
    }
}

/// The stack waits without limit for a server to take what it sends. With this option the system
/// gives up the connection instead.
void limitSending(uintptr_t connection) {
    const unsigned int limit = requestTimeout.count();
    ::setsockopt(static_cast<int>(connection), IPPROTO_TCP, TCP_USER_TIMEOUT, &limit, sizeof limit);
}

using SendWithConnection = decltype(UA_ConnectionManager::sendWithConnection);

std::atomic<SendWithConnection> originalSend = nullptr;

/// Of the client that connects on this thread, if any: the stack does not tell who sends.
thread_local Link* connecting = nullptr;

UA_StatusCode send(UA_ConnectionManager* manager, uintptr_t connection,
                   const UA_KeyValueMap* parameters, UA_ByteString* message) {
    limitSending(connection);
    if (connecting != nullptr && bytesOf(*message).starts_with("CLO")) {
        connecting->isDenied |= connecting->isAnswerDue;
        if (connecting->made) {
            replace(manager, connection, *message,
                    closeSessionMessage(*message, *connecting->made));
        }
    }
    return originalSend.load()(manager, connection, parameters, message);
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
            manager->sendWithConnection = send;
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
    config.clientContext = std::make_unique<Link>().release();  // the deleter owns it
    config.stateCallback = onState;
    interceptTraffic(*config.eventLoop);
    if (settings.username == nullptr) {
        return UA_STATUSCODE_GOOD;
    }
    return UA_ClientConfig_setAuthenticationUsername(&config, settings.username, settings.password);
}

/// Has the stack activate the session as soon as it is connected. The call itself fails, for want
/// of a connection, but the stack keeps the token.
void resume(UA_Client& client, SessionToken& token) {
    static_cast<void>(UA_Client_activateSessionAsync(&client, *token.id, *token.nonce));
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
    // From here on a lost connection or session is a failed pull
    config->noReconnect = true;
    config->noNewSession = true;
    const auto state = stateOf(client);
    if (link.isRefused) {
        return UA_STATUSCODE_BADDECODINGERROR;
    }
    if (state.status != UA_STATUSCODE_GOOD) {
        return state.status;
    }
    return state.session == UA_SESSIONSTATE_ACTIVATED ? UA_STATUSCODE_GOOD
                                                      : UA_STATUSCODE_BADTIMEOUT;
}

/// Connects, and closes what is left of an attempt that failed.
UA_StatusCode connectOrClose(UA_Client& client, const std::string& endpointUrl) {
    auto& link = linkOf(*UA_Client_getConfig(&client));
    connecting = &link;
    const auto status = connect(client, endpointUrl);
    if (status != UA_STATUSCODE_GOOD) {
        link.isAnswerDue = false;  // it is we who end the channel
        UA_Client_disconnectSecureChannelAsync(&client);
    }
    connecting = nullptr;
    return status;
}

// Closing

/// @return whether the server confirms it
bool closeSession(UA_Client& client) {
    UA_CloseSessionRequest request;
    UA_CloseSessionRequest_init(&request);
    request.requestHeader.timeoutHint = closeTimeout.count();
    request.deleteSubscriptions = true;
    Owned<UA_CloseSessionResponse, UA_TYPES_CLOSESESSIONRESPONSE> response;
    __UA_Client_Service(&client, &request, &UA_TYPES[UA_TYPES_CLOSESESSIONREQUEST], &*response,
                        &UA_TYPES[UA_TYPES_CLOSESESSIONRESPONSE]);
    return response->responseHeader.serviceResult == UA_STATUSCODE_GOOD;
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
        UA_Client_disconnectSecureChannelAsync(client);
        stopEventLoop(*config->eventLoop);
    }
    UA_Client_delete(client);
}

UA_StatusCode Session::open(const std::string& endpointUrl, const SessionSettings& settings) {
    close();
    if (Clock::now() < waitUntil_) {
        return lastFailure_;
    }
    ClientPtr client{UA_Client_new()};
    if (!client) {
        return UA_STATUSCODE_BADOUTOFMEMORY;
    }
    auto& config = *UA_Client_getConfig(client.get());
    lastFailure_ = configure(config, settings);
    if (lastFailure_ != UA_STATUSCODE_GOOD) {
        return lastFailure_;
    }
    if (resumable_) {
        resume(*client, *resumable_);
    }
    lastFailure_ = connectOrClose(*client, endpointUrl);
    const bool isOpened = lastFailure_ == UA_STATUSCODE_GOOD;
    const auto& link = linkOf(config);
    if (isOpened || link.isNew || link.isDenied) {
        resumable_.reset();
    }
    if (!isOpened && link.isNew && !link.isDenied) {
        waitUntil_ = Clock::now() + settings.timeout + cleanUpTime;
    }
    if (isOpened) {
        client_ = std::move(client);
    }
    return lastFailure_;
}

ReadResponse Session::read(UA_ReadRequest request) {
    ReadResponse response;
    if (isOpen()) {
        __UA_Client_Service(client_.get(), &request, &UA_TYPES[UA_TYPES_READREQUEST], &*response,
                            ReadResponse::type());
    } else {
        response->responseHeader.serviceResult = UA_STATUSCODE_BADNOTCONNECTED;
    }
    return response;
}

void Session::close() noexcept {
    if (!client_) {
        return;
    }
    // The stack learns only from its loop that the server has gone
    iterateUntil(*client_, milliseconds{1}, [this] { return !isOpen(); });
    if (!isOpen() || !closeSession(*client_)) {
        resumable_ = tokenOf(*client_);
    }
    client_.reset();
}

bool Session::isOpen() const noexcept {
    if (!client_) {
        return false;
    }
    const auto state = stateOf(*client_);
    return state.session == UA_SESSIONSTATE_ACTIVATED &&
           state.channel == UA_SECURECHANNELSTATE_OPEN;
}

}  // namespace PullappOpcUa
