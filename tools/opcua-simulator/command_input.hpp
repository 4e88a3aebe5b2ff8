// SPDX-License-Identifier: MIT
#pragma once

#include "opcua-simulator/server.hpp"

#include <string>

namespace OpcUaSimulator {

/// Commands on the standard input, which is never waited for.
class CommandInput {
  public:
    explicit CommandInput(Server& server) : server_{server} {}

    /// Carries out what has arrived; an end of the input ends only the commands.
    void poll();

  private:
    void run(const std::string& line);

    Server& server_;
    std::string received_;
    bool open_ = true;
};

}  // namespace OpcUaSimulator
