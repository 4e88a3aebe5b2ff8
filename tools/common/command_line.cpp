// SPDX-License-Identifier: MIT
#include "common/command_line.hpp"

#include <iostream>
#include <utility>

#include <boost/lexical_cast/try_lexical_convert.hpp>
#include <boost/program_options/cmdline.hpp>
#include <boost/program_options/errors.hpp>
#include <boost/program_options/parsers.hpp>
#include <boost/program_options/variables_map.hpp>
#include <fmt/format.h>

namespace Tools {
namespace {

namespace po = boost::program_options;

std::string needsValue(const std::string& option) {
    return "option '" + option + "' needs a value";
}

}  // namespace

CommandLine::CommandLine(std::string program, const std::string& introduction,
                         std::string explanation)
    : program_{std::move(program)}, explanation_{std::move(explanation)}, options_{introduction} {
    options_.add_options()("help", "print this text")("version", "print the version");
}

CommandLine& CommandLine::flag(const char* name, bool& target, const char* help) {
    options_.add_options()(
        name, po::bool_switch()->notifier([&target](bool isGiven) { target = target || isGiven; }),
        help);
    return *this;
}

CommandLine& CommandLine::text(const char* name, const char* valueName, std::string& target,
                               const char* help) {
    return add(name, valueName, help, [&target](const std::string& text) { target = text; });
}

CommandLine& CommandLine::texts(const char* name, const char* valueName,
                                std::vector<std::string>& target, const char* help) {
    options_.add_options()(
        name, po::value<std::vector<std::string>>(&target)->value_name(valueName), help);
    return *this;
}

CommandLine& CommandLine::operand(const char* valueName, std::string& target) {
    operands_.push_back({valueName, target});
    return *this;
}

CommandLine& CommandLine::add(const char* name, const char* valueName, const char* help,
                              std::function<void(const std::string&)> take) {
    auto* const value = po::value<std::string>()->value_name(valueName)->notifier(
        [name, take = std::move(take)](const std::string& text) {
            if (text.empty()) {
                throw UsageError{needsValue(std::string{"--"} + name)};
            }
            take(text);
        });
    options_.add_options()(name, value, help);
    return *this;
}

bool CommandLine::read(int argc, const char* const* argv) const {
    namespace Style = po::command_line_style;
    try {
        const auto parsed =
            po::command_line_parser{argc, argv}
                .options(options_)
                .style(Style::allow_long | Style::long_allow_adjacent | Style::long_allow_next)
                .run();
        po::variables_map values;
        po::store(parsed, values);
        if (values.count("help") != 0) {
            std::cout << options_ << explanation_ << std::flush;
            return false;
        }
        if (values.count("version") != 0) {
            std::cout << versionText(program_) << std::endl;
            return false;
        }
        po::notify(values);
        takeOperands(po::collect_unrecognized(parsed.options, po::include_positional));
    } catch (const po::invalid_command_line_syntax& error) {
        using Kind = po::invalid_command_line_syntax::kind_t;
        const bool lacksValue = error.kind() == Kind::missing_parameter ||
                                error.kind() == Kind::empty_adjacent_parameter;
        throw UsageError{lacksValue ? needsValue(error.get_option_name()) : error.what()};
    } catch (const po::error& error) {
        throw UsageError{error.what()};
    }
    return true;
}

void CommandLine::takeOperands(const std::vector<std::string>& texts) const {
    if (texts.size() < operands_.size()) {
        throw UsageError{operands_[texts.size()].name + " is missing"};
    }
    if (texts.size() > operands_.size()) {
        throw UsageError{fmt::format("unexpected argument '{}'", texts[operands_.size()])};
    }
    for (std::size_t i = 0; i < texts.size(); ++i) {
        operands_[i].target = texts[i];
    }
}

template <typename Number>
Number toNumber(const std::string& name, const std::string& text, Number least, Number most) {
    Number number{};
    // An unsigned number would accept "-1" as a huge value
    const bool isWrapped = std::is_unsigned_v<Number> && text.starts_with('-');
    if (isWrapped || !boost::conversion::try_lexical_convert(text, number) ||
        !(number >= least && number <= most)) {
        throw UsageError{fmt::format("option '--{}' takes a number from {} to {}, not '{}'", name,
                                     least, most, text)};
    }
    return number;
}

template double toNumber(const std::string&, const std::string&, double, double);
template long long toNumber(const std::string&, const std::string&, long long, long long);
template unsigned long long toNumber(const std::string&, const std::string&, unsigned long long,
                                     unsigned long long);

std::string versionText(const std::string& program) {
    return program + "/" ORVIK_VERSION "\nCopyright (c) 2026 The Orvik contributors. MIT License.";
}

}  // namespace Tools
