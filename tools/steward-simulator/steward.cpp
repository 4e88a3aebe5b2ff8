// SPDX-License-Identifier: MIT
#include "steward-simulator/steward.hpp"

#include "common/file.hpp"
#include "steward-simulator/lines_view.hpp"
#include "steward-simulator/table_view.hpp"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <iostream>
#include <span>
#include <sstream>
#include <stdexcept>
#include <utility>

#include <fmt/format.h>

namespace StewardSimulator {
namespace {

using boost::asio::ip::tcp;

constexpr std::chrono::milliseconds acceptRetryDelay{100};
constexpr std::string_view notePrefix = ".note ";

std::string textOf(const tcp::endpoint& endpoint) {
    std::ostringstream text;
    text << endpoint;
    return std::move(text).str();
}

tcp::acceptor listenOn(boost::asio::io_context& context, const tcp::endpoint& endpoint) {
    try {
        return tcp::acceptor{context, endpoint};
    } catch (const boost::system::system_error& error) {
        throw std::runtime_error("cannot listen on " + textOf(endpoint) + ": " +
                                 error.code().message());
    }
}

std::ofstream openForWriting(const std::string& path) {
    std::ofstream file{path};
    if (!file) {
        throw std::runtime_error("cannot write " + path);
    }
    return file;
}

}  // namespace

Steward::Steward(const Options& options)
    : options_{options},
      context_{1},
      acceptor_{listenOn(context_, options_.listen)},
      address_{textOf(acceptor_.local_endpoint())},
      signals_{context_, SIGINT, SIGTERM, SIGHUP},
      end_{context_},
      acceptDelay_{context_},
      output_{context_},
      input_{context_, [this](std::string_view line) { onCommand(line); }},
      description_{context_, options_.description,
                   [this](const std::string& error) { onDescriptionChange(error); }},
      view_{makeView()},
      service_{
          .options = options_,
          .statistics = statistics_,
          .view = *view_,
          .description = [this] { return options_.description.empty() ? nullptr : &description_; },
          .onBatchCounted = [this] { onBatchCounted(); }} {
    openFiles();
}

std::unique_ptr<View> Steward::makeView() {
    switch (options_.view) {
        case ViewKind::Table:
            return std::make_unique<TableView>(context_, output_,
                                               "steward-simulator on " + address_, statistics_);
        case ViewKind::Lines:
            return std::make_unique<LinesView>(output_);
        case ViewKind::None:
            break;
    }
    return std::make_unique<View>();
}

void Steward::openFiles() {
    if (!options_.description.empty()) {
        if (const auto error = description_.load(); !error.empty()) {
            throw std::runtime_error(error);
        }
        description_.watch();
    }
    if (!options_.report.empty()) {
        report_ = openForWriting(options_.report);
    }
    if (!options_.portFile.empty()) {
        Tools::writeFile(options_.portFile,
                         std::to_string(acceptor_.local_endpoint().port()) + '\n');
    }
}

int Steward::run() {
    output_.write("listening on " + address_ + "\n");
    view_->start();
    showFindings();
    accept();
    input_.read();
    signals_.async_wait([this](const boost::system::error_code&, int) { stop(); });
    if (options_.seconds) {
        end_.expires_after(std::chrono::duration_cast<std::chrono::steady_clock::duration>(
            std::chrono::duration<double>{*options_.seconds}));
        end_.async_wait([this](const boost::system::error_code&) { stop(); });
    }
    context_.run();
    const bool isComplete = statistics_.batches() >= options_.batches;
    return statistics_.malformed() == 0 && isComplete ? 0 : 1;
}

void Steward::accept() {
    acceptor_.async_accept([this](const boost::system::error_code& error, tcp::socket socket) {
        onAccepted(error, std::move(socket));
    });
}

void Steward::onAccepted(const boost::system::error_code& error, tcp::socket socket) {
    if (isStopping_) {
        return;
    }
    if (error) {  // such as too many open files: an immediate retry would keep the processor busy
        view_->onEvent("cannot accept a connection: " + error.message());
        acceptDelay_.expires_after(acceptRetryDelay);
        acceptDelay_.async_wait([this](const boost::system::error_code&) { accept(); });
        return;
    }
    boost::system::error_code gone;
    const auto name = textOf(socket.remote_endpoint(gone));
    std::erase_if(sessions_, [](const auto& session) { return session.expired(); });
    const auto session = std::make_shared<Session>(std::move(socket), service_, name);
    sessions_.push_back(session);
    session->start();
    accept();
}

void Steward::onCommand(std::string_view line) {
    if (line.starts_with("..")) {
        sendToAll(line.substr(1));
    } else if (!line.starts_with('.')) {
        sendToAll(line);
    } else if (line == ".info") {
        for (const auto& session : openSessions()) {
            session->sendDescription();
        }
    } else if (line == ".drop") {
        closeAll("dropped");
    } else if (line == ".page") {
        view_->turnPage();
    } else if (line == ".quit") {
        stop();
    } else if (line.starts_with(notePrefix)) {
        view_->onEvent(line.substr(notePrefix.size()));
    } else {
        view_->onEvent("unknown command " + std::string{line} +
                       ": use .info .drop .page .note .quit");
    }
}

void Steward::showFindings() {
    constexpr std::ptrdiff_t mostShown = 20;
    const auto& [problems, refusal] = description_.findings();
    const auto shown = std::min<std::ptrdiff_t>(mostShown, std::ssize(problems));
    for (const auto& problem : std::span{problems}.first(static_cast<std::size_t>(shown))) {
        view_->onEvent(options_.description + ':' + problem);
    }
    if (std::ssize(problems) > mostShown) {
        view_->onEvent(fmt::format("{}: {} more problems", options_.description,
                                   std::ssize(problems) - mostShown));
    }
    view_->onRefusal(Refusal::Description, refusal);
}

void Steward::onDescriptionChange(const std::string& error) {
    view_->onEvent(error.empty() ? "description changed" : error);
    if (!error.empty()) {
        return;
    }
    showFindings();
    for (const auto& session : openSessions()) {
        if (session->isLoggedOn()) {
            session->send("IFCH");
        }
    }
}

void Steward::onBatchCounted() {
    if (options_.batches != 0 && statistics_.batches() >= options_.batches) {
        stop();
    }
}

void Steward::sendToAll(std::string_view line) {
    const auto sessions = openSessions();
    for (const auto& session : sessions) {
        session->send(line);
    }
    view_->onEvent((sessions.empty() ? "nobody is connected, not sent: " : "sent: ") +
                   std::string{line});
}

void Steward::closeAll(std::string_view reason) {
    for (const auto& session : openSessions()) {
        session->close(reason);
    }
}

std::vector<std::shared_ptr<Session>> Steward::openSessions() const {
    std::vector<std::shared_ptr<Session>> open;
    for (const auto& weak : sessions_) {
        if (auto session = weak.lock(); session && session->isOpen()) {
            open.push_back(std::move(session));
        }
    }
    return open;
}

void Steward::stop() {
    if (std::exchange(isStopping_, true)) {
        return;
    }
    boost::system::error_code ignored;
    acceptor_.close(ignored);
    closeAll("ended");
    if (report_.is_open() && !(report_ << statistics_.report(Clock::now()) << std::flush)) {
        std::cerr << "cannot write " << options_.report << std::endl;
    }
    output_.finish(view_->finish() + statistics_.summary(), [this] { context_.stop(); });
}

}  // namespace StewardSimulator
