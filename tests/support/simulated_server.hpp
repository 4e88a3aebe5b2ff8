// SPDX-License-Identifier: MIT
#pragma once

#include "opcua-simulator/server.hpp"

#include <atomic>
#include <cstdint>
#include <thread>

namespace TestSupport {

/// The simulator's server with the tags of a device, on its own thread. One at a time.
class SimulatedServer {
  public:
    explicit SimulatedServer(const PullappOpcUa::Device& device,
                             const OpcUaSimulator::Options& options = {})
        : server_{options, device}, thread_{[this] {
              while (!stopped_) {
                  server_.iterate();
              }
          }} {}
    ~SimulatedServer() {
        stopped_ = true;
        thread_.join();
    }
    SimulatedServer(const SimulatedServer&) = delete;
    SimulatedServer& operator=(const SimulatedServer&) = delete;

    [[nodiscard]] std::uint16_t port() const noexcept { return server_.port(); }

  private:
    OpcUaSimulator::Server server_;
    std::atomic<bool> stopped_ = false;
    std::thread thread_;
};

}  // namespace TestSupport
