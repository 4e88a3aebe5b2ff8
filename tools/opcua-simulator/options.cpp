// SPDX-License-Identifier: MIT
#include "opcua-simulator/options.hpp"

#include "common/command_line.hpp"

#include <limits>

#include <boost/asio/ip/address.hpp>

namespace OpcUaSimulator {
namespace {

using Tools::UsageError;

constexpr auto introduction = R"(Usage: opcua-simulator --description=FILE|--tags=N [OPTION]...

Serves the tags of a device description, or made-up tags with the node ids
ns=1;i=1 to ns=1;i=N, with changing values, in folders of a hundred. The first
line of the output names the address and port on which it listens.

Options)";

constexpr auto explanation = R"(
Faults: bad-status, no-value, other-type, null-string, array, long-text.

Commands, one per line of the standard input:
  fault KIND NODEID SECONDS   put a fault into effect now; 0: permanently
  silence SECONDS             answer nothing for a while
  stats                       print what was served so far

Exit status:
  0  ended by SIGINT or SIGTERM
  2  wrong use, or a file or the port could not be opened
)";

Tools::CommandLine describe(Options& options, std::vector<std::string>& faults) {
    constexpr std::uint16_t most = std::numeric_limits<std::uint16_t>::max();
    constexpr std::uint16_t none = 0;
    constexpr std::uint16_t one = 1;
    Tools::CommandLine line{"opcua-simulator", introduction, explanation};
    line.text("description", "FILE", options.description,
              "serve the tags of this device description (JSON)")
        .number("tags", "N", options.tags, one, most,
                "serve N tags: int, float, double, bool and string in turn")
        .text("write-description", "FILE", options.writeDescription,
              "write a description that matches this server, with its address, port and log-in")
        .text("device-id", "ID", options.deviceId,
              "device id in a written description that has none; default: 0123456789AB")
        .number("pull-delay", "MS", options.pullDelay, none, most,
                "pull delay in the written description")
        .text("listen", "ADDRESS", options.listen, "listen on this address; default: 127.0.0.1")
        .number("port", "N", options.port, none, most,
                "listen on this port; default: 0, one that the system chooses")
        .text("port-file", "FILE", options.portFile, "write the port to this file too")
        .text("user", "NAME", options.user,
              "allow this user only; default: everybody, without log-in")
        .text("password", "TEXT", options.password, "the user's password")
        .text("advertise", "HOST", options.advertise,
              "name this host, no longer than the address, in the endpoints instead of it")
        .number("max-sessions", "N", options.maxSessions, one, most,
                "refuse sessions beyond this number; default: 1000")
        .number("session-timeout", "S", options.sessionTimeout, one, most,
                "let sessions live at most S seconds without a request; default: 3600")
        .number("channel-lifetime", "S", options.channelLifetime, one, most,
                "let channels live at most S seconds without renewal; default: 600")
        .number("max-nodes", "N", options.maxNodes, one, most,
                "refuse Read and Browse requests for more nodes; default: any number")
        .number("max-references", "N", options.maxReferences, one, most,
                "return at most N references of a node at once, the rest with BrowseNext; default: "
                "all")
        .flag("odd", options.odd,
              "serve what cannot be pulled, too: an array, a date, a cycle of references, ...")
        .texts("fault", "FAULT", faults,
               "KIND@NODEID: always; KIND:EVERY:FOR@NODEID: every so many seconds, for so many; "
               "may be given more than once")
        .flag("verbose", options.verbose,
              "print the messages of the OPC UA library to the standard error");
    return line;
}

void check(const Options& options) {
    if (options.description.empty() == (options.tags == 0)) {
        throw UsageError{"give either --description or --tags"};
    }
    boost::system::error_code error;
    boost::asio::ip::make_address(options.listen, error);
    if (error) {
        throw UsageError{"option '--listen' takes an IP address, not '" + options.listen + "'"};
    }
    if (options.advertise.size() > options.listen.size()) {
        throw UsageError{"option '--advertise' takes a host no longer than the address " +
                         options.listen};
    }
    if (options.user.empty() && !options.password.empty()) {
        throw UsageError{"option '--password' needs '--user'"};
    }
}

}  // namespace

std::optional<Options> readOptions(int argc, char** argv) {
    Options options;
    std::vector<std::string> faults;
    if (!describe(options, faults).read(argc, argv)) {
        return std::nullopt;
    }
    for (const auto& fault : faults) {
        options.faults.push_back(parseFault(fault));
    }
    check(options);
    return options;
}

}  // namespace OpcUaSimulator
