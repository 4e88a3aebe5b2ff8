// SPDX-License-Identifier: MIT
#pragma once

#include <utility>

#include <boost/asio/bind_executor.hpp>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/strand.hpp>

namespace Orvik::PushInterface::Detail {

/// The loop of the client thread. All work runs on its strand, in order, so that nothing is locked.
class EventLoop {
  public:
    using Strand = boost::asio::strand<boost::asio::io_context::executor_type>;
    using WorkGuard = boost::asio::executor_work_guard<boost::asio::io_context::executor_type>;

    /// Returns as soon as nothing is pending.
    void run() { loop_.run(); }

    /// Queues work. May be called from any thread.
    template <typename Work>
    void post(Work&& work) {
        // Posted to the loop, which counts it at once as pending. Posted to the strand first, it
        // would not be counted for a moment, in which `run` could end
        boost::asio::post(loop_, boost::asio::bind_executor(strand_, std::forward<Work>(work)));
    }

    [[nodiscard]] const Strand& strand() const noexcept { return strand_; }

    /// Keeps `run` from returning for as long as the guard lives.
    [[nodiscard]] WorkGuard guard() { return WorkGuard{loop_.get_executor()}; }

  private:
    boost::asio::io_context loop_{1};  // run by one thread
    Strand strand_{loop_.get_executor()};
};

}  // namespace Orvik::PushInterface::Detail
