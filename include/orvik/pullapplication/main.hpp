// SPDX-License-Identifier: MIT
#pragma once

#include "orvik/datasource/client.hpp"
#include "orvik/log/record.hpp"
#include "orvik/log/sink_syslog.hpp"
#include "orvik/pullapplication/command_line.hpp"
#include "orvik/pullapplication/detail/log_locations.hpp"
#include "orvik/pushinterface/client.hpp"
#include "orvik/pushinterface/client_handler.hpp"

#include <chrono>
#include <concepts>
#include <csignal>
#include <cstdint>
#include <exception>
#include <iostream>
#include <memory>
#include <string>
#include <utility>

#include <unistd.h>

#include <boost/asio/io_context.hpp>
#include <boost/asio/signal_set.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/system/error_code.hpp>
#include <boost/thread/lock_guard.hpp>
#include <boost/thread/mutex.hpp>
#include <boost/thread/thread.hpp>

namespace Orvik::PullApplication {

/// Turns a device description into a device; returns the first problem as text, empty if none.
template <typename Parser, typename Device>
concept DescriptionParser = requires(const std::string& info, std::shared_ptr<Device> device) {
    { Parser::parse(info, device) } -> std::same_as<std::string>;
};

/// The connection to the push interface, as the application drives it.
template <typename Client>
concept PushClient = std::constructible_from<Client, PushInterface::ClientHandler*> &&
    requires(Client client, const std::string& text, std::uint32_t port) {
    client.setDevice(text, text);
    client.connect(text, port, 10);  // reconnect delay in seconds
    client.disconnect();
    client.run();  // the client thread's body
};

/**
 * The application: reads the command line, runs the push interface client on a thread of its own,
 * starts a data source for each device description, and shuts down in order on SIGINT or SIGTERM.
 *
 * The handler operations run on the client thread. `onInfo` and `onDisconnected` block it while a
 * data source is joined, which never waits for that thread.
 */
template <typename ProtocolHandler, typename InfoParser, typename PushInterfaceClient>
requires DescriptionParser<InfoParser, typename ProtocolHandler::DeviceType> &&
    PushClient<PushInterfaceClient>
class Main final : public PushInterface::ClientHandler {
  public:
    using Device = typename ProtocolHandler::DeviceType;

    /// @param startRetryDelay wait after a data source could not be started
    explicit Main(std::chrono::nanoseconds startRetryDelay = std::chrono::seconds{10})
        : client_{std::make_shared<PushInterfaceClient>(this)}, startRetryDelay_{startRetryDelay} {}

    /// The whole life of the daemon. @return the exit status
    int run(int argc, char** argv, const std::string& protocolName, const std::string& version,
            const std::string& notice) {
        auto settings = parseCommandLine(argc, argv, std::cerr);
        if (settings.showVersion) {
            printVersion({protocolName, version, notice}, std::cout);
            return 1;
        }
        reportMissingArgument(settings, argv[0], std::cerr);
        if (settings.showUsage) {
            printUsage(argv[0], std::cout);
            return 1;
        }
        serve(settings);
        return 0;
    }

    void onConnected() override { Log::Record{Log::info} << "Connected to push interface"; }

    void onReconnecting(const std::string& reason) override {
        Log::Record{Log::info} << "Reconnecting (reason: " << reason << ")";
    }

    void onDisconnected() override {
        Log::Record{Log::notice} << "Disconnected from push interface";
        setWaiting(nullptr);
        source_.stop();
    }

    void onRead(const std::string& line) override {
        Log::Record{Log::garrul, Detail::LogLocations::lineRead} << "PI R: " << line;
    }

    void onWrite(const std::string& line) override {
        Log::Record{Log::garrul, Detail::LogLocations::lineWritten} << "PI W: " << line;
    }

    void onClientError(const std::string& message) override {
        Log::Record{Log::err} << "Received error from push interface client: " << message;
    }

    void onHelo(const std::string& text, bool& /*sendDevc*/) override {
        Log::Record{Log::info} << "Push interface server: " << text;
    }

    void onDevc(bool /*accepted*/, bool& /*requestInfo*/) override {}

    /// Replaces the running data source. A refused description ends the process, in order.
    void onInfo(const std::string& info) override {
        const auto device = std::make_shared<Device>();
        if (const auto error = InfoParser::parse(info, device); !error.empty()) {
            refuse(info, error);
            return;
        }
        setWaiting(device);
        source_.stop();  // without the lock, which the shutdown needs: this may take seconds
        start(device);
    }

    void onIfch(bool& /*requestInfo*/) override {}
    void onIfch(const std::string& /*argument*/, bool& /*requestInfo*/) override {}
    void onRtch(bool /*on*/) override {}

    void onEror(const std::string& message) override { logServerError(message); }
    void onTgnf(const std::string& argument) override {
        logServerError("Tag not found: " + argument);
    }
    void onInvl(const std::string& argument) override {
        logServerError("Invalid value: " + argument);
    }
    void onToof(const std::string& argument) override {
        logServerError("Posting too often: " + argument);
    }

