// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

#include <boost/program_options/options_description.hpp>

namespace Tools {

/// Wrong use of a program, in one line for its user.
class UsageError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/**
 * The command line of a tool: `--name=VALUE` or `--name VALUE`, flags, and operands.
 *
 * Options are declared with the variable that takes their value; it is unchanged if the option is
 * not given. `--help` and `--version` are built in.
 */
class CommandLine {
  public:
    /**
     * @param program its name, as `--version` prints it
     * @param introduction the help text before the options, ending with the line "Options"
     * @param explanation the help text after them
     */
    CommandLine(std::string program, const std::string& introduction, std::string explanation);

    CommandLine& flag(const char* name, bool& target, const char* help);
    CommandLine& text(const char* name, const char* valueName, std::string& target,
                      const char* help);
    /// An option that may be given more than once.
    CommandLine& texts(const char* name, const char* valueName, std::vector<std::string>& target,
                       const char* help);
    /// A number from @p least to @p most, written in decimal; also into a std::optional.
    template <typename Target, typename Number>
    CommandLine& number(const char* name, const char* valueName, Target& target, Number least,
                        Number most, const char* help);
    /// An argument without a name that must be given, for example a file. The order counts.
    CommandLine& operand(const char* valueName, std::string& target);

    /**
     * Reads the arguments, from the second on.
     *
     * @return false after printing the help text or the version, if requested
     * @throws UsageError for the first fault
     */
    [[nodiscard]] bool read(int argc, const char* const* argv) const;

  private:
    struct Operand {
        std::string name;
        std::string& target;
    };

    CommandLine& add(const char* name, const char* valueName, const char* help,
                     std::function<void(const std::string&)> take);
    void takeOperands(const std::vector<std::string>& texts) const;

    std::string program_;
    std::string explanation_;
    boost::program_options::options_description options_;
    std::vector<Operand> operands_;
};

/// @param name of the option, for the text of the error
/// @throws UsageError unless the text is a number between the bounds
/// @note For integers up to 64 bits, signed or not, and for double.
template <typename Number>
[[nodiscard]] Number toNumber(const std::string& name, const std::string& text, Number least,
                              Number most);

/// "PROGRAM/VERSION" and the licence, as the daemon prints it for itself.
[[nodiscard]] std::string versionText(const std::string& program);

template <typename Target, typename Number>
CommandLine& CommandLine::number(const char* name, const char* valueName, Target& target,
                                 Number least, Number most, const char* help) {
    using Widest = std::conditional_t<
        std::is_floating_point_v<Number>, double,
        std::conditional_t<std::is_signed_v<Number>, long long, unsigned long long>>;
    return add(name, valueName, help, [&target, name, least, most](const std::string& text) {
        target = static_cast<Number>(toNumber<Widest>(name, text, least, most));
    });
}

}  // namespace Tools
