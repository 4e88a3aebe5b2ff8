// SPDX-License-Identifier: MIT
#include "opcua-commission/check_command.hpp"

#include "common/command_line.hpp"
#include "common/file.hpp"
#include "common/screen.hpp"
#include "opcua-commission/check_report.hpp"
#include "opcua-commission/checked_description.hpp"
#include "opcua-commission/connection.hpp"
#include "opcua-commission/interrupt.hpp"
#include "opcua-commission/server_options.hpp"
#include "opcua-commission/suggestion.hpp"
#include "opcua-commission/type_fix.hpp"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <optional>
#include <thread>
#include <utility>

#include <sys/stat.h>
#include <unistd.h>

#include <fmt/format.h>

namespace OpcUaCommission {
namespace {

using std::chrono::milliseconds;
using Tools::UsageError;

struct CheckOptions {
    std::string file;
    ServerOptions server;
    Format format = Format::Table;
    bool isOffline = false;
    bool suggests = false;
    bool watches = false;
    std::string fixedFile;  // empty: none is written
};

bool readCheckOptions(int argc, char** argv, CheckOptions& options) {
    Tools::CommandLine commandLine{
        "opcua-commission",
        introductionOf(
            "check FILE [OPTION]...",
            "Lists every problem of the description of a device at once: what is wrong "
            "in the file\nand what the daemon says about it; then connects as the daemon "
            "does, reads all tags\nand compares them with the description. Host, port "
            "and log-in are those of the\ndescription.\n"),
        exitStatusText};
    std::string format;
    commandLine.operand("FILE", options.file);
    addServerOptions(commandLine, options.server);
    commandLine.flag("offline", options.isOffline, "check the file only")
        .flag("suggest", options.suggests,
              "for addresses that the server does not know, browse it for similar ones")
        .text("fix", "FILE", options.fixedFile,
              "write the description to this file with the types that the server has; nothing "
              "else changes")
        .flag("watch", options.watches,
              "read repeatedly, with the pull delay in between, and show the new values; Ctrl-C "
              "ends");
    addFormatOption(commandLine, format);
    if (!commandLine.read(argc, argv)) {
        return false;
    }
    options.format = toFormat(format);
    const bool needsServer = options.suggests || options.watches || !options.fixedFile.empty();
    if (options.isOffline && needsServer) {
        throw UsageError{"--offline cannot be combined with --suggest, --fix or --watch"};
    }
    if (options.watches && options.format != Format::Table) {
        throw UsageError{"--watch shows a table only"};
    }
    return true;
}

/// One run of the subcommand.
class CheckCommand {
  public:
    explicit CheckCommand(const CheckOptions& options)
        : options_{options}, description_{options.file}, report_{description_} {}

    ExitStatus run() {
        const bool isReadable = description_.verdict.empty() || !description_.document.syntaxError;
        if (options_.isOffline || !isReadable) {
            return printReport();
        }
        const InterruptWatchdog watchdog{[this] { return printInterrupted(); }};
        try {
            checkWithServer();
        } catch (const Interrupted&) {
            return printInterrupted();
        } catch (const UsageError& error) {
            printReport();
            if (!options_.server.host.empty()) {
                throw;
            }
            fmt::print(stderr, "cannot connect: {}\n", error.what());
            return problemsFound;
        } catch (...) {
            printReport();
            throw;
        }
        return printReport();
    }

  private:
    void checkWithServer() {
        auto& device = *description_.device;
        applyServerOptions(options_.server, device);
        Connection connection{device};
        readTags(connection);
        if (options_.suggests) {
            suggestNodes(connection, checked_->tags, report_.suggestions);
        }
        if (!options_.fixedFile.empty()) {
            writeFixed();
        }
        if (options_.watches) {
            watch(connection);
        }
        if (!checked_->failure.empty()) {
            throw ServerError{"the server does not carry out the Read of all tags: " +
                              checked_->failure};
        }
    }

    /// One Read, as the daemon does.
    void readTags(Connection& connection) {
        const auto response = connection.read(description_.device->readRequest);
        checked_ = checkTags(description_, response);
        report_.device = &*checked_;
    }

