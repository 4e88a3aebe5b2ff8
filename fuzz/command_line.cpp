// SPDX-License-Identifier: MIT
#include "orvik/pullapplication/command_line.hpp"

#include "support.hpp"

#include <sstream>
#include <vector>

namespace {

using Orvik::PullApplication::Settings;

/// @return whether the service is to start
bool parse(std::vector<std::string> arguments, Settings& settings) {
    std::vector<char*> pointers;
    for (auto& argument : arguments) {
        pointers.push_back(argument.data());
    }
    std::ostringstream printed;
    settings = Orvik::PullApplication::parseCommandLine(static_cast<int>(pointers.size()),
                                                        pointers.data(), printed);
    const std::string name = "fuzz";
    const bool accepted = Orvik::PullApplication::acceptSettings(settings, name, {name, name, name},
                                                                 printed, printed);
    Fuzz::require(accepted == printed.str().empty(), "something is printed, or the service starts");
    return accepted;
}

}  // namespace

/// The arguments stand one behind the other, with a zero byte between them.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::vector<std::string> arguments{"fuzz"};
    for (auto text = Fuzz::textOf(data, size); !text.empty();) {
        arguments.emplace_back(Fuzz::takeUntil(text, '\0'));
    }
    Settings settings;
    const bool accepted = parse(arguments, settings);
    const auto level = static_cast<std::uint32_t>(Orvik::Log::sink()->level());
    Fuzz::require(level <= Orvik::Log::mostVerboseLevel, "the log level is one of ten");
    if (accepted) {
        arguments = {"fuzz", "--steward-host=" + settings.stewardHost,
                     "--steward-port=" + std::to_string(settings.stewardPort),
                     "--device-id=" + settings.deviceId, "--device-key=" + settings.deviceKey};
        Settings again;
        Fuzz::require(parse(arguments, again) && again.stewardHost == settings.stewardHost &&
                          again.stewardPort == settings.stewardPort &&
                          again.deviceId == settings.deviceId &&
                          again.deviceKey == settings.deviceKey,
                      "what was understood can be said again");
    }
    return 0;
}
