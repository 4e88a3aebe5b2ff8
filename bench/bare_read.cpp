// SPDX-License-Identifier: MIT
// The floor that the daemon is measured against: the stack alone, with the daemon's settings, doing
// one prepared Read over and over as a C program would, and the values dropped.
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include <open62541/client.h>
#include <open62541/client_config_default.h>

namespace {

volatile std::sig_atomic_t ended = 0;

void configure(UA_ClientConfig* config) {
    UA_ClientConfig_setDefault(config);
    config->timeout = 5000;
    config->localConnectionConfig.sendBufferSize = 65535;
    config->localConnectionConfig.recvBufferSize = 65535;
}

UA_StatusCode read(UA_Client* client, const UA_ReadRequest& request) {
    UA_ReadResponse response;
    __UA_Client_Service(client, &request, &UA_TYPES[UA_TYPES_READREQUEST], &response,
                        &UA_TYPES[UA_TYPES_READRESPONSE]);
    const auto status = response.responseHeader.serviceResult;
    UA_clear(&response, &UA_TYPES[UA_TYPES_READRESPONSE]);
    return status;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr,
                     "Usage: bare-read PORT TAGS\n"
                     "Reads ns=1;i=1 to ns=1;i=TAGS of a server on this machine until SIGTERM.\n");
        return 2;
    }
    std::vector<UA_ReadValueId> entries(std::strtoul(argv[2], nullptr, 10));
    for (std::size_t i = 0; i < entries.size(); ++i) {
        UA_ReadValueId_init(&entries[i]);
        entries[i].nodeId = UA_NODEID_NUMERIC(1, static_cast<UA_UInt32>(i + 1));
        entries[i].attributeId = UA_ATTRIBUTEID_VALUE;
    }
    UA_ReadRequest request;
    UA_ReadRequest_init(&request);
    request.nodesToRead = entries.data();
    request.nodesToReadSize = entries.size();

    std::signal(SIGTERM, [](int) { ended = 1; });
    UA_Client* client = UA_Client_new();
    configure(UA_Client_getConfig(client));
    const auto url = std::string{"opc.tcp://127.0.0.1:"} + argv[1];
    auto status = UA_Client_connect(client, url.c_str());
    while (status == UA_STATUSCODE_GOOD && ended == 0) {
        status = read(client, request);
    }
    UA_Client_delete(client);
    if (status != UA_STATUSCODE_GOOD) {
        std::fprintf(stderr, "bare-read: %s\n", UA_StatusCode_name(status));
        return 1;
    }
    return 0;
}
