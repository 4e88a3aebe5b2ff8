// SPDX-License-Identifier: MIT
#pragma once

#include "opcua-simulator/server.hpp"

#include <string>

namespace OpcUaSimulator {

/// Commands on the standard input; never waits for input.
class CommandInput {
  public:
    explicit CommandInput(Server& server) : server_{server} {}

    /// Executes what has arrived; at the end of the input only the commands end.
    void poll();

  private:
    void run(const std::string& line);

    Server& server_;
    std::string received_;
    bool open_ = true;
};

}  // namespace OpcUaSimulator
