// SPDX-License-Identifier: MIT
// What an engineer would write in an afternoon instead of the daemon: one thread that reads all
// tags, prints them into a buffer and sends that in one call. It checks no type, survives no fault
// and logs nothing. With a second thread that sends, it shows what handing the batch over costs.
#include "read_loop.hpp"

#include <array>
#include <charconv>
#include <cstdint>
#include <cstdlib>
#include <string_view>
#include <thread>

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <boost/thread/concurrent_queues/sync_queue.hpp>

namespace {

int connectTo(const char* port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(std::atoi(port)));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int steward = ::socket(AF_INET, SOCK_STREAM, 0);
    const int on = 1;
    ::setsockopt(steward, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    if (::connect(steward, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        std::perror("connect");
        std::exit(1);
    }
    return steward;
}

void sendAll(int steward, std::string_view text) {
    while (!text.empty()) {
        const auto sent = ::send(steward, text.data(), text.size(), MSG_NOSIGNAL);
        if (sent < 0) {
            std::perror("send");
            std::exit(1);
        }
        text.remove_prefix(static_cast<std::size_t>(sent));
    }
}

template <typename Number, typename... Format>
void append(std::string& batch, Number value, Format... format) {
    std::array<char, 64> text;
    const auto* end = std::to_chars(text.data(), text.data() + text.size(), value, format...).ptr;
    batch.append(text.data(), static_cast<std::size_t>(end - text.data()));
}

void append(std::string& batch, const UA_Variant& value) {
    constexpr auto general = std::chars_format::general;
    if (value.type == &UA_TYPES[UA_TYPES_INT32]) {
        append(batch, *static_cast<UA_Int32*>(value.data));
    } else if (value.type == &UA_TYPES[UA_TYPES_FLOAT]) {
        append(batch, *static_cast<UA_Float*>(value.data), general, 10);
    } else if (value.type == &UA_TYPES[UA_TYPES_DOUBLE]) {
        append(batch, *static_cast<UA_Double*>(value.data), general, 18);
    } else if (value.type == &UA_TYPES[UA_TYPES_BOOLEAN]) {
        batch += *static_cast<UA_Boolean*>(value.data) ? 't' : 'f';
    } else if (value.type == &UA_TYPES[UA_TYPES_STRING]) {
        const auto& text = *static_cast<UA_String*>(value.data);
        append(batch, text.length);
        batch += ',';
        batch.append(reinterpret_cast<const char*>(text.data), text.length);
    }
}

std::string toBatch(const UA_ReadResponse& response) {
    static std::size_t lastSize = 0;
    std::string batch;
    batch.reserve(lastSize + lastSize / 8);
    for (std::size_t i = 0; i < response.resultsSize; ++i) {
        append(batch, i + 1);
        batch += '=';
        append(batch, response.results[i].value);
        batch += '\n';
    }
    batch += '\n';
    lastSize = batch.size();
    return batch;
}

}  // namespace

int main(int argc, char** argv) {
    const bool twoThreads = argc == 6 && argv[5] == std::string_view{"two-threads"};
    if (argc != 5 && !twoThreads) {
        std::fprintf(stderr,
                     "Usage: plain-read PORT TAGS PULL-DELAY STEWARD-PORT [two-threads]\n"
                     "Reads ns=1;i=1 to ns=1;i=TAGS of a server on this machine until SIGTERM, and "
                     "sends the values to a steward.\n");
        return 2;
    }
    const int steward = connectTo(argv[4]);
    sendAll(steward, "DEVC plain key\n");
    const auto run = [&](const auto& use) {
        return Bench::readUntilEnded(argv[1], std::strtoul(argv[2], nullptr, 10),
                                     std::atol(argv[3]), use);
    };
    if (!twoThreads) {
        return run([&](const auto& response) { sendAll(steward, toBatch(response)); });
    }
    boost::sync_queue<std::string> queue;
    std::jthread sender{[&] {
        for (std::string batch; queue.wait_pull(batch) == boost::queue_op_status::success;) {
            sendAll(steward, batch);
        }
    }};
    const int status = run([&](const auto& response) { queue.push(toBatch(response)); });
    queue.close();
    return status;
}
