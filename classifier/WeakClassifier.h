#ifndef VELTO_WEAK_CLASSIFIER_H
#define VELTO_WEAK_CLASSIFIER_H

#include <float.h>
#include <stddef.h>
#include <stdio.h>

#include "classifier/SeqSample.h"

namespace velto {

// One thresholded block feature of the sample window. Reads the window's
// prefix sums only, so a vote costs a handful of reads whatever the block
// sizes. Not polymorphic: ensembles hold many of them.
class WeakClassifier {
public:
    // Blocks of block_size samples starting at start_offset, block_interval
    // samples apart. Types 0 and 1 look at the values, 2 and 3 at the Sobel
    // values; 0 and 2 compare two blocks, 1 and 3 weigh the middle of three.
    struct Feature {
        int type = 0;
        int start_offset = 0;
        int block_interval = 0;
        int block_size = 0;
        // Derived from type and block_size, never read from a file.
        float inverse_pos_block_size = 0.0f;

        // 1/block_size for two-block types, 1/(2 block_size) for three-block
        // types (the weight of the positive part), 0 for block_size 0; an
        // unknown type keeps the previous value.
        void updateInversePosBlockSize();
    };

    // Record lines longer than this (with their newline) fail the load.
    static constexpr int kLineBufferSize = 128;

    WeakClassifier();
    WeakClassifier(const Feature& feature, int sign, float threshold, float alpha);

    // +1 or -1; -1 while the window is not full.
    int classify(const SeqSample& sample, bool normalize, float falloff, float falloff_squared) const {
        if (!sample.full()) return -1;
        return vote(computeFeature(sample, normalize, falloff, falloff_squared));
    }
    float computeFeature(const SeqSample& sample, bool normalize, float falloff, float falloff_squared) const {
        float factor;
        return getFeatureFactor(sample, normalize, falloff, falloff_squared, &factor) ? scaledFeature(sample, factor)
                                                                                       : 0.0f;
    }

    // The window-wide part of every feature, computed once per window by the
    // ensemble: false when the window has no magnitude (every feature is then
    // 0); else the normalisation factor, 1 without normalisation. Below the
    // falloff magnitude 1/m is replaced by its tangent at the falloff, so weak
    // windows are not amplified without bound.
    static bool getFeatureFactor(const SeqSample& sample, bool normalize, float falloff, float falloff_squared,
                                 float* factor) {
        const float m = sample.magnitude();
        if (m < FLT_EPSILON) return false;
        *factor = !normalize ? 1.0f : m < falloff ? 2.0f / falloff - m / falloff_squared : sample.inverseMagnitude();
        return true;
    }

    // The feature of a window with a magnitude. Multiplying by a factor of 1
    // is exact, so this equals the unnormalised feature too.
    float scaledFeature(const SeqSample& sample, float factor) const {
        const float scale = feature_.inverse_pos_block_size * factor;
        const ReverseCircularBuffer<float>& sums = sobel_ ? sample.integralSobelValues() : sample.integralValues();
        switch (kind_) {
            case kTwoBlocks:
                return (blockSum(sums, 0) - blockSum(sums, 1)) * scale;
            case kThreeBlocks:
                return (2.0f * blockSum(sums, 1) - blockSum(sums, 0) - blockSum(sums, 2)) * scale;
            default:
                return 0.0f;
        }
    }

    // Strict: a feature equal to the threshold counts as below it.
    int vote(float featureValue) const { return sign_ * (featureValue > threshold_ ? 1 : -1); }
    // alpha * vote, with both products formed in advance. Indexed rather than
    // branched: whether a feature passes its threshold is what a classifier
    // cannot predict.
    float weightedVote(float featureValue) const {
        return weighted_votes_[static_cast<int>(featureValue > threshold_)];
    }

    // One weak-classifier line of a detector file:
    // "type start_offset block_size block_interval <ignored> sign alpha threshold".
    bool loadFromFile(FILE* pf);
    // Writes the line that loadFromFile reads back to an equal classifier.
    bool writeToFile(FILE* pf) const;

    // Reads the next record line: skips comment lines ('#' in column 0, also
    // when longer than the buffer) and lines that are only a newline. False at
    // the end of the file, on an empty string or on a record line that does not
    // fit the buffer with its newline (the last line may lack the newline).
    static bool getNextNonEmptyNonCommentLine(FILE* pf, char* lineBuffer, int size);

    void copy(const WeakClassifier& other);
    bool equals(const WeakClassifier& other) const;
    void getDebugString(char* buffer, size_t size) const;

    const Feature& feature() const { return feature_; }
    // Takes the four integers; the derived reciprocal is recomputed.
    void setFeature(const Feature& feature);
    int sign() const { return sign_; }
    void setSign(int sign) {
        sign_ = sign;
        updateWeightedVotes();
    }
    float threshold() const { return threshold_; }
    void setThreshold(float threshold) { threshold_ = threshold; }
    float alpha() const { return alpha_; }
    void setAlpha(float alpha) {
        alpha_ = alpha;
        updateWeightedVotes();
    }

private:
    enum Kind { kTwoBlocks, kThreeBlocks, kNoFeature };

    // Block j of the feature from the prefix sums; boundaries outside the
    // window read 0.
    float blockSum(const ReverseCircularBuffer<float>& sums, int j) const {
        return sums.at(block_ends_[2 * j + 1]) - sums.at(block_ends_[2 * j]);
    }
    // Derives the block boundaries and the kind from the feature.
    void updateBlocks();
    void updateWeightedVotes() {
        weighted_votes_[0] = alpha_ * -static_cast<float>(sign_);
        weighted_votes_[1] = alpha_ * static_cast<float>(sign_);
    }

    Feature feature_;
    int sign_;
    float threshold_;
    float alpha_;
    Kind kind_;
    bool sobel_;
    // Start and end (prefix-sum index) of blocks A, B and C.
    int block_ends_[6];
    // alpha * vote for a feature at or below, and above, the threshold.
    float weighted_votes_[2];
};

}  // namespace velto

#endif  // VELTO_WEAK_CLASSIFIER_H
