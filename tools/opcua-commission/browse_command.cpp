// SPDX-License-Identifier: MIT
#include "opcua-commission/browse_command.hpp"

#include "common/command_line.hpp"
#include "common/description_text.hpp"
#include "common/file.hpp"
#include "opcua-commission/address_space.hpp"
#include "opcua-commission/connection.hpp"
#include "opcua-commission/description_update.hpp"
#include "opcua-commission/interrupt.hpp"
#include "opcua-commission/progress.hpp"
#include "opcua-commission/server_options.hpp"
#include "opcua-commission/variable_list.hpp"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <optional>
#include <utility>

#include <sys/stat.h>

#include <fmt/format.h>

namespace OpcUaCommission {
namespace {

using PullappOpcUa::Device;
using Tools::UsageError;

constexpr std::uint16_t mostOf16Bits = 65535;

struct BrowseOptions {
    ServerOptions server;
    BrowseSettings browse;
    Format format = Format::Table;
    std::string file;  // of the description; empty: none is written
    DescriptionSettings description;
};

bool readBrowseOptions(int argc, char** argv, BrowseOptions& options) {
    Tools::CommandLine commandLine{
        "opcua-commission",
        introductionOf("browse --host=ADDRESS [OPTION]...",
                       "Lists the variables of an OPC UA server: where they are, their address and "
                       "type as a\ndescription has them, and their value as the daemon would send "
                       "it, or why it cannot\npull them. Writes the description of a device with "
                       "all that it can pull.\n"),
        exitStatusText};
    std::string format;
    addServerOptions(commandLine, options.server);
    commandLine
        .text("root", "NODE", options.browse.root,
              "begin at this node, an address such as \"ns=2;i=1001\" or a path of names such as "
              "/Line1/Motor; default: the Objects folder")
        .texts("match", "GLOB", options.browse.match,
               "only variables whose path matches, such as '*/Motor*/Speed'; may be given more "
               "than once")
        .texts("exclude", "GLOB", options.browse.exclude,
               "no variables whose path matches; may be given more than once")
        .number("depth", "N", options.browse.depth, std::size_t{0}, std::size_t{1000},
                "no more than N levels below the root")
        .flag("all", options.browse.isAll,
              "also the server's own nodes, of namespace 0, such as its diagnostics");
    addFormatOption(commandLine, format);
    commandLine
        .text("write-description", "FILE", options.file,
              "write a description with a tag for each variable that can be pulled; an existing "
              "FILE is updated: its tags keep their ids and settings, and it provides the server "
              "and the log-in where the command line does not")
        .text("id", "ID", options.description.id, "device id in the description")
        .number("pull-delay", "MS", options.description.pullDelay, std::uint16_t{0}, mostOf16Bits,
                "pull delay in the description; default: 1000")
        .number("first-id", "N", options.description.firstId, std::uint16_t{0}, mostOf16Bits,
                "lowest id for new tags; default: 1")
        .flag("prune", options.description.prunes,
              "remove tags from the description that the server no longer has");
    if (!commandLine.read(argc, argv)) {
        return false;
    }
    options.format = toFormat(format);
    return true;
}

void checkBrowseOptions(const BrowseOptions& options, bool isNew) {
    if (!options.file.empty() && isNew && options.description.id.empty()) {
        throw UsageError{"a new description needs '--id'"};
    }
    if (options.file.empty() && (!options.description.id.empty() || options.description.prunes ||
                                 options.description.pullDelay)) {
        throw UsageError{"--id, --pull-delay and --prune need '--write-description'"};
    }
}

/// Sorts by path, and numbers in it by value: servers return their nodes in any order.
bool isBefore(const Variable& left, const Variable& right) {
    return ::strverscmp(left.path.c_str(), right.path.c_str()) < 0;
}

/// One run of the subcommand.
class BrowseCommand {
  public:
    explicit BrowseCommand(const BrowseOptions& options)
        : options_{options},
          isNew_{!std::filesystem::exists(options.file)},
          description_{
              isNew_ ? Description{nlohmann::ordered_json::object(), std::make_shared<Device>()}
                     : readDescription(options.file)} {
        checkBrowseOptions(options, isNew_);
        copyServer(*description_.device, device_);
        applyServerOptions(options.server, device_);
    }

