#include "peximage/composer/PexComposerManager.h"
#include "peximage/platform/foundation/Diagnostics.h"

#include <benchmark/benchmark.h>
#include <nlohmann/json.hpp>

#include <string>

namespace pex {
namespace {

PexComposer::Layer layerOfNumber(int number) {
    static const auto sample = decode<PexComposer::Layer>(
        R"({"id":"","layerType":"image","image":{"type":"shareApp","ratio":1.5,"resourceAccess":)"
        R"({"shareAppId":"share-19a3b2c4d5e-8f3a1b2c3d4e5f60-1.jpg"}},"shape":{"type":"rectangle","style":)"
        R"({"strokeWidth":0,"fill":true,"fillStyle":"color","fillColor":{"red":0.5,"green":0.5,"blue":0.5,)"
        R"("alpha":1}}},"text":{"text":"A caption of the usual length"},"transform":{"location":[0,0],)"
        R"("scale":{"x":1,"y":1},"rotation":0,"opacity":1}})");
    PexComposer::Layer layer = *sample;
    layer.id = PexId::newId("", "", true);
    layer.transform.location = {(number * 37 % 1000) / 1000.0 - 0.5, (number * 61 % 563) / 1000.0 - 0.28};
    layer.transform.scale = {0.1 + number % 7 / 9.0, 0.1 + number % 5 / 7.0};
    if (number % 3 == 0) layer.layerType = PexComposer::Layer::LayerType::text;
    return layer;
}

PexComposer composerOf(int layers, int guides) {
    auto composer = decode<PexComposer>(
        R"({"id":"","name":"Composer","ratio":1.7777777777777777,"layerList":[],"guideList_":[],"bgColor":)"
        R"({"red":0.5,"green":0.5,"blue":0.5,"alpha":1},"shouldBeDeleted":false})");
    composer->id = PexId::newId("", "", true);
    for (int i = 0; i < layers; ++i)
        composer->layerList.push_back(layerOfNumber(i));
    for (int i = 0; i < guides; ++i)
        composer->guideList_.push_back(
            {PexId::newId("", "", true),
             i % 2 ? PexComposer::Guide::Orientation::vertical : PexComposer::Guide::Orientation::horizontal,
             i * 0.005 - 0.5});
    return *composer;
}

/// 100 composers of 100 layers.
const std::string& managerDocument() {
    static const std::string document = [] {
        std::string text = R"({"configurationName":"Default","composerList":[)";
        for (int i = 0; i < 100; ++i)
            text += (i ? "," : "") + encode(composerOf(100, 10));
        return text + "]}";
    }();
    return document;
}

void countBytes(benchmark::State& state) {
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * managerDocument().size()));
}

void readManager(benchmark::State& state) {
    for (auto _ : state)
        benchmark::DoNotOptimize(decode<PexComposerManager>(managerDocument()));
    countBytes(state);
}

void readJsonAlone(benchmark::State& state) {
    for (auto _ : state)
        benchmark::DoNotOptimize(nlohmann::ordered_json::parse(managerDocument()));
    countBytes(state);
}

void writeManager(benchmark::State& state) {
    const auto manager = decode<PexComposerManager>(managerDocument());
    for (auto _ : state)
        benchmark::DoNotOptimize(encode(*manager));
    countBytes(state);
}

void writeJsonAlone(benchmark::State& state) {
    const auto document = nlohmann::ordered_json::parse(managerDocument());
    for (auto _ : state)
        benchmark::DoNotOptimize(document.dump());
    countBytes(state);
}

/// 200 guides and as many layers as the argument says; nothing printed.
void nearestGuide(benchmark::State& state) {
    diagnostics::setSink({});
    const PexComposer composer = composerOf(static_cast<int>(state.range(0)), 200);
    const PexComposer::Layer moving = composer.layerList[1];
    double at = -0.5;
    for (auto _ : state) {
        benchmark::DoNotOptimize(composer.nearestVerticalGuide(moving, at, {1600, 900}));
        at = at > 0.5 ? -0.5 : at + 0.001;
    }
    diagnostics::resetSink();
    state.SetComplexityN(state.range(0) + 200);
}

BENCHMARK(readManager)->Name("manager document/read")->Unit(benchmark::kMillisecond);
BENCHMARK(readJsonAlone)->Name("manager document/read, JSON library alone")->Unit(benchmark::kMillisecond);
BENCHMARK(writeManager)->Name("manager document/write")->Unit(benchmark::kMillisecond);
BENCHMARK(writeJsonAlone)->Name("manager document/write, JSON library alone")->Unit(benchmark::kMillisecond);
BENCHMARK(nearestGuide)
    ->Name("nearest guide, layers")
    ->RangeMultiplier(10)
    ->Range(10, 10'000)
    ->Unit(benchmark::kMicrosecond)
    ->Complexity(benchmark::oN);

} // namespace
} // namespace pex
