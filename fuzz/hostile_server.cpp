// SPDX-License-Identifier: MIT
#include "opcua/protocol_handler.hpp"
#include "support.hpp"
#include "support/scripted_peer.hpp"
#include "support/simulated_server.hpp"

#include <cstring>
#include <filesystem>
#include <map>

namespace {

using namespace std::chrono_literals;
using PullappOpcUa::Device;
using TestSupport::Descriptor;

/// What happens to an answer before it is sent, see `HostileServer::edit`.
struct Edit {
    std::size_t answer;  ///< counted from the first connection on
    char kind;
    std::size_t offset;
    std::string bytes;
};
using Edits = std::vector<Edit>;

/// Each edit has five bytes, the last of which is the length of the data after it.
Edits editsOf(std::string_view input) {
    const auto byte = [&](std::size_t at) { return std::size_t{static_cast<UA_Byte>(input[at])}; };
    Edits edits;
    while (input.size() >= 5) {
        const auto bytes = input.substr(5, byte(4));
        edits.push_back({byte(0) % 16, input[1], byte(2) + 256 * byte(3), std::string{bytes}});
        input.remove_prefix(5 + bytes.size());
    }
    return edits;
}

/// Size of the common header; its last 8 bytes are the sequence number and the request id.
std::size_t headerSize(std::string_view message) {
    return message.starts_with("OPN") ? 79 : message.starts_with("MSG") ? 24 : 8;
}

/// Hello, channel, or the service called.
std::string kindOf(const std::string& request) {
    return request.starts_with("MSG") ? request.substr(24, 4) : request.substr(0, 3);
}

void setNumber(std::string& message, std::size_t offset, std::size_t number) {
    const auto value = static_cast<std::uint32_t>(number);
    if (offset + sizeof value <= message.size()) {
        std::memcpy(message.data() + offset, &value, sizeof value);
    }
}

void setSize(std::string& message) {
    setNumber(message, 4, message.size());
}

/// What one call received; nothing if the connection has ended or nothing comes in time.
std::string receive(const Descriptor& socket, std::chrono::milliseconds limit) {
    static char buffer[65536];
    pollfd readable{.fd = socket.get(), .events = POLLIN, .revents = 0};
    const bool comes = ::poll(&readable, 1, static_cast<int>(limit.count())) == 1;
    const auto size = comes ? ::recv(socket.get(), buffer, sizeof buffer, 0) : 0;
    return {buffer, static_cast<std::size_t>(std::max(size, ssize_t{0}))};
}

void send(const Descriptor& socket, const std::string& message) {
    ::send(socket.get(), message.data(), message.size(), MSG_NOSIGNAL);
}

/// Gives the answers of a genuine server, edited. Lives on the client's thread.
class HostileServer {
  public:
    /// @param genuine port of a server to learn answers from, or 0
    void begin(Edits edits, std::uint16_t genuine) {
        edits_ = std::move(edits);
        genuine_ = genuine;
        count_ = 0;
        steps_ = 0;
        parts_.clear();
        client_ = Descriptor{};
    }

    [[nodiscard]] std::uint16_t port() const { return listener_.port(); }

    /// Call before the client polls. Closes if the client would wait in vain.
    void step(bool clientWaits) {
        Fuzz::require(++steps_ < 5000, "a connect to a server that closes comes to an end");
        if (listener_.hasConnection(0ms)) {
            accept();
        }
        if (parts_.empty()) {
            const auto request = receive(client_, 0ms);
            if (request.size() >= 8) {
                parts_ = edit(answerTo(request), request);
            } else if (clientWaits || !request.empty()) {
                client_ = Descriptor{};
                steps_ += 100;
            }
        }
        if (!parts_.empty()) {
            send(client_, parts_.front());
            parts_.pop_front();
        }
    }

  private:
    void accept() {
        client_ = listener_.acceptSocket();
        const linger reset{.l_onoff = 1, .l_linger = 0};  // else all ports would soon be used up
        ::setsockopt(client_.get(), SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
        const int noDelay = 1;
        ::setsockopt(client_.get(), IPPROTO_TCP, TCP_NODELAY, &noDelay, sizeof noDelay);
        sequence_ = 0;
        parts_.clear();
        teacher_ = Descriptor{::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)};
        auto address = TestSupport::ScriptedPeer::loopback(genuine_);
        ::connect(teacher_.get(), reinterpret_cast<sockaddr*>(&address), sizeof address);
    }

    const std::string& answerTo(const std::string& request) {
        auto& answer = answers_[kindOf(request)];
        if (genuine_ != 0) {
            send(teacher_, request);
            answer = receive(teacher_, 20s);
        }
        return answer;
    }

