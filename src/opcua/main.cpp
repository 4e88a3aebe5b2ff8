// SPDX-License-Identifier: MIT
#include "orvik/pullapplication/main.hpp"

#include "opcua/device.hpp"
#include "opcua/protocol_handler.hpp"
#include "opcua/tag.hpp"
#include "orvik/pushinterface/client.hpp"
#include "orvik/pushinterface/info_parser.hpp"

#include <string>

int main(int argc, char** argv) {
    Orvik::PullApplication::Main<
        PullappOpcUa::ProtocolHandler,
        Orvik::PushInterface::InfoParser<PullappOpcUa::Device, PullappOpcUa::Tag>,
        Orvik::PushInterface::Client>
        application;
    const std::string notice = "Copyright (c) 2026 The Orvik contributors. MIT License.";
    const std::string version = ORVIK_VERSION;
    const std::string protocolName = "opc-ua";
    return application.run(argc, argv, protocolName, version, notice);
}
