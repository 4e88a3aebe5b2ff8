// SPDX-License-Identifier: MIT
#include "steward-simulator/batch.hpp"

#include "steward-simulator/value_check.hpp"

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <system_error>

namespace StewardSimulator {
namespace {

std::optional<std::uint16_t> readId(std::string_view text) {
    std::uint16_t id = 0;
    const auto* const end = text.data() + text.size();
    const auto read = std::from_chars(text.data(), end, id);
    const bool isDecimal = read.ec == std::errc{} && read.ptr == end;
    const bool hasLeadingZero = text.size() > 1 && text.front() == '0';
    return isDecimal && !hasLeadingZero ? std::optional{id} : std::nullopt;
}

class Decoding {
  public:
    explicit Decoding(const Description& description) : description_{description} {
        batch_.values.resize(description.tags.size());
    }

    void take(std::string_view line) {
        const auto equals = line.find('=');
        const auto id = readId(line.substr(0, equals));
        if (equals == std::string_view::npos || !id) {
            fault(line, "not a tag id, '=' and a value");
            ++next_;  // most likely the line of the tag that is due
        } else if (expect(line, *id)) {
            takeValue(line, line.substr(equals + 1));
        }
    }

    DecodedBatch finish() {
        if (next_ < description_.tags.size()) {
            fault({}, "batch ends before tag " + std::to_string(description_.tags[next_]->id));
        }
        return std::move(batch_);
    }

  private:
    /// Advances to the tag if it is described and not already passed; reports the skipped ones.
    bool expect(std::string_view line, std::uint16_t id) {
        const auto& tags = description_.tags;
        if (next_ < tags.size() && tags[next_]->id == id) {
            return true;
        }
        const auto found = description_.positions.find(id);
        if (found == description_.positions.end()) {
            fault(line, "no tag has this id");
            return false;
        }
        if (found->second < next_) {
            fault(line, "tag out of order or twice");
            return false;
        }
        fault(line, "tag " + std::to_string(tags[next_]->id) + " is missing before it");
        next_ = found->second;
        return true;
    }

    void takeValue(std::string_view line, std::string_view value) {
        auto reason = checkValue(*description_.tags[next_], value);
        if (reason.empty()) {
            batch_.values[next_] = value;
        } else {
            fault(line, std::move(reason));
        }
        ++next_;
    }

    void fault(std::string_view line, std::string reason) {
        batch_.faults.push_back({line, std::move(reason)});
    }

    const Description& description_;
    DecodedBatch batch_;
    std::size_t next_ = 0;  ///< position of the tag that is due
};

}  // namespace

DecodedBatch decodeBatch(std::string_view lines, const Description& description) {
    Decoding decoding{description};
    while (!lines.empty()) {
        const auto end = lines.find('\n');
        decoding.take(lines.substr(0, end));
        lines.remove_prefix(end + 1);
    }
    return decoding.finish();
}

}  // namespace StewardSimulator
