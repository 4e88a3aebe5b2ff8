// SPDX-License-Identifier: MIT
#include "common/file.hpp"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Tools {
namespace {

/// A file descriptor; closed with the object.
class File {
  public:
    explicit File(int descriptor) noexcept : descriptor_{descriptor} {}
    File(const File&) = delete;
    File& operator=(const File&) = delete;
    ~File() {
        if (isOpen()) {
            ::close(descriptor_);
        }
    }

    [[nodiscard]] bool isOpen() const noexcept { return descriptor_ >= 0; }
    [[nodiscard]] int get() const noexcept { return descriptor_; }

    [[nodiscard]] bool write(std::string_view bytes) const {
        while (!bytes.empty()) {
            const auto written = ::write(descriptor_, bytes.data(), bytes.size());
            if (written < 0 && errno != EINTR) {
                return false;
            }
            bytes.remove_prefix(written < 0 ? 0 : static_cast<std::size_t>(written));
        }
        return true;
    }

  private:
    int descriptor_;
};

[[noreturn]] void fail(const char* what, const std::string& path) {
    const auto reason = std::generic_category().message(errno);
    throw std::runtime_error{std::string{what} + ' ' + path + ": " + reason};
}

/// The permissions of an existing file, otherwise those that the process gives to a new one.
mode_t modeFor(const std::string& path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) == 0) {
        return status.st_mode & 07777U;
    }
    const auto mask = ::umask(0);
    ::umask(mask);
    return 0666U & ~mask;
}

void replaceFile(const std::string& path, std::string_view content) {
    auto temporary = path + ".XXXXXX";
    const File file{::mkstemp(temporary.data())};
    if (!file.isOpen()) {
        fail("cannot write", path);
    }
    if (!file.write(content) || ::fchmod(file.get(), modeFor(path)) != 0 ||
        ::fsync(file.get()) != 0 || ::rename(temporary.c_str(), path.c_str()) != 0) {
        const int reason = errno;
        ::unlink(temporary.c_str());
        errno = reason;
        fail("cannot write", path);
    }
}

}  // namespace

std::string readFile(const std::string& path) {
    const File file{::open(path.c_str(), O_RDONLY | O_CLOEXEC)};
    std::string content;
    char buffer[1U << 16U];
    ssize_t length = -1;
    while (file.isOpen() && (length = ::read(file.get(), buffer, sizeof buffer)) > 0) {
        content.append(buffer, static_cast<std::size_t>(length));
    }
    if (length < 0) {
        fail("cannot read", path);
    }
    return content;
}

void writeFile(const std::string& path, std::string_view content) {
    std::error_code error;
    const auto status = std::filesystem::status(path, error);
    if (!std::filesystem::exists(status)) {
        return replaceFile(path, content);
    }
    if (std::filesystem::is_regular_file(status)) {
        return replaceFile(std::filesystem::canonical(path).string(), content);  // follows links
    }
    const File file{::open(path.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY)};
    if (!file.isOpen() || !file.write(content)) {
        fail("cannot write", path);
    }
}

}  // namespace Tools
