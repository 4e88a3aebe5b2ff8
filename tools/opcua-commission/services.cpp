// SPDX-License-Identifier: MIT
#include "opcua-commission/services.hpp"

#include "opcua-commission/node_id.hpp"

#include <algorithm>
#include <array>
#include <deque>
#include <unordered_set>
#include <utility>

#include <fmt/format.h>

#include <open62541/nodeids.h>

namespace OpcUaCommission {
namespace {

/// Where the server gives no limit.
constexpr std::size_t usualNodes = 100;

/// Even where it allows more: an answer should come within the request time-out.
constexpr std::size_t mostNodes = 1000;

/// For references of a node that never end: give up after this many answers in a row with nothing
/// new.
constexpr int mostRepeatedAnswers = 100;

bool isBad(UA_StatusCode status) {
    return (status & 0x80000000U) != 0;
}

bool isTooMuch(UA_StatusCode status) {
    constexpr std::array statuses{
        UA_STATUSCODE_BADTOOMANYOPERATIONS, UA_STATUSCODE_BADREQUESTTOOLARGE,
        UA_STATUSCODE_BADRESPONSETOOLARGE, UA_STATUSCODE_BADENCODINGLIMITSEXCEEDED,
        UA_STATUSCODE_BADTCPMESSAGETOOLARGE};
    return std::ranges::find(statuses, status) != statuses.end();
}

ServerError notCarriedOut(std::string_view service, UA_StatusCode status) {
    return ServerError{
        fmt::format("the server does not carry out {}: {}", service, statusText(status))};
}

/// Status of an answer that must contain one result for each entry of the request.
template <typename Response>
UA_StatusCode statusOf(const Response& response, std::size_t asked) {
    const auto status = response->responseHeader.serviceResult;
    return status == UA_STATUSCODE_GOOD && response->resultsSize != asked
               ? UA_STATUSCODE_BADUNEXPECTEDERROR
               : status;
}

UA_BrowseNextRequest nextRequest(UA_ByteString* continuationPoints, std::size_t count) {
    UA_BrowseNextRequest request;
    UA_BrowseNextRequest_init(&request);
    request.continuationPoints = continuationPoints;
    request.continuationPointsSize = count;
    return request;
}

/// The server has none left, or has given this one to another node.
bool lacksContinuationPoint(UA_StatusCode status) {
    return status == UA_STATUSCODE_BADNOCONTINUATIONPOINTS ||
           status == UA_STATUSCODE_BADCONTINUATIONPOINTINVALID;
}

}  // namespace

/// Where the server continues with an entry.
struct Services::Continuation {
    std::size_t entry;
    std::size_t browsedTogether;  ///< number of entries in the Browse that returned it
    PullappOpcUa::Owned<UA_ByteString, UA_TYPES_BYTESTRING> point{};
    std::unordered_set<NodeId, NodeIdHash> seen{};
    int repeatedAnswers = 0;

    /// After an answer that does not end the references.
    void count(const UA_BrowseResult& result) {
        bool hasNew = false;
        for (std::size_t i = 0; i < result.referencesSize; ++i) {
            hasNew |= seen.emplace(result.references[i].nodeId.nodeId).second;
        }
        repeatedAnswers = hasNew ? 0 : repeatedAnswers + 1;
    }
};

/// The state of one call of `browse`.
struct Services::Browsing {
    const std::vector<UA_BrowseDescription>& entries;
    const OnReference& onReference;
    const OnFailure& onFailure;
    std::deque<std::size_t> pending;         // entries still to be browsed
    std::deque<Continuation> continuations;  // of those that have been

