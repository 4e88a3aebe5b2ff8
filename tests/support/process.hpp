// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace TestSupport {

using namespace std::chrono_literals;

inline constexpr std::string_view sanitizers{SANITIZERS};
inline constexpr bool isSanitized = !sanitizers.empty();

/// A file descriptor; closed with the object.
class Descriptor {
  public:
    explicit Descriptor(int fd = -1) noexcept : fd_{fd} {}
    Descriptor(Descriptor&& other) noexcept : fd_{std::exchange(other.fd_, -1)} {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(fd_, other.fd_);
        return *this;
    }
    ~Descriptor() {
        if (fd_ >= 0) {
            ::close(fd_);
        }
    }
    [[nodiscard]] int get() const noexcept { return fd_; }

  private:
    int fd_;
};

/// A child process with its output streams on pipes; killed and reaped with the object.
class Process {
  public:
    /// @param environment "NAME=value", before the inherited ones
    explicit Process(std::vector<std::string> arguments,
                     std::vector<std::string> environment = {}) {
        auto [outRead, outWrite] = makePipe();
        auto [errRead, errWrite] = makePipe();
        auto [inRead, inWrite] = makePipe();
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, inRead.get(), 0);
        posix_spawn_file_actions_adddup2(&actions, outWrite.get(), 1);
        posix_spawn_file_actions_adddup2(&actions, errWrite.get(), 2);
        for (char** inherited = environ; *inherited != nullptr; ++inherited) {
            environment.emplace_back(*inherited);
        }
        const int error = posix_spawn(&pid_, arguments[0].c_str(), &actions, nullptr,
                                      pointers(arguments).data(), pointers(environment).data());
        posix_spawn_file_actions_destroy(&actions);
        if (error != 0) {
            ADD_FAILURE() << "cannot start " << arguments[0];
            pid_ = -1;
            return;
        }
        pidfd_ = Descriptor{static_cast<int>(::syscall(SYS_pidfd_open, pid_, 0))};
        in_ = std::move(inWrite);
        out_ = std::move(outRead);
        err_ = std::move(errRead);
    }

    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    ~Process() {
        if (pid_ > 0) {
            signal(SIGKILL);
            ::waitpid(pid_, nullptr, 0);
        }
    }

    [[nodiscard]] pid_t pid() const noexcept { return pid_; }

    /// Number of entries in a folder of this process under /proc: "fd" or "task".
    [[nodiscard]] std::ptrdiff_t count(const std::string& folder) const {
        const auto path = "/proc/" + std::to_string(pid_) + '/' + folder;
        return std::distance(std::filesystem::directory_iterator{path}, {});
    }

    /// @return 0 under a sanitizer, which retains freed memory
    [[nodiscard]] std::size_t residentBytes() const {
        std::ifstream stream{"/proc/" + std::to_string(pid_) + "/statm"};
        std::size_t total = 0;
        std::size_t resident = 0;
        stream >> total >> resident;
        return isSanitized ? 0 : resident * static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
    }

    /// CPU time used so far.
    [[nodiscard]] std::chrono::nanoseconds cpuTime() const {
        clockid_t clock = 0;
        timespec used{};
        ::clock_getcpuclockid(pid_, &clock);
        ::clock_gettime(clock, &used);
        return std::chrono::seconds{used.tv_sec} + std::chrono::nanoseconds{used.tv_nsec};
    }

    void signal(int number) const {
        if (pid_ > 0) {
            ::kill(pid_, number);
        }
    }

    [[nodiscard]] static constexpr int killedBy(int signal) { return 256 + signal; }

    /// @return exit status, or `killedBy` a signal, or -1 if it still runs at the limit
    [[nodiscard]] int wait(std::chrono::milliseconds limit = 20s) {
        pollfd ended{.fd = pidfd_.get(), .events = POLLIN, .revents = 0};
        int status = 0;
        if (pid_ <= 0 || ::poll(&ended, 1, static_cast<int>(limit.count())) != 1 ||
            ::waitpid(pid_, &status, 0) != pid_) {
            return -1;
        }
        pid_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : killedBy(WTERMSIG(status));
    }

    /// Writes one line to the standard input.
    void writeLine(const std::string& line) const {
        const auto text = line + '\n';
        EXPECT_EQ(static_cast<ssize_t>(text.size()), ::write(in_.get(), text.data(), text.size()));
    }

    /// Waits for one line of the standard output. @return the line, or what came until the limit
    [[nodiscard]] std::string readLine(std::chrono::milliseconds limit = 20s) {
        std::string line;
        char byte = 0;
        pollfd readable{.fd = out_.get(), .events = POLLIN, .revents = 0};
        while (::poll(&readable, 1, static_cast<int>(limit.count())) == 1 &&
               ::read(out_.get(), &byte, 1) == 1 && byte != '\n') {
            line += byte;
        }
        return line;
    }

    /// The rest of a stream, until the process closes it.
    [[nodiscard]] std::string restOfOutput() { return readAll(out_); }
    [[nodiscard]] std::string restOfErrors() { return readAll(err_); }

  private:
    static std::pair<Descriptor, Descriptor> makePipe() {
        int ends[2] = {-1, -1};
        EXPECT_EQ(0, ::pipe2(ends, O_CLOEXEC));
        return {Descriptor{ends[0]}, Descriptor{ends[1]}};
    }

    static std::vector<char*> pointers(std::vector<std::string>& texts) {
        std::vector<char*> result;
        for (auto& text : texts) {
            result.push_back(text.data());
        }
        result.push_back(nullptr);
        return result;
    }

    static std::string readAll(const Descriptor& from) {
        std::string text;
        char buffer[4096];
        for (ssize_t size = 0; (size = ::read(from.get(), buffer, sizeof buffer)) > 0;) {
            text.append(buffer, static_cast<std::size_t>(size));
        }
        return text;
    }

    pid_t pid_ = -1;
    Descriptor pidfd_;
    Descriptor in_;
    Descriptor out_;
    Descriptor err_;
};

}  // namespace TestSupport
