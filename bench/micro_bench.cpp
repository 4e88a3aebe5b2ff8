// SPDX-License-Identifier: MIT
// The pieces that take time: a description becomes a device, values become text, log records are
// built and dropped.
#include "opcua/device.hpp"
#include "opcua/value.hpp"
#include "orvik/log/record.hpp"
#include "orvik/pushinterface/info_parser.hpp"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

#include <benchmark/benchmark.h>

namespace {

using namespace PullappOpcUa;
using Orvik::PushInterface::TagType;

void parseDescription(benchmark::State& state) {
    std::string json = R"({"id":"device","ipAddress":"127.0.0.1","port":4840,"tags":[)";
    for (std::int64_t i = 0; i < state.range(0); ++i) {
        json += i == 0 ? "" : ",";
        json += R"({"address":"ns=2;s=Line1.Station.Temperature)" + std::to_string(i) +
                R"(","id":)" + std::to_string(i % 65'536) +
                R"(,"type":"int","signed":true,"width":16,"comment":"a key that nobody reads"})";
    }
    json += "]}";
    for (auto _ : state) {
        const auto device = std::make_shared<Device>();
        if (const auto error = Orvik::PushInterface::InfoParser<Device, Tag>::parse(json, device);
            !error.empty()) {
            state.SkipWithError(error.c_str());
        }
        benchmark::DoNotOptimize(device->readRequest.nodesToReadSize);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(parseDescription)->Arg(100)->Arg(10'000);

/// A batch of 1,000 values of one type.
template <typename T, TagType tagType, std::size_t variantType>
void batchOf(benchmark::State& state) {
    std::mt19937_64 random{1};
    std::vector<T> values(1000);
    for (auto& value : values) {
        if constexpr (std::is_same_v<T, UA_String>) {
            value = UA_STRING_STATIC("Line 1: filling, 20 bottles");
        } else {
            value = static_cast<T>(static_cast<double>(random() % 20'000'000) / 1000 - 10'000);
        }
    }
    Tag tag;
    tag.tagType = tagType;
    std::string batch;
    for (auto _ : state) {
        batch.clear();
        for (auto& value : values) {
            UA_Variant variant{};
            UA_Variant_setScalar(&variant, &value, &UA_TYPES[variantType]);
            benchmark::DoNotOptimize(appendValue(batch, tag, variant));
        }
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(values.size()));
}
BENCHMARK(batchOf<UA_Int32, TagType::Int32, UA_TYPES_INT32>);
BENCHMARK(batchOf<UA_Float, TagType::Float, UA_TYPES_FLOAT>);
BENCHMARK(batchOf<UA_Double, TagType::Double, UA_TYPES_DOUBLE>);
BENCHMARK(batchOf<UA_String, TagType::String, UA_TYPES_STRING>);

/// A record that the level filters out: its text is built nevertheless.
void dropRecord(benchmark::State& state) {
    const std::string batch(static_cast<std::size_t>(state.range(0)), 'x');
    for (auto _ : state) {
        Orvik::Log::Record{Orvik::Log::garrul, {.path = "include/bench", .line = 1}} << "PI W: "
                                                                                     << batch;
    }
}
BENCHMARK(dropRecord)->Arg(32)->Arg(10'000);

}  // namespace