    void report(std::size_t entry, const UA_BrowseResult& result) const {
        for (std::size_t i = 0; i < result.referencesSize; ++i) {
            onReference(entry, result.references[i]);
        }
    }
};

Services::Services(Connection& connection)
    : connection_{connection}, maxNodesPerRead_{usualNodes}, maxNodesPerBrowse_{usualNodes} {
    takeLimits();
}

void Services::takeLimits() {
    const std::array<std::pair<UA_UInt32, std::size_t*>, 2> limits{{
        {UA_NS0ID_SERVER_SERVERCAPABILITIES_OPERATIONLIMITS_MAXNODESPERREAD, &maxNodesPerRead_},
        {UA_NS0ID_SERVER_SERVERCAPABILITIES_OPERATIONLIMITS_MAXNODESPERBROWSE, &maxNodesPerBrowse_},
    }};
    std::vector<UA_ReadValueId> entries(limits.size());
    for (std::size_t i = 0; i < limits.size(); ++i) {
        entries[i].nodeId = UA_NODEID_NUMERIC(0, limits[i].first);
        entries[i].attributeId = UA_ATTRIBUTEID_VALUE;
    }
    read(entries, [&](std::size_t i, const UA_DataValue& value) {
        if (value.hasValue && UA_Variant_hasScalarType(&value.value, &UA_TYPES[UA_TYPES_UINT32])) {
            // 0 means no limit
            if (const auto limit = *static_cast<const UA_UInt32*>(value.value.data); limit != 0) {
                *limits[i].second = std::min<std::size_t>(limit, mostNodes);
                if (limits[i].second == &maxNodesPerRead_) {
                    publishedReadLimit_ = limit;
                }
            }
        }
    });
}

/// After a request that failed. @return false if its only entry is too much by itself
bool Services::canRetryWithFewer(std::string_view service, UA_StatusCode status, std::size_t sent,
                                 std::size_t& limit) {
    if (isTooMuch(status)) {
        limit = std::max<std::size_t>(sent / 2, 1);
        return sent > 1;
    }
    // In either of the next two cases the stack has closed the connection
    if (status == UA_STATUSCODE_BADDECODINGERROR && sent == 1) {
        connection_.reopen();
        return false;
    }
    if (status == UA_STATUSCODE_BADTIMEOUT && sent > 1) {
        limit = std::max<std::size_t>(sent / 10, 1);
        connection_.reopen();
        return true;
    }
    throw notCarriedOut(service, status);
}

void Services::read(const std::vector<UA_ReadValueId>& entries, const OnValue& onValue) {
    // Entries up to here are read one by one, to find the one that the stack cannot decode
    std::size_t alone = 0;
    for (std::size_t first = 0; first < entries.size();) {
        const auto count = first < alone ? 1 : std::min(maxNodesPerRead_, entries.size() - first);
        UA_ReadRequest request;
        UA_ReadRequest_init(&request);
        request.timestampsToReturn = UA_TIMESTAMPSTORETURN_NEITHER;
        request.nodesToRead = const_cast<UA_ReadValueId*>(&entries[first]);
        request.nodesToReadSize = count;
        const auto response = connection_.read(request);
        const auto status = statusOf(response, count);
        if (status == UA_STATUSCODE_GOOD) {
            for (std::size_t i = 0; i < count; ++i) {
                onValue(first + i, response->results[i]);
            }
            first += count;
        } else if (status == UA_STATUSCODE_BADDECODINGERROR && count > 1) {
            connection_.reopen();
            alone = first + count;
        } else if (!canRetryWithFewer("Read", status, count, maxNodesPerRead_)) {
            UA_DataValue none{};
            none.hasStatus = true;
            none.status = status;
            onValue(first++, none);
        }
    }
}

void Services::browse(const std::vector<UA_BrowseDescription>& entries,
                      const OnReference& onReference, const OnFailure& onFailure) {
    Browsing browsing{entries, onReference, onFailure, {}, {}};
    for (std::size_t i = 0; i < entries.size(); ++i) {
        browsing.pending.push_back(i);
    }
    while (!browsing.pending.empty()) {
        browseFirst(browsing);
        while (!browsing.continuations.empty()) {
            browseNext(browsing);
        }
    }
}

void Services::browseFirst(Browsing& browsing) {
    auto& pending = browsing.pending;
    const auto count = std::min(maxNodesPerBrowse_, pending.size());
    std::vector<UA_BrowseDescription> sent;
    for (std::size_t i = 0; i < count; ++i) {
        sent.push_back(browsing.entries[pending[i]]);
    }
    UA_BrowseRequest request;
    UA_BrowseRequest_init(&request);
    request.nodesToBrowse = sent.data();
    request.nodesToBrowseSize = count;
    const auto response = connection_.browse(request);
    if (const auto status = statusOf(response, count); status != UA_STATUSCODE_GOOD) {
        if (!canRetryWithFewer("Browse", status, count, maxNodesPerBrowse_)) {
            browsing.onFailure(pending.front(), statusText(status));
            pending.pop_front();
        }
        return;
    }
    for (std::size_t i = 0; i < count; ++i) {
        const auto entry = pending.front();
        pending.pop_front();
        take(browsing, {.entry = entry, .browsedTogether = count}, response->results[i]);
    }
}

void Services::browseNext(Browsing& browsing) {
    auto& continuations = browsing.continuations;
    const auto count = std::min(maxNodesPerBrowse_, continuations.size());
    std::vector<UA_ByteString> sent;
    for (std::size_t i = 0; i < count; ++i) {
        sent.push_back(*continuations[i].point);
    }
    const auto response = connection_.browseNext(nextRequest(sent.data(), count));
    if (const auto status = statusOf(response, count); status != UA_STATUSCODE_GOOD) {
        if (!isTooMuch(status)) {  // a new session would not know the continuation points
            throw notCarriedOut("BrowseNext", status);
        }
        if (!canRetryWithFewer("BrowseNext", status, count, maxNodesPerBrowse_)) {
            browsing.onFailure(continuations.front().entry, statusText(status));
            continuations.pop_front();
        }
        return;
    }
    for (std::size_t i = 0; i < count; ++i) {
        auto continuation = std::move(continuations.front());
        continuations.pop_front();
        take(browsing, std::move(continuation), response->results[i]);
    }
}

void Services::take(Browsing& browsing, Continuation from, const UA_BrowseResult& result) {
    if (lacksContinuationPoint(result.statusCode) && from.browsedTogether > 1) {
        // Browse it again from its start, in smaller requests: fewer points are needed at once
        maxNodesPerBrowse_ = from.browsedTogether / 2;
        browsing.pending.push_back(from.entry);
        return;
    }
    if (isBad(result.statusCode)) {
        browsing.onFailure(from.entry, statusText(result.statusCode));
        return;
    }
    browsing.report(from.entry, result);
    if (result.continuationPoint.length == 0) {
        return;
    }
    from.count(result);
    if (from.repeatedAnswers == mostRepeatedAnswers) {
        release(result.continuationPoint);
        browsing.onFailure(from.entry, "the server repeats itself without end");
        return;
    }
    UA_ByteString_clear(&*from.point);
    UA_ByteString_copy(&result.continuationPoint, &*from.point);
    browsing.continuations.push_back(std::move(from));
}

/// Releases one that is not used up. All others end with the session.
void Services::release(UA_ByteString continuationPoint) {
    auto request = nextRequest(&continuationPoint, 1);
    request.releaseContinuationPoints = true;
    static_cast<void>(connection_.browseNext(request));
}

}  // namespace OpcUaCommission
