// SPDX-License-Identifier: MIT
#pragma once

#include "orvik/log/sink.hpp"

#include <iomanip>
#include <iostream>
#include <ostream>

#include <boost/io/ios_state.hpp>
#include <boost/thread/lock_guard.hpp>
#include <boost/thread/mutex.hpp>
#include <boost/thread/thread.hpp>

namespace Orvik::Log {

/// Writes each record as one line "[  name] thread message" and flushes. Lines never interleave.
class SinkOstream : public Sink {
  public:
    /// @param stream not owned; must outlive the sink
    SinkOstream(std::int32_t level, std::ostream& stream) noexcept
        : Sink{level}, stream_{&stream} {}

    void write(std::uint32_t level, const std::string& message) override {
        const boost::lock_guard<boost::mutex> lock{mutex_};
        const boost::io::ios_flags_saver restoreFlags{*stream_};
        *stream_ << std::right << '[' << std::setw(6) << levelName(level) << "] " << std::hex
                 << std::setw(4) << boost::this_thread::get_id() << ' ' << message << std::endl;
    }

  private:
    std::ostream* stream_;
    boost::mutex mutex_;
};

/// Writes to the standard output.
class SinkCout final : public SinkOstream {
  public:
    explicit SinkCout(std::int32_t level) noexcept : SinkOstream{level, std::cout} {}
};

}  // namespace Orvik::Log
