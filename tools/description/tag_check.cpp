// SPDX-License-Identifier: MIT
#include "common/text.hpp"
#include "description/checks.hpp"
#include "description/nearest.hpp"
#include "description/object_check.hpp"
#include "description/tag_type.hpp"
#include "opcua/device.hpp"

#include <algorithm>
#include <array>
#include <memory>

#include <fmt/format.h>

namespace Tools {
namespace {

constexpr std::array forms{
    KeyForm{"address", R"("address": for example "ns=2;i=1001")", R"("")"},
    KeyForm{"id", R"("id": a number from 0 to 65535)", "0"},
    KeyForm{"type", R"("type": "bool", "int", "float" or "string")", R"("bool")"},
    KeyForm{"signed", R"("signed": true or false)", "true"},
    KeyForm{"width", R"("width": 8, 16, 32 or 64)", "32"},
};
constexpr KeyForm floatWidthForm{"width", R"("width": 32 or 64)", "32"};
constexpr KeyForm lengthForm{"maxStringLength",
                             R"("maxStringLength": a number from 0 to 4294967295)", "0"};

constexpr std::array<std::string_view, 5> types{"bool", "int", "float", "string", "str"};

bool isKnownType(std::string_view type) {
    return std::ranges::find(types, type) != types.end();
}

/// If the type is unknown, any of the keys may be needed.
Keys keysFor(std::string_view type) {
    Keys keys{.read = {"address", "id", "type"}, .ignored = {}};
    const auto put = [&](std::string_view key, bool isRead) {
        (isRead || !isKnownType(type) ? keys.read : keys.ignored).push_back(key);
    };
    put("signed", type == "int");
    put("width", type == "int" || type == "float");
    put("maxStringLength", type == "string" || type == "str");
    return keys;
}

std::string textOf(const Member* member) {
    return member == nullptr ? std::string{} : member->text;
}

/// What a tag is known by: "tag 3 (id 7, ns=2;i=5)".
std::string nameOf(const Object& tag, std::size_t index) {
    constexpr std::size_t longestAddress = 60;
    const auto* id = tag.find("id");
    const auto* address = tag.find("address");
    return fmt::format(
        "tag {} (id {}, {})", index + 1, id == nullptr ? "missing" : id->text,
        address == nullptr ? "no address" : shortened(address->text, longestAddress));
}

/// What should be unique among the tags.
class SeenTags {
  public:
    explicit SeenTags(const std::vector<Object>& tags) : isTaken_(65536) {
        for (const auto& tag : tags) {
            const auto* id = tag.find("id");
            if (const auto number = id == nullptr ? std::nullopt : numberOf<std::uint16_t>(*id)) {
                isTaken_[*number] = true;
            }
        }
    }

    /// An id that no tag has; nothing if all are used.
    [[nodiscard]] std::optional<std::uint16_t> takeFreeId() {
        const auto free = std::find(std::next(isTaken_.begin()), isTaken_.end(), false);
        if (free == isTaken_.end()) {
            return std::nullopt;
        }
        *free = true;
        return static_cast<std::uint16_t>(std::distance(isTaken_.begin(), free));
    }

    std::unordered_map<std::uint16_t, std::string> ids;  ///< with the names of the tags
    std::unordered_map<std::string, std::string> addresses;

  private:
    std::vector<bool> isTaken_;  // of all ids
};

std::string adviceForId(std::optional<std::uint16_t> freeId) {
    return freeId ? fmt::format("write a free one, for example \"id\": {}", *freeId)
                  : std::string{"remove a tag: all ids are used"};
}

class TagCheck {
  public:
    TagCheck(ProblemList& list, const Document& description, std::size_t index)
        : list_{list},
          tag_{description.tags[index]},
          type_{textOf(tag_.find("type"))},
          check_{list, description,
                 Scope{tag_, nlohmann::json::json_pointer{"/tags"} / index, nameOf(tag_, index),
                       index},
                 keysFor(type_)} {}