    void writeFixed() const {
        struct stat status {};
        if (::stat(options_.file.c_str(), &status) == 0) {
            ::umask(~status.st_mode & 0777U);  // a password may be in it
        }
        Tools::writeFile(options_.fixedFile, withRightTypes(description_.document, checked_->tags));
        const auto count = std::ranges::count_if(
            checked_->tags, [](const TagCheck& tag) { return tag.rightType.has_value(); });
        fmt::print(stderr, "{}: {} types corrected\n", options_.fixedFile, count);
    }

    /// Until an interrupt. A lost connection is reported and reopened.
    [[noreturn]] void watch(Connection& connection) {
        constexpr milliseconds shortest{100};  // nobody can read faster
        const auto delay = std::max(shortest, milliseconds{description_.device->pullDelay});
        const Picture picture;
        std::string failure;
        isWatching_ = true;
        for (;;) {
            picture.draw(linesFor(failure));
            pause(delay);
            failure.clear();
            try {
                if (!checked_->failure.empty()) {
                    connection.reopen();
                }
                readTags(connection);
            } catch (const ServerError& error) {
                failure = error.what();
            }
        }
    }

    /// The terminal's alternate screen, or plain lines where there is no terminal.
    class Picture {
      public:
        Picture() { write(Tools::Screen::enter); }
        ~Picture() { write(Tools::Screen::leave); }
        Picture(const Picture&) = delete;
        Picture& operator=(const Picture&) = delete;

        void draw(const std::vector<std::string>& lines) const {
            if (isTerminal_) {
                write(screen_.draw(lines, Tools::terminalSize()));
                return;
            }
            for (const auto& line : lines) {
                fmt::print("{}\n", line);
            }
            std::fflush(stdout);
        }

      private:
        void write(std::string_view bytes) const {
            if (isTerminal_) {
                fmt::print("{}", bytes);
                std::fflush(stdout);
            }
        }

        bool isTerminal_ = ::isatty(STDOUT_FILENO) == 1;
        mutable Tools::Screen screen_;
    };

    [[nodiscard]] std::vector<std::string> linesFor(const std::string& failure) const {
        const bool isTerminal = ::isatty(STDOUT_FILENO) == 1;
        const auto size = Tools::terminalSize();
        constexpr std::size_t linesAround = 5;
        auto shownTags = *checked_;
        if (isTerminal && shownTags.tags.size() + linesAround > size.rows) {
            std::stable_partition(shownTags.tags.begin(), shownTags.tags.end(),
                                  std::not_fn(&TagCheck::isGood));
        }
        auto lines = tagTable(shownTags).draw(
            isTerminal ? size.columns : Tools::Table::anyWidth,
            isTerminal ? Tools::Table::Styles::Shown : Tools::Table::Styles::LeftOut);
        if (isTerminal && lines.size() + linesAround > size.rows) {
            const auto shown = std::max(size.rows, linesAround + 2) - linesAround;
            const auto left = lines.size() - shown;
            lines.resize(shown);
            lines.push_back(fmt::format("… and {} more", left));
        }
        lines.insert(lines.begin(), options_.file + "   Ctrl-C ends");
        lines.push_back(failure.empty() ? publishedText(report_) : failure);
        lines.push_back(summaryText(*checked_));
        return lines;
    }

    static void pause(milliseconds delay) {
        constexpr milliseconds step{50};
        const auto end = std::chrono::steady_clock::now() + delay;
        while (std::chrono::steady_clock::now() < end) {
            if (isInterrupted()) {
                throw Interrupted{};
            }
            std::this_thread::sleep_for(std::min(step, delay));
        }
    }

    ExitStatus printReport() {
        if (!std::exchange(isPrinted_, true)) {
            printOut([this] { print(stdout, options_.format, report_); });
        }
        return isGood(report_) ? allGood : problemsFound;
    }

    /// An interrupt is how a watch ends.
    ExitStatus printInterrupted() {
        const auto status = printReport();
        if (isWatching_) {
            return status;
        }
        std::fputs("interrupted\n", stderr);
        return problemsFound;
    }

    const CheckOptions& options_;
    CheckedDescription description_;
    CheckReport report_;
    std::optional<DeviceCheck> checked_;
    bool isWatching_ = false;
    bool isPrinted_ = false;
};

}  // namespace

ExitStatus runCheck(int argc, char** argv) {
    CheckOptions options;
    if (!readCheckOptions(argc, argv, options)) {
        return allGood;
    }
    return CheckCommand{options}.run();
}

}  // namespace OpcUaCommission
