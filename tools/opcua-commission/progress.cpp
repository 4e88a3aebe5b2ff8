// SPDX-License-Identifier: MIT
#include "opcua-commission/progress.hpp"

#include <cstdio>
#include <utility>

#include <unistd.h>

#include <fmt/format.h>

namespace OpcUaCommission {
namespace {

constexpr const char* eraseLine = "\r\x1b[K";

}  // namespace

void Progress::clear() {
    if (std::exchange(isShown_, false)) {
        std::fputs(eraseLine, stderr);
    }
}

void Progress::show(std::size_t nodes, std::size_t variables) {
    const auto now = Clock::now();
    if (now < next_ || ::isatty(STDERR_FILENO) != 1) {
        return;
    }
    next_ = now + std::chrono::milliseconds{200};
    isShown_ = true;
    fmt::print(stderr, "{}{} nodes, {} variables; Ctrl-C ends", eraseLine, nodes, variables);
}

}  // namespace OpcUaCommission
