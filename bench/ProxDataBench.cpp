// Per-sample costs of the rings that the sensor thread touches for every
// sample: the sensor's history, the classifier's windows, the modules' buffers.
#include <benchmark/benchmark.h>

#include "bench/AllocationCounter.h"
#include "proxdata/CircularBuffer.h"
#include "proxdata/ProxDataBuffer.h"

namespace velto {
namespace {

void BM_CircularBufferAddProxData(benchmark::State& state) {
    CircularBuffer<ProxData> ring(66, ProxData::kInvalidInstance);
    int64_t t = 0;
    VELTO_BENCH_NO_ALLOC(state, for (auto _ : state) {
        ring.add(ProxData(static_cast<uint32_t>(t & 0x3FFF), t));
        ++t;
        benchmark::DoNotOptimize(ring);
    });
}
BENCHMARK(BM_CircularBufferAddProxData);

void BM_CircularBufferAddFloat(benchmark::State& state) {
    CircularBuffer<float> ring(static_cast<unsigned int>(state.range(0)));
    float v = 0.0f;
    VELTO_BENCH_NO_ALLOC(state, for (auto _ : state) {
        ring.add(v);
        v += 1.0f;
        benchmark::DoNotOptimize(ring);
    });
}
BENCHMARK(BM_CircularBufferAddFloat)->Arg(33)->Arg(65);

void BM_CircularBufferGetAtDelay(benchmark::State& state) {
    CircularBuffer<float> ring(64);
    for (int i = 0; i < 100; ++i) ring.add(static_cast<float>(i));
    unsigned int delay = 0;
    VELTO_BENCH_NO_ALLOC(state, for (auto _ : state) {
        benchmark::DoNotOptimize(ring.getAtDelay(delay));
        delay = (delay + 7) & 63;
    });
}
BENCHMARK(BM_CircularBufferGetAtDelay);

void BM_ProxDataBufferAddPacket(benchmark::State& state) {
    ProxDataBuffer buffer(static_cast<unsigned int>(state.range(0)));
    int64_t t = 0;
    VELTO_BENCH_NO_ALLOC(state, for (auto _ : state) {
        buffer.addPacket(ProxData(static_cast<uint32_t>(t & 0x3FFF), t), (t & 255) == 0 ? 3 : -1);
        ++t;
        benchmark::DoNotOptimize(buffer);
    });
}
BENCHMARK(BM_ProxDataBufferAddPacket)->Arg(320)->Arg(1600);

}  // namespace
}  // namespace velto

BENCHMARK_MAIN();
