// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <cstddef>

namespace OpcUaCommission {

/// Progress of a search, in one line on the standard error if that is a terminal and the search
/// takes longer than a second. The destructor removes the line.
class Progress {
  public:
    Progress() = default;
    ~Progress() { clear(); }
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void show(std::size_t nodes, std::size_t variables);

    /// Removes the line.
    void clear();

  private:
    using Clock = std::chrono::steady_clock;

    Clock::time_point next_ = Clock::now() + std::chrono::seconds{1};
    bool isShown_ = false;
};

}  // namespace OpcUaCommission
