// SPDX-License-Identifier: MIT
#pragma once

#include "orvik/datasource/detail/log_locations.hpp"
#include "orvik/log/record.hpp"
#include "orvik/pushinterface/client.hpp"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <string>
#include <utility>

#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/system/error_code.hpp>

namespace Orvik::DataSource::Detail {

/// The fixed numbers of every run; delays in milliseconds. Tests shorten them.
struct Settings {
    static constexpr std::uint8_t unlimited = 255;

    std::uint8_t maxConnectRetries = unlimited;
    std::uint8_t maxPullsPerConnection = unlimited;  ///< pulls before a planned reconnect
    std::uint32_t reconnectDelay = 10000;            ///< after a failed connect
    std::uint32_t verifyFailDelay = 15000;           ///< after tags that cannot be read
    std::uint32_t keepAliveInterval = 1000;  ///< longest wait between two calls of the handler
    std::uint32_t minTimerDelay = 25;        ///< shorter delays are not timed
};

/**
 * One run: connects, verifies the tags, pulls and pauses, over and over, until it is stopped.
 *
 * Each step posts the next one to the run's own event loop; the run ends when a step posts nothing
 * and no timer is pending. All but `stop` belongs to the worker thread.
 *
 *     doConnect ─▶ doVerifyTags ─▶ doPullData ⇄ doPullDelay ⇄ doPullDelayKeepAlive
 *         ▲              │              │                            │
 *         └── delay ─────┴─ doDisconnect┴────────────────────────────┘   after a failure
 */
template <typename ProtocolHandler, typename Device, typename PushInterfaceClient>
class Client {
  public:
    /// None of the pointers may be null.
    Client(const Settings& settings, std::shared_ptr<ProtocolHandler> handler,
           std::shared_ptr<Device> device, std::shared_ptr<PushInterfaceClient> client)
        : settings_{settings},
          pullDelay_{device->pullDelay},
          handler_{std::move(handler)},
          device_{std::move(device)},
          client_{std::move(client)} {}

    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    /// Body of the worker thread: the run, started over when a handler has thrown. A device must
    /// not fall silent, nor the process die, for one exception.
    void work() {
        for (;;) {
            try {
                run();
                return;
            } catch (const std::exception& exception) {
                recover(exception.what());
            } catch (...) {
                recover("Unknown exception in the data source");
            }
            if (stopRequested_) {
                return;
            }
        }
    }

    void run() {
        Log::Record{Log::garrul, LogLocations::runStart} << "run() start";
        connectRetriesLeft_ = settings_.maxConnectRetries;
        handler_->init();
        post([this] { doConnect(); });
        runLoop();
        handler_->deinit();
        Log::Record{Log::garrul, LogLocations::runStop} << "run() stop";
    }

    /// Asks the run to end, also one that has not begun. May be called from any thread, any time.
    void stop() {
        Log::Record{Log::garrul, LogLocations::stop} << "stop()";
        stopRequested_ = true;
        boost::asio::post(loop_, [this] { timer_.cancel(); });
    }

  private:
    using Step = std::function<void()>;

    // What may follow a step

    /// One step, at once.
    struct Next {
        Step step;
    };
    /// Disconnect at once, connect after a delay.
    struct Reconnect {
        std::uint32_t delay;
    };
    /// Connect after a delay; there is nothing to disconnect.
    struct ConnectAgain {
        std::uint32_t delay;
    };

    void follow(const Next& next) { post(next.step); }

    void follow(const Reconnect& reconnect) {
        post([this] { doDisconnect(); });
        postDelay(reconnect.delay, [this] { doConnect(); });
    }

    void follow(const ConnectAgain& again) {
        postDelay(again.delay, [this] { doConnect(); });
    }

    /// The decision after each call of the handler. @param result empty, or the failure
    template <typename OnSuccess, typename OnFailure>
    void step(const std::string& result, const OnSuccess& onSuccess, const OnFailure& onFailure) {
        Log::Record{Log::garrul, LogLocations::step} << "step(\"" << result << "\")";
        if (stopRequested_) {
            disconnectIfConnected();
        } else if (result.empty()) {
            follow(onSuccess);
        } else {
            report(result);
            if (connectRetriesLeft_ != 0) {
                follow(onFailure);
            } else {
                disconnectIfConnected();
            }
        }
    }

    // The steps

    void doConnect() {
        Log::Record{Log::garrul, LogLocations::connect} << "doConnect()";
        if (stopRequested_) {
            return;  // not connected, and a dead device could hold up the stop for seconds
        }
        countDown(connectRetriesLeft_);
        pullsLeft_ = settings_.maxPullsPerConnection;
        const auto result = handler_->connect(*device_);
        connected_ = result.empty();
        step(result, Next{[this] { doVerifyTags(); }}, ConnectAgain{settings_.reconnectDelay});
    }

    void doVerifyTags() {
        Log::Record{Log::garrul, LogLocations::verifyTags} << "doVerifyTags()";
        const auto result = handler_->verifyTags(*device_);
        step(result, Next{[this] { doPullData(); }}, Reconnect{settings_.verifyFailDelay});
    }

