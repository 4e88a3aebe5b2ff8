// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <utility>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/system/error_code.hpp>
#include <boost/thread/thread.hpp>

namespace Orvik::PushInterface::Detail {

/**
 * Finds the addresses of a host. A name is looked up on a thread of its own, which may take
 * arbitrarily long: the system's look-up cannot be interrupted, and nothing else waits for it.
 *
 * @param done called with an error code and the endpoints: at once where the host is an address,
 * else on that thread. Must own everything it uses.
 * @throws boost::thread_resource_error if no thread can be created
 */
template <typename Done>
void lookUp(std::string host, std::string port, Done done) {
    using Resolver = boost::asio::ip::tcp::resolver;
    static const auto flags = Resolver::passive | Resolver::numeric_service;
    boost::asio::io_context unused;
    boost::system::error_code error;
    const auto endpoints =
        Resolver{unused}.resolve(host, port, flags | Resolver::numeric_host, error);
    if (!error) {
        done(error, endpoints);
        return;
    }
    boost::thread{[host = std::move(host), port = std::move(port), done = std::move(done)] {
        boost::asio::io_context ofThread;
        boost::system::error_code failure;
        const auto found = Resolver{ofThread}.resolve(host, port, flags, failure);
        done(failure, found);
    }}.detach();
}

}  // namespace Orvik::PushInterface::Detail
