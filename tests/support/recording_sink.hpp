// SPDX-License-Identifier: MIT
#pragma once

#include "orvik/log/current_sink.hpp"
#include "support/events.hpp"

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace TestSupport {

/// Keeps every log record as "<level> message" while it exists. Create it before threads that log,
/// and destroy it after them.
class RecordingSink {
  public:
    explicit RecordingSink(std::int32_t level = Orvik::Log::chattr)
        : previous_{std::exchange(Orvik::Log::sink(), std::make_unique<Sink>(level, *this))} {}
    ~RecordingSink() { Orvik::Log::sink() = std::move(previous_); }
    RecordingSink(const RecordingSink&) = delete;
    RecordingSink& operator=(const RecordingSink&) = delete;

    /// Called on the logging thread after each record; set before that thread exists.
    std::function<void(const std::string& record)> during = [](const std::string&) {};

    [[nodiscard]] std::vector<std::string> records() const { return records_.all(); }

  private:
    class Sink final : public Orvik::Log::Sink {
      public:
        Sink(std::int32_t level, RecordingSink& owner) : Orvik::Log::Sink{level}, owner_{owner} {}
        void write(std::uint32_t level, const std::string& message) override {
            owner_.add(std::to_string(level) + " " + message);
        }

      private:
        RecordingSink& owner_;
    };

    void add(const std::string& record) {
        records_.add(record);
        during(record);
    }

    Events records_;
    std::unique_ptr<Orvik::Log::Sink> previous_;
};

}  // namespace TestSupport
