// SPDX-License-Identifier: MIT
#pragma once

#include "steward-simulator/batch_decoder.hpp"
#include "steward-simulator/description_file.hpp"
#include "steward-simulator/options.hpp"
#include "steward-simulator/statistics.hpp"
#include "steward-simulator/view.hpp"

#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <boost/asio/ip/tcp.hpp>
#include <boost/system/error_code.hpp>

namespace StewardSimulator {

/// What the connections have in common; outlives them.
struct Service {
    const Options& options;
    Statistics& statistics;
    View& view;
    std::function<const DescriptionFile*()> description;  ///< null if there is none
    std::function<void()> onBatchCounted;
};

/**
 * One connection from a device daemon: greets, answers, and passes what arrives to the view.
 *
 * Each pending operation holds a shared pointer to the session; closing the socket ends them.
 */
class Session final : public std::enable_shared_from_this<Session>, private DeviceHandler {
  public:
    Session(boost::asio::ip::tcp::socket socket, const Service& service, std::string name);

    void start();
    /// Sends a line as it is; if it is a description, batches are checked against it from then on.
    void send(std::string_view line);
    void sendDescription();
    void close(std::string_view reason);

    [[nodiscard]] bool isOpen() const { return socket_.is_open(); }
    [[nodiscard]] bool isLoggedOn() const noexcept { return isLoggedOn_; }

  private:
    void read();
    void onRead(const boost::system::error_code& error, std::size_t length);
    void write();
    void onWritten(const boost::system::error_code& error);
    void queue(std::string line);
    void adoptDescription(std::string_view json, std::string_view refusal);
    [[nodiscard]] std::string refusal(std::string_view identity) const;
    void showEvent(std::string_view text) const;

    void onDevc(std::string_view identity) override;
    void onInfoRequest() override;
    void onExit() override;
    void onNamedValue(std::string_view name, std::string_view value) override;
    void onBatch(const Batch& batch) override;
    void onFault(const Fault& fault) override;
    [[nodiscard]] bool isDone() const override { return !isOpen(); }

    boost::asio::ip::tcp::socket socket_;
    const Service& service_;
    const std::string name_;
    BatchDecoder decoder_;
    std::vector<char> input_;
    std::deque<std::string> output_;  ///< lines to write; the first is being written
    bool isLoggedOn_ = false;
};

}  // namespace StewardSimulator
