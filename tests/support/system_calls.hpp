// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <functional>
#include <limits>
#include <semaphore>
#include <string>

#include <dlfcn.h>
#include <netdb.h>
#include <netinet/in.h>
#include <pthread.h>
#include <sys/socket.h>

#include <gtest/gtest.h>

/// Replaces system calls so that a test can make them fail, wait or connect to themselves. Include
/// it in one source file per executable.
namespace TestSupport::System {

template <typename Function>
Function* systemsOwn(Function* /*ours*/, const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

/// More than is free, of a 32-bit address space too.
inline constexpr auto impossibleStack = std::numeric_limits<std::size_t>::max() / 8 * 7;

/// Sets the stack size of new threads, in bytes.
inline void setThreadStack(std::size_t size) {
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, size);
    EXPECT_EQ(0, pthread_setattr_default_np(&attributes));
    pthread_attr_destroy(&attributes);
}

inline std::binary_semaphore slowLookUpBegun{0};
inline std::binary_semaphore slowLookUpMayEnd{0};
inline std::binary_semaphore slowLookUpEnded{0};  ///< its thread and data are gone
inline std::atomic<int> clientSocket = -1;        ///< the last one connected
inline std::atomic<bool> nextConnectIsToItself = false;
inline std::atomic<const std::function<int()>*> nextSend =
    nullptr;  ///< fails with the error returned

[[nodiscard]] inline bool failsToSend(int socket) {
    const auto* const failure = socket == clientSocket ? nextSend.exchange(nullptr) : nullptr;
    if (failure != nullptr) {
        errno = (*failure)();
    }
    return failure != nullptr;
}

}  // namespace TestSupport::System

extern "C" int connect(int socket, const sockaddr* address, socklen_t size) {
    using namespace TestSupport::System;
    clientSocket = socket;
    if (nextConnectIsToItself.exchange(false)) {
        EXPECT_EQ(0, ::bind(socket, address, size));
    }
    return systemsOwn(&connect, "connect")(socket, address, size);
}

extern "C" ssize_t send(int socket, const void* data, size_t size, int flags) {
    using namespace TestSupport::System;
    return failsToSend(socket) ? -1 : systemsOwn(&send, "send")(socket, data, size, flags);
}

extern "C" ssize_t sendmsg(int socket, const msghdr* message, int flags) {
    using namespace TestSupport::System;
    return failsToSend(socket) ? -1 : systemsOwn(&sendmsg, "sendmsg")(socket, message, flags);
}

/// "slow.test" waits, "two.test" has two addresses the first of which refuses, and "none.test" does
/// not exist.
extern "C" int getaddrinfo(const char* host, const char* service, const addrinfo* hints,
                           addrinfo** result) {
    using namespace TestSupport::System;
    const auto next = systemsOwn(&getaddrinfo, "getaddrinfo");
    const std::string name = host == nullptr ? "" : host;
    if ((hints->ai_flags & AI_NUMERICHOST) != 0 || !name.ends_with(".test")) {
        return next(host, service, hints, result);
    }
    if (name == "slow.test") {
        slowLookUpBegun.release();
        slowLookUpMayEnd.acquire();
        thread_local const struct AtThreadEnd {
            ~AtThreadEnd() { slowLookUpEnded.release(); }
        } atThreadEnd;
    }
    if (name == "none.test") {
        return EAI_NONAME;
    }
    const int error = next("127.0.0.1", service, hints, result);
    if (error == 0 && name == "two.test") {
        addrinfo* second = nullptr;
        next("127.0.0.1", service, hints, &second);
        reinterpret_cast<sockaddr_in*>((*result)->ai_addr)->sin_addr.s_addr = htonl(0x7f000063);
        (*result)->ai_next = second;
    }
    return error;
}
