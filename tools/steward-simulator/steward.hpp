// SPDX-License-Identifier: MIT
#pragma once

#include "steward-simulator/command_input.hpp"
#include "steward-simulator/description_file.hpp"
#include "steward-simulator/options.hpp"
#include "steward-simulator/output.hpp"
#include "steward-simulator/session.hpp"
#include "steward-simulator/statistics.hpp"
#include "steward-simulator/view.hpp"

#include <fstream>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/signal_set.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/system/error_code.hpp>

namespace StewardSimulator {

/// The whole simulator on one event loop and one thread.
class Steward {
  public:
    /// @throws std::exception if the port or a file cannot be opened
    explicit Steward(const Options& options);

    /// Serves until the end that the options give, a signal or a command. @return the exit status
    [[nodiscard]] int run();

  private:
    [[nodiscard]] std::unique_ptr<View> makeView();
    void openFiles();
    void accept();
    void onAccepted(const boost::system::error_code& error, boost::asio::ip::tcp::socket socket);
    void onCommand(std::string_view line);
    void showFindings();
    void onDescriptionChange(const std::string& error);
    void onBatchCounted();
    void sendToAll(std::string_view line);
    void closeAll(std::string_view reason);
    [[nodiscard]] std::vector<std::shared_ptr<Session>> openSessions() const;
    void stop();

    const Options options_;
    boost::asio::io_context context_;  // one thread; outlives everything that uses it
    Statistics statistics_;
    boost::asio::ip::tcp::acceptor acceptor_;
    const std::string address_;
    boost::asio::signal_set signals_;
    boost::asio::steady_timer end_;
    boost::asio::steady_timer acceptDelay_;
    Output output_;
    CommandInput input_;
    DescriptionFile description_;
    const std::unique_ptr<View> view_;
    const Service service_;
    std::vector<std::weak_ptr<Session>> sessions_;
    std::ofstream report_;
    bool isStopping_ = false;
};

}  // namespace StewardSimulator
