// SPDX-License-Identifier: MIT
#pragma once

#include "steward-simulator/batch.hpp"
#include "steward-simulator/description.hpp"
#include "steward-simulator/line_splitter.hpp"

#include <cstddef>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

namespace StewardSimulator {

/// A batch as received. The views are valid only during the call that passes it.
struct Batch {
    std::size_t valueCount = 0;  ///< lines with a value, good ones only if they were checked
    std::size_t bytes = 0;
    std::string_view lines;                ///< empty if values are only counted
    DescriptionPtr description;            ///< the one it was checked against, if any
    std::vector<std::string_view> values;  ///< by the position of their tags; empty where missing
};

/// Receives what a device sends.
class DeviceHandler {
  public:
    DeviceHandler() = default;
    virtual ~DeviceHandler() = default;
    DeviceHandler(const DeviceHandler&) = delete;
    DeviceHandler& operator=(const DeviceHandler&) = delete;

    virtual void onDevc(std::string_view identity) = 0;
    virtual void onInfoRequest() = 0;
    virtual void onExit() = 0;
    virtual void onNamedValue(std::string_view name, std::string_view value) = 0;
    virtual void onBatch(const Batch& batch) = 0;
    virtual void onFault(const Fault& fault) = 0;
    /// True if the rest of what has arrived is to be ignored.
    [[nodiscard]] virtual bool isDone() const { return false; }
};

/// Interprets the bytes of one connection from a device; does no input or output of its own.
class BatchDecoder {
  public:
    enum class Values { Checked, Counted };

    BatchDecoder(DeviceHandler& handler, Values values) : handler_{handler}, values_{values} {}

    /// Takes time linear in the bytes fed, also for batches that arrive in small pieces.
    void feed(std::string_view chunk);

    /// A description was sent: batches must match it, or until the first match an earlier one.
    void describe(DescriptionPtr description);

    /// True if the stream ends within a line or a batch.
    [[nodiscard]] bool isIncomplete() const noexcept;

  private:
    [[nodiscard]] bool isWithinBatch() const noexcept { return lineCount_ != 0; }
    void takeLine(std::string_view line);
    void takeMessage(std::string_view line);
    void takeNamedValue(std::string_view line);
    void takeValue(std::string_view line);
    void endBatch();
    void checkBatch(Batch& batch);
    void preferOlderDescription(Batch& batch, DecodedBatch& decoded) const;
    void forgetBefore(const DescriptionPtr& description);

    DeviceHandler& handler_;
    const Values values_;
    LineSplitter splitter_;
    std::deque<DescriptionPtr> descriptions_;  ///< those that a batch may follow, oldest first
    std::string lines_;                        ///< of the batch that is being received
    std::size_t lineCount_ = 0;
    std::size_t byteCount_ = 0;
};

}  // namespace StewardSimulator
