// SPDX-License-Identifier: MIT
#include "orvik/log/record.hpp"
#include "orvik/log/sink_syslog.hpp"

#include "support/recording_sink.hpp"

#include <cstdarg>
#include <cstdio>
#include <iomanip>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace {

/// What this process hands to the system log.
struct SystemLog {
    std::string identity;
    int option = -1;
    int facility = -1;
    std::vector<std::pair<int, std::string>> records;
};
SystemLog systemLog;

void capture(int priority, const char* format, va_list arguments) {
    char text[256];
    std::vsnprintf(text, sizeof text, format, arguments);
    systemLog.records.emplace_back(priority, text);
}

}  // namespace

extern "C" {
void openlog(const char* identity, int option, int facility) {
    systemLog = {.identity = identity, .option = option, .facility = facility, .records = {}};
}
void syslog(int priority, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    capture(priority, format, arguments);
    va_end(arguments);
}
void __syslog_chk(int priority, int /*flag*/, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    capture(priority, format, arguments);
    va_end(arguments);
}
}

namespace {

using namespace Orvik;
using TestSupport::RecordingSink;
using Records = std::vector<std::string>;

TEST(RecordTest, TakesWhateverAStreamTakes) {
    const RecordingSink sink{8};
    Log::Record{Log::info} << std::string{"a"} << 'b' << std::hex << std::setw(4) << 11 << "c" << 12
                           << std::setw(3) << "d";
    Log::Record{Log::info} << 13;
    EXPECT_EQ((Records{"6 ab   bcc  d", "6 13"}), sink.records());
}

TEST(RecordTest, PassesUpToTheLevelOfTheSink) {
    const RecordingSink sink{8};
    for (int level = 0; level <= 9; ++level) {
        Log::Record{static_cast<Log::Level>(level)} << "x" << level << ' ' << 1.5;
    }
    Log::Record{Log::debug, {.path = "include/a", .line = 7}} << "where";
    EXPECT_EQ((Records{"0 x0 1.5", "1 x1 1.5", "2 x2 1.5", "3 x3 1.5", "4 x4 1.5", "5 x5 1.5",
                       "6 x6 1.5", "7 x7 1.5", "8 x8 1.5", "7 include/a:7: where"}),
              sink.records());
}

TEST(SinkTest, IsTheStandardOutputAtLevelSixByDefault) {
    EXPECT_NE(nullptr, dynamic_cast<Log::SinkCout*>(Log::sink().get()));
    EXPECT_EQ(6, Log::sink()->level());
}

TEST(SinkOstreamTest, WritesNameThreadAndMessage) {
    std::ostringstream stream;
    Log::SinkOstream sink{9, stream};
    stream << std::left;
    const std::vector<std::string> names{" emerg",  " alert", "  crit", "   err",
                                         "warning", "notice", "  info", " debug",
                                         "garrul",  "chattr", "      "};
    std::ostringstream thread;
    thread << boost::this_thread::get_id();
    for (std::uint32_t level = 0; level < names.size(); ++level) {
        stream.str("");
        sink.write(level, "100%s");
        EXPECT_EQ("[" + names[level] + "] " + thread.str() + " 100%s\n", stream.str());
    }
    stream << 10;
    EXPECT_TRUE(stream.str().ends_with("\n10"));  // no longer hexadecimal
}

TEST(SinkOstreamTest, LinesOfThreadsNeverMix) {
    std::ostringstream stream;
    Log::SinkOstream sink{6, stream};
    const auto write = [&sink](char name) {
        for (int i = 0; i < 2000; ++i) {
            sink.write(6, std::string(40, name));
        }
    };
    std::thread first{write, 'a'};
    std::thread second{write, 'b'};
    first.join();
    second.join();

    const std::regex whole{R"(\[  info\] [0-9a-f]{4,} (a{40}|b{40}))"};
    std::istringstream lines{stream.str()};
    int count = 0;
    for (std::string line; std::getline(lines, line); ++count) {
        ASSERT_TRUE(std::regex_match(line, whole)) << line;
    }
    EXPECT_EQ(4000, count);
}

TEST(SinkSyslogTest, HandsPriorityAndTextToTheSystemLog) {
    Log::SinkSyslog sink{9, "pullapp[a%s]"};
    EXPECT_EQ("pullapp[a%s]", systemLog.identity);
    EXPECT_EQ(LOG_ODELAY, systemLog.option);
    EXPECT_EQ(LOG_USER, systemLog.facility);

    std::ostringstream thread;
    thread << boost::this_thread::get_id();
    const int priorities[] = {0, 1, 2, 3, 4, 5, 6, 7, 7, 7, 7};
    for (std::uint32_t level = 0; level <= 10; ++level) {
        sink.write(level, "%s %n");
        EXPECT_EQ(priorities[level], systemLog.records.back().first);
        EXPECT_EQ(thread.str() + " %s %n", systemLog.records.back().second);
    }
}

}  // namespace
