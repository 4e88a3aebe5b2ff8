// SPDX-License-Identifier: MIT
#pragma once

#include "support/scripted_peer.hpp"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include <open62541/plugin/accesscontrol_default.h>
#include <open62541/plugin/eventloop.h>
#include <open62541/server.h>
#include <open62541/server_config_default.h>

#include <gtest/gtest.h>

namespace TestSupport {

/// A text of the stack that refers to ours.
[[nodiscard]] inline UA_String borrow(std::string_view text) {
    return {text.size(), reinterpret_cast<UA_Byte*>(const_cast<char*>(text.data()))};
}

[[nodiscard]] inline UA_NodeId nodeNamed(std::string_view name) {
    UA_NodeId id = UA_NODEID_NUMERIC(1, 0);
    id.identifierType = UA_NODEIDTYPE_STRING;
    id.identifier.string = borrow(name);
    return id;
}

/// A variant that refers to the value.
template <typename T>
[[nodiscard]] UA_Variant scalar(T& value, std::size_t type) {
    UA_Variant variant;
    UA_Variant_init(&variant);
    UA_Variant_setScalar(&variant, &value, &UA_TYPES[type]);
    return variant;
}

/// What a Read finds, at time 0; a null value for none.
[[nodiscard]] inline UA_DataValue dataValue(const UA_Variant* value,
                                            UA_StatusCode status = UA_STATUSCODE_GOOD) {
    UA_DataValue result;
    UA_DataValue_init(&result);
    result.hasValue = value != nullptr;
    result.value = value != nullptr ? *value : UA_Variant{};
    result.hasStatus = status != UA_STATUSCODE_GOOD;
    result.status = status;
    result.hasSourceTimestamp = true;
    return result;
}

struct OpcUaTestServerOptions {
    std::uint16_t port = 0;     ///< 0 for a free one
    std::string username = {};  ///< with one, nobody else is let in
    std::string password = {};
};

/**
 * A real OPC UA server on a loopback port of 127.0.0.1. It lives on a thread of its own, which
 * alone touches it: what others want done they hand over, and wait for it.
 */
class OpcUaTestServer {
  public:
    using Options = OpcUaTestServerOptions;

    OpcUaTestServer() : OpcUaTestServer{Options{}} {}
    explicit OpcUaTestServer(Options options) : options_{std::move(options)} {
        const auto reserved = reservePort();
        thread_ = std::thread{[this] { serve(); }};
        run([](UA_Server&) {});  // returns when the server listens
    }
    ~OpcUaTestServer() {
        stopped_ = true;
        thread_.join();
    }
    OpcUaTestServer(const OpcUaTestServer&) = delete;
    OpcUaTestServer& operator=(const OpcUaTestServer&) = delete;

    [[nodiscard]] std::uint16_t port() const { return port_; }

    /// How many Read requests were answered, not counting faults.
    [[nodiscard]] int readCount() const { return readCount_; }

    /// Replaces bytes in every answer, by as many others.
    void rewriteAnswers(std::string_view from, std::string_view to) {
        run([=, this](UA_Server&) { rewriting_ = {std::string{from}, std::string{to}}; });
    }

    /// Gives a variable its value, of whatever type; makes the variable if it is not there.
    template <typename T>
    void set(std::string_view name, T value, std::size_t type) {
        const auto variant = scalar(value, type);
        setResult(nodeNamed(name), dataValue(&variant));
    }

    /// The same with a status, or without a value.
    void setResult(const UA_NodeId& id, const UA_DataValue& value) {
        run([&](UA_Server& server) { setOn(server, id, value); });
    }

    /// Does many things at once on the server's thread.
    void run(const std::function<void(UA_Server&)>& job) {
        const auto task = std::make_shared<std::packaged_task<void()>>([&] { job(*server_); });
        {
            const std::lock_guard lock{mutex_};
            jobs_.push_back(task);
        }
        task->get_future().wait();
    }

    /// In a job: what `setResult` does.
    void setOn(UA_Server& server, const UA_NodeId& id, const UA_DataValue& value) {
        void* context = nullptr;
        if (UA_Server_getNodeContext(&server, id, &context) != UA_STATUSCODE_GOOD) {
            context = &values_.emplace_back();
            addVariable(server, id, context);
        }
        auto* const stored = static_cast<UA_DataValue*>(context);
        UA_DataValue_clear(stored);
        EXPECT_EQ(UA_STATUSCODE_GOOD, UA_DataValue_copy(&value, stored));
    }

  private:
    /// Binds the port, without listening, until the server does both: it tells no port that the
    /// system chose.
    [[nodiscard]] Descriptor reservePort() {
        Descriptor socket{::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)};
        const int reuse = 1;
        ::setsockopt(socket.get(), SOL_SOCKET, SO_REUSEADDR, &reuse, sizeof reuse);
        auto address = ScriptedPeer::loopback(options_.port);
        auto* const generic = reinterpret_cast<sockaddr*>(&address);
        socklen_t size = sizeof address;
        EXPECT_EQ(0, ::bind(socket.get(), generic, size));
        EXPECT_EQ(0, ::getsockname(socket.get(), generic, &size));
        port_ = ntohs(address.sin_port);
        return socket;
    }

