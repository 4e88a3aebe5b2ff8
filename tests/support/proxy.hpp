// SPDX-License-Identifier: MIT
#pragma once

#include "support/scripted_peer.hpp"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <list>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

namespace TestSupport {

/// A client's message. Services have the encoding id of their request.
enum class Message : std::uint16_t {
    Hello,
    Channel,
    Create = 461,
    Activate = 467,
    Browse = 527,
    Read = 631
};

/// What the proxy does with a message. Drop: nothing passes in either direction from then on.
/// Reply: sends back the text, or the message itself. HalfAnswer: half of the answer, then nothing.
/// Flood: 65 MB of chunks of an answer without end. Results: the text replaces the values read.
struct Action {
    enum Kind { Pass, Close, Reset, Drop, Reply, HalfAnswer, Flood, Results };
    Kind kind = Pass;
    std::string text = {};
    int times = 1;
};

/// Proxy between an OPC UA client and its server, on its own thread.
class Proxy {
  public:
    explicit Proxy(std::uint16_t serverPort)
        : serverPort_{serverPort}, thread_{[this] { serve(); }} {}
    ~Proxy() {
        stopped_ = true;
        thread_.join();
    }
    Proxy(const Proxy&) = delete;
    Proxy& operator=(const Proxy&) = delete;

    [[nodiscard]] std::uint16_t port() const { return peer_.port(); }

    /// How many such messages were received.
    [[nodiscard]] int count(Message message) {
        const std::lock_guard lock{mutex_};
        return counts_[message];
    }

    /// The bytes of the last such message.
    [[nodiscard]] std::string last(Message message) {
        const std::lock_guard lock{mutex_};
        return last_[message];
    }

    /// Acts on the next such messages.
    void at(Message message, Action action) {
        const std::lock_guard lock{mutex_};
        actions_[message] = std::move(action);
    }

    void connectTo(std::uint16_t serverPort) { serverPort_ = serverPort; }
    void delayAnswers(std::chrono::milliseconds time) { delay_ = time; }

  private:
    struct Link {
        Descriptor client;
        Descriptor server;
        Action answer = {};
        bool isSilent = false;
    };

    void serve() {
        while (!stopped_) {
            std::vector<pollfd> readable{{peer_.get(), POLLIN, 0}};
            for (const auto& link : links_) {
                readable.push_back({link.isSilent ? -1 : link.client.get(), POLLIN, 0});
                readable.push_back({link.isSilent ? -1 : link.server.get(), POLLIN, 0});
            }
            ::poll(readable.data(), readable.size(), 10);
            auto end = readable.cbegin() + 1;
            for (auto link = links_.begin(); link != links_.end(); end += 2) {
                const bool isOpen = (end[0].revents == 0 || onMessage(*link)) &&
                                    (end[1].revents == 0 || onAnswer(*link));
                link = isOpen ? std::next(link) : links_.erase(link);
            }
            if (readable[0].revents != 0) {
                accept();
            }
        }
    }

    void accept() {
        Link link{peer_.acceptSocket(),
                  Descriptor{::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)}};
        auto server = ScriptedPeer::loopback(serverPort_);
        ::connect(link.server.get(), reinterpret_cast<sockaddr*>(&server), sizeof server);
        links_.push_back(std::move(link));
    }

    Action next(const std::string& text) {
        const std::lock_guard lock{mutex_};
        const auto message = messageOf(text);
        ++counts_[message];
        last_[message] = text;
        auto& action = actions_[message];
        return action.times-- > 0 ? action : Action{};
    }

    /// @return whether to keep the link
    bool onMessage(Link& link) {
        const auto message = receive(link.client);
        if (message.empty()) {
            return false;
        }
        link.answer = next(message);
        switch (link.answer.kind) {
            case Action::Close:
                return false;
            case Action::Reset:
                setLinger(link.client);
                return false;
            case Action::Drop:
                return link.isSilent = true;
            case Action::Reply:
                return send(link.client, link.answer.text.empty() ? message : link.answer.text);
            default:
                return send(link.server, message);
        }
    }

    bool onAnswer(Link& link) {
        auto answer = receive(link.server);
        ::poll(nullptr, 0, static_cast<int>(delay_.load().count()));
        if (link.answer.kind == Action::HalfAnswer) {
            answer.resize(answer.size() / 2);
            link.isSilent = true;
        } else if (link.answer.kind == Action::Flood) {
            answer = flood(answer);
            link.isSilent = true;
        } else if (link.answer.kind == Action::Results) {
            answer = answer.substr(0, 52) + link.answer.text + "\xFF\xFF\xFF\xFF";
            answer[4] = static_cast<char>(answer.size());
        }
        return !answer.empty() && send(link.client, answer);
    }

    /// Chunks with sequence numbers that continue the answer's.
    static std::string flood(std::string answer) {
        constexpr std::uint32_t size = 65000;
        std::uint32_t sequence = 0;
        std::memcpy(&sequence, answer.data() + 16, sizeof sequence);
        answer.resize(size);
        answer[3] = 'C';
        std::memcpy(answer.data() + 4, &size, sizeof size);
        std::string text;
        for (int chunk = 0; chunk < 1000; ++chunk, ++sequence) {
            std::memcpy(answer.data() + 16, &sequence, sizeof sequence);
            text += answer;
        }
        return text;
    }

    static Message messageOf(std::string_view text) {
        if (text.starts_with("MSG")) {
            return Message{static_cast<std::uint16_t>(static_cast<std::uint8_t>(text[26]) +
                                                      256 * static_cast<std::uint8_t>(text[27]))};
        }
        return text.starts_with("HEL") ? Message::Hello : Message::Channel;
    }

    static std::string receive(const Descriptor& from) {
        std::string text(65536, '\0');
        const auto size = ::recv(from.get(), text.data(), text.size(), 0);
        text.resize(static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
        return text;
    }

    static bool send(const Descriptor& to, const std::string& text) {
        return ::send(to.get(), text.data(), text.size(), MSG_NOSIGNAL) > 0;
    }

    static void setLinger(const Descriptor& socket) {
        const linger now{.l_onoff = 1, .l_linger = 0};
        ::setsockopt(socket.get(), SOL_SOCKET, SO_LINGER, &now, sizeof now);
    }

    ScriptedPeer peer_;
    std::atomic<std::uint16_t> serverPort_;
    std::atomic<std::chrono::milliseconds> delay_ = 0ms;
    std::atomic<bool> stopped_ = false;
    std::mutex mutex_;
    std::map<Message, Action> actions_;
    std::map<Message, int> counts_;
    std::map<Message, std::string> last_;
    std::list<Link> links_;
    std::thread thread_;
};

}  // namespace TestSupport
