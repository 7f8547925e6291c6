// Per-sample cost of the classifier engine on the sensor thread: sliding the
// window and running a three-layer cascade over it, and the whole boosting
// detector step (resampling, window, cascade, history). The cascade's first
// two layers always pass and the last never does, so every sample pays for all
// three layers and no detection is logged.
#include <benchmark/benchmark.h>
#include <stdint.h>
#include <stdlib.h>

#include <memory>
#include <string>
#include <vector>

#include "bench/AllocationCounter.h"
#include "classifier/BoostingDetector.h"
#include "classifier/CascadeClassifier.h"
#include "classifier/SeqSample.h"

namespace velto {
namespace {

const int kLayerSizes[] = {5, 10, 20};
const size_t kSignalLength = 4096;  // a power of two: the loops wrap with a mask

class Lcg {
public:
    uint32_t next() {
        mState = mState * 1664525u + 1013904223u;
        return mState >> 8;
    }
    int below(int n) { return n > 0 ? static_cast<int>(next() % static_cast<uint32_t>(n)) : 0; }
    float unit() { return static_cast<float>(next() & 0xFFFF) / 65535.0f; }

private:
    uint32_t mState = 12345u;
};

CascadeClassifier* makeCascade(int length) {
    Lcg rng;
    CascadeClassifier* cascade = new CascadeClassifier();
    cascade->setSampleLength(length);
    cascade->setFeatureFalloffThreshold(20.0f);
    for (int layerIndex = 0; layerIndex < 3; ++layerIndex) {
        const int n = kLayerSizes[layerIndex];
        EnsembleClassifier* layer = new EnsembleClassifier();
        layer->setThreshold(layerIndex < 2 ? -1.00001f : 1.00001f);
        for (int i = 0; i < n; ++i) {
            WeakClassifier::Feature f;
            f.type = rng.below(4);
            f.block_size = 1 + rng.below(length / 4);
            f.block_interval = rng.below(length / 8 + 1);
            f.start_offset = rng.below(length - 3 * f.block_size - 2 * f.block_interval + 1);
            layer->addWeak(new WeakClassifier(f, rng.below(2) == 0 ? 1 : -1, 0.4f * rng.unit() - 0.2f,
                                              1.0f / static_cast<float>(n)));
        }
        cascade->addLayer(layer);
    }
    return cascade;
}

// A worn-device baseline with noise and a blink of 200 every 100 samples.
std::vector<float> makeSignal() {
    Lcg rng;
    std::vector<float> signal(kSignalLength);
    for (size_t i = 0; i < kSignalLength; ++i) {
        signal[i] = 1000.0f + 20.0f * rng.unit() + ((i % 100) < 8 ? 200.0f : 0.0f);
    }
    return signal;
}

void BM_SeqSampleAddAndCascadeClassify(benchmark::State& state) {
    const int length = static_cast<int>(state.range(0));
    std::unique_ptr<CascadeClassifier> cascade(makeCascade(length));
    const std::vector<float> signal = makeSignal();
    SeqSample sample(length);
    size_t i = 0;
    for (; i < static_cast<size_t>(length); ++i) sample.addNewValue(signal[i]);
    int positives = 0;
    VELTO_BENCH_NO_ALLOC(state, for (auto _ : state) {
        sample.addNewValue(signal[i++ & (kSignalLength - 1)]);
        positives += cascade->classify(sample) > 0 ? 1 : 0;
    });
    benchmark::DoNotOptimize(positives);
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_SeqSampleAddAndCascadeClassify)->Arg(32)->Arg(64);

void BM_BoostingDetectorPerSample(benchmark::State& state) {
    const int length = static_cast<int>(state.range(0));
    char dirTemplate[] = "/tmp/velto-bench-XXXXXX";
    const char* dir = mkdtemp(dirTemplate);
    const std::string path = std::string(dir != nullptr ? dir : "/tmp") + "/detector.txt";
    std::unique_ptr<CascadeClassifier> cascade(makeCascade(length));
    DetectorOptions options;
    options.frame_rate = 32.0f;
    BoostingDetector detector(options);
    if (!cascade->saveToFile(path.c_str()) || !detector.loadDetectorFromFile(path.c_str())) {
        state.SkipWithError("cannot write or load the detector file");
        return;
    }
    remove(path.c_str());
    if (dir != nullptr) remove(dir);

    const std::vector<float> signal = makeSignal();
    BoostingDetector::GestureInfo info;
    double t = 1000.0;
    size_t i = 0;
    // The first sample creates the normaliser and the window.
    for (; i < static_cast<size_t>(length); ++i, t += 31.25) {
        detector.normalizeFrameRateAndDetectGesture(t, signal[i], &info);
    }
    int detections = 0;
    VELTO_BENCH_NO_ALLOC(state, for (auto _ : state) {
        detections += detector.normalizeFrameRateAndDetectGesture(t, signal[i++ & (kSignalLength - 1)], &info);
        t += 31.25;
    });
    benchmark::DoNotOptimize(detections);
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_BoostingDetectorPerSample)->Arg(32)->Arg(64);

}  // namespace
}  // namespace velto

BENCHMARK_MAIN();
