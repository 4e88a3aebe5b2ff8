// SPDX-License-Identifier: MIT
#pragma once

#include <csignal>
#include <cstddef>
#include <cstdio>
#include <ctime>
#include <string>
#include <vector>

#include <open62541/client.h>
#include <open62541/client_config_default.h>

/// Shared by the programs that the daemon is measured against: the stack with the daemon's settings
/// and one prepared Read, repeated on one thread, as a C program would do it.
namespace Bench {

inline volatile std::sig_atomic_t ended = 0;

/// The Read of ns=1;i=1 to ns=1;i=<tags>.
inline std::vector<UA_ReadValueId> makeEntries(std::size_t tags) {
    std::vector<UA_ReadValueId> entries(tags);
    for (std::size_t i = 0; i < tags; ++i) {
        UA_ReadValueId_init(&entries[i]);
        entries[i].nodeId = UA_NODEID_NUMERIC(1, static_cast<UA_UInt32>(i + 1));
        entries[i].attributeId = UA_ATTRIBUTEID_VALUE;
    }
    return entries;
}

inline void pause(long milliseconds) {
    const timespec time{.tv_sec = milliseconds / 1000, .tv_nsec = milliseconds % 1000 * 1'000'000};
    if (milliseconds != 0) {
        ::nanosleep(&time, nullptr);
    }
}

/// Reads from a server on this machine until SIGTERM or a failure. @param pullDelay milliseconds
/// @param use called with each response @return the exit status
template <typename Use>
int readUntilEnded(const std::string& port, std::size_t tags, long pullDelay, Use use) {
    auto entries = makeEntries(tags);
    UA_ReadRequest request;
    UA_ReadRequest_init(&request);
    request.nodesToRead = entries.data();
    request.nodesToReadSize = entries.size();

    std::signal(SIGTERM, [](int) { ended = 1; });
    UA_Client* client = UA_Client_new();
    auto* config = UA_Client_getConfig(client);
    UA_ClientConfig_setDefault(config);
    config->timeout = 5000;
    config->localConnectionConfig.sendBufferSize = 65535;
    config->localConnectionConfig.recvBufferSize = 65535;
    auto status = UA_Client_connect(client, ("opc.tcp://127.0.0.1:" + port).c_str());
    while (status == UA_STATUSCODE_GOOD && ended == 0) {
        UA_ReadResponse response;
        __UA_Client_Service(client, &request, &UA_TYPES[UA_TYPES_READREQUEST], &response,
                            &UA_TYPES[UA_TYPES_READRESPONSE]);
        status = response.responseHeader.serviceResult;
        if (status == UA_STATUSCODE_GOOD) {
            use(response);
        }
        UA_clear(&response, &UA_TYPES[UA_TYPES_READRESPONSE]);
        pause(pullDelay);
    }
    UA_Client_delete(client);
    if (status != UA_STATUSCODE_GOOD) {
        std::fprintf(stderr, "%s\n", UA_StatusCode_name(status));
        return 1;
    }
    return 0;
}

}  // namespace Bench
