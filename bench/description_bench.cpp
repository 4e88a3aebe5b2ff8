// SPDX-License-Identifier: MIT
// From the description's text to a device that is ready to be read: linear in the number of tags.
#include "opcua/device.hpp"
#include "orvik/pushinterface/info_parser.hpp"

#include <cstdint>
#include <memory>
#include <string>

#include <benchmark/benchmark.h>

namespace {

using Parser = Orvik::PushInterface::InfoParser<PullappOpcUa::Device, PullappOpcUa::Tag>;

std::string describe(std::int64_t tags) {
    std::string json = R"({"id":"device","ipAddress":"127.0.0.1","port":4840,"tags":[)";
    for (std::int64_t i = 0; i < tags; ++i) {
        json += i == 0 ? "" : ",";
        json += R"({"address":"ns=2;s=Line1.Station.Temperature)" + std::to_string(i) +
                R"(","id":)" + std::to_string(i % 65'536) +
                R"(,"type":"int","signed":true,"width":16,"comment":"a key that nobody reads"})";
    }
    return json + "]}";
}

void parseDescription(benchmark::State& state) {
    const auto json = describe(state.range(0));
    for (auto _ : state) {
        const auto device = std::make_shared<PullappOpcUa::Device>();
        if (const auto error = Parser::parse(json, device); !error.empty()) {
            state.SkipWithError(error.c_str());
        }
        benchmark::DoNotOptimize(device->readRequest.nodesToReadSize);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(json.size()));
}
BENCHMARK(parseDescription)->Arg(100)->Arg(1'000)->Arg(10'000)->Arg(65'000);

}  // namespace
