// SPDX-License-Identifier: MIT
#include "steward-simulator/description_file.hpp"

#include "common/file.hpp"

#include <chrono>
#include <exception>
#include <utility>

#include <sys/stat.h>

namespace StewardSimulator {
namespace {

constexpr std::chrono::milliseconds pollInterval{200};

}  // namespace

DescriptionFile::DescriptionFile(boost::asio::io_context& context, std::string path,
                                 std::function<void(const std::string& error)> onChange)
    : timer_{context}, path_{std::move(path)}, onChange_{std::move(onChange)} {}

std::string DescriptionFile::load() {
    loaded_ = stamp();
    try {
        const auto source = Tools::readFile(path_);
        text_ = joinLines(source);
        findings_ = examine(source);
    } catch (const std::exception& error) {
        return error.what();
    }
    return {};
}

void DescriptionFile::watch() {
    timer_.expires_after(pollInterval);
    timer_.async_wait([this](const boost::system::error_code& error) {
        if (!error) {
            poll();
            watch();
        }
    });
}

void DescriptionFile::poll() {
    const auto now = stamp();
    // A file that has just changed may not be complete yet: wait until it stays the same
    if (now != loaded_ && now == std::exchange(seen_, now)) {
        const auto before = text_;
        const auto error = load();
        if (!error.empty() || text_ != before) {
            onChange_(error);
        }
    }
}

DescriptionFile::Stamp DescriptionFile::stamp() const {
    struct stat status {};
    if (::stat(path_.c_str(), &status) != 0 || S_ISDIR(status.st_mode)) {
        return std::nullopt;
    }
    return Stamp::value_type{
        static_cast<long long>(status.st_dev), static_cast<long long>(status.st_ino),
        static_cast<long long>(status.st_size), status.st_mtim.tv_sec, status.st_mtim.tv_nsec};
}

}  // namespace StewardSimulator