    ExitStatus run() {
        const InterruptWatchdog watchdog{[this] {
            printResult();
            std::fputs("interrupted\n", stderr);
            return problemsFound;
        }};
        Connection connection{device_};
        try {
            browseAll(connection);
        } catch (const Interrupted&) {
            printResult();
            fmt::print(stderr, "interrupted{}\n", unchanged());
            return problemsFound;
        } catch (const ServerError&) {
            printResult();
            fmt::print(stderr, "the list is not complete{}\n", unchanged());
            throw;
        }
        printResult();
        printSummary(connection.requests());
        const bool isUpToDate = options_.file.empty() || writeDescription();
        return result_.refused.empty() && isUpToDate ? allGood : problemsFound;
    }

  private:
    void browseAll(Connection& connection) {
        Services services{connection};
        readLimit_ = services.publishedReadLimit();
        browse(services, options_.browse, progress_, result_);
        const auto& read = description_.device->readRequest;
        for (std::size_t i = 0; i < read.nodesToReadSize; ++i) {
            existing_.emplace_back().nodeId = NodeId{read.nodesToRead[i].nodeId};
        }
        VariableReader{services}.read(existing_, 0, existing_.size());
    }

    [[nodiscard]] std::string unchanged() const {
        return options_.file.empty() ? "" : "; " + options_.file + " is not touched";
    }

    void printResult() {
        if (std::exchange(isPrinted_, true)) {
            return;
        }
        progress_.clear();
        std::ranges::sort(result_.variables, isBefore);
        printOut([this] { print(stdout, options_.format, result_.variables); });
    }

    void printSummary(std::uint64_t requests) const {
        for (const auto& refused : result_.refused) {
            fmt::print(stderr, "cannot be browsed: {}\n", refused);
        }
        const auto pullable = std::ranges::count_if(result_.variables, &Variable::isPullable);
        const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start_;
        fmt::print(stderr,
                   "{} nodes, {} variables, {} of them can be pulled; {} requests in {:.1f} s\n",
                   result_.nodes, result_.variables.size(), pullable, requests, taken.count());
    }

    /// @return whether there is nothing left for the user to do
    bool writeDescription() {
        const auto before = description_.json;
        const auto changes =
            update(description_, options_.description, device_, existing_, result_.variables);
        for (const auto* lines : {&changes.notes, &changes.problems}) {
            for (const auto& line : *lines) {
                fmt::print(stderr, "{}: {}\n", options_.file, line);
            }
        }
        const auto tags = description_.json["tags"].size();
        const bool isTooMany = readLimit_ && tags > *readLimit_;
        if (isTooMany) {
            fmt::print(stderr,
                       "{}: the server reads no more than {} nodes at once, and the daemon reads "
                       "all tags at once: make two or more devices of them\n",
                       options_.file, *readLimit_);
        }
        if (!isNew_ && description_.json == before) {
            fmt::print(stderr, "{}: {} tags, nothing to change\n", options_.file, tags);
            return changes.problems.empty() && !isTooMany;
        }
        if (isNew_ && description_.json.contains("protocolOptions")) {
            ::umask(077);  // a password is in it
        }
        Tools::writeFile(options_.file, Tools::descriptionText(description_.json));
        fmt::print(stderr, "{}: {} tags, {} of them new\n", options_.file, tags, changes.added);
        return changes.problems.empty() && !isTooMany;
    }

    const BrowseOptions& options_;
    const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
    bool isNew_;
    Description description_;
    Device device_;  // where the server is, and the log-in
    Progress progress_;
    BrowseResult result_;
    std::vector<Variable> existing_;        // what the description's tags are
    std::optional<std::size_t> readLimit_;  // as published by the server
    bool isPrinted_ = false;
};

}  // namespace

ExitStatus runBrowse(int argc, char** argv) {
    BrowseOptions options;
    if (!readBrowseOptions(argc, argv, options)) {
        return allGood;
    }
    return BrowseCommand{options}.run();
}

}  // namespace OpcUaCommission
