// SPDX-License-Identifier: MIT
#include "opcua-commission/checked_description.hpp"

#include "common/file.hpp"
#include "description/object_check.hpp"

#include <numeric>

#include <fmt/format.h>

namespace OpcUaCommission {
namespace {

using PullappOpcUa::Device;
using PullappOpcUa::Tag;
using Tools::Object;

std::string textOf(const Object& object, std::string_view key) {
    const auto* member = object.find(key);
    return member == nullptr ? std::string{} : member->text;
}

std::uint16_t numberOf(const Object& object, std::string_view key) {
    const auto* member = object.find(key);
    return member == nullptr ? std::uint16_t{0}
                             : Tools::numberOf<std::uint16_t>(*member).value_or(0);
}

/// As the daemon reads it, else only its id and address. Null if not even these can be read.
std::shared_ptr<Tag> readTag(std::string_view json, const Object& object) {
    const auto probe = std::make_shared<Device>();
    const auto alone =
        fmt::format(R"({{"id":"","ipAddress":"","port":1,"tags":[{}]}})", object.range.of(json));
    if (Tools::daemonVerdict(alone, probe).empty() && probe->tags.size() == 1) {
        return probe->tags.front();
    }
    auto tag = std::make_shared<Tag>();
    tag->id = numberOf(object, "id");
    tag->address = textOf(object, "address");
    return tag->parseAddress().empty() ? tag : nullptr;
}

/// Where the server is and how to log in, as far as that can be read.
void readServer(const Tools::Document& document, Device& device) {
    device.id = textOf(document.device, "id");
    device.ipAddress = textOf(document.device, "ipAddress");
    device.port = numberOf(document.device, "port");
    device.pullDelay = numberOf(document.device, "pullDelay");
    for (const auto& option : document.options.members) {
        static_cast<void>(device.setProtocolOption(option.key, option.text));  // already reported
    }
}

}  // namespace

CheckedDescription::CheckedDescription(const std::string& path)
    : file{path},
      json{Tools::readFile(path)},
      document{Tools::readDocument(json)},
      problems{Tools::findProblems(document)},
      device{std::make_shared<Device>()} {
    verdict = Tools::daemonVerdict(json, device);
    if (verdict.empty()) {
        tagCount = device->tags.size();
        positions.resize(tagCount);
        std::iota(positions.begin(), positions.end(), std::size_t{0});
        return;
    }
    device = std::make_shared<Device>();
    readServer(document, *device);
    tagCount = document.tags.size();
    for (std::size_t position = 0; position < tagCount; ++position) {
        if (const auto tag = readTag(json, document.tags[position]); tag != nullptr) {
            static_cast<void>(device->addTag(tag));
            positions.push_back(position);
        }
    }
    static_cast<void>(device->parseDevice());
}

}  // namespace OpcUaCommission
