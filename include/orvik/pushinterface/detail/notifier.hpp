// SPDX-License-Identifier: MIT
#pragma once

#include "orvik/pushinterface/client_handler.hpp"
#include "orvik/pushinterface/detail/event_loop.hpp"

#include <exception>
#include <string>
#include <string_view>
#include <utility>

namespace Orvik::PushInterface::Detail {

/// Calls the application's handler. Exceptions of a handler operation stop here.
class Notifier {
  public:
    /// @param handler not owned; null skips every call
    Notifier(ClientHandler* handler, EventLoop& loop) : handler_{handler}, loop_{loop} {}

    /// Queues a handler operation; it runs after the current step has returned.
    template <typename... Parameters, typename... Arguments>
    void post(std::string_view name, void (ClientHandler::*operation)(Parameters...),
              Arguments... arguments) {
        if (handler_ != nullptr) {
            loop_.post([=, this, ... arguments = std::move(arguments)] {
                call(name, operation, arguments...);
            });
        }
    }

    /// Queues an error of the client itself. @param message empty for none
    void report(std::string message) {
        if (!message.empty()) {
            post("onClientError", &ClientHandler::onClientError, std::move(message));
        }
    }

    /// Runs a handler operation now.
    template <typename... Parameters, typename... Arguments>
    void call(std::string_view name, void (ClientHandler::*operation)(Parameters...),
              Arguments&&... arguments) {
        if (handler_ == nullptr) {
            return;
        }
        try {
            (handler_->*operation)(arguments...);
        } catch (const std::exception& exception) {
            reportException(name, exception.what());
        } catch (...) {
            reportException(name, "<no exception info>");
        }
    }

  private:
    void reportException(std::string_view operation, const std::string& text) {
        try {
            handler_->onClientError("Exception during ClientHandler::" + std::string{operation} +
                                    ": " + text);
        } catch (...) {  // NOLINT(bugprone-empty-catch): nobody is left to report this to
        }
    }

    ClientHandler* handler_;
    EventLoop& loop_;
};

}  // namespace Orvik::PushInterface::Detail
