// SPDX-License-Identifier: MIT
#pragma once

#include "orvik/log/sink_ostream.hpp"

#include <memory>

namespace Orvik::Log {

/**
 * The process-wide current sink: the standard output at level info until it is replaced, deleted
 * when the process exits. Replace it on the main thread before any other thread exists.
 */
inline std::unique_ptr<Sink>& sink() {
    static std::unique_ptr<Sink> current = std::make_unique<SinkCout>(info);
    return current;
}

}  // namespace Orvik::Log
