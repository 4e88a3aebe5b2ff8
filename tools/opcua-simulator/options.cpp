// SPDX-License-Identifier: MIT
#include "opcua-simulator/options.hpp"

#include <iostream>
#include <limits>
#include <stdexcept>
#include <utility>

#include <boost/asio/ip/address.hpp>
#include <boost/lexical_cast/try_lexical_convert.hpp>
#include <boost/program_options/cmdline.hpp>
#include <boost/program_options/options_description.hpp>
#include <boost/program_options/parsers.hpp>
#include <boost/program_options/variables_map.hpp>

namespace OpcUaSimulator {
namespace {

namespace po = boost::program_options;

constexpr auto introduction = R"(Usage: opcua-simulator --description=FILE|--tags=N [OPTION]...

Serves the tags of a device description with values that move, or tags that it
makes up. The first line of the output names the address and port it listens on.

Options)";

constexpr auto explanation = R"(
Faults: bad-status, no-value, other-type, null-string, array, long-text.

Commands, one per line of the standard input:
  fault KIND NODEID SECONDS   put a fault into effect now; 0 for good
  silence SECONDS             answer nothing for a while
  stats                       print what was served so far

Exit status:
  0  ended by SIGINT or SIGTERM
  2  wrong use, or a file or the port could not be opened
)";

po::options_description describeOptions() {
    po::options_description options{introduction};
    auto add = options.add_options();
    const auto text = [](const char* name) { return po::value<std::string>()->value_name(name); };
    add("help", "print this text");
    add("description", text("FILE"), "serve the tags of this device description (JSON)");
    add("tags", text("N"), "serve N tags: int, float, double, bool and string in turn");
    add("write-description", text("FILE"),
        "write the description that fits this server, with its address, port and log-in");
    add("device-id", text("ID"),
        "device id in a written description that has none; default: 0123456789AB");
    add("pull-delay", text("MS"), "pull delay in the written description");
    add("listen", text("ADDRESS"), "listen on this address; default: 127.0.0.1");
    add("port", text("N"), "listen on this port; default: one that the system chooses");
    add("port-file", text("FILE"), "write the port to this file too");
    add("user", text("NAME"), "let in this user only; default: everybody, without log-in");
    add("password", text("TEXT"), "the user's password");
    add("advertise", text("HOST"),
        "name this host, no longer than the address, in the endpoints instead of it");
    add("max-sessions", text("N"), "refuse more sessions; default: 1000");
    add("session-timeout", text("S"),
        "let sessions live at most S seconds without a request; default: 3600");
    add("channel-lifetime", text("S"),
        "let channels live at most S seconds without renewal; default: 600");
    add("fault", po::value<std::vector<std::string>>()->value_name("FAULT"),
        "KIND@NODEID: always; KIND:EVERY:FOR@NODEID: every so many seconds, for so many; may be "
        "given more than once");
    add("verbose", "print the notes of the OPC UA stack to the standard error");
    return options;
}

template <typename Number>
void take(const po::variables_map& values, const std::string& name, Number& target) {
    if (values.count(name) == 0) {
        return;
    }
    const auto& text = values[name].as<std::string>();
    if (text.starts_with('-') || !boost::conversion::try_lexical_convert(text, target)) {
        throw std::runtime_error{"--" + name + " takes a number up to " +
                                 std::to_string(std::numeric_limits<Number>::max()) + ", not '" +
                                 text + "'"};
    }
}

void take(const po::variables_map& values, const std::string& name, std::string& target) {
    if (values.count(name) != 0) {
        target = values[name].as<std::string>();
    }
}

void check(const Options& options) {
    const auto refuse = [](const std::string& what) { throw std::runtime_error{what}; };
    if (options.description.empty() == (options.tags == 0)) {
        refuse("give either --description or --tags");
    }
    boost::system::error_code error;
    boost::asio::ip::make_address(options.listen, error);
    if (error) {
        refuse("--listen takes an IP address, not '" + options.listen + "'");
    }
    if (options.advertise.size() > options.listen.size()) {
        refuse("--advertise takes a host no longer than the address " + options.listen);
    }
    if (options.user.empty() && !options.password.empty()) {
        refuse("--password needs --user");
    }
    if (options.maxSessions == 0 || options.sessionTimeout == 0 || options.channelLifetime == 0) {
        refuse("--max-sessions, --session-timeout and --channel-lifetime take at least 1");
    }
}

Options toOptions(const po::variables_map& values) {
    Options options;
    take(values, "listen", options.listen);
    take(values, "port", options.port);
    take(values, "port-file", options.portFile);
    take(values, "description", options.description);
    take(values, "tags", options.tags);
    take(values, "write-description", options.writeDescription);
    take(values, "device-id", options.deviceId);
    take(values, "user", options.user);
    take(values, "password", options.password);
    take(values, "advertise", options.advertise);
    take(values, "max-sessions", options.maxSessions);
    take(values, "session-timeout", options.sessionTimeout);
    take(values, "channel-lifetime", options.channelLifetime);
    if (values.count("pull-delay") != 0) {
        take(values, "pull-delay", options.pullDelay.emplace());
    }
    if (values.count("fault") != 0) {
        for (const auto& fault : values["fault"].as<std::vector<std::string>>()) {
            options.faults.push_back(parseFault(fault));
        }
    }
    options.verbose = values.count("verbose") != 0;
    check(options);
    return options;
}

}  // namespace

std::optional<Options> readOptions(int argc, char** argv) {
    const auto described = describeOptions();
    po::variables_map values;
    const auto style = po::command_line_style::unix_style & ~po::command_line_style::allow_guessing;
    // A positional argument would otherwise be taken silently
    po::store(
        po::command_line_parser{argc, argv}.options(described).positional({}).style(style).run(),
        values);
    if (values.count("help") != 0) {
        std::cout << described << explanation << std::flush;
        return std::nullopt;
    }
    return toOptions(values);
}

}  // namespace OpcUaSimulator
