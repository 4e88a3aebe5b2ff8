// SPDX-License-Identifier: MIT
#pragma once

#include "support/process.hpp"

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <gtest/gtest.h>

namespace TestSupport {

/// The peer's end of one accepted connection. Every wait has a limit.
class PeerConnection {
  public:
    explicit PeerConnection(Descriptor socket) : socket_{std::move(socket)} {}

    void send(std::string_view text) const {
        while (!text.empty()) {
            const auto size = ::send(socket_.get(), text.data(), text.size(), MSG_NOSIGNAL);
            ASSERT_GT(size, 0);
            text.remove_prefix(static_cast<std::size_t>(size));
        }
    }

    void sendByteByByte(std::string_view text) const {
        const int noDelay = 1;
        ::setsockopt(socket_.get(), IPPROTO_TCP, TCP_NODELAY, &noDelay, sizeof noDelay);
        for (const char byte : text) {
            send({&byte, 1});
        }
    }

    /// @return a line without its line feed, "<closed>", or "<timeout>" and what came so far
    [[nodiscard]] std::string readLine(std::chrono::milliseconds limit = 20s) {
        for (;;) {
            const auto end = received_.find('\n', searched_);
            if (end != std::string::npos) {
                auto line = received_.substr(0, end);
                received_.erase(0, end + 1);
                searched_ = 0;
                return line;
            }
            searched_ = received_.size();
            if (!hasData(limit)) {
                return "<timeout>" + received_;
            }
            char buffer[65536];
            const auto size = ::recv(socket_.get(), buffer, sizeof buffer, 0);
            if (size <= 0) {
                return "<closed>";
            }
            received_.append(buffer, static_cast<std::size_t>(size));
        }
    }

    /// Skips lines until one matches. @return whether it came
    [[nodiscard]] bool awaitLine(std::string_view wanted, std::chrono::milliseconds limit = 20s) {
        std::string line;
        do {
            line = readLine(limit);
        } while (line != wanted && line != "<closed>" && !line.starts_with("<timeout>"));
        return line == wanted;
    }

    void close() { socket_ = Descriptor{}; }

    /// Half-close: the other end reads the end of the stream and may still write.
    void shutdownSending() const { ::shutdown(socket_.get(), SHUT_WR); }

    /// Closes with a TCP reset instead of an orderly end.
    void reset() {
        const linger now{.l_onoff = 1, .l_linger = 0};
        ::setsockopt(socket_.get(), SOL_SOCKET, SO_LINGER, &now, sizeof now);
        close();
    }

    /// Waits until something can be read, without reading it.
    [[nodiscard]] bool hasData(std::chrono::milliseconds limit = 20s) const {
        pollfd readable{.fd = socket_.get(), .events = POLLIN, .revents = 0};
        return ::poll(&readable, 1, static_cast<int>(limit.count())) == 1;
    }

  private:
    Descriptor socket_;
    std::string received_;
    std::size_t searched_ = 0;
};

/// A server on a free loopback port controlled step by step by the test.
class ScriptedPeer {
  public:
    explicit ScriptedPeer(std::uint16_t port = 0, int backlog = 16)
        : socket_{::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)} {
        const int reuse = 1;
        ::setsockopt(socket_.get(), SOL_SOCKET, SO_REUSEADDR, &reuse, sizeof reuse);
        auto address = loopback(port);
        auto* const generic = reinterpret_cast<sockaddr*>(&address);
        socklen_t size = sizeof address;
        EXPECT_EQ(0, ::bind(socket_.get(), generic, size));
        EXPECT_EQ(0, ::listen(socket_.get(), backlog));
        EXPECT_EQ(0, ::getsockname(socket_.get(), generic, &size));
        port_ = ntohs(address.sin_port);
    }

    [[nodiscard]] std::uint16_t port() const { return port_; }
    [[nodiscard]] int get() const { return socket_.get(); }

    [[nodiscard]] bool hasConnection(std::chrono::milliseconds limit) const {
        pollfd acceptable{.fd = socket_.get(), .events = POLLIN, .revents = 0};
        return ::poll(&acceptable, 1, static_cast<int>(limit.count())) == 1;
    }

    [[nodiscard]] PeerConnection accept(std::chrono::milliseconds limit = 20s) const {
        if (!hasConnection(limit)) {
            ADD_FAILURE() << "nobody connects";
            return PeerConnection{Descriptor{}};
        }
        return PeerConnection{acceptSocket()};
    }

    /// For tests that do not use lines. Waits without limit.
    [[nodiscard]] Descriptor acceptSocket() const {
        return Descriptor{::accept4(socket_.get(), nullptr, nullptr, SOCK_CLOEXEC)};
    }

    [[nodiscard]] static sockaddr_in loopback(std::uint16_t port) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        return address;
    }

  private:
    Descriptor socket_;
    std::uint16_t port_ = 0;
};

/// A port that never answers a connect: its backlog is full and nobody accepts.
class UnansweringPeer {
  public:
    UnansweringPeer() {
        auto address = ScriptedPeer::loopback(peer_.port());
        for (auto& socket : fillers_) {
            socket = Descriptor{::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)};
            ::connect(socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof address);
        }
    }
    [[nodiscard]] std::uint16_t port() const { return peer_.port(); }

  private:
    ScriptedPeer peer_{0, 0};
    Descriptor fillers_[4];
};

}  // namespace TestSupport
