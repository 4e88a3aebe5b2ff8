// SPDX-License-Identifier: MIT
#pragma once

#include "orvik/pushinterface/detail/json_outline.hpp"
#include "orvik/pushinterface/device.hpp"
#include "orvik/pushinterface/tag.hpp"

#include <concepts>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

#include <boost/property_tree/ptree.hpp>

namespace Orvik::PushInterface {

/// A protocol's tag: default-constructed, then filled field by field.
template <typename T>
concept DescribedTag = std::derived_from<T, Tag> && std::default_initializable<T>;

/// A protocol's device. Each operation returns the empty text when it accepts.
template <typename T, typename TagOfDevice>
concept DescribedDevice = std::derived_from<T, Device> &&
    requires(T device, TagOfDevice& tag, std::shared_ptr<TagOfDevice> sharedTag) {
    { device.parseTag(tag) } -> std::same_as<std::string>;      // understands tag.address
    { device.addTag(sharedTag) } -> std::same_as<std::string>;  // keeps it, in this order
    { device.parseDevice() } -> std::same_as<std::string>;      // prepares the whole device
};

/**
 * Reads the JSON description of a device. Keys that it does not know are ignored; of a key that
 * occurs twice, the first is used; numbers may be given as texts.
 */
template <typename DeviceOfProtocol, typename TagOfDevice>
requires DescribedTag<TagOfDevice> && DescribedDevice<DeviceOfProtocol, TagOfDevice>
class InfoParser {
  public:
    /**
     * Fills a device and its tags.
     *
     * @param device empty; partly filled and of no use after a failure
     * @return the first problem as one line, empty if there is none
     * @throws std::domain_error if the device is null
     */
    [[nodiscard]] static std::string parse(const std::string& info,
                                           const std::shared_ptr<DeviceOfProtocol>& device) {
        if (!device) {
            throw std::domain_error{
                "Orvik::PushInterface::InfoParser::parse: device must be a valid pointer"};
        }
        Detail::JsonOutline json;
        if (auto error = json.read(info); !error.empty()) {
            return error;
        }
        if (auto error = readDevice(json.tree, *device); !error.empty()) {
            return error;
        }
        if (auto error = readProtocolOptions(json.tree, *device); !error.empty()) {
            return error;
        }
        if (auto error = readTags(json, *device); !error.empty()) {
            return error;
        }
        return prefixed("Could not parse device: ", device->parseDevice());
    }

  private:
    using Tree = boost::property_tree::ptree;

    static std::string readDevice(const Tree& tree, DeviceOfProtocol& device) {
        if (!read(tree, "id", device.id)) {
            return "Could not read id";
        }
        if (!read(tree, "ipAddress", device.ipAddress)) {
            return "Could not read ipAddress";
        }
        if (!read(tree, "port", device.port)) {
            return "Could not read port";
        }
        readIfPossible(tree, "pullDelay", device.pullDelay);
        return {};
    }

    static std::string readProtocolOptions(const Tree& tree, DeviceOfProtocol& device) {
        if (const auto options = tree.get_child_optional("protocolOptions")) {
            for (const auto& [name, value] : *options) {
                auto error = prefixed("Could not read protocolOptions[" + name + "]: ",
                                      device.setProtocolOption(name, value.data()));
                if (!error.empty()) {
                    return error;
                }
            }
        }
        return {};
    }

    /// Removes from the outline what has become a tag, so that both are not in memory together.
    static std::string readTags(Detail::JsonOutline& json, DeviceOfProtocol& device) {
        if (const auto tags = json.tree.get_child_optional("tags")) {
            for (; !tags->empty(); tags->pop_front()) {
                auto& description = tags->front().second;
                json.expand(description);
                if (auto error = readTag(description, device); !error.empty()) {
                    return error;
                }
            }
        }
        return {};
    }

    static std::string readTag(const Tree& tree, DeviceOfProtocol& device) {
        const auto tag = std::make_shared<TagOfDevice>();
        if (!read(tree, "address", tag->address)) {
            return "Could not read address for tag";
        }
        const auto name = "tag[address=" + tag->address + "]";
        if (const auto unreadable = readTagFields(tree, *tag); !unreadable.empty()) {
            return "Could not read " + name + " " + unreadable;
        }
        auto error = prefixed("Could not parse " + name + ": ", device.parseTag(*tag));
        if (error.empty()) {
            error = prefixed("Could not add " + name + " to device: ", device.addTag(tag));
        }
        return error;
    }

    /// @return what cannot be read
    static std::string readTagFields(const Tree& tree, TagOfDevice& tag) {
        if (!read(tree, "id", tag.id)) {
            return "id";
        }
        if (!read(tree, "type", tag.type)) {
            return "type";
        }
        const bool isInteger = tag.type == "int";
        if (isInteger && !read(tree, "signed", tag.isSigned)) {
            return "signed";
        }
        if ((isInteger || tag.type == "float") && !read(tree, "width", tag.width)) {
            return "width";
        }
        if (tag.type == "string" || tag.type == "str") {
            readIfPossible(tree, "maxStringLength", tag.maxStringLength);
        }
        tag.tagType = resolveTagType(tag.type, tag.isSigned, tag.width);
        return tag.tagType == TagType::Unknown ? "type info" : "";
    }

    /// @return false if the key is missing or its value does not convert
    template <typename Value>
    [[nodiscard]] static bool read(const Tree& tree, const char* key, Value& target) {
        auto value = tree.get_optional<Value>(key);
        if (value) {
            target = std::move(*value);
        }
        return value.has_value();
    }

    /// Numbers are read wider than they are kept: the reader takes 8 bits for a character, and
    /// wraps negative numbers.
    template <std::unsigned_integral Number>
    requires(!std::same_as<Number, bool>)
        [[nodiscard]] static bool read(const Tree& tree, const char* key, Number& target) {
        const auto value = tree.get_optional<std::int64_t>(key);
        if (!value || !std::in_range<Number>(*value)) {
            return false;
        }
        target = static_cast<Number>(*value);
        return true;
    }

    template <typename Value>
    static void readIfPossible(const Tree& tree, const char* key, Value& target) {
        static_cast<void>(read(tree, key, target));
    }

    static std::string prefixed(const std::string& prefix, const std::string& error) {
        return error.empty() ? error : prefix + error;
    }
};

}  // namespace Orvik::PushInterface
