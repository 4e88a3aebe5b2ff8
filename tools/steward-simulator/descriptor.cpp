// SPDX-License-Identifier: MIT
#include "steward-simulator/descriptor.hpp"

#include <string>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace StewardSimulator {
namespace {

/// A file's position belongs to its open description, so share that instead of reopening. Files
/// never block.
bool isFile(int number) {
    struct stat status {};
    return ::fstat(number, &status) == 0 && S_ISREG(status.st_mode);
}

int reopen(int number) {
    const auto path = "/proc/self/fd/" + std::to_string(number);
    const int access = number == STDIN_FILENO ? O_RDONLY : O_WRONLY;
    return ::open(path.c_str(), access | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
}

}  // namespace

void occupyStandardStreams() {
    for (int number = STDIN_FILENO; number <= STDERR_FILENO; ++number) {
        if (::fcntl(number, F_GETFD) < 0) {
            static_cast<void>(::open("/dev/null", O_RDWR));  // takes the lowest free number
        }
    }
}

boost::asio::posix::stream_descriptor standardStream(boost::asio::io_context& context, int number) {
    boost::asio::posix::stream_descriptor stream{context};
    int descriptor = isFile(number) ? -1 : reopen(number);
    if (descriptor < 0) {
        descriptor = ::fcntl(number, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    }
    boost::system::error_code error;
    if (descriptor >= 0) {
        stream.assign(descriptor, error);
    }
    if (error) {
        ::close(descriptor);
    }
    return stream;
}

}  // namespace StewardSimulator
