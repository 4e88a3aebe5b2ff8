// SPDX-License-Identifier: MIT
// The text of a batch of 1,000 values: ours, with snprintf, and with a stream per value.
#include "opcua/value.hpp"

#include "orvik/pushinterface/protocol.hpp"

#include <array>
#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <random>
#include <sstream>
#include <string>
#include <type_traits>

#include <benchmark/benchmark.h>

namespace {

using namespace PullappOpcUa;
using Orvik::PushInterface::TagType;

constexpr std::size_t batchSize = 1000;

template <typename T>
struct Kind;
template <>
struct Kind<UA_Boolean> {
    static constexpr auto tag = TagType::Bool;
    static constexpr auto variant = UA_TYPES_BOOLEAN;
};
template <>
struct Kind<UA_Int32> {
    static constexpr auto tag = TagType::Int32;
    static constexpr auto variant = UA_TYPES_INT32;
    static constexpr auto format = "%" PRId32;
};
template <>
struct Kind<UA_Int64> {
    static constexpr auto tag = TagType::Int64;
    static constexpr auto variant = UA_TYPES_INT64;
    static constexpr auto format = "%" PRId64;
};
template <>
struct Kind<UA_Float> {
    static constexpr auto tag = TagType::Float;
    static constexpr auto variant = UA_TYPES_FLOAT;
    static constexpr auto format = "%.10g";
};
template <>
struct Kind<UA_Double> {
    static constexpr auto tag = TagType::Double;
    static constexpr auto variant = UA_TYPES_DOUBLE;
    static constexpr auto format = "%.18g";
};
template <>
struct Kind<UA_String> {
    static constexpr auto tag = TagType::String;
    static constexpr auto variant = UA_TYPES_STRING;
};

template <typename T>
std::array<T, batchSize> makeValues() {
    std::mt19937_64 random{1};
    std::array<T, batchSize> values{};
    for (auto& value : values) {
        if constexpr (std::is_same_v<T, UA_String>) {
            static UA_String text = UA_STRING_STATIC("Line 1: filling, 20 bottles");
            value = text;
        } else if constexpr (std::is_floating_point_v<T>) {
            value = static_cast<T>(static_cast<double>(random() % 20000000) / 1000 - 10000);
        } else {
            value = static_cast<T>(random());
        }
    }
    return values;
}

/// Writes the batch again and again with a function that appends one line to it.
template <typename T, typename Append>
void writeBatches(benchmark::State& state, Append append) {
    auto values = makeValues<T>();
    std::string batch;
    for (auto _ : state) {
        batch.clear();
        for (std::size_t i = 0; i < values.size(); ++i) {
            append(batch, static_cast<std::uint16_t>(i), values[i]);
        }
        benchmark::DoNotOptimize(batch.data());
    }
    const auto count = static_cast<double>(state.iterations()) * batchSize;
    state.counters["per value"] =
        benchmark::Counter(count, benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

template <typename T>
void ours(benchmark::State& state) {
    Tag tag;
    tag.tagType = Kind<T>::tag;
    writeBatches<T>(state, [&](std::string& batch, std::uint16_t id, T& value) {
        tag.id = id;
        UA_Variant variant{};
        UA_Variant_setScalar(&variant, &value, &UA_TYPES[Kind<T>::variant]);
        benchmark::DoNotOptimize(appendLine(batch, tag, variant));
    });
}

template <typename T>
void snprintfPerValue(benchmark::State& state) {
    writeBatches<T>(state, [](std::string& batch, std::uint16_t id, const T& value) {
        Orvik::PushInterface::appendTagId(batch, id);
        std::array<char, 64> text;
        const auto size = std::snprintf(text.data(), text.size(), Kind<T>::format, value);
        batch.append(text.data(), static_cast<std::size_t>(size));
        batch += '\n';
    });
}

template <typename T>
void streamPerValue(benchmark::State& state) {
    writeBatches<T>(state, [](std::string& batch, std::uint16_t id, const T& value) {
        std::ostringstream stream;
        stream.precision(std::is_same_v<T, UA_Float> ? 10 : 18);
        stream << id << '=' << value << '\n';
        batch += stream.str();
    });
}

BENCHMARK(ours<UA_Boolean>);
BENCHMARK(ours<UA_Int32>);
BENCHMARK(snprintfPerValue<UA_Int32>);
BENCHMARK(streamPerValue<UA_Int32>);
BENCHMARK(ours<UA_Int64>);
BENCHMARK(snprintfPerValue<UA_Int64>);
BENCHMARK(streamPerValue<UA_Int64>);
BENCHMARK(ours<UA_Float>);
BENCHMARK(snprintfPerValue<UA_Float>);
BENCHMARK(streamPerValue<UA_Float>);
BENCHMARK(ours<UA_Double>);
BENCHMARK(snprintfPerValue<UA_Double>);
BENCHMARK(streamPerValue<UA_Double>);
BENCHMARK(ours<UA_String>);

}  // namespace
