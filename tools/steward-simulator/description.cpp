// SPDX-License-Identifier: MIT
#include "steward-simulator/description.hpp"

#include "description/problems.hpp"
#include "opcua/device.hpp"
#include "orvik/pushinterface/info_parser.hpp"

#include <algorithm>
#include <utility>

namespace StewardSimulator {

std::string Description::addTag(std::shared_ptr<Tag> tag) {
    positions.emplace(tag->id, tags.size());
    tags.push_back(std::move(tag));
    return {};
}

std::string joinLines(std::string_view json) {
    std::string line{json.substr(0, json.find_last_not_of(" \r\n") + 1)};
    std::replace(line.begin(), line.end(), '\n', ' ');
    return line;
}

std::string parseDescription(std::string json, const std::shared_ptr<Description>& description) {
    description->json = std::move(json);
    return Orvik::PushInterface::InfoParser<Description, Tag>::parse(description->json,
                                                                     description);
}

Findings examine(std::string_view source) {
    const auto problems = Tools::findProblems(source);
    Findings findings;
    for (const auto& problem : problems) {
        findings.problems.push_back(Tools::oneLine(problem));
    }
    const auto verdict = Tools::daemonVerdict(source, std::make_shared<PullappOpcUa::Device>());
    if (!verdict.empty()) {
        const auto refused = std::ranges::find(problems, verdict, &Tools::Problem::text);
        findings.refusal = refused == problems.end() ? verdict : Tools::oneLine(*refused);
    }
    return findings;
}

}  // namespace StewardSimulator
