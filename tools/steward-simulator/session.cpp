// SPDX-License-Identifier: MIT
#include "steward-simulator/session.hpp"

#include "common/text.hpp"
#include "orvik/pushinterface/protocol.hpp"

#include <utility>

#include <boost/asio/buffer.hpp>
#include <boost/asio/error.hpp>
#include <boost/asio/write.hpp>

namespace StewardSimulator {
namespace {

constexpr std::size_t readSize = 256U << 10U;
constexpr std::size_t shownTextBytes = 200;
constexpr std::string_view infoPrefix = "INFO ";

BatchDecoder::Values treatmentFor(ViewKind view) {
    return view == ViewKind::None ? BatchDecoder::Values::Counted : BatchDecoder::Values::Checked;
}

}  // namespace

Session::Session(boost::asio::ip::tcp::socket socket, const Service& service, std::string name)
    : socket_{std::move(socket)},
      service_{service},
      name_{std::move(name)},
      decoder_{*this, treatmentFor(service.options.view)},
      input_(readSize) {}

void Session::start() {
    showEvent("connected");
    send("HELO steward-simulator");
    read();
}

void Session::read() {
    socket_.async_read_some(
        boost::asio::buffer(input_),
        [self = shared_from_this()](const boost::system::error_code& error, std::size_t length) {
            self->onRead(error, length);
        });
}

void Session::onRead(const boost::system::error_code& error, std::size_t length) {
    if (!isOpen()) {
        return;
    }
    if (error) {
        return close(error == boost::asio::error::eof ? "closed by the device, without EXIT"
                                                      : error.message());
    }
    service_.statistics.countBytes(length);
    decoder_.feed({input_.data(), length});
    if (isOpen()) {
        read();
    }
}

void Session::send(std::string_view line) {
    if (line.starts_with(infoPrefix)) {
        const auto json = line.substr(infoPrefix.size());
        adoptDescription(json, examine(json).refusal);
    }
    queue(std::string{line});
}

void Session::queue(std::string line) {
    output_.push_back(std::move(line) + '\n');
    if (output_.size() == 1) {
        write();
    }
}

void Session::write() {
    boost::asio::async_write(socket_, boost::asio::buffer(output_.front()),
                             [self = shared_from_this()](const boost::system::error_code& error,
                                                         std::size_t) { self->onWritten(error); });
}

void Session::onWritten(const boost::system::error_code& error) {
    if (error || !isOpen()) {
        return;  // reading ends with the connection too, and reports it
    }
    output_.pop_front();
    if (!output_.empty()) {
        write();
    }
}

void Session::sendDescription() {
    if (const auto* file = service_.description()) {
        adoptDescription(file->text(), file->findings().refusal);
        queue(std::string{infoPrefix} + file->text());
    } else {
        showEvent("there is no --description to send");
    }
}

void Session::adoptDescription(std::string_view json, std::string_view refusal) {
    const auto description = std::make_shared<Description>();
    const auto error = parseDescription(std::string{json}, description);
    service_.view.onRefusal(Refusal::Description, refusal);
    if (!error.empty()) {
        return showEvent("sending a faulty description: " + std::string{refusal});
    }
    showEvent("sending a description of " + std::to_string(description->tags.size()) + " tags" +
              (refusal.empty() ? "" : ", which a daemon refuses: " + std::string{refusal}));
    decoder_.describe(description);
    service_.view.onDescription(description);
}

void Session::close(std::string_view reason) {
    if (!isOpen()) {
        return;
    }
    showEvent(decoder_.isIncomplete() ? std::string{reason} + ", within a line or a batch"
                                      : reason);
    boost::system::error_code ignored;
    socket_.shutdown(boost::asio::ip::tcp::socket::shutdown_both, ignored);
    socket_.close(ignored);
}

void Session::showEvent(std::string_view text) const {
    service_.view.onEvent(name_ + ": " + std::string{text});
}

std::string Session::refusal(std::string_view identity) const {
    const auto& id = service_.options.deviceId;
    const auto& key = service_.options.deviceKey;
    if (!id.empty() && !identity.starts_with(id + ' ')) {
        return "unknown device id";
    }
    if (!key.empty() && !identity.ends_with(' ' + key)) {
        return "wrong device key";
    }
    return {};
}

void Session::onDevc(std::string_view identity) {
    const auto reason = refusal(identity);
    isLoggedOn_ = reason.empty();
    showEvent("log-on of " +
              Tools::escaped(identity.substr(0, identity.find(' ')), shownTextBytes) +
              (isLoggedOn_ ? "" : " refused: " + reason));
    service_.view.onRefusal(Refusal::LogOn, reason);
    send("DEVC " + (isLoggedOn_ ? "OK" : reason));
    if (isLoggedOn_) {
        service_.statistics.countLogOn(Clock::now());
    }
}

void Session::onInfoRequest() {
    if (isLoggedOn_) {
        sendDescription();
    } else {
        showEvent("description requested before log-on");
        send("EROR not logged on");
    }
}

void Session::onExit() {
    close("EXIT");
}

void Session::onNamedValue(std::string_view name, std::string_view value) {
    if (name == Orvik::PushInterface::errorMessageName) {
        service_.statistics.countError(value);
        service_.view.onError(value);
    } else {
        showEvent("named value " + Tools::escaped(name, shownTextBytes) + ": " +
                  Tools::escaped(value, shownTextBytes));
    }
}

void Session::onBatch(const Batch& batch) {
    service_.statistics.countBatch(batch, Clock::now());
    service_.view.onBatch(batch, service_.statistics);
    service_.onBatchCounted();
}

void Session::onFault(const Fault& fault) {
    service_.statistics.countFault(fault);
    showEvent(describeFault(fault));
}

}  // namespace StewardSimulator
