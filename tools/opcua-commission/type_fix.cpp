// SPDX-License-Identifier: MIT
#include "opcua-commission/type_fix.hpp"

#include "description/tag_type.hpp"

#include <string_view>
#include <utility>

namespace OpcUaCommission {
namespace {

using Tools::Member;
using Tools::Object;
using Tools::Range;

bool isPartOfType(const Member& member) {
    return member.key == "type" || member.key == "signed" || member.key == "width";
}

/// A tag with the keys of its type together, where the first of them was.
std::string withType(std::string_view json, const Object& tag, TagType type) {
    std::string text{"{"};
    auto end = tag.range.begin + 1;  // of the previous member
    bool isTypeWritten = false;
    for (const auto& member : tag.members) {
        const auto gap = Range{end, member.keyRange.begin}.of(json);  // with its comma
        if (!isPartOfType(member)) {
            text += gap;
            text += Range{member.keyRange.begin, member.range.end}.of(json);
        } else if (!std::exchange(isTypeWritten, true)) {
            text += gap;
            text += Tools::typeKeys(type);
        }
        end = member.range.end;
    }
    if (!isTypeWritten) {
        text += (tag.members.empty() ? "" : ", ") + Tools::typeKeys(type);
    }
    text += Range{end, tag.range.end}.of(json);
    return text;
}

}  // namespace

std::string withRightTypes(const Tools::Document& document, const std::vector<TagCheck>& tags) {
    std::string text;
    std::size_t done = 0;
    for (std::size_t i = 0; i < document.tags.size() && i < tags.size(); ++i) {
        const auto& tag = document.tags[i];
        if (tags[i].rightType && tag.isObject) {
            text += Range{done, tag.range.begin}.of(document.json);
            text += withType(document.json, tag, *tags[i].rightType);
            done = tag.range.end;
        }
    }
    text += document.json.substr(done);
    return text;
}

}  // namespace OpcUaCommission
