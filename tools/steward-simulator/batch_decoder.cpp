// SPDX-License-Identifier: MIT
#include "steward-simulator/batch_decoder.hpp"

#include "orvik/pushinterface/protocol.hpp"
#include "steward-simulator/value_check.hpp"

#include <algorithm>
#include <utility>

namespace StewardSimulator {
namespace {

using namespace Orvik::PushInterface;

constexpr std::string_view devcPrefix = "DEVC ";

/// An identity is an id, a blank and a key; either may hold further blanks.
bool isLogOn(std::string_view line) {
    return line.starts_with(devcPrefix) &&
           line.substr(0, line.size() - 1).find(' ', devcPrefix.size() + 1) !=
               std::string_view::npos;
}

bool isMessage(std::string_view line) {
    return line.front() == '@' || line == MessageType::info || line == MessageType::exit ||
           isLogOn(line);
}

bool beginsWithDigit(std::string_view line) {
    return line.front() >= '0' && line.front() <= '9';
}

}  // namespace

void BatchDecoder::feed(std::string_view chunk) {
    splitter_.feed(chunk, [this](std::string_view line) { takeLine(line); });
}

void BatchDecoder::takeLine(std::string_view line) {
    if (handler_.isDone()) {
        return;
    }
    if (line.empty()) {
        endBatch();
    } else if (beginsWithDigit(line) || (isWithinBatch() && !isMessage(line))) {
        takeValue(line);
    } else {
        takeMessage(line);
    }
}

void BatchDecoder::takeMessage(std::string_view line) {
    if (isWithinBatch()) {
        handler_.onFault({line, "message within a batch"});
    }
    if (line.front() == '@') {
        takeNamedValue(line);
    } else if (line == MessageType::info) {
        handler_.onInfoRequest();
    } else if (line == MessageType::exit) {
        handler_.onExit();
    } else if (isMessage(line)) {
        handler_.onDevc(line.substr(devcPrefix.size()));
    } else {
        handler_.onFault({line, "unknown message"});
    }
}

void BatchDecoder::takeNamedValue(std::string_view line) {
    const auto equals = line.find('=');
    const auto name = line.substr(1, equals - 1);
    const auto value =
        equals == std::string_view::npos ? std::nullopt : decodeString(line.substr(equals + 1));
    if (name.empty() || !value) {
        handler_.onFault({line, "not a named value with its byte count"});
    } else if (name == errorMessageName && value->size() > maxErrorMessageLength) {
        handler_.onFault({line, "error text of more than 255 bytes"});
    } else {
        handler_.onNamedValue(name, *value);
    }
}

void BatchDecoder::takeValue(std::string_view line) {
    ++lineCount_;
    byteCount_ += line.size() + 1;
    if (values_ == Values::Checked) {
        lines_ += line;
        lines_ += '\n';
    }
}

void BatchDecoder::endBatch() {
    Batch batch;
    batch.valueCount = std::exchange(lineCount_, 0);
    batch.bytes = std::exchange(byteCount_, 0) + 1;
    if (values_ == Values::Checked) {
        checkBatch(batch);
    }
    handler_.onBatch(batch);
    lines_.clear();
}

void BatchDecoder::checkBatch(Batch& batch) {
    batch.lines = lines_;
    if (descriptions_.empty()) {
        handler_.onFault({batch.lines, "batch before any description"});
        return;
    }
    auto decoded = decodeBatch(lines_, *descriptions_.back());
    batch.description = descriptions_.back();
    if (!decoded.faults.empty()) {
        preferOlderDescription(batch, decoded);
    }
    if (decoded.faults.empty()) {
        forgetBefore(batch.description);
    }
    for (const auto& fault : decoded.faults) {
        handler_.onFault(fault);
    }
    batch.values = std::move(decoded.values);
    batch.valueCount = static_cast<std::size_t>(
        std::count_if(batch.values.begin(), batch.values.end(),
                      [](std::string_view value) { return !value.empty(); }));
}

void BatchDecoder::preferOlderDescription(Batch& batch, DecodedBatch& decoded) const {
    for (const auto& older : descriptions_) {
        auto decodedAsOlder = decodeBatch(lines_, *older);
        if (decodedAsOlder.faults.empty()) {
            decoded = std::move(decodedAsOlder);
            batch.description = older;
            return;
        }
    }
}

void BatchDecoder::forgetBefore(const DescriptionPtr& description) {
    while (descriptions_.front() != description) {
        descriptions_.pop_front();
    }
}

void BatchDecoder::describe(DescriptionPtr description) {
    if (descriptions_.empty() || descriptions_.back()->json != description->json) {
        descriptions_.push_back(std::move(description));
    }
}

bool BatchDecoder::isIncomplete() const noexcept {
    return isWithinBatch() || !splitter_.rest().empty();
}

}  // namespace StewardSimulator
