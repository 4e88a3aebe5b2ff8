// SPDX-License-Identifier: MIT
#pragma once

#include "steward-simulator/output.hpp"
#include "steward-simulator/view.hpp"

namespace StewardSimulator {

/// One line per batch and per event, with the time of day in front: for pipes and logs.
class LinesView final : public View {
  public:
    explicit LinesView(Output& output) : output_{output} {}

    void onEvent(std::string_view text) override;
    void onBatch(const Batch& batch, const Statistics& statistics) override;
    void onError(std::string_view text) override;

  private:
    Output& output_;
    bool hasError_ = false;  ///< the device reported one and has not cleared it
};

}  // namespace StewardSimulator
