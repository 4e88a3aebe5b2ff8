// SPDX-License-Identifier: MIT
#include "options.hpp"

#include <unistd.h>

#include <iostream>
#include <limits>
#include <stdexcept>

#include <boost/asio/ip/address.hpp>
#include <boost/lexical_cast/try_lexical_convert.hpp>
#include <boost/program_options/cmdline.hpp>
#include <boost/program_options/options_description.hpp>
#include <boost/program_options/parsers.hpp>
#include <boost/program_options/variables_map.hpp>

namespace StewardSimulator {
namespace {

namespace po = boost::program_options;

constexpr auto introduction = R"(Usage: steward-simulator [OPTION]...

Takes the place of the steward on this machine: a device daemon logs on, receives
its description and sends its values, which are checked and shown. The first line
of the output names the address and port it listens on.

Options)";

constexpr auto explanation = R"(
Commands, one per line of the standard input:
  .info        send the description again
  .drop        close all connections
  .page        show the next page of the table
  .quit        end, as SIGINT and SIGTERM do
  ..TEXT       send .TEXT
  TEXT         send TEXT as it is to every connected device, for example
               "EROR text", "TGNF 7", "INVL 7", "TOOF", "RTCH 1", "IFCH"

Exit status:
  0  nothing was malformed, and with --batches as many came
  1  a malformed line came, or --batches were not reached
  2  wrong use, or a file or the port could not be opened
)";

po::options_description describeOptions() {
    po::options_description options{introduction};
    auto add = options.add_options();
    const auto text = [](const char* name, const char* preset) {
        return po::value<std::string>()->value_name(name)->default_value(preset, preset);
    };
    add("help", "print this text");
    add("listen", text("ADDRESS", "127.0.0.1"), "listen on this address");
    add("port", text("N", "0"), "listen on this port; 0 lets the system choose one");
    add("port-file", po::value<std::string>()->value_name("FILE"),
        "write the port to this file as soon as connections are accepted, for programs that start "
        "this one with --view=table");
    add("device-id", po::value<std::string>()->value_name("ID"),
        "refuse every other device id; default: any is accepted");
    add("device-key", po::value<std::string>()->value_name("KEY"),
        "refuse every other device key; default: any is accepted");
    add("description", po::value<std::string>()->value_name("FILE"),
        "serve this device description (JSON), and announce it with IFCH when the file changes");
    add("view", text("VIEW", "auto"),
        "table: live table for a terminal; lines: a line per batch and event; none: take in as "
        "fast as possible, counting batches, values and bytes, checking no value; auto: table "
        "if the output is a terminal, else lines");
    add("quiet", "the same as --view=none");
    add("batches", po::value<std::string>()->value_name("N"), "end after N batches");
    add("seconds", po::value<std::string>()->value_name("S"), "end after S seconds");
    add("report", po::value<std::string>()->value_name("FILE"),
        "write counts and times as JSON to this file at the end");
    return options;
}

po::variables_map parse(int argc, char** argv, const po::options_description& options) {
    namespace Style = po::command_line_style;
    po::variables_map values;
    po::store(po::command_line_parser{argc, argv}
                  .options(options)
                  .positional({})
                  .style(Style::allow_long | Style::long_allow_adjacent | Style::long_allow_next)
                  .run(),
              values);
    return values;
}

std::string textOf(const po::variables_map& values, const char* name) {
    if (values.count(name) == 0) {
        return {};
    }
    auto text = values[name].as<std::string>();
    if (text.empty()) {
        throw std::invalid_argument(std::string{"option '--"} + name + "' needs a value");
    }
    return text;
}

[[noreturn]] void refuse(const char* name, const std::string& text) {
    throw std::invalid_argument(std::string{"the argument ('"} + text + "') for option '--" + name +
                                "' is invalid");
}

/// Signs are refused first: an unsigned number would take a negative one as a huge one.
template <typename Number>
Number numberOf(const po::variables_map& values, const char* name, Number least, Number most) {
    const auto text = textOf(values, name);
    Number number{};
    if (text.front() == '-' || text.front() == '+' ||
        !boost::conversion::try_lexical_convert(text, number) ||
        !(number >= least && number <= most)) {
        refuse(name, text);
    }
    return number;
}

boost::asio::ip::tcp::endpoint endpointOf(const po::variables_map& values) {
    const auto text = textOf(values, "listen");
    boost::system::error_code error;
    const auto address = boost::asio::ip::make_address(text, error);
    if (error) {
        refuse("listen", text);
    }
    return {address,
            numberOf<std::uint16_t>(values, "port", 0, std::numeric_limits<std::uint16_t>::max())};
}

/// A program in the background of a terminal must not draw over what runs in the foreground.
ViewKind suitableView() {
    const auto foreground = ::tcgetpgrp(STDOUT_FILENO);
    const bool isBackground = foreground >= 0 && foreground != ::getpgrp();
    return ::isatty(STDOUT_FILENO) == 1 && !isBackground ? ViewKind::Table : ViewKind::Lines;
}

ViewKind viewOf(const po::variables_map& values) {
    const auto text = textOf(values, "view");
    auto view = ViewKind::None;
    if (text == "auto") {
        view = suitableView();
    } else if (text == "table") {
        view = ViewKind::Table;
    } else if (text == "lines") {
        view = ViewKind::Lines;
    } else if (text != "none") {
        refuse("view", text);
    }
    return values.count("quiet") != 0 ? ViewKind::None : view;
}

}  // namespace

std::optional<Options> readOptions(int argc, char** argv) {
    const auto described = describeOptions();
    const auto values = parse(argc, argv, described);
    if (values.count("help") != 0) {
        std::cout << described << explanation;
        return std::nullopt;
    }
    Options options{.listen = endpointOf(values),
                    .deviceId = textOf(values, "device-id"),
                    .deviceKey = textOf(values, "device-key"),
                    .description = textOf(values, "description"),
                    .portFile = textOf(values, "port-file"),
                    .report = textOf(values, "report"),
                    .view = viewOf(values)};
    if (values.count("batches") != 0) {
        options.batches = numberOf<std::uint64_t>(values, "batches", 1,
                                                  std::numeric_limits<std::uint64_t>::max());
    }
    if (values.count("seconds") != 0) {
        constexpr double tenYears = 3e8;
        options.seconds = numberOf<double>(values, "seconds", 0, tenYears);
    }
    return options;
}

}  // namespace StewardSimulator
