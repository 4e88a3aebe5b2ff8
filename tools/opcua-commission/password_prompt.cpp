// SPDX-License-Identifier: MIT
#include "opcua-commission/password_prompt.hpp"

#include "common/command_line.hpp"
#include "opcua-commission/connection.hpp"
#include "opcua-commission/interrupt.hpp"

#include <cstdio>
#include <memory>

#include <termios.h>

namespace OpcUaCommission {
namespace {

struct Closer {
    void operator()(std::FILE* file) const noexcept { std::fclose(file); }
};

using Terminal = std::unique_ptr<std::FILE, Closer>;

/// Switches the terminal's echo off until it is destroyed.
class NoEcho {
  public:
    explicit NoEcho(int terminal) : terminal_{terminal} {
        ::tcgetattr(terminal_, &before_);
        auto silent = before_;
        silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        ::tcsetattr(terminal_, TCSAFLUSH, &silent);
    }
    ~NoEcho() { ::tcsetattr(terminal_, TCSAFLUSH, &before_); }
    NoEcho(const NoEcho&) = delete;
    NoEcho& operator=(const NoEcho&) = delete;

  private:
    int terminal_;
    termios before_{};
};

/// Up to the end of the line or of the input, or until a signal comes.
std::string readLine(std::FILE* terminal) {
    std::string line;
    int character = EOF;
    while ((character = std::fgetc(terminal)) != EOF && character != '\n') {
        line += static_cast<char>(character);
    }
    return line;
}

}  // namespace

std::string promptForPassword(const std::string& username) {
    const Terminal terminal{std::fopen("/dev/tty", "r+e")};
    if (!terminal) {
        throw Tools::UsageError{"there is no terminal to ask for the password of '" + username +
                                "'; give '--password-file'"};
    }
    std::setvbuf(terminal.get(), nullptr, _IONBF, 0);
    std::fprintf(terminal.get(), "Password of %s: ", username.c_str());
    std::string password;
    {
        const NoEcho noEcho{::fileno(terminal.get())};
        password = readLine(terminal.get());
    }
    std::fputs("\n", terminal.get());
    if (isInterrupted()) {
        throw Interrupted{};
    }
    return password;
}

}  // namespace OpcUaCommission
