// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <memory>
#include <string_view>
#include <utility>

#include <open62541/client.h>
#include <open62541/client_config_default.h>
#include <open62541/types.h>
#include <open62541/types_generated_handling.h>

/// RAII owners for the handles of the OPC UA stack; nothing else releases what the stack allocates.
namespace PullappOpcUa {

/// Closes the connection and deletes the client without waiting for the server. Does not close the
/// session.
struct ClientDeleter {
    void operator()(UA_Client* client) const noexcept;
};

using ClientPtr = std::unique_ptr<UA_Client, ClientDeleter>;

/// A value of a type of the stack; its members are released with it.
template <typename T, std::size_t typeIndex>
class Owned {
  public:
    Owned() noexcept { UA_init(&value_, type()); }
    Owned(Owned&& other) noexcept : value_{other.value_} { UA_init(&other.value_, type()); }
    Owned& operator=(Owned&& other) noexcept {
        std::swap(value_, other.value_);
        return *this;
    }
    ~Owned() { UA_clear(&value_, type()); }

    [[nodiscard]] static const UA_DataType* type() noexcept { return &UA_TYPES[typeIndex]; }

    T& operator*() noexcept { return value_; }
    T* operator->() noexcept { return &value_; }
    const T* operator->() const noexcept { return &value_; }

  private:
    T value_;
};

using ReadResponse = Owned<UA_ReadResponse, UA_TYPES_READRESPONSE>;
using BrowseResponse = Owned<UA_BrowseResponse, UA_TYPES_BROWSERESPONSE>;
using BrowseNextResponse = Owned<UA_BrowseNextResponse, UA_TYPES_BROWSENEXTRESPONSE>;

/// The bytes of a string of the stack, which need not end in a zero byte.
[[nodiscard]] inline std::string_view bytesOf(const UA_String& text) noexcept {
    return {reinterpret_cast<const char*>(text.data), text.length};
}

}  // namespace PullappOpcUa