  private:
    static constexpr int reconnectDelay = 10;  // seconds

    static void logServerError(const std::string& text) {
        Log::Record{Log::err} << "Received error from push interface: " << text;
    }

    void serve(const Settings& settings) {
        moveLogToSyslog(settings.deviceId);
        // A reader of the standard output that exits must not end the process
        std::signal(SIGPIPE, SIG_IGN);
        boost::thread clientThread;  // declared first, so that it is destroyed after the loop
        boost::asio::io_context loop;
        // Before the client thread exists: a refused description cancels this wait
        awaitSignal(loop);
        client_->setDevice(settings.deviceId, settings.deviceKey);
        client_->connect(settings.stewardHost, settings.stewardPort, reconnectDelay);
        clientThread = boost::thread{[client = client_] { client->run(); }};

        Log::Record{Log::debug, Detail::LogLocations::waitingForSignal} << "Waiting for signal";
        loop.run();
        Log::Record{Log::debug, Detail::LogLocations::caughtSignal} << "Caught signal";

        const auto released = releaseSignals();
        source_.stop();
        client_->disconnect();
        clientThread.join();
    }

    static void moveLogToSyslog(const std::string& deviceId) {
        auto& sink = Log::sink();
        sink = std::make_unique<Log::SinkSyslog>(sink->level(), "pullapp[" + deviceId + "]");
    }

    // Signals

    void awaitSignal(boost::asio::io_context& loop) {
        const boost::lock_guard<boost::mutex> lock{mutex_};
        signals_ = std::make_shared<boost::asio::signal_set>(loop, SIGINT, SIGTERM);
        signals_->async_wait([&loop](const boost::system::error_code&, int) { loop.stop(); });
        sigset_t both;
        sigemptyset(&both);
        sigaddset(&both, SIGINT);
        sigaddset(&both, SIGTERM);
        pthread_sigmask(SIG_UNBLOCK, &both, nullptr);  // the parent may have blocked them
    }

    /// From here on the next signal ends the process at once, whatever the shutdown waits for.
    /// @return to be kept until the end: its destruction restores the default actions
    [[nodiscard]] std::shared_ptr<boost::asio::signal_set> releaseSignals() {
        const boost::lock_guard<boost::mutex> lock{mutex_};
        // Not the default action: process 1 of a container has none
        for (const int signal : {SIGINT, SIGTERM}) {
            std::signal(signal, [](int number) { ::_exit(128 + number); });
        }
        return std::exchange(signals_, nullptr);
    }

    /// @return false once the shutdown has begun; call with the lock held
    [[nodiscard]] bool isServing() const noexcept { return signals_ != nullptr; }

    // Descriptions

    void refuse(const std::string& info, const std::string& error) {
        Log::Record{Log::err} << "Received invalid info: " << error;
        Log::Record{Log::info} << "Info was: " << info;
        client_->disconnect();
        const boost::lock_guard<boost::mutex> lock{mutex_};
        if (isServing()) {
            signals_->cancel();
        }
    }

    void setWaiting(const std::shared_ptr<Device>& device) {
        const boost::lock_guard<boost::mutex> lock{mutex_};
        waiting_ = device;
    }

    /// Starts the data source, unless the device is no longer the one to start. None is running.
    void start(const std::shared_ptr<Device>& device) {
        const boost::lock_guard<boost::mutex> lock{mutex_};
        if (!isServing() || device != waiting_) {
            return;
        }
        try {
            source_.start(std::make_shared<ProtocolHandler>(), device, client_);
            waiting_.reset();
        } catch (const std::exception& exception) {
            startLater(device, exception.what());
        }
    }

    /// There was no thread or no descriptor for the worker. If there is not even the memory to try
    /// again, the process ends, and its service manager restarts it: hence noexcept.
    void startLater(const std::shared_ptr<Device>& device, const char* error) noexcept {
        onClientError(std::string{"Exception during ClientHandler::onInfo: "} + error);
        PushInterface::pushErrorMessage(*client_, error);
        // On the main thread, whose loop ends before `source_` is stopped
        const auto timer = std::make_shared<boost::asio::steady_timer>(signals_->get_executor());
        timer->expires_after(startRetryDelay_);
        timer->async_wait(
            [this, timer, device](const boost::system::error_code& /*none*/) { start(device); });
    }

    std::shared_ptr<PushInterfaceClient> client_;
    boost::mutex mutex_;  // the main and the client thread share the next two
    std::shared_ptr<boost::asio::signal_set> signals_;
    std::shared_ptr<Device> waiting_;  // accepted, but its data source has not started yet
    const std::chrono::nanoseconds startRetryDelay_;
    DataSource::Client<ProtocolHandler, PushInterfaceClient> source_;
};

}  // namespace Orvik::PullApplication
