// SPDX-License-Identifier: MIT
#include "orvik/pushinterface/client.hpp"
#include "support.hpp"
#include "support/recording_client_handler.hpp"
#include "support/scripted_peer.hpp"

#include <optional>
#include <random>

namespace {

/**
 * Runs a client against a steward that sends the bytes and closes. Both live on one thread: the
 * steward sends a piece whenever the client has written a line, which it does after it has read
 * what came before.
 */
std::vector<std::string> serve(std::string_view bytes, unsigned int pieces) {
    static const TestSupport::ScriptedPeer listener;
    TestSupport::RecordingClientHandler handler;
    Orvik::PushInterface::Client client{&handler};
    std::optional<TestSupport::PeerConnection> steward;
    std::minstd_rand random{pieces};
    handler.during = [&](const std::string& operation) {
        if (operation == "onConnected") {
            steward.emplace(listener.accept());
        } else if (operation != "onWrite" || bytes.empty()) {
            return;
        }
        const auto piece = bytes.substr(0, 1 + random() % 64);
        steward->send(piece);
        bytes.remove_prefix(piece.size());
        bytes.empty() ? steward->shutdownSending() : client.write("");
    };
    client.setDevice("id", "key");
    client.connect("127.0.0.1", listener.port(), 0);
    client.run();
    return handler.events();
}

/// A line leads to one call of the handler, with the payload unchanged.
void requireReaction(const std::string& event, std::string_view line) {
    const std::string payload{line.substr(std::min<std::size_t>(line.size(), 5))};
    for (const std::string name : {"onHelo", "onInfo", "onEror", "onTgnf", "onInvl", "onToof"}) {
        Fuzz::require(!event.starts_with(name) || event == name + ": " + payload,
                      "a payload arrives as it was sent");
    }
}

}  // namespace

/// The first byte seeds the sizes of the pieces that the rest is cut into.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    auto unread = Fuzz::textOf(data, size).substr(size != 0);
    auto unanswered = unread;
    for (const auto& event : serve(unread, size != 0 ? data[0] : 0)) {
        if (event.starts_with("onRead: ")) {
            Fuzz::require(unread.find('\n') != unread.npos, "only whole lines are read");
            Fuzz::require(event.substr(8) == Fuzz::takeUntil(unread, '\n'),
                          "lines stay as they are");
        } else if (event != "onConnected" && event != "onDisconnected" &&
                   !event.starts_with("onWrite")) {
            requireReaction(event, Fuzz::takeUntil(unanswered, '\n'));
        }
    }
    Fuzz::require(unread.find('\n') == unread.npos, "every line is read");
    Fuzz::require(unread == unanswered, "every line leads to one reaction");
    return 0;
}
