// SPDX-License-Identifier: MIT
#pragma once

#include "orvik/pushinterface/client_handler.hpp"
#include "orvik/pushinterface/detail/notifier.hpp"
#include "orvik/pushinterface/protocol.hpp"

#include <string>
#include <string_view>
#include <utility>

namespace Orvik::PushInterface::Detail {

/// Hands each message of the server to the handler, and makes the client's own answers.
class Dispatcher {
  public:
    explicit Dispatcher(Notifier& notifier) : notifier_{notifier} {}

    void setDevice(std::string id, std::string key) {
        deviceId_ = std::move(id);
        deviceKey_ = std::move(key);
    }

    /// The line that identifies the device, also where it has no id.
    [[nodiscard]] std::string identification() const { return encodeDevc(deviceId_, deviceKey_); }

    /**
     * Handles a line that was received.
     *
     * @param greeted of the connection; set by the greeting
     * @return the answer without line feed; empty for none
     */
    [[nodiscard]] std::string dispatch(std::string line, bool& greeted) {
        const auto message = splitLine(line);
        if (!message) {
            notifier_.report("Unexpected server message: " + line);
            return {};
        }
        const std::string type{message->type};
        line.erase(0, line.size() - message->payload.size());
        const auto& payload = line;  // not a copy: a description takes megabytes
        if (type == MessageType::helo) {
            greeted = true;
            return handleHelo(payload);
        }
        if (type == MessageType::devc) {
            return handleDevc(payload);
        }
        if (type == MessageType::ifch) {
            return handleIfch(payload);
        }
        if (type == MessageType::rtch) {
            notifier_.call("onRtch", &ClientHandler::onRtch, payload.starts_with('1'));
            return {};
        }
        for (const auto& [textType, name, operation] : textMessages) {
            if (type == textType) {
                notifier_.call(name, operation, payload);
                return {};
            }
        }
        notifier_.report("Unexpected server message type: " + type);
        return {};
    }

  private:
    /// Messages whose payload goes to the handler and that need no answer.
    static constexpr struct {
        std::string_view type;
        std::string_view name;
        void (ClientHandler::*operation)(const std::string&);
    } textMessages[] = {
        {MessageType::info, "onInfo", &ClientHandler::onInfo},
        {MessageType::eror, "onEror", &ClientHandler::onEror},
        {MessageType::tgnf, "onTgnf", &ClientHandler::onTgnf},
        {MessageType::invl, "onInvl", &ClientHandler::onInvl},
        {MessageType::toof, "onToof", &ClientHandler::onToof},
    };

    [[nodiscard]] std::string handleHelo(const std::string& text) {
        bool sendDevc = !deviceId_.empty();
        notifier_.call("onHelo", &ClientHandler::onHelo, text, sendDevc);
        return sendDevc && !deviceId_.empty() ? identification() : "";
    }

    [[nodiscard]] std::string handleDevc(const std::string& answer) {
        const bool accepted = answer == "OK";
        bool requestInfo = accepted;
        notifier_.call("onDevc", &ClientHandler::onDevc, accepted, requestInfo);
        return requestFor(requestInfo && accepted);
    }

    [[nodiscard]] std::string handleIfch(const std::string& argument) {
        bool requestInfo = true;
        if (argument.empty()) {
            notifier_.call<bool&>("onIfch", &ClientHandler::onIfch, requestInfo);
        } else {
            notifier_.call<const std::string&, bool&>("onIfch", &ClientHandler::onIfch, argument,
                                                      requestInfo);
        }
        return requestFor(requestInfo);
    }

    [[nodiscard]] static std::string requestFor(bool info) {
        return info ? std::string{MessageType::info} : "";
    }

    Notifier& notifier_;
    std::string deviceId_;
    std::string deviceKey_;
};

}  // namespace Orvik::PushInterface::Detail
