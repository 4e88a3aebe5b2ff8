// SPDX-License-Identifier: MIT
#include "steward-simulator/options.hpp"

#include "common/command_line.hpp"

#include <limits>

#include <unistd.h>

#include <boost/asio/ip/address.hpp>

namespace StewardSimulator {
namespace {

using Tools::UsageError;

constexpr auto introduction = R"(Usage: steward-simulator [OPTION]...

Takes the place of the steward on this machine: a device daemon logs on, receives
its description and sends its values, which are checked and shown. The first line
of the output names the address and port on which it listens.

Options)";

constexpr auto explanation = R"(
Commands, one per line of the standard input:
  .info        send the description again
  .drop        close all connections
  .page        show the next page of the table
  .note TEXT   show TEXT among the events
  .quit        end, as SIGINT and SIGTERM do
  ..TEXT       send .TEXT
  TEXT         send TEXT as it is to every connected device, for example
               "EROR text", "TGNF 7", "INVL 7", "TOOF", "RTCH 1", "IFCH"

Exit status:
  0  nothing was malformed, and with --batches as many came
  1  a malformed line came, or --batches were not reached
  2  wrong use, or a file or the port could not be opened
)";

/// Option texts that are not parsed yet.
struct Texts {
    std::string listen = "127.0.0.1";
    std::uint16_t port = 0;
    std::string view = "auto";
    bool isQuiet = false;
};

Tools::CommandLine describe(Options& options, Texts& texts) {
    constexpr double tenYears = 3e8;
    Tools::CommandLine line{"steward-simulator", introduction, explanation};
    line.text("listen", "ADDRESS", texts.listen, "listen on this address; default: 127.0.0.1")
        .number("port", "N", texts.port, std::uint16_t{0},
                std::numeric_limits<std::uint16_t>::max(),
                "listen on this port; default: 0, one that the system chooses")
        .text("port-file", "FILE", options.portFile,
              "write the port to this file as soon as connections are accepted, for programs that "
              "start this one with --view=table")
        .text("device-id", "ID", options.deviceId,
              "refuse every other device id; default: any is accepted")
        .text("device-key", "KEY", options.deviceKey,
              "refuse every other device key; default: any is accepted")
        .text("description", "FILE", options.description,
              "serve this device description (JSON), and announce it with IFCH when the file "
              "changes")
        .text("view", "VIEW", texts.view,
              "table: live table for a terminal; lines: a line per batch and event; none: receive "
              "as fast as possible, count batches, values and bytes, and check no value; "
              "default: table if the output is a terminal, else lines")
        .flag("quiet", texts.isQuiet, "the same as --view=none")
        .number("batches", "N", options.batches, std::uint64_t{1},
                std::numeric_limits<std::uint64_t>::max(), "end after N batches")
        .number("seconds", "S", options.seconds, 0.0, tenYears, "end after S seconds")
        .text("report", "FILE", options.report,
              "write counts and times as JSON to this file at the end");
    return line;
}

/// A program in the background of a terminal must not draw over what runs in the foreground.
ViewKind suitableView() {
    const auto foreground = ::tcgetpgrp(STDOUT_FILENO);
    const bool isBackground = foreground >= 0 && foreground != ::getpgrp();
    return ::isatty(STDOUT_FILENO) == 1 && !isBackground ? ViewKind::Table : ViewKind::Lines;
}

ViewKind toView(const Texts& texts) {
    if (texts.view != "auto" && texts.view != "table" && texts.view != "lines" &&
        texts.view != "none") {
        throw UsageError{"option '--view' takes auto, table, lines or none, not '" + texts.view +
                         "'"};
    }
    if (texts.isQuiet || texts.view == "none") {
        return ViewKind::None;
    }
    if (texts.view == "auto") {
        return suitableView();
    }
    return texts.view == "table" ? ViewKind::Table : ViewKind::Lines;
}

boost::asio::ip::tcp::endpoint toEndpoint(const Texts& texts) {
    boost::system::error_code error;
    const auto address = boost::asio::ip::make_address(texts.listen, error);
    if (error) {
        throw UsageError{"option '--listen' takes an IP address, not '" + texts.listen + "'"};
    }
    return {address, texts.port};
}

}  // namespace

std::optional<Options> readOptions(int argc, char** argv) {
    Options options;
    Texts texts;
    if (!describe(options, texts).read(argc, argv)) {
        return std::nullopt;
    }
    options.listen = toEndpoint(texts);
    options.view = toView(texts);
    return options;
}

}  // namespace StewardSimulator
