// SPDX-License-Identifier: MIT
#include "opcua-commission/address_space.hpp"

#include "common/command_line.hpp"
#include "opcua-commission/browse_path.hpp"
#include "opcua/status_code_name.hpp"

#include <algorithm>
#include <array>
#include <limits>
#include <unordered_set>
#include <utility>

#include <fnmatch.h>

#include <fmt/format.h>

#include <open62541/nodeids.h>

namespace OpcUaCommission {
namespace {

using Tools::UsageError;

/// Read at least this many variables together: the last ones of a level wait for the next level.
constexpr std::size_t readTogether = 1000;

struct Node {
    NodeId id;
    std::string path;
    bool isVariable = false;
};

UA_BrowseDescription childrenOf(const Node& node) {
    UA_BrowseDescription entry;
    UA_BrowseDescription_init(&entry);
    entry.nodeId = node.id.get();
    entry.browseDirection = UA_BROWSEDIRECTION_FORWARD;
    entry.referenceTypeId = UA_NODEID_NUMERIC(0, UA_NS0ID_HIERARCHICALREFERENCES);
    entry.includeSubtypes = true;
    entry.nodeClassMask = UA_NODECLASS_OBJECT | UA_NODECLASS_VARIABLE;
    entry.resultMask = UA_BROWSERESULTMASK_NODECLASS | UA_BROWSERESULTMASK_BROWSENAME;
    return entry;
}

/// Servers may ignore the node class mask, and may refer to nodes of other servers.
bool isChild(const UA_ReferenceDescription& reference) {
    const bool isOurs =
        reference.nodeId.serverIndex == 0 && reference.nodeId.namespaceUri.length == 0;
    return isOurs && (reference.nodeClass == UA_NODECLASS_OBJECT ||
                      reference.nodeClass == UA_NODECLASS_VARIABLE);
}

Node childOf(const Node& parent, const UA_ReferenceDescription& reference) {
    return {.id = NodeId{reference.nodeId.nodeId},
            .path = parent.path + "/" + pathElement(reference.browseName),
            .isVariable = reference.nodeClass == UA_NODECLASS_VARIABLE};
}

Node objectsFolder() {
    return {.id = NodeId{UA_NODEID_NUMERIC(0, UA_NS0ID_OBJECTSFOLDER)}, .path = {}};
}

/// @throws UsageError if there is none of that name, or more than one
Node findChild(Services& services, const Node& parent, const std::string& name) {
    std::vector<Node> found;
    const auto wanted = "/" + name;
    services.browse(
        {childrenOf(parent)},
        [&](std::size_t, const UA_ReferenceDescription& reference) {
            auto child = childOf(parent, reference);
            const auto own = child.path.substr(parent.path.size());
            const bool isNew = std::ranges::find(found, child.id, &Node::id) == found.end();
            if (isChild(reference) && isNew &&
                (own == wanted || withoutNamespaces(own) == wanted)) {
                found.push_back(std::move(child));
            }
        },
        [&](std::size_t, const std::string& reason) {
            throw UsageError{fmt::format("{} cannot be browsed: {}", parent.path, reason)};
        });
    if (found.size() == 1) {
        return std::move(found.front());
    }
    const auto where = parent.path.empty() ? "the Objects folder" : parent.path;
    throw UsageError{found.empty() ? fmt::format("there is no '{}' in {}", name, where)
                                   : fmt::format("'{}' is not the only one in {}: give {} or {}",
                                                 name, where, found[0].path, found[1].path)};
}

Node findRootByPath(Services& services, const std::string& path) {
    auto node = objectsFolder();
    auto elements = splitPath(path);
    std::erase(elements, "");
    if (!elements.empty() && (elements.front() == "Objects" || elements.front() == "0:Objects")) {
        elements.erase(elements.begin());
    }
    for (const auto& element : elements) {
        node = findChild(services, node, element);
    }
    return node;
}

Node findRootByAddress(Services& services, const std::string& address) {
    Node node{.id = parseNodeId(address), .path = {}};
    constexpr std::array attributes{UA_ATTRIBUTEID_BROWSENAME, UA_ATTRIBUTEID_NODECLASS};
    std::vector<UA_ReadValueId> entries(attributes.size());
    for (std::size_t i = 0; i < attributes.size(); ++i) {
        entries[i].nodeId = node.id.get();
        entries[i].attributeId = attributes.at(i);
    }
    services.read(entries, [&](std::size_t i, const UA_DataValue& value) {
        const auto& variant = value.value;
        if (!value.hasValue || !UA_Variant_isScalar(&variant)) {
            const auto name = PullappOpcUa::statusCodeName(value.status);
            throw UsageError{fmt::format("there is no {} ({})", address, name)};
        }
        if (i == 0 && variant.type == &UA_TYPES[UA_TYPES_QUALIFIEDNAME]) {
            node.path = "/" + pathElement(*static_cast<const UA_QualifiedName*>(variant.data));
        } else if (i == 1 && variant.type == &UA_TYPES[UA_TYPES_INT32]) {
            node.isVariable = *static_cast<const UA_Int32*>(variant.data) == UA_NODECLASS_VARIABLE;
        }
    });
    if (node.id == objectsFolder().id) {
        node.path.clear();
    }
    return node;
}

Node findRoot(Services& services, const std::string& root) {
    return root.empty() || root.starts_with('/') ? findRootByPath(services, root)
                                                 : findRootByAddress(services, root);
}

bool matchesAny(const std::vector<std::string>& globs, const std::string& path) {
    const auto plain = withoutNamespaces(path);
    return std::ranges::any_of(globs, [&](const std::string& glob) {
        return ::fnmatch(glob.c_str(), path.c_str(), 0) == 0 ||
               ::fnmatch(glob.c_str(), plain.c_str(), 0) == 0;
    });
}

/// One walk from the root to the leaves.
class Search {
  public:
    Search(Services& services, const BrowseSettings& settings, Progress& progress,
           BrowseResult& result)
        : services_{services},
          reader_{services},
          settings_{settings},
          progress_{progress},
          result_{result} {}

