#ifndef VELTO_WEAK_CLASSIFIER_H
#define VELTO_WEAK_CLASSIFIER_H

#include <stddef.h>
#include <stdio.h>

namespace velto {

class SeqSample;

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
    int classify(const SeqSample& sample, bool normalize, float falloff, float falloff_squared) const;
    float computeFeature(const SeqSample& sample, bool normalize, float falloff, float falloff_squared) const;

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
    void setSign(int sign) { sign_ = sign; }
    float threshold() const { return threshold_; }
    void setThreshold(float threshold) { threshold_ = threshold; }
    float alpha() const { return alpha_; }
    void setAlpha(float alpha) { alpha_ = alpha; }

private:
    Feature feature_;
    int sign_;
    float threshold_;
    float alpha_;
};

}  // namespace velto

#endif  // VELTO_WEAK_CLASSIFIER_H
