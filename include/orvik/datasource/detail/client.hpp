// SPDX-License-Identifier: MIT
#pragma once

#include "orvik/datasource/detail/log_locations.hpp"
#include "orvik/datasource/detail/settings.hpp"
#include "orvik/log/record.hpp"
#include "orvik/pushinterface/client.hpp"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/system/error_code.hpp>

namespace Orvik::DataSource::Detail {

/**
 * One run: connects, verifies the tags, then pulls and pauses repeatedly, until it is stopped.
 *
 * Each step posts the next one to the run's own event loop; the run ends when a step posts nothing
 * and no timer is pending. Everything but `stop` runs on the worker thread.
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

    /// Body of the worker thread: the run, restarted when a handler has thrown. One exception must
    /// neither silence a device nor end the process.
    void work() {
        while (const auto error = exceptionOf([this] { run(); })) {
            recover(*error);
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

    /// What follows a step: a disconnect at once, where it is needed, and a step after a delay.
    struct Continuation {
        Step step;
        std::uint32_t delay = 0;
        bool disconnectsFirst = false;
    };

    [[nodiscard]] Continuation reconnectAfter(std::uint32_t delay) {
        return {.step = [this] { doConnect(); }, .delay = delay, .disconnectsFirst = true};
    }

    void follow(const Continuation& next) {
        if (next.disconnectsFirst) {
            post([this] { doDisconnect(); });
        }
        postDelay(next.delay, next.step);
    }

    /// Decides what follows each call of the handler. @param result empty, or the failure
    void step(const std::string& result, const Continuation& onSuccess,
              const Continuation& onFailure) {
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
            return;  // not connected; connecting could delay the stop for seconds
        }
        countDown(connectRetriesLeft_);
        pullsLeft_ = settings_.maxPullsPerConnection;
        const auto result = handler_->connect(*device_);
        connected_ = result.empty();
        step(result, {[this] { doVerifyTags(); }},
             {[this] { doConnect(); }, settings_.reconnectDelay});
    }

    void doVerifyTags() {
        Log::Record{Log::garrul, LogLocations::verifyTags} << "doVerifyTags()";
        const auto result = handler_->verifyTags(*device_);
        step(result, {[this] { doPullData(); }}, reconnectAfter(settings_.verifyFailDelay));
    }

    void doPullData() {
        Log::Record{Log::garrul, LogLocations::pullData} << "doPullData()";
        const auto result = handler_->pullData(*device_, *client_);
        if (result.empty()) {
            PushInterface::pushErrorMessage(*client_, {});
        }
        countDown(pullsLeft_);
        if (pullsLeft_ != 0 && pullDelay_ != 0) {
            step(result, {[this] { doPullDelay(pullDelay_); }}, reconnectAfter(0));
        } else if (pullsLeft_ != 0) {
            step(result, {[this] { doPullData(); }}, reconnectAfter(0));
        } else if (connectRetriesLeft_ != 0) {
            step(result, reconnectAfter(0), reconnectAfter(0));
        } else {
            step(result, {[this] { doDisconnect(); }}, reconnectAfter(0));
        }
    }

    /// Waits so that the handler is called at least once per interval; splits the remainder in two,
    /// so that no wait is very short.
    void doPullDelay(std::uint32_t remaining) {
        Log::Record{Log::garrul, LogLocations::pullDelay} << "doPullDelay("
                                                          << std::to_string(remaining) << ")";
        if (remaining <= settings_.keepAliveInterval) {
            postDelay(remaining, [this] { doPullData(); });
            return;
        }
        const auto interval = settings_.keepAliveInterval;
        const auto wait = remaining <= 2 * interval ? remaining / 2 : interval;
        postDelay(wait, [this, rest = remaining - wait] { doPullDelayKeepAlive(rest); });
    }

    void doPullDelayKeepAlive(std::uint32_t remaining) {
        Log::Record{Log::garrul, LogLocations::pullDelayKeepAlive}
            << "doPullDelayKeepAlive(" << std::to_string(remaining) << ")";
        const auto result = handler_->keepAlive(*device_);
        step(result, {[this, remaining] { doPullDelay(remaining); }}, reconnectAfter(0));
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
        timer_.async_wait([this, next = std::move(next)](const boost::system::error_code& error) {
            postDelayTimerHandler(error, next);
        });
        if (stopRequested_) {
            timer_.cancel();  // the stop's own cancellation may have come before the timer was set
        }
    }

    void postDelayTimerHandler(const boost::system::error_code& error, const Step& next) {
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
            post(next);
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

    template <typename Call>
    [[nodiscard]] static std::optional<std::string> exceptionOf(const Call& call) {
        try {
            call();
            return {};
        } catch (const std::exception& exception) {
            return exception.what();
        } catch (...) {
            return "Unknown exception in the data source";
        }
    }

    /// After an exception: drops pending steps, disconnects, ends the run, waits.
    void recover(const std::string& error) {
        report(error);
        discardPending();
        if (connected_) {
            connected_ = false;
            logExceptionOf([this] { handler_->disconnect(*device_); });
        }
        logExceptionOf([this] { handler_->deinit(); });
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
    static void logExceptionOf(const Call& call) {
        if (const auto error = exceptionOf(call)) {
            Log::Record{Log::err} << *error;
        }
    }

    /// `unlimited` and 0 stay as they are.
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
    bool discarding_ = false;  // set while steps left over from an exception are thrown away
    boost::asio::io_context loop_{1};  // run by one thread
    boost::asio::steady_timer timer_{loop_};
};

}  // namespace Orvik::DataSource::Detail
