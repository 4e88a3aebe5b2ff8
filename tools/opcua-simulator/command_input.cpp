// SPDX-License-Identifier: MIT
#include "opcua-simulator/command_input.hpp"

#include <exception>
#include <iostream>
#include <stdexcept>
#include <vector>

#include <poll.h>
#include <unistd.h>

#include <boost/algorithm/string/classification.hpp>
#include <boost/algorithm/string/split.hpp>

namespace OpcUaSimulator {

void CommandInput::poll() {
    pollfd input{.fd = STDIN_FILENO, .events = POLLIN, .revents = 0};
    if (!open_ || ::poll(&input, 1, 0) != 1) {
        return;
    }
    char buffer[4096];
    const auto size = ::read(STDIN_FILENO, buffer, sizeof buffer);
    if (size <= 0) {
        open_ = false;
        return;
    }
    received_.append(buffer, static_cast<std::size_t>(size));
    for (auto end = received_.find('\n'); end != std::string::npos; end = received_.find('\n')) {
        run(received_.substr(0, end));
        received_.erase(0, end + 1);
    }
}

void CommandInput::run(const std::string& line) {
    std::vector<std::string> words;
    boost::algorithm::split(words, line, boost::algorithm::is_space(),
                            boost::algorithm::token_compress_on);
    try {
        if (words[0] == "stats" && words.size() == 1) {
            std::cout << server_.statistics() << std::endl;
        } else if (words[0] == "silence" && words.size() == 2) {
            server_.silence(parseSeconds(words[1]));
        } else if (words[0] == "fault" && words.size() == 4) {
            server_.begin({.kind = faultKind(words[1]),
                           .nodeId = words[2],
                           .length = parseSeconds(words[3])});
        } else if (!line.empty()) {
            throw std::runtime_error{"unknown command '" + line + "'"};
        }
    } catch (const std::exception& error) {
        std::cerr << "opcua-simulator: " << error.what() << std::endl;
    }
}

}  // namespace OpcUaSimulator
