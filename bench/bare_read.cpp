// SPDX-License-Identifier: MIT
// The floor that the daemon is measured against: one prepared Read over and over with the daemon's
// own session settings, as a C program would do it, and the values dropped.
#include "opcua/session.hpp"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

volatile std::sig_atomic_t ended = 0;

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
    PullappOpcUa::ClientPtr client;
    const auto url = std::string{"opc.tcp://127.0.0.1:"} + argv[1];
    auto status = PullappOpcUa::openSession(url, {}, client);
    while (status == UA_STATUSCODE_GOOD && ended == 0) {
        status = read(client.get(), request);
    }
    if (status != UA_STATUSCODE_GOOD) {
        std::fprintf(stderr, "bare-read: %s\n", UA_StatusCode_name(status));
        return 1;
    }
    return 0;
}
