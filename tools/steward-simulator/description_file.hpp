// SPDX-License-Identifier: MIT
#pragma once

#include "steward-simulator/description.hpp"

#include <functional>
#include <optional>
#include <string>
#include <tuple>

#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>

namespace StewardSimulator {

/**
 * A description kept in a file. The file is checked by name a few times a second: that notices a
 * rewritten file as well as a replaced one, also through links and on network file systems.
 */
class DescriptionFile {
  public:
    /// @param onChange called with an empty text after a change, or with what is wrong now
    DescriptionFile(boost::asio::io_context& context, std::string path,
                    std::function<void(const std::string& error)> onChange);

    /// @return empty on success, else why the file cannot be read; the text stays as it was then
    [[nodiscard]] std::string load();

    /// The content as one line.
    [[nodiscard]] const std::string& text() const noexcept { return text_; }

    /// What is wrong with the content.
    [[nodiscard]] const Findings& findings() const noexcept { return findings_; }

    void watch();

  private:
    /// Device, inode, size and time of the last change; nothing if there is no such file.
    using Stamp = std::optional<std::tuple<long long, long long, long long, long long, long long>>;

    [[nodiscard]] Stamp stamp() const;
    void poll();

    boost::asio::steady_timer timer_;
    const std::string path_;
    const std::function<void(const std::string& error)> onChange_;
    std::string text_;
    Findings findings_;
    Stamp loaded_;
    Stamp seen_;
};

}  // namespace StewardSimulator
