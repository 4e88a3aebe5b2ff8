// SPDX-License-Identifier: MIT
#include "orvik/log/record.hpp"
#include "orvik/log/sink_syslog.hpp"
#include "support/recording_sink.hpp"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <unistd.h>

#include <gtest/gtest.h>

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
    const std::string captured = testing::TempDir() + "log_test." + std::to_string(::getpid());
    ::setenv("SYSLOG_CAPTURE", captured.c_str(), 1);
    Log::SinkSyslog sink{9, "pullapp[a%s]"};
    std::ostringstream thread;
    thread << boost::this_thread::get_id();
    std::string expected;
    for (const int priority : {0, 1, 2, 3, 4, 5, 6, 7, 7, 7, 7}) {
        const auto level =
            static_cast<std::uint32_t>(std::count(expected.begin(), expected.end(), '\n'));
        sink.write(level, "%s %n");
        expected += "pullapp[a%s] <" + std::to_string(priority) + "> " + thread.str() + " %s %n\n";
    }
    std::ostringstream records;
    records << std::ifstream{captured}.rdbuf();
    EXPECT_EQ(expected, records.str());
    std::filesystem::remove(captured);
}

}  // namespace
