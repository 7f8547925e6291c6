#ifndef VELTO_GAZETRAIN_CASCADE_TRAINER_H
#define VELTO_GAZETRAIN_CASCADE_TRAINER_H

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "classifier/CascadeClassifier.h"
#include "classifier/Interval.h"
#include "tools/gazetrain/Boosting.h"
#include "tools/gazetrain/TrainingSet.h"

namespace velto {
namespace gazetools {

struct CascadeParams {
    FeatureScaling scaling;
    FeatureGrid features;
    LayerParams layer;
    int maxLayers = 12;
    size_t maxPositives = 6000;       // a random share of the positive windows when there are more
    size_t negativesPerLayer = 8000;  // drawn from the windows that the layers so far pass
    size_t minNegatives = 50;         // stop when fewer are left
    // Share of each layer's negatives drawn from negatives-only streams (as
    // many as they still have that the cascade passes; the rest from the
    // other streams). Below 0: all negatives are drawn alike, so a small
    // negatives-only corpus gives a share in proportion to its size.
    double negativesOnlyShare = -1.0;
    // Windows outside this range of magnitude are never classified positive
    // (the cascade rejects them before its layers); they are not examples.
    Interval<float> magnitudeGate{5.0f, 1000.0f};
    uint64_t seed = 1;
    int threads = 2;
    bool keepExamples = false;  // keep each layer's examples and decisions
};

// The examples of one layer as the trainer saw them.
struct LayerExamples {
    std::vector<std::unique_ptr<SeqSample>> windows;  // positives first
    size_t numPositives = 0;
    std::vector<float> scores;
    std::vector<bool> passed;
};

struct LayerSummary {
    int weaks = 0;
    size_t positives = 0;
    size_t negatives = 0;
    double detection = 0.0;
    double falsePositive = 0.0;
    size_t poolPassed = 0;  // negative windows of the corpus the cascade passes after this layer
    double seconds = 0.0;
};

// Trains a cascade layer by layer: each layer is boosted on the positives
// that the layers before it kept and on negatives drawn from the corpus
// windows that the layers before it pass (their false positives).
class CascadeTrainer {
public:
    CascadeTrainer(const std::vector<TrainingStream>& streams, int windowLength, const CascadeParams& params);

    // `log` receives progress lines.
    void train(const std::function<void(const std::string&)>& log);

    const CascadeClassifier& cascade() const { return mCascade; }
    const std::vector<LayerSummary>& summaries() const { return mSummaries; }
    const std::vector<LayerExamples>& examples() const { return mExamples; }
    size_t poolSize() const { return mPoolSize; }
    size_t initialPositives() const { return mInitialPositives; }
    // The positive windows that the whole cascade passes.
    const std::vector<std::unique_ptr<SeqSample>>& survivingPositives() const { return mPositives; }

private:
    struct Candidate {
        uint64_t hash;
        std::unique_ptr<SeqSample> window;
    };

    bool passesCascade(const SeqSample& window) const;
    enum class Pool { All, Labelled, NegativesOnly };
    // Up to `count` windows of `role` in the streams of `from` that the
    // cascade passes, those with the smallest hashes; `passed` counts all of
    // them.
    std::vector<std::unique_ptr<SeqSample>> collect(WindowRole role, size_t count, uint64_t salt, size_t* passed,
                                                    size_t* total, Pool from = Pool::All) const;
    // A layer's negatives, with the negatives-only share when one is set.
    std::vector<std::unique_ptr<SeqSample>> drawNegatives(int layer, size_t* passed, size_t* total,
                                                          const std::function<void(const std::string&)>& log) const;

    const std::vector<TrainingStream>& mStreams;
    const int mWindowLength;
    const CascadeParams mParams;
    const std::vector<WeakClassifier::Feature> mFeatures;
    CascadeClassifier mCascade;
    std::vector<std::unique_ptr<SeqSample>> mPositives;
    std::vector<LayerSummary> mSummaries;
    std::vector<LayerExamples> mExamples;
    size_t mPoolSize = 0;
    size_t mInitialPositives = 0;
};

// A 64-bit mix of its inputs (splitmix64), the trainer's only randomness.
uint64_t mixHash(uint64_t a, uint64_t b);

}  // namespace gazetools
}  // namespace velto

#endif  // VELTO_GAZETRAIN_CASCADE_TRAINER_H
