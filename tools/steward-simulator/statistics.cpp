// SPDX-License-Identifier: MIT
#include "steward-simulator/statistics.hpp"

#include "common/text.hpp"

#include <algorithm>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace StewardSimulator {
namespace {

constexpr std::size_t keptErrorTexts = 100;
constexpr std::size_t keptFaults = 10;
constexpr std::size_t shownErrorBytes = 200;

}  // namespace

void Statistics::countLogOn(Clock::time_point now) {
    ++logOns_;
    lastLogOn_ = now;
}

void Statistics::countBatch(const Batch& batch, Clock::time_point now) {
    ++batches_;
    values_ += batch.valueCount;
    if (batches_ == 1 && lastLogOn_) {
        firstBatchDelay_ = now - *lastLogOn_;
    }
    if (lastBatch_) {
        gap_ = now - *lastBatch_;
        worstGap_ = std::max(worstGap_, gap_);
    }
    lastBatch_ = now;
}

void Statistics::countError(std::string_view text) {
    if (text.empty()) {
        return;
    }
    ++errors_;
    if (const auto known = errorTexts_.find(text); known != errorTexts_.end()) {
        ++known->second;
    } else if (errorTexts_.size() < keptErrorTexts) {
        errorTexts_.emplace(text, 1);
    }
}

void Statistics::countFault(const Fault& fault) {
    ++malformed_;
    if (firstFaults_.size() < keptFaults) {
        firstFaults_.push_back(describeFault(fault));
    }
}

std::string Statistics::summary() const {
    auto text =
        fmt::format("batches {}, values {}, errors {}, malformed {}, log-ons {}, bytes {}\n",
                    batches_, values_, errors_, malformed_, logOns_, bytes_);
    for (const auto& [error, count] : errorTexts_) {
        text += fmt::format("error, {} times: {}\n", count, Tools::escaped(error, shownErrorBytes));
    }
    for (const auto& fault : firstFaults_) {
        text += fault + '\n';
    }
    if (malformed_ > firstFaults_.size()) {
        text += fmt::format("malformed: {} more\n", malformed_ - firstFaults_.size());
    }
    return text;
}

std::string Statistics::report(Clock::time_point now) const {
    const auto age = lastBatch_ ? Milliseconds{now - *lastBatch_} : Milliseconds{-1};
    const nlohmann::ordered_json json{{"batches", batches_},
                                      {"values", values_},
                                      {"bytes", bytes_},
                                      {"errors", errors_},
                                      {"malformed", malformed_},
                                      {"logOns", logOns_},
                                      {"firstBatchAfterLogOnMs", firstBatchDelay_.count()},
                                      {"worstGapMs", worstGap_.count()},
                                      {"lastBatchAgeMs", age.count()}};
    return json.dump() + '\n';
}

std::string describeFault(const Fault& fault) {
    if (fault.line.empty()) {
        return "malformed: " + fault.reason;
    }
    return "malformed: " + fault.reason + ": " + Tools::escaped(fault.line, shownErrorBytes);
}

}  // namespace StewardSimulator
