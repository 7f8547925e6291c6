#ifndef VELTO_GAZETRAIN_BOOSTING_H
#define VELTO_GAZETRAIN_BOOSTING_H

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "classifier/EnsembleClassifier.h"
#include "classifier/SeqSample.h"
#include "classifier/WeakClassifier.h"

namespace velto {
namespace gazetools {

// Which block features a cascade may choose from. With stride 1, every one
// that fits the window. Long windows have far too many of those (they grow
// with the cube of the length), so with a stride K > 1 block sizes and
// intervals are multiples of K and the features end on a grid of K counted
// back from the newest sample, and every feature that lies within the newest
// `fineSpan` samples (where a detector sees the event it answers) is kept at
// full resolution.
struct FeatureGrid {
    int stride = 1;
    int fineSpan = 32;
};

std::vector<WeakClassifier::Feature> enumerateFeatures(int length, const FeatureGrid& grid = FeatureGrid());

// How the cascade normalises its features (the header of the detector file).
struct FeatureScaling {
    bool normalize = true;
    float falloff = 16.0f;
};

// The values of every candidate feature on every example window, each
// quantised against at most 255 thresholds of its own. A stump "value >
// edge k" holds exactly when the stored bin is above k, because the bins are
// made with the same float comparison that WeakClassifier::vote makes.
class FeatureMatrix {
public:
    static constexpr int kMaxEdges = 255;

    FeatureMatrix(const std::vector<WeakClassifier::Feature>& features, const std::vector<const SeqSample*>& windows,
                  const FeatureScaling& scaling, int threads);

    size_t numFeatures() const { return mFeatures.size(); }
    size_t numWindows() const { return mNumWindows; }
    const WeakClassifier::Feature& feature(size_t f) const { return mFeatures[f]; }
    const uint8_t* bins(size_t f) const { return &mBins[f * mNumWindows]; }
    const std::vector<float>& edges(size_t f) const { return mEdges[f]; }

private:
    std::vector<WeakClassifier::Feature> mFeatures;
    size_t mNumWindows;
    std::unique_ptr<uint8_t[]> mBins;
    std::vector<std::vector<float>> mEdges;
};

struct LayerParams {
    double minDetection = 0.995;     // share of the positives the layer must pass
    double maxFalsePositive = 0.4;   // share of the negatives it may pass
    int minWeaks = 2;
    int maxWeaks = 60;
    int threads = 2;
};

struct LayerResult {
    std::unique_ptr<EnsembleClassifier> layer;  // normalised: alphas sum to 1, |threshold| <= 1
    std::vector<float> scores;  // the library's score of every window, positives first
    std::vector<bool> passed;   // score > threshold
    double detection = 0.0;     // share of positives passed
    double falsePositive = 0.0; // share of negatives passed
};

// Discrete AdaBoost with decision stumps over `matrix`, whose first
// `numPositives` windows are positives and the rest negatives. Adds stumps
// until the layer, with its threshold set to pass minDetection of the
// positives, passes at most maxFalsePositive of the negatives (or maxWeaks is
// reached). The ensemble's scores and decisions are then taken from the
// library's own EnsembleClassifier on the windows, so they are exactly what a
// loaded detector computes. `progress` is told each round's weak count and
// false-positive share.
LayerResult trainLayer(const FeatureMatrix& matrix, size_t numPositives, const std::vector<const SeqSample*>& windows,
                       const FeatureScaling& scaling, const LayerParams& params,
                       const std::function<void(int weaks, double falsePositive)>& progress);

// Scales the alphas of an ensemble so that they sum to at most 1 as the
// detector file loader adds them up (in float, in order), and the threshold
// with them. False when the alphas are not all positive.
bool normalizeLayer(EnsembleClassifier* layer);

// The threshold between the k-th highest positive score and the next lower
// score, so that exactly the positives scoring at least that high pass;
// within [-1.00001, 1].
float thresholdForDetection(std::vector<float> positiveScores, double minDetection);

}  // namespace gazetools
}  // namespace velto

#endif  // VELTO_GAZETRAIN_BOOSTING_H
