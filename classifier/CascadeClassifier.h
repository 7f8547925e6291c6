#ifndef VELTO_CASCADE_CLASSIFIER_H
#define VELTO_CASCADE_CLASSIFIER_H

#include <stddef.h>
#include <stdio.h>
#include <utils/Vector.h>

#include "classifier/EnsembleClassifier.h"
#include "classifier/Interval.h"

namespace velto {

class SeqSample;

// A detector: layers of boosted ensembles over a window of sample_length
// values, evaluated in order until the first negative layer. Windows whose
// magnitude or level is implausible are rejected before any layer runs.
//
// Detector file (comment lines start with '#' in column 0; lines of a lone
// newline are skipped):
//   num_layers sample_length feature_falloff_threshold [normalize]
//   then per layer: num_weaks threshold
//   then per weak:  type start_offset block_size block_interval <ignored> sign alpha threshold
// The magnitude range and the min/max level gates are not in the file; the
// owning detector sets them.
class CascadeClassifier {
public:
    static constexpr int kLineBufferSize = 512;

    CascadeClassifier();
    explicit CascadeClassifier(int numLayers);
    virtual ~CascadeClassifier();

    // +1 for the gesture, else -1.
    virtual int classify(const SeqSample& sample) const;
    // Opens the (root-resolved) path in text mode and reads one detector.
    virtual bool loadFromFile(const char* path);
    // Reads one detector from the current position. A failure leaves what was
    // parsed so far (the header fields and the layers loaded before the failing
    // one); the owner discards such a cascade.
    bool loadFromFile(FILE* pf);

    // Writes exactly what loadFromFile reads back to an equal cascade (the
    // gates excepted). saveToFile creates the parent directories.
    bool writeToFile(FILE* pf) const;
    bool saveToFile(const char* path) const;

    void copy(const CascadeClassifier& other);
    bool equals(const CascadeClassifier& other) const;
    // Keeps the first (count - k) layers.
    void removeLastKLayers(int k);
    // Deletes what is held, then creates n empty layers.
    void allocateLayers(int n);
    void deleteLayers();
    void getDebugString(char* buffer, size_t size) const;

    int numLayers() const { return static_cast<int>(layers_.size()); }
    const EnsembleClassifier* layer(int i) const { return layers_[i]; }
    EnsembleClassifier* editLayer(int i) { return layers_.editItemAt(i); }
    // Takes ownership; a null layer is refused.
    bool addLayer(EnsembleClassifier* layer);

    int sampleLength() const { return sample_length_; }
    void setSampleLength(int length) { sample_length_ = length; }
    float featureFalloffThreshold() const { return feature_falloff_threshold_; }
    void setFeatureFalloffThreshold(float threshold);
    bool isMagnitudeNormalized() const { return normalize_magnitude_; }
    void setMagnitudeNormalized(bool normalize) { normalize_magnitude_ = normalize; }
    const Interval<float>& posSampleMagnitudeRange() const { return pos_sample_magnitude_range_; }
    void setPosSampleMagnitudeRange(const Interval<float>& range) { pos_sample_magnitude_range_ = range; }
    float maxMinSampleValue() const { return max_min_sample_value_; }
    void setMaxMinSampleValue(float value) { max_min_sample_value_ = value; }
    float minMaxSampleValue() const { return min_max_sample_value_; }
    void setMinMaxSampleValue(float value) { min_max_sample_value_ = value; }

private:
    CascadeClassifier(const CascadeClassifier&) = delete;
    CascadeClassifier& operator=(const CascadeClassifier&) = delete;

    int sample_length_;
    android::Vector<EnsembleClassifier*> layers_;
    float feature_falloff_threshold_;
    float feature_falloff_threshold_squared_;
    bool normalize_magnitude_;
    Interval<float> pos_sample_magnitude_range_;
    // A window whose minimum lies above this, or whose maximum lies below
    // min_max_sample_value_, is not a gesture.
    float max_min_sample_value_;
    float min_max_sample_value_;
};

}  // namespace velto

#endif  // VELTO_CASCADE_CLASSIFIER_H