    void doPullData() {
        Log::Record{Log::garrul, LogLocations::pullData} << "doPullData()";
        const auto result = handler_->pullData(*device_, *client_);
        if (result.empty()) {
            PushInterface::pushErrorMessage(*client_, {});
        }
        countDown(pullsLeft_);
        if (pullsLeft_ != 0) {
            step(result, Next{afterPull()}, Reconnect{0});
        } else if (connectRetriesLeft_ != 0) {
            step(result, Reconnect{0}, Reconnect{0});
        } else {
            step(result, Next{[this] { doDisconnect(); }}, Reconnect{0});
        }
    }

    [[nodiscard]] Step afterPull() {
        if (pullDelay_ == 0) {
            return [this] { doPullData(); };
        }
        return [this] { doPullDelay(pullDelay_); };
    }

    /// Waits so that the handler is called once per interval, and the last wait is not a short one.
    void doPullDelay(std::uint32_t remaining) {
        Log::Record{Log::garrul, LogLocations::pullDelay} << "doPullDelay(" << remaining << ")";
        if (remaining <= settings_.keepAliveInterval) {
            postDelay(remaining, [this] { doPullData(); });
            return;
        }
        const auto interval = settings_.keepAliveInterval;
        const auto wait = remaining <= 2 * interval ? remaining / 2 : interval;
        postDelay(wait, [this, rest = remaining - wait] { doPullDelayKeepAlive(rest); });
    }

    void doPullDelayKeepAlive(std::uint32_t remaining) {
        Log::Record{Log::garrul, LogLocations::pullDelayKeepAlive} << "doPullDelayKeepAlive("
                                                                   << remaining << ")";
        const auto result = handler_->keepAlive(*device_);
        step(result, Next{[this, remaining] { doPullDelay(remaining); }}, Reconnect{0});
    }

    void doDisconnect() {
        Log::Record{Log::garrul, LogLocations::disconnect} << "doDisconnect()";
        handler_->disconnect(*device_);
        connected_ = false;
    }

    // Posting

    void post(Step next) {
        boost::asio::post(loop_, [this, next = std::move(next)] {
            if (!discarding_) {
                next();
            }
        });
    }

    void postDelay(std::uint32_t delay, Step next) {
        if (delay < settings_.minTimerDelay) {
            post(std::move(next));
            return;
        }
        timer_.expires_after(std::chrono::milliseconds{delay});
        timer_.async_wait(
            [this, next = std::move(next)](const boost::system::error_code& error) mutable {
                postDelayTimerHandler(error, std::move(next));
            });
        if (stopRequested_) {
            timer_.cancel();  // the stop's own cancellation may have come before the timer was set
        }
    }

    void postDelayTimerHandler(const boost::system::error_code& error, Step next) {
        if (discarding_) {
            return;
        }
        if (error) {
            Log::Record{Log::garrul, LogLocations::timerCancelled}
                << "postDelayTimerHandler(cancelled, ...)";
            disconnectIfConnected();
        } else {
            Log::Record{Log::garrul, LogLocations::timerExpired}
                << "postDelayTimerHandler(expired, ...)";
            post(std::move(next));
        }
    }

    void disconnectIfConnected() {
        if (connected_) {
            post([this] { doDisconnect(); });
        }
    }

    void runLoop() {
        loop_.restart();
        loop_.run();
    }

    // Failures

    void report(const std::string& error) {
        PushInterface::pushErrorMessage(*client_, error);
        Log::Record{Log::err} << error;
    }

    /// After an exception: drops what is pending, disconnects, ends the run, waits.
    void recover(const std::string& error) {
        report(error);
        discardPending();
        if (connected_) {
            contain([this] { handler_->disconnect(*device_); });
            connected_ = false;
        }
        contain([this] { handler_->deinit(); });
        postDelay(settings_.reconnectDelay, [] {});
        runLoop();
    }

    void discardPending() {
        discarding_ = true;
        timer_.cancel();
        runLoop();
        discarding_ = false;
    }

    template <typename Call>
    static void contain(const Call& call) {
        try {
            call();
        } catch (const std::exception& exception) {
            Log::Record{Log::err} << exception.what();
        } catch (...) {
            Log::Record{Log::err} << "Unknown exception in the data source";
        }
    }

    /// Neither the mark for no limit nor a limit that is used up counts down.
    static void countDown(std::uint8_t& counter) noexcept {
        if (counter != 0 && counter != Settings::unlimited) {
            --counter;
        }
    }

    const Settings settings_;
    const std::uint32_t pullDelay_;  // milliseconds
    std::shared_ptr<ProtocolHandler> handler_;
    std::shared_ptr<Device> device_;
    std::shared_ptr<PushInterfaceClient> client_;
    bool connected_ = false;
    std::atomic<bool> stopRequested_ = false;
    std::uint8_t connectRetriesLeft_ = Settings::unlimited;
    std::uint8_t pullsLeft_ = Settings::unlimited;
    bool discarding_ = false;          // an exception made what is pending void
    boost::asio::io_context loop_{1};  // run by one thread
    boost::asio::steady_timer timer_{loop_};
};

}  // namespace Orvik::DataSource::Detail
