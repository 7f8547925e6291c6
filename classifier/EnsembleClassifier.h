#ifndef VELTO_ENSEMBLE_CLASSIFIER_H
#define VELTO_ENSEMBLE_CLASSIFIER_H

#include <stddef.h>
#include <stdio.h>
#include <utils/Vector.h>

#include "classifier/WeakClassifier.h"

namespace velto {

// One boosted layer: a weighted vote of weak classifiers against a threshold.
// Owns its weak classifiers.
class EnsembleClassifier {
public:
    static constexpr int kLineBufferSize = 256;
    // A normalised ensemble's alphas add up to at most this, and its threshold
    // lies within +-this.
    static constexpr float kMaxNormalizedSum = 1.00001f;

    EnsembleClassifier();
    explicit EnsembleClassifier(int numWeaks);
    virtual ~EnsembleClassifier();

    // +1 when the weighted vote is above the threshold (strict), else -1; -1
    // without touching `score` while the window is not full.
    int classify(const SeqSample& sample, bool normalize, float falloff, float falloff_squared, float* score) const;

    // "count threshold", then that many weak lines. On failure no weak
    // classifier is left.
    bool loadFromFile(FILE* pf);
    bool writeToFile(FILE* pf) const;

    void copy(const EnsembleClassifier& other);
    bool equals(const EnsembleClassifier& other) const;
    // Deletes what is held, then creates n default weak classifiers.
    void allocateWeaks(int n);
    void deleteWeaks();
    void getDebugString(char* buffer, size_t size) const;

    int numWeaks() const { return static_cast<int>(weaks_.size()); }
    const WeakClassifier* weak(int i) const { return weaks_[i]; }
    WeakClassifier* editWeak(int i) { return weaks_.editItemAt(i); }
    // Takes ownership; a null classifier is refused.
    bool addWeak(WeakClassifier* weak);
    float threshold() const { return threshold_; }
    void setThreshold(float threshold) { threshold_ = threshold; }

private:
    EnsembleClassifier(const EnsembleClassifier&) = delete;
    EnsembleClassifier& operator=(const EnsembleClassifier&) = delete;

    android::Vector<WeakClassifier*> weaks_;
    float threshold_;
};

}  // namespace velto

#endif  // VELTO_ENSEMBLE_CLASSIFIER_H
