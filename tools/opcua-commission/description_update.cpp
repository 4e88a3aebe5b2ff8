// SPDX-License-Identifier: MIT
#include "opcua-commission/description_update.hpp"

#include "common/file.hpp"
#include "orvik/pushinterface/info_parser.hpp"

#include <limits>
#include <stdexcept>
#include <unordered_set>
#include <utility>

#include <fmt/format.h>

namespace OpcUaCommission {
namespace {

using Json = nlohmann::ordered_json;
using PullappOpcUa::AuthenticationType;
using PullappOpcUa::Device;
using PullappOpcUa::Tag;

constexpr std::size_t mostTags = 65535;
constexpr std::uint16_t usualPullDelay = 1000;

bool hasIndexedTags(const Description& description) {
    const auto& json = description.json;
    const auto& tags = description.device->tags;
    return json.is_object() &&
           (json.contains("tags") ? json["tags"].is_array() && json["tags"].size() == tags.size()
                                  : tags.empty());
}

bool hasLogIn(const Device& device) {
    return device.authenticationType == AuthenticationType::Username;
}

/// Unchanged values stay as they are written.
void setDevice(Description& description, const DescriptionSettings& settings, const Device& device,
               DescriptionChanges& changes) {
    auto& json = description.json;
    const auto& before = *description.device;
    const bool isNew = json.empty();
    const auto set = [&](const char* key, const auto& was, const auto& is) {
        if (isNew || was != is) {
            json[key] = is;
        }
        if (!isNew && was != is) {
            changes.notes.push_back(fmt::format("{} was {}, is {}", key, was, is));
        }
    };
    set("id", before.id, settings.id.empty() ? before.id : settings.id);
    set("ipAddress", before.ipAddress, device.ipAddress);
    set("port", before.port, device.port);
    set("pullDelay", before.pullDelay,
        settings.pullDelay.value_or(isNew ? usualPullDelay : before.pullDelay));
    const bool isSameLogIn = hasLogIn(before) && device.username == before.username &&
                             device.password == before.password;
    if (hasLogIn(device) && !isSameLogIn) {
        auto& options = json["protocolOptions"];
        options["authenticationtype"] = "username";
        options["username"] = device.username;
        options["password"] = device.password;
        if (!isNew) {
            changes.notes.push_back("the log-in is that of " + device.username);
        }
    }
    if (!json.contains("tags")) {
        json["tags"] = Json::array();
    }
}

/// Changes its type only; its other keys, and its place, stay.
void setType(Json& tag, TagType type) {
    for (const auto* key : {"signed", "width"}) {
        tag.erase(key);
    }
    if (type != TagType::String) {
        tag.erase("maxStringLength");
    }
    tag.update(typeKeys(type));
}

std::string nameOf(const Tag& tag) {
    return fmt::format("tag {} {}", tag.id, tag.address);
}

/// @return whether the tag is to be removed
bool updateTag(Json& json, const Tag& tag, const Variable& variable, bool prunes,
               DescriptionChanges& changes) {
    if (variable.isUnknown && prunes) {
        changes.notes.push_back(nameOf(tag) + ": gone from the server, removed");
        return true;
    }
    if (variable.isUnknown) {
        changes.problems.push_back(nameOf(tag) +
                                   ": gone from the server; kept, --prune removes it");
    } else if (!variable.isPullable()) {
        changes.problems.push_back(
            fmt::format("{}: cannot be pulled now: {}", nameOf(tag), variable.obstacle));
    } else if (variable.tagType != tag.tagType) {
        setType(json, variable.tagType);
        changes.notes.push_back(fmt::format("{}: type was {}, is {}", nameOf(tag),
                                            typeText(tag.tagType), variable.type));
    }
    return false;
}

/// Returns unused ids in ascending order.
class FreeIds {
  public:
    FreeIds(const Device& device, std::uint16_t first) : next_{first} {
        for (const auto& tag : device.tags) {
            used_.insert(tag->id);
        }
    }

    [[nodiscard]] std::optional<std::uint16_t> take() {
        while (used_.contains(next_)) {
            ++next_;
        }
        if (next_ > std::numeric_limits<std::uint16_t>::max()) {
            return std::nullopt;
        }
        return static_cast<std::uint16_t>(next_++);
    }

  private:
    std::unordered_set<std::uint32_t> used_;
    std::uint32_t next_;
};

std::vector<const Variable*> withoutTag(const std::vector<Variable>& found,
                                        const std::vector<Variable>& existing) {
    std::unordered_set<NodeId, NodeIdHash> described;
    for (const auto& variable : existing) {
        described.insert(variable.nodeId);
    }
    std::vector<const Variable*> result;
    for (const auto& variable : found) {
        if (variable.isPullable() && !described.contains(variable.nodeId)) {
            result.push_back(&variable);
        }
    }
    return result;
}

void addTags(Json& tags, const std::vector<const Variable*>& variables, FreeIds ids) {
    if (tags.size() + variables.size() > mostTags) {
        throw std::runtime_error{fmt::format(
            "{} tags are more than the {} that a description can have; choose fewer with --match, "
            "--exclude or --root",
            tags.size() + variables.size(), mostTags)};
    }
    for (const auto* variable : variables) {
        const auto id = ids.take();
        if (!id) {
            throw std::runtime_error{fmt::format(
                "no id up to {} is free for {} and what follows; choose a lower --first-id",
                std::numeric_limits<std::uint16_t>::max(), variable->path)};
        }
        Json tag{{"id", *id}, {"address", variable->address}};
        tag.update(typeKeys(variable->tagType));
        tags.push_back(std::move(tag));
    }
}

}  // namespace

Description readDescription(const std::string& path) {
    const auto text = Tools::readFile(path);
    Description description{Json::parse(text, nullptr, false), std::make_shared<Device>()};
    using Parser = Orvik::PushInterface::InfoParser<Device, Tag>;
    if (const auto error = Parser::parse(text, description.device); !error.empty()) {
        throw std::runtime_error{fmt::format("{}: the daemon would refuse it: {}", path, error)};
    }
    if (!hasIndexedTags(description)) {
        throw std::runtime_error{path + ": it is no JSON with an array of tags"};
    }
    return description;
}

DescriptionChanges update(Description& description, const DescriptionSettings& settings,
                          const Device& device, const std::vector<Variable>& existing,
                          const std::vector<Variable>& found) {
    DescriptionChanges changes;
    setDevice(description, settings, device, changes);
    Json tags = Json::array();
    for (std::size_t i = 0; i < existing.size(); ++i) {
        auto& tag = description.json["tags"][i];
        if (!updateTag(tag, *description.device->tags[i], existing[i], settings.prunes, changes)) {
            tags.push_back(std::move(tag));
        }
    }
    const auto added = withoutTag(found, existing);
    changes.added = added.size();
    addTags(tags, added, FreeIds{*description.device, settings.firstId});
    description.json["tags"] = std::move(tags);
    return changes;
}

}  // namespace OpcUaCommission
