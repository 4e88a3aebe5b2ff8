// SPDX-License-Identifier: MIT
#pragma once

#include "orvik/datasource/detail/client.hpp"
#include "orvik/datasource/protocol_handler.hpp"
#include "orvik/pushinterface/client.hpp"

#include <concepts>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

#include <boost/thread/lock_guard.hpp>
#include <boost/thread/recursive_mutex.hpp>
#include <boost/thread/thread.hpp>

namespace Orvik::DataSource {

/// A handler that implements the protocol interface for its own device and tag.
template <typename T>
concept FieldProtocol =
    std::derived_from<T, ProtocolHandler<typename T::DeviceType, typename T::TagOfDevice>>;

/**
 * Pulls one device at a time on a worker thread of its own.
 *
 * `start` and `stop` may be called from any thread but the worker; they are serialised, and both
 * wait for a running worker to end, at most for a call of its handler that is in progress.
 */
template <FieldProtocol Handler, std::derived_from<PushInterface::Client> PushInterfaceClient>
class Client {
  public:
    using Device = typename Handler::DeviceType;

    explicit Client(const Detail::Settings& settings = {}) : settings_{settings} {}
    ~Client() { stop(); }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    /// Replaces the running worker, which has ended when the new one starts.
    /// @throws std::domain_error if a pointer is null; nothing has been done then
    /// @throws boost::system::system_error, std::bad_alloc if the system lacks what a worker needs;
    /// none is running then
    void start(const std::shared_ptr<Handler>& handler, const std::shared_ptr<Device>& device,
               const std::shared_ptr<PushInterfaceClient>& client) {
        requirePointer(handler, "handler");
        requirePointer(device, "device");
        requirePointer(client, "client");
        const boost::lock_guard<boost::recursive_mutex> lock{mutex_};
        stop();
        const auto run = std::make_shared<Run>(settings_, handler, device, client);
        // Keeps the run alive, so that a run that has ended by itself can still be stopped
        std::function<void()> stopRun = [run] { run->stop(); };
        worker_ = std::make_shared<boost::thread>([run] { run->work(); });
        stopRun_ = std::move(stopRun);
    }

    /// Returns when the worker has ended; does nothing when there is none.
    void stop() {
        const boost::lock_guard<boost::recursive_mutex> lock{mutex_};
        if (worker_) {
            stopRun_();
            worker_->join();
            worker_.reset();
            stopRun_ = nullptr;
        }
    }

  private:
    using Run = Detail::Client<Handler, Device, PushInterfaceClient>;

    template <typename T>
    static void requirePointer(const std::shared_ptr<T>& pointer, const std::string& name) {
        if (!pointer) {
            throw std::domain_error{"Orvik::DataSource::Client::start: " + name +
                                    " must be a valid pointer"};
        }
    }

    const Detail::Settings settings_;
    boost::recursive_mutex mutex_;  // recursive, because `start` stops under the same lock
    std::shared_ptr<boost::thread> worker_;
    std::function<void()> stopRun_;
};

}  // namespace Orvik::DataSource
