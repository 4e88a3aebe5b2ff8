// SPDX-License-Identifier: MIT
#pragma once

#include "orvik/log/sink.hpp"

#include <algorithm>
#include <string>
#include <utility>

#include <syslog.h>

#include <boost/lexical_cast.hpp>
#include <boost/thread/thread.hpp>

namespace Orvik::Log {

/**
 * Writes to the system log as "thread message"; only the priority carries the level.
 *
 * Opens the system log on construction and never closes it: the next sink opens it again.
 */
class SinkSyslog final : public Sink {
  public:
    SinkSyslog(std::int32_t level, std::string identity)
        : Sink{level}, identity_{std::move(identity)} {
        openlog(identity_.c_str(), LOG_ODELAY, LOG_USER);
    }

    void write(std::uint32_t level, const std::string& message) override {
        const auto text =
            boost::lexical_cast<std::string>(boost::this_thread::get_id()) + ' ' + message;
        // "%s", because a message may hold '%' itself
        syslog(static_cast<int>(std::min<std::uint32_t>(level, LOG_DEBUG)), "%s", text.c_str());
    }

  private:
    std::string identity_;  // the C library keeps a pointer into it
};

}  // namespace Orvik::Log
