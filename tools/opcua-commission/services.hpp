// SPDX-License-Identifier: MIT
#pragma once

#include "opcua-commission/connection.hpp"

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace OpcUaCommission {

/**
 * Read and Browse of any number of nodes, in as few requests as the server accepts. Where it does
 * not publish its limits, a request has 100 nodes, and fewer where the server finds that too many.
 *
 * What the entries refer to must live until the call returns. All calls throw ServerError if the
 * server does not answer properly, and Interrupted.
 */
class Services {
  public:
    /// Asks the server for its limits. The connection must outlive this object.
    explicit Services(Connection& connection);

    /// How many nodes the server accepts in one Read; nothing if it publishes no limit.
    [[nodiscard]] std::optional<std::size_t> publishedReadLimit() const {
        return publishedReadLimit_;
    }

    /// Once for each entry, in their order. Without a value, the status says why.
    using OnValue = std::function<void(std::size_t entry, const UA_DataValue& value)>;
    void read(const std::vector<UA_ReadValueId>& entries, const OnValue& onValue);

    /// Any number of times for each entry; one reference may come more than once.
    using OnReference =
        std::function<void(std::size_t entry, const UA_ReferenceDescription& reference)>;
    /// At most once for each entry that has been browsed only in part or not at all.
    using OnFailure = std::function<void(std::size_t entry, std::string reason)>;
    void browse(const std::vector<UA_BrowseDescription>& entries, const OnReference& onReference,
                const OnFailure& onFailure);

  private:
    struct Browsing;
    struct Continuation;

    void takeLimits();
    [[nodiscard]] bool canRetryWithFewer(std::string_view service, UA_StatusCode status,
                                         std::size_t sent, std::size_t& limit);
    void browseFirst(Browsing& browsing);
    void browseNext(Browsing& browsing);
    void take(Browsing& browsing, Continuation from, const UA_BrowseResult& result);
    void release(UA_ByteString continuationPoint);

    Connection& connection_;
    std::size_t maxNodesPerRead_;
    std::size_t maxNodesPerBrowse_;
    std::optional<std::size_t> publishedReadLimit_;
};

}  // namespace OpcUaCommission