    /// @return what to send, part by part
    std::deque<std::string> edit(std::string answer, const std::string& request) {
        const auto header = headerSize(answer);
        std::deque<std::string> parts;
        if (header > 8) {
            setNumber(answer, header - 8, ++sequence_);
            answer.replace(header - 4, 4, request, header - 4, 4);
        }
        for (const auto& [number, kind, offset, bytes] : edits_) {
            const auto at = offset % (answer.size() + 1);
            if (number != count_) {
                continue;
            }
            if (kind == 'p') {  // in parts
                parts.push_back(answer.substr(0, at));
                answer.erase(0, at);
            } else if (kind == 'x') {  // something else first
                parts.push_back(bytes);
            } else if (kind == 'o') {  // overwrite
                answer.replace(at, bytes.size(), bytes);
            } else if (kind == 'i') {  // insert
                answer.insert(at, bytes);
            } else if (kind == 'c') {  // cut
                answer.resize(at);
            } else if (kind == 'b' && header <= answer.size()) {  // another body
                answer.replace(header, answer.npos, bytes);
            } else if (kind == 'a' && header <= answer.size()) {  // the body of another answer
                const auto other = std::next(answers_.begin(),
                                             static_cast<std::ptrdiff_t>(offset % answers_.size()))
                                       ->second;
                answer.replace(header, answer.npos, other,
                               std::min(headerSize(other), other.size()));
            } else if (kind == 'r' && header <= at) {  // repeat
                parts.push_back(answer);
                setNumber(answer, header - 8, ++sequence_);
            } else if (kind == 'C' && header <= at) {  // in chunks
                parts.push_back(answer.substr(0, at).replace(3, 1, "C"));
                setSize(parts.back());
                answer.erase(header, at - header);
                setNumber(answer, header - 8, ++sequence_);
            }
            if (kind != 'o' && kind != 'p') {
                setSize(answer);
            }
        }
        parts.push_back(answer);
        ++count_;
        return parts;
    }

    const TestSupport::ScriptedPeer listener_;
    std::map<std::string, std::string> answers_;
    Edits edits_;
    std::uint16_t genuine_ = 0;
    std::size_t count_ = 0;  // of answers
    int steps_ = 0;          // taken; a wait in vain counts 100
    Descriptor client_;
    Descriptor teacher_;
    std::uint32_t sequence_ = 0;  // of this connection
    std::deque<std::string> parts_;
};

HostileServer& server() {
    static HostileServer server;
    return server;
}

decltype(UA_EventLoop::run) runLoop = nullptr;

/// Checks each batch.
class CheckingClient : public Orvik::PushInterface::Client {
  public:
    explicit CheckingClient(const Device& device) : Client{nullptr}, device_{device} {}
    void write(std::string message) override {
        Fuzz::requireWellFormed(message, device_);
        ++count;
    }
    int count = 0;

  private:
    const Device& device_;
};

void addTags(Device& device) {
    using Orvik::PushInterface::TagType;
    constexpr TagType types[]{TagType::Bool, TagType::Int32, TagType::Double, TagType::String};
    for (const auto type : types) {
        const auto tag = std::make_shared<PullappOpcUa::Tag>();
        tag->id = static_cast<std::uint16_t>(type);
        tag->address = "ns=1;s=" + std::to_string(tag->id);
        tag->tagType = type;
        Fuzz::require(Device::parseTag(*tag).empty() && device.addTag(tag).empty(),
                      "tags are taken");
    }
    Fuzz::require(device.parseDevice().empty(), "the device is prepared");
}

/// Connects, verifies and pulls twice, as long as nothing fails; then reconnects. @return the
/// number of batches
int run(Edits edits, std::uint16_t genuine = 0) {
    server().begin(std::move(edits), genuine);
    Device device;
    device.ipAddress = "127.0.0.1";
    device.port = server().port();
    device.authenticationType = PullappOpcUa::AuthenticationType::Username;
    device.username = device.password = "user";
    addTags(device);
    CheckingClient client{device};
    PullappOpcUa::ProtocolHandler handler;
    if (handler.connect(device).empty() && handler.verifyTags(device).empty()) {
        const bool first = handler.pullData(device, client).empty();
        Fuzz::require(client.count == first, "a pull writes a batch or fails");
        const bool second = first && handler.pullData(device, client).empty();
        Fuzz::require(client.count == first + second, "so does the next");
    }
    handler.disconnect(device);
    static_cast<void>(handler.connect(device));  // once more, whatever came of the first
    handler.disconnect(device);
    server().begin({}, 0);
    return client.count;
}

/// Records the answers of a genuine server. @return whether all went well
bool teach() {
    Device device;
    addTags(device);
    OpcUaSimulator::Options options;
    options.user = options.password = "user";
    const TestSupport::SimulatedServer genuine{device, options};
    return run({}, genuine.port()) == 2;
}

auto countDescriptors() {
    return std::distance(std::filesystem::directory_iterator{"/proc/self/fd"}, {});
}

}  // namespace

extern "C" {

UA_StatusCode __real_UA_ClientConfig_setDefault(UA_ClientConfig* config);

/// Runs a step of the server before each one of the client.
UA_StatusCode __wrap_UA_ClientConfig_setDefault(UA_ClientConfig* config) {
    const auto status = __real_UA_ClientConfig_setDefault(config);
    runLoop = config->eventLoop->run;
    config->eventLoop->run = [](UA_EventLoop* loop, UA_UInt32 timeout) {
        constexpr UA_UInt32 look = 1;  // only to see whether the connection is still there
        server().step(timeout > look);
        return runLoop(loop, std::min(timeout, 10U));  // all data has been sent already
    };
    return status;
}
}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const bool taught = teach();
    Fuzz::require(taught, "a genuine server's values are pulled");
    const auto descriptors = countDescriptors();
    run(editsOf(Fuzz::textOf(data, size)));
    Fuzz::require(countDescriptors() == descriptors, "every socket is closed");
    return 0;
}
