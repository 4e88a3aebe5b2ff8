// SPDX-License-Identifier: MIT
// Small pieces that run once per line, per value or per fault.
#include "opcua/status_code_name.hpp"
#include "opcua/tag.hpp"
#include "orvik/log/record.hpp"
#include "orvik/pushinterface/protocol.hpp"

#include <cstdint>
#include <string>

#include <benchmark/benchmark.h>

namespace {

using namespace Orvik;

void splitLine(benchmark::State& state) {
    const auto line = "INFO " + std::string(static_cast<std::size_t>(state.range(0)), 'x');
    for (auto _ : state) {
        benchmark::DoNotOptimize(PushInterface::splitLine(line));
    }
}
BENCHMARK(splitLine)->Arg(16)->Arg(1 << 20);

void encodeErrorMessage(benchmark::State& state) {
    const std::string text(static_cast<std::size_t>(state.range(0)), 'x');
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            PushInterface::encodeNamedValue("__nimbara_error_msg__", text, 255));
    }
}
BENCHMARK(encodeErrorMessage)->Arg(0)->Arg(300);

void statusCodeName(benchmark::State& state) {
    std::uint32_t code = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(PullappOpcUa::statusCodeName(0x80000000U | (code << 16U)));
        code = (code + 37) % 256;
    }
}
BENCHMARK(statusCodeName);

void parseAddress(benchmark::State& state, const std::string& address) {
    PullappOpcUa::Tag tag;
    tag.address = address;
    for (auto _ : state) {
        benchmark::DoNotOptimize(tag.parseAddress());
    }
}
BENCHMARK_CAPTURE(parseAddress, numeric, "ns=2;i=1001");
BENCHMARK_CAPTURE(parseAddress, text, "ns=3;s=Line1.Temperature");
BENCHMARK_CAPTURE(parseAddress, guid, "ns=1;g=72962b91-fa75-4ae6-8d28-b404dc7daf63");

/// A record that the level keeps out: its text is built all the same.
void dropRecord(benchmark::State& state) {
    const std::string batch(static_cast<std::size_t>(state.range(0)), 'x');
    for (auto _ : state) {
        Log::Record{Log::garrul, {.path = "include/bench", .line = 1}} << "PI W: " << batch;
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(dropRecord)->Arg(32)->Arg(10'000)->Arg(1'000'000);

}  // namespace