    /// @param isAccepted whether the daemon accepts the whole description, and with it this tag
    void run(bool isAccepted, SeenTags& seen) {
        if (!tag_.isObject && tag_.members.empty()) {
            list_.add(check_.scope(), nullptr, "Could not read address for tag",
                      "write a tag as an object, in braces");
            return;
        }
        for (auto left = 2 * forms.size(); !isAccepted && left > 0 && repairFirstProblem();
             --left) {
        }
        check_.checkOptionalNumber<std::uint32_t>(lengthForm, "the texts are not cut");
        warnOfAddress();
        compareWith(seen);
    }

  private:
    /// @return whether there may be another problem
    bool repairFirstProblem() {
        const auto text =
            daemonVerdict(R"({"id":"","ipAddress":"","port":1,"tags":[)" + check_.repaired() + "]}",
                          std::make_shared<PullappOpcUa::Device>());
        const auto key = unreadableKey(text);
        if (key == "type info") {
            reportType(text);
        } else if (key == "width" && type_ == "float") {
            check_.reportUnreadable(floatWidthForm, text);
        } else if (const auto form = std::ranges::find(forms, key, &KeyForm::key);
                   form != forms.end()) {
            check_.reportUnreadable(*form, text);
        } else {
            reportAddress(text);
        }
        return !key.empty();
    }

    /// The key that the daemon's text ends with, or empty if it has read all keys.
    static std::string unreadableKey(const std::string& text) {
        if (text == "Could not read address for tag") {
            return "address";
        }
        if (!text.starts_with("Could not read tag[")) {
            return {};
        }
        return text.ends_with("] type info") ? "type info" : text.substr(text.rfind(' ') + 1);
    }

    /// Either the width does not fit the type, or there is no such type.
    void reportType(const std::string& text) {
        if (isKnownType(type_)) {
            check_.reportUnreadable(type_ == "float" ? floatWidthForm : forms.back(), text);
            return;
        }
        const auto named = typeNamed(type_);
        const auto meant = named ? std::nullopt : nearest(type_, types);
        type_ = meant.value_or("bool");
        const auto value = fmt::format("\"{}\"", type_);
        const auto form = named   ? typeKeys(*named)
                          : meant ? "\"type\": " + value
                                  : std::string{forms[2].form};
        check_.reportUnreadable({"type", form, value}, text);
    }

    void reportAddress(const std::string& text) {
        if (const auto* address = check_.member("address"); address != nullptr && !text.empty()) {
            list_.add(check_.scope(), address, text, adviceForAddress(address->text));
        }
    }

    void warnOfAddress() {
        const auto* address = check_.member("address");
        if (address == nullptr) {
            return;
        }
        if (auto text = unexpectedMeaningOf(address->text); !text.empty()) {
            list_.add(check_.scope(), address, std::move(text), "write the address that is meant");
        }
    }

    void compareWith(SeenTags& seen) {
        const auto* id = check_.member("id");
        const auto number = id == nullptr ? std::nullopt : numberOf<std::uint16_t>(*id);
        if (number) {
            const auto [known, isNew] = seen.ids.try_emplace(*number, check_.scope().tag);
            if (!isNew) {
                list_.add(check_.scope(), id,
                          fmt::format("id {} is also that of {}: the steward cannot tell their "
                                      "values apart",
                                      *number, known->second),
                          adviceForId(seen.takeFreeId()));
            }
        }
        const auto* address = check_.member("address");
        if (address != nullptr) {
            const auto [known, isNew] =
                seen.addresses.try_emplace(address->text, check_.scope().tag);
            if (!isNew) {
                list_.note(check_.scope(), address, "same address as " + known->second);
            }
        }
    }

    ProblemList& list_;
    const Object& tag_;
    std::string type_;  // or what is most likely meant
    ObjectCheck check_;
};

}  // namespace

void checkTags(ProblemList& list, const Document& description, bool isAccepted) {
    SeenTags seen{description.tags};
    for (std::size_t index = 0; index < description.tags.size(); ++index) {
        TagCheck{list, description, index}.run(isAccepted, seen);
    }
}

}  // namespace Tools