    void run() {
        std::vector<Node> level;
        auto root = findRoot(services_, settings_.root);
        // If the root is one of the server's own nodes, so are the nodes below it: list them
        isAll_ = settings_.isAll ||
                 (root.id.get().namespaceIndex == 0 && !(root.id == objectsFolder().id));
        take(std::move(root), level);
        auto left = settings_.depth.value_or(std::numeric_limits<std::size_t>::max());
        for (; left > 0 && !level.empty(); --left) {
            level = browseLevel(level);
        }
        readNew();
    }

  private:
    std::vector<Node> browseLevel(const std::vector<Node>& level) {
        std::vector<UA_BrowseDescription> entries;
        entries.reserve(level.size());
        std::ranges::transform(level, std::back_inserter(entries), childrenOf);
        std::vector<Node> next;
        services_.browse(
            entries,
            [&](std::size_t i, const UA_ReferenceDescription& reference) {
                const bool isWantedNamespace =
                    isAll_ || reference.nodeId.nodeId.namespaceIndex != 0;
                if (isWantedNamespace && isChild(reference)) {
                    take(childOf(level[i], reference), next);
                }
            },
            [&](std::size_t i, const std::string& reason) {
                result_.refused.push_back(fmt::format("{} ({}): {}", level[i].path,
                                                      addressOf(level[i].id.get()), reason));
            });
        readNew();
        return next;
    }

    void take(Node&& node, std::vector<Node>& level) {
        if (!seen_.insert(node.id).second) {
            return;
        }
        ++result_.nodes;
        if (node.isVariable && isWanted(settings_, node.path)) {
            auto& variable = result_.variables.emplace_back();
            variable.nodeId = node.id;
            variable.path = node.path;
        }
        level.push_back(std::move(node));
        progress_.show(result_.nodes, result_.variables.size());
    }

    void readNew() {
        while (read_ < result_.variables.size()) {
            const auto count = std::min(readTogether, result_.variables.size() - read_);
            reader_.read(result_.variables, read_, count);
            read_ += count;
            progress_.show(result_.nodes, result_.variables.size());
        }
    }

    Services& services_;
    VariableReader reader_;
    const BrowseSettings& settings_;
    Progress& progress_;
    BrowseResult& result_;
    bool isAll_ = false;
    std::unordered_set<NodeId, NodeIdHash> seen_;
    std::size_t read_ = 0;  // number of variables read
};

}  // namespace

bool isWanted(const BrowseSettings& settings, const std::string& path) {
    return !matchesAny(settings.exclude, path) &&
           (settings.match.empty() || matchesAny(settings.match, path));
}

void browse(Services& services, const BrowseSettings& settings, Progress& progress,
            BrowseResult& result) {
    Search{services, settings, progress, result}.run();
}

}  // namespace OpcUaCommission
