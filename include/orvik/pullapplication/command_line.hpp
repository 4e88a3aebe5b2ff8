// SPDX-License-Identifier: MIT
#pragma once

#include "orvik/log/current_sink.hpp"

#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>

#include <boost/lexical_cast/try_lexical_convert.hpp>

namespace Orvik::PullApplication {

/// What the command line asks for.
struct Settings {
    std::string stewardHost = "127.0.0.1";
    std::uint32_t stewardPort = 9230;  ///< not checked for range
    std::string deviceId;
    std::string deviceKey;
    bool showVersion = false;
    bool showUsage = false;
};

namespace Detail {

/// One argument of the form "--name" or "--name=value"; only the first "=" splits.
struct Argument {
    std::string_view name;
    std::string_view value;
};

[[nodiscard]] constexpr Argument splitArgument(std::string_view argument) noexcept {
    const auto text = argument.substr(2);
    const auto equals = text.find('=');
    if (equals == std::string_view::npos) {
        return {.name = text, .value = {}};
    }
    return {.name = text.substr(0, equals), .value = text.substr(equals + 1)};
}

/// Takes effect at once, so that later start-up messages already use it.
[[nodiscard]] inline bool setLogLevel(std::string_view value) {
    std::uint32_t level = 0;
    if (!boost::conversion::try_lexical_convert(value, level) || level > Log::mostVerboseLevel) {
        return false;
    }
    Log::sink()->setLevel(static_cast<std::int32_t>(level));
    return true;
}

/// @return empty if the argument is applied, else what is wrong with it
[[nodiscard]] inline std::string applyArgument(std::string_view argument, Settings& settings) {
    if (!argument.starts_with("--")) {
        return "Invalid argument: " + std::string{argument};
    }
    const auto [name, value] = splitArgument(argument);
    if (name == "version") {
        settings.showVersion = true;
        return {};
    }
    if (name == "help") {
        settings.showUsage = true;
        return {};
    }
    if (value.empty()) {
        return "Missing value for argument " + std::string{name};
    }
    bool valid = true;
    if (name == "steward-host") {
        settings.stewardHost = value;
    } else if (name == "steward-port") {
        valid = boost::conversion::try_lexical_convert(value, settings.stewardPort);
    } else if (name == "device-id") {
        settings.deviceId = value;
    } else if (name == "device-key") {
        settings.deviceKey = value;
    } else if (name == "log-level") {
        valid = setLogLevel(value);
    } else {
        return "Invalid argument " + std::string{name};
    }
    return valid ? std::string{} : "Invalid value for " + std::string{name};
}

[[nodiscard]] inline std::string_view missingArgument(const Settings& settings) noexcept {
    if (settings.stewardHost.empty()) {
        return "steward-host";
    }
    if (settings.deviceId.empty()) {
        return "device-id";
    }
    return settings.deviceKey.empty() ? "device-key" : "";
}

}  // namespace Detail

/**
 * Reads the arguments up to the first faulty one, which is reported and leads to the usage text.
 *
 * @param errors receives one line for the faulty argument
 */
[[nodiscard]] inline Settings parseCommandLine(int argc, char** argv, std::ostream& errors) {
    Settings settings;
    for (int i = 1; i < argc; ++i) {
        if (const auto error = Detail::applyArgument(argv[i], settings); !error.empty()) {
            errors << argv[0] << ": " << error << std::endl;
            settings.showUsage = true;
            break;
        }
    }
    return settings;
}

/// What `--version` prints.
struct Identity {
    const std::string& protocolName;
    const std::string& version;
    const std::string& notice;
};

inline void printVersion(const Identity& identity, std::ostream& output) {
    output << "pullapp-" << identity.protocolName << '/' << identity.version
           << " (orvik-cpp.pullapplication/dev)" << std::endl
           << identity.notice << std::endl;
}

inline void printUsage(std::string_view program, std::ostream& output) {
    output << "Usage example: " << program << " --device-id=0123456789AB --device-key=1234"
           << " [--steward-host=127.0.0.1] [--steward-port=9230] [--log-level=6]" << std::endl;
}

/// Reports the first missing required argument, which leads to the usage text.
inline void reportMissingArgument(Settings& settings, std::string_view program,
                                  std::ostream& errors) {
    if (const auto missing = Detail::missingArgument(settings); !missing.empty()) {
        errors << program << ": Missing argument " << missing << std::endl;
        settings.showUsage = true;
    }
}

}  // namespace Orvik::PullApplication
