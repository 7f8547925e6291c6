#include "tools/gazetrain/CascadeTrainer.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <thread>

namespace velto {
namespace gazetools {

namespace {

std::string format(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
std::string format(const char* fmt, ...) {
    char buf[512];
    va_list ap;
    va_start(ap, fmt);
    vsnprintf(buf, sizeof(buf), fmt, ap);
    va_end(ap);
    return buf;
}

double secondsSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

}  // namespace

uint64_t mixHash(uint64_t a, uint64_t b) {
    uint64_t z = a + 0x9E3779B97F4A7C15ull * (b + 1);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
}

CascadeTrainer::CascadeTrainer(const std::vector<TrainingStream>& streams, int windowLength,
                               const CascadeParams& params)
    : mStreams(streams), mWindowLength(windowLength), mParams(params), mFeatures(enumerateFeatures(windowLength, params.features)) {
    mCascade.setSampleLength(windowLength);
    mCascade.setFeatureFalloffThreshold(params.scaling.falloff);
    mCascade.setMagnitudeNormalized(params.scaling.normalize);
    mCascade.setPosSampleMagnitudeRange(params.magnitudeGate);
}

bool CascadeTrainer::passesCascade(const SeqSample& window) const {
    if (mCascade.numLayers() == 0) return mParams.magnitudeGate.contains(window.magnitude());
    return mCascade.classify(window) > 0;
}

std::vector<std::unique_ptr<SeqSample>> CascadeTrainer::collect(WindowRole role, size_t count, uint64_t salt,
                                                                 size_t* passed, size_t* total, Pool from) const {
    const int threads = std::max(1, mParams.threads);
    std::vector<std::vector<Candidate>> heaps(static_cast<size_t>(threads));
    std::vector<size_t> passedBy(static_cast<size_t>(threads), 0), totalBy(static_cast<size_t>(threads), 0);
    auto byHash = [](const Candidate& a, const Candidate& b) { return a.hash < b.hash; };
    auto work = [&](int t) {
        std::vector<Candidate>& heap = heaps[static_cast<size_t>(t)];
        for (size_t s = static_cast<size_t>(t); s < mStreams.size(); s += static_cast<size_t>(threads)) {
            const TrainingStream& stream = mStreams[s];
            if (from != Pool::All && stream.negativesOnly != (from == Pool::NegativesOnly)) continue;
            slideWindows(stream.grid, mWindowLength, [&](size_t i, const SeqSample& window) {
                if (stream.roles[i] != role || !stream.gate.contains(window.magnitude())) return;
                ++totalBy[static_cast<size_t>(t)];
                if (!passesCascade(window)) return;
                ++passedBy[static_cast<size_t>(t)];
                if (count == 0) return;
                const uint64_t h = mixHash(mixHash(mParams.seed, salt), (static_cast<uint64_t>(s) << 32) | i);
                if (heap.size() >= count && h >= heap.front().hash) return;
                heap.push_back({h, std::unique_ptr<SeqSample>(new SeqSample(window))});
                std::push_heap(heap.begin(), heap.end(), byHash);
                if (heap.size() > count) {
                    std::pop_heap(heap.begin(), heap.end(), byHash);
                    heap.pop_back();
                }
            });
        }
    };
    std::vector<std::thread> pool;
    for (int t = 1; t < threads; ++t) pool.emplace_back(work, t);
    work(0);
    for (std::thread& th : pool) th.join();

    std::vector<Candidate> all;
    for (auto& heap : heaps) {
        for (Candidate& c : heap) all.push_back(std::move(c));
    }
    std::sort(all.begin(), all.end(), byHash);
    if (all.size() > count) all.resize(count);
    std::vector<std::unique_ptr<SeqSample>> out;
    for (Candidate& c : all) out.push_back(std::move(c.window));
    *passed = *total = 0;
    for (int t = 0; t < threads; ++t) {
        *passed += passedBy[static_cast<size_t>(t)];
        *total += totalBy[static_cast<size_t>(t)];
    }
    return out;
}

std::vector<std::unique_ptr<SeqSample>> CascadeTrainer::drawNegatives(
        int layer, size_t* passed, size_t* total, const std::function<void(const std::string&)>& log) const {
    const uint64_t salt = static_cast<uint64_t>(layer) + 1;
    const bool anyNegativesOnly = std::any_of(mStreams.begin(), mStreams.end(),
                                              [](const TrainingStream& s) { return s.negativesOnly; });
    if (mParams.negativesOnlyShare < 0 || !anyNegativesOnly) {
        return collect(WindowRole::Negative, mParams.negativesPerLayer, salt, passed, total);
    }
    const size_t reserved = static_cast<size_t>(
            std::lround(std::min(1.0, mParams.negativesOnlyShare) * static_cast<double>(mParams.negativesPerLayer)));
    size_t passedOnly = 0, totalOnly = 0;
    std::vector<std::unique_ptr<SeqSample>> out =
            collect(WindowRole::Negative, reserved, salt, &passedOnly, &totalOnly, Pool::NegativesOnly);
    std::vector<std::unique_ptr<SeqSample>> rest = collect(WindowRole::Negative, mParams.negativesPerLayer - out.size(),
                                                           salt, passed, total, Pool::Labelled);
    log(format("layer %d: %zu of its negatives from the negatives-only corpora, which the cascade passes %zu of %zu "
               "windows of",
               layer + 1, out.size(), passedOnly, totalOnly));
    *passed += passedOnly;
    *total += totalOnly;
    for (auto& w : rest) out.push_back(std::move(w));
    return out;
}

void CascadeTrainer::train(const std::function<void(const std::string&)>& log) {
    size_t passed = 0, total = 0;
    mPositives = collect(WindowRole::Positive, mParams.maxPositives, 0, &passed, &total);
    mInitialPositives = mPositives.size();
    log(format("%zu features of a %d-sample window; %zu positive windows within the calibrated magnitudes, %zu of "
               "them within the cascade's magnitude range; using %zu",
               mFeatures.size(), mWindowLength, total, passed, mPositives.size()));
    if (mPositives.empty()) {
        log("no positive windows: nothing to train");
        return;
    }
    for (int layer = 0; layer < mParams.maxLayers; ++layer) {
        const auto start = std::chrono::steady_clock::now();
        std::vector<std::unique_ptr<SeqSample>> negatives = drawNegatives(layer, &passed, &total, log);
        mPoolSize = total;
        if (!mSummaries.empty()) mSummaries.back().poolPassed = passed;
        log(format("layer %d: the cascade passes %zu of %zu negative windows (%.3g)", layer + 1, passed, total,
                   total > 0 ? static_cast<double>(passed) / total : 0.0));
        if (negatives.size() < mParams.minNegatives) {
            log(format("fewer than %zu negatives left: the cascade is complete", mParams.minNegatives));
            break;
        }
        const double scanSeconds = secondsSince(start);
        std::vector<const SeqSample*> windows;
        for (const auto& w : mPositives) windows.push_back(w.get());
        for (const auto& w : negatives) windows.push_back(w.get());
        const FeatureMatrix matrix(mFeatures, windows, mParams.scaling, mParams.threads);
        const double matrixSeconds = secondsSince(start) - scanSeconds;
        LayerParams lp = mParams.layer;
        lp.threads = mParams.threads;
        const LayerResult result = trainLayer(matrix, mPositives.size(), windows, mParams.scaling, lp,
                                              [&](int weaks, double fp) {
                                                  if (weaks % 10 == 0) {
                                                      log(format("  %d weak classifiers: false positives %.3f",
                                                                 weaks, fp));
                                                  }
                                              });
        LayerSummary summary;
        summary.weaks = result.layer->numWeaks();
        summary.positives = mPositives.size();
        summary.negatives = negatives.size();
        summary.detection = result.detection;
        summary.falsePositive = result.falsePositive;
        summary.poolPassed = passed;

        if (mParams.keepExamples) {
            LayerExamples ex;
            ex.numPositives = mPositives.size();
            for (const SeqSample* w : windows) ex.windows.emplace_back(new SeqSample(*w));
            ex.scores = result.scores;
            ex.passed = result.passed;
            mExamples.push_back(std::move(ex));
        }
        std::vector<std::unique_ptr<SeqSample>> kept;
        for (size_t i = 0; i < mPositives.size(); ++i) {
            if (result.passed[i]) kept.push_back(std::move(mPositives[i]));
        }
        mPositives = std::move(kept);
        mCascade.addLayer(new EnsembleClassifier());
        mCascade.editLayer(mCascade.numLayers() - 1)->copy(*result.layer);
        summary.seconds = secondsSince(start);
        mSummaries.push_back(summary);
        log(format("layer %d: %d weak classifiers, detection %.4f, false positives %.3f on %zu+%zu examples "
                   "(%.1f s: %.1f s drawing negatives, %.1f s features, %.1f s boosting)",
                   layer + 1, summary.weaks, summary.detection, summary.falsePositive, summary.positives,
                   summary.negatives, summary.seconds, scanSeconds, matrixSeconds,
                   summary.seconds - scanSeconds - matrixSeconds));
    }
    if (!mSummaries.empty()) {
        std::vector<std::unique_ptr<SeqSample>> rest =
                collect(WindowRole::Negative, 0, 0, &mSummaries.back().poolPassed, &total);
        log(format("done: %d layers keep %zu of %zu positive windows and pass %zu of %zu negative windows",
                   mCascade.numLayers(), mPositives.size(), mInitialPositives, mSummaries.back().poolPassed, total));
    }
}

}  // namespace gazetools
}  // namespace velto
