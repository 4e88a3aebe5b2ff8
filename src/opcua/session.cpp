// SPDX-License-Identifier: MIT
#include "opcua/session.hpp"

#include "orvik/free_memory.hpp"

#include <algorithm>

#include <open62541/plugin/eventloop.h>

namespace PullappOpcUa {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

/// Longest wait for a server to confirm the end of a session.
constexpr milliseconds closeTimeout{1000};

struct ClientState {
    UA_SecureChannelState channel = UA_SECURECHANNELSTATE_CLOSED;
    UA_SessionState session = UA_SESSIONSTATE_CLOSED;
    UA_StatusCode status = UA_STATUSCODE_GOOD;
};

ClientState stateOf(UA_Client& client) noexcept {
    ClientState state;
    UA_Client_getState(&client, &state.channel, &state.session, &state.status);
    return state;
}

UA_StatusCode configure(UA_ClientConfig& config, const SessionSettings& settings) {
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
    if (settings.username == nullptr) {
        return UA_STATUSCODE_GOOD;
    }
    return UA_ClientConfig_setAuthenticationUsername(&config, settings.username, settings.password);
}

/// Runs the stack's event loop until the predicate holds or the deadline has passed.
template <typename Predicate>
void runUntil(UA_Client& client, milliseconds limit, Predicate isReached) {
    constexpr milliseconds maxWait{100};
    const auto deadline = Clock::now() + limit;
    // The loop handles a closed socket before it waits for others: check before it waits, and keep
    // each wait short
    for (bool waits = false; !isReached() && Clock::now() < deadline; waits = !waits) {
        const auto left = std::chrono::ceil<milliseconds>(deadline - Clock::now());
        const auto wait = waits ? std::clamp(left, milliseconds{0}, maxWait) : milliseconds{0};
        if (UA_Client_run_iterate(&client, static_cast<UA_UInt32>(wait.count())) !=
            UA_STATUSCODE_GOOD) {
            return;
        }
    }
}

/// Closes every socket. @return whether the loop has ended
bool stop(UA_EventLoop& loop) {
    constexpr int maxRounds = 100;  // two or three are enough
    if (loop.state == UA_EVENTLOOPSTATE_STARTED) {
        loop.stop(&loop);
    }
    for (int round = 0; round < maxRounds && loop.state == UA_EVENTLOOPSTATE_STOPPING; ++round) {
        loop.run(&loop, 0);
    }
    return loop.state != UA_EVENTLOOPSTATE_STOPPING;
}

}  // namespace

/// The stack's own delete would wait for ever for a channel that it marked as closing and never
/// closed, or for a loop that does not end. In that case the client is leaked instead.
void ClientDeleter::operator()(UA_Client* client) const noexcept {
    auto* config = UA_Client_getConfig(client);
    config->noReconnect = true;
    UA_Client_disconnectSecureChannelAsync(client);
    if (config->eventLoop == nullptr || stop(*config->eventLoop)) {
        UA_Client_delete(client);
    }
}

UA_StatusCode Session::open(const std::string& endpointUrl, const SessionSettings& settings) {
    close();
    hooks_ = std::make_unique<StackHooks>();
    UA_ClientConfig config{};
    auto status = hooks_->configure(config, settings.isLogged);
    client_.reset(UA_Client_newWithConfig(&config));
    if (!client_) {
        UA_ClientConfig_clear(&config);
        return UA_STATUSCODE_BADOUTOFMEMORY;
    }
    if (status == UA_STATUSCODE_GOOD) {
        status = configure(*UA_Client_getConfig(client_.get()), settings);
    }
    if (status == UA_STATUSCODE_GOOD) {
        status = connect(endpointUrl);
    }
    if (status != UA_STATUSCODE_GOOD) {
        deleteClient();
    }
    return status;
}

/// Not the stack's own synchronous connect: it never returns when the peer sends a message of a
/// wrong type and leaves the connection open, since it waits for a close that nobody started.
UA_StatusCode Session::connect(const std::string& endpointUrl) {
    UA_Client_connectAsync(client_.get(), endpointUrl.c_str());
    runUntil(*client_, requestTimeout, [this] {
        const auto state = stateOf(*client_);
        return hooks_->hasRefused() || state.status != UA_STATUSCODE_GOOD ||
               state.session == UA_SESSIONSTATE_ACTIVATED;
    });
    // From here on a lost connection or session makes the service fail
    auto* const config = UA_Client_getConfig(client_.get());
    config->noReconnect = true;
    config->noNewSession = true;
    if (hooks_->hasRefused()) {
        return UA_STATUSCODE_BADUNKNOWNRESPONSE;
    }
    const auto state = stateOf(*client_);
    return state.status == UA_STATUSCODE_GOOD && !isOpen() ? UA_STATUSCODE_BADTIMEOUT
                                                           : state.status;
}

bool Session::isOpen() const noexcept {
    if (!client_) {
        return false;
    }
    const auto state = stateOf(*client_);
    return state.session == UA_SESSIONSTATE_ACTIVATED &&
           state.channel == UA_SECURECHANNELSTATE_OPEN;
}

ReadResponse Session::read(UA_ReadRequest request) {
    return call<ReadResponse>(request, UA_TYPES[UA_TYPES_READREQUEST]);
}

BrowseResponse Session::browse(UA_BrowseRequest request) {
    return call<BrowseResponse>(request, UA_TYPES[UA_TYPES_BROWSEREQUEST]);
}

BrowseNextResponse Session::browseNext(UA_BrowseNextRequest request) {
    return call<BrowseNextResponse>(request, UA_TYPES[UA_TYPES_BROWSENEXTREQUEST]);
}

template <typename Response, typename Request>
Response Session::call(Request& request, const UA_DataType& requestType) {
    Response response;
    auto& result = response->responseHeader.serviceResult;
    if (!isOpen()) {  // otherwise the stack would connect
        result = UA_STATUSCODE_BADNOTCONNECTED;
        return response;
    }
    __UA_Client_Service(client_.get(), &request, &requestType, &*response, Response::type());
    if (hooks_->hasRefused()) {
        result = UA_STATUSCODE_BADUNKNOWNRESPONSE;
    }
    return response;
}

void Session::close() noexcept {
    if (isOpen()) {
        closeOnServer();
    }
    deleteClient();
}

void Session::closeOnServer() noexcept {
    UA_CloseSessionRequest request;
    UA_CloseSessionRequest_init(&request);
    request.requestHeader.timeoutHint = closeTimeout.count();
    request.deleteSubscriptions = true;
    Owned<UA_CloseSessionResponse, UA_TYPES_CLOSESESSIONRESPONSE> response;
    __UA_Client_Service(client_.get(), &request, &UA_TYPES[UA_TYPES_CLOSESESSIONREQUEST],
                        &*response, decltype(response)::type());
}

/// Returns free memory too: a peer may have sent hundreds of megabytes, which the C library would
/// keep.
void Session::deleteClient() noexcept {
    if (client_) {
        client_.reset();
        Orvik::returnFreeMemory();
    }
}

}  // namespace PullappOpcUa