    void serve() {
        current_ = this;
        UA_ServerConfig config{};
        configure(config);
        server_ = UA_Server_newWithConfig(&config);
        auto* const loop = UA_Server_getConfig(server_)->eventLoop;
        interceptSending(*loop);
        EXPECT_EQ(UA_STATUSCODE_GOOD, UA_Server_run_startup(server_));
        while (!stopped_) {
            runJobs();
            loop->run(loop, 1);
        }
        UA_Server_run_shutdown(server_);
        UA_Server_delete(server_);
        for (auto& value : values_) {
            UA_DataValue_clear(&value);
        }
    }

    void configure(UA_ServerConfig& config) {
        config.logging = &silentLog_;
        UA_ServerConfig_setMinimal(&config, port_, nullptr);
        config.tcpReuseAddr = true;
        const auto url = "opc.tcp://127.0.0.1:" + std::to_string(port_);
        UA_String_clear(&config.serverUrls[0]);
        config.serverUrls[0] = UA_STRING_ALLOC(url.c_str());
        if (!options_.username.empty()) {
            const UA_UsernamePasswordLogin logIn{borrow(options_.username),
                                                 borrow(options_.password)};
            config.allowNonePolicyPassword = true;
            config.accessControl.clear(&config.accessControl);
            UA_AccessControl_default(&config, false, nullptr, 1, &logIn);
        }
    }

    /// The stack would turn a result without a value into one with an empty value: answer
    /// ourselves.
    static void addVariable(UA_Server& server, const UA_NodeId& id, void* context) {
        UA_VariableAttributes attributes = UA_VariableAttributes_default;
        attributes.valueRank = UA_VALUERANK_ANY;
        const UA_DataSource source{read, nullptr};
        EXPECT_EQ(UA_STATUSCODE_GOOD, UA_Server_addDataSourceVariableNode(
                                          &server, id, UA_NODEID_NUMERIC(0, UA_NS0ID_OBJECTSFOLDER),
                                          UA_NODEID_NUMERIC(0, UA_NS0ID_ORGANIZES),
                                          UA_QUALIFIEDNAME(1, const_cast<char*>("tag")),
                                          UA_NODEID_NUMERIC(0, UA_NS0ID_BASEDATAVARIABLETYPE),
                                          attributes, source, context, nullptr));
    }

    static UA_StatusCode read(UA_Server*, const UA_NodeId*, void*, const UA_NodeId*, void* context,
                              UA_Boolean, const UA_NumericRange*, UA_DataValue* value) {
        const auto& stored = *static_cast<const UA_DataValue*>(context);
        return stored.hasValue ? UA_DataValue_copy(&stored, value) : stored.status;
    }

    void runJobs() {
        decltype(jobs_) jobs;
        {
            const std::lock_guard lock{mutex_};
            jobs.swap(jobs_);
        }
        for (const auto& job : jobs) {
            (*job)();
        }
    }

    void interceptSending(UA_EventLoop& loop) {
        for (auto* source = loop.eventSources; source != nullptr; source = source->next) {
            auto* const manager = reinterpret_cast<UA_ConnectionManager*>(source);
            if (source->eventSourceType == UA_EVENTSOURCETYPE_CONNECTIONMANAGER &&
                UA_String_equal(&manager->protocol, &tcp_)) {
                send_ = std::exchange(manager->sendWithConnection, intercept);
            }
        }
    }

    static UA_StatusCode intercept(UA_ConnectionManager* manager, uintptr_t connection,
                                   const UA_KeyValueMap* parameters, UA_ByteString* buffer) {
        current_->look(reinterpret_cast<char*>(buffer->data), buffer->length);
        return current_->send_(manager, connection, parameters, buffer);
    }

    void look(char* data, std::size_t size) {
        const std::string_view chunk{data, size};
        constexpr std::size_t headerSize = 24;
        const std::string_view readResponse{"\x01\x00\x7A\x02", 4};  // its encoding's node id
        readCount_ += chunk.substr(std::min(headerSize, size)).starts_with(readResponse);
        const auto& [from, to] = rewriting_;
        for (auto at = chunk.find(from); !from.empty() && at != chunk.npos;
             at = chunk.find(from, at + 1)) {
            std::ranges::copy(to, data + at);
        }
    }

    static void discard(void*, UA_LogLevel, UA_LogCategory, const char*, va_list) {}

    static inline thread_local OpcUaTestServer* current_ = nullptr;

    const Options options_;
    UA_String tcp_ = borrow("tcp");
    UA_Logger silentLog_{discard, nullptr, [](UA_Logger*) {}};
    decltype(UA_ConnectionManager::sendWithConnection) send_ = nullptr;
    UA_Server* server_ = nullptr;
    std::atomic<int> readCount_ = 0;
    std::pair<std::string, std::string> rewriting_;
    std::atomic<bool> stopped_ = false;
    std::mutex mutex_;
    std::vector<std::shared_ptr<std::packaged_task<void()>>> jobs_;
    std::deque<UA_DataValue> values_;  // the nodes point to them
    std::uint16_t port_ = 0;
    std::thread thread_;
};

}  // namespace TestSupport
