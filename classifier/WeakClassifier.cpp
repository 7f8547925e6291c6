#include "classifier/WeakClassifier.h"

#include <float.h>
#include <log/log.h>
#include <math.h>
#include <string.h>


namespace velto {

namespace {

const char kTag[] = "GazeDetector";

// Block boundaries come from a file and may be anything: they are formed in
// 64 bits, and any outside the window reads 0 like every other index there.
int clampIndex(long long k) { return k < -1 ? -1 : (k > 0x7FFFFFFF ? 0x7FFFFFFF : static_cast<int>(k)); }

}  // namespace

void WeakClassifier::Feature::updateInversePosBlockSize() {
    switch (type) {
        case 0:
        case 2:
            inverse_pos_block_size = block_size == 0 ? 0.0f : static_cast<float>(1.0 / block_size);
            break;
        case 1:
        case 3:
            inverse_pos_block_size = block_size == 0 ? 0.0f : static_cast<float>(1.0 / (2.0 * block_size));
            break;
        default:
            break;
    }
}

WeakClassifier::WeakClassifier() : sign_(1), threshold_(0.0f), alpha_(1.0f) {
    updateBlocks();
    updateWeightedVotes();
}

WeakClassifier::WeakClassifier(const Feature& feature, int sign, float threshold, float alpha)
    : sign_(sign), threshold_(threshold), alpha_(alpha) {
    setFeature(feature);
    updateWeightedVotes();
}

void WeakClassifier::setFeature(const Feature& feature) {
    feature_.type = feature.type;
    feature_.start_offset = feature.start_offset;
    feature_.block_interval = feature.block_interval;
    feature_.block_size = feature.block_size;
    feature_.updateInversePosBlockSize();
    updateBlocks();
}

void WeakClassifier::updateBlocks() {
    const int type = feature_.type;
    kind_ = type == 0 || type == 2 ? kTwoBlocks : (type == 1 || type == 3 ? kThreeBlocks : kNoFeature);
    sobel_ = type == 2 || type == 3;
    // A = [s, s+b), B = [s+b+g, s+2b+g), C = [s+2b+2g, s+3b+2g).
    const long long s = feature_.start_offset;
    const long long b = feature_.block_size;
    const long long g = feature_.block_interval;
    const long long ends[6] = {s, s + b, s + b + g, s + 2 * b + g, s + 2 * b + 2 * g, s + 3 * b + 2 * g};
    for (int i = 0; i < 6; ++i) block_ends_[i] = clampIndex(ends[i]);
}

bool WeakClassifier::getNextNonEmptyNonCommentLine(FILE* pf, char* lineBuffer, int size) {
    if (pf == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "pf can not be NULL.");
        return false;
    }
    if (lineBuffer == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "lineBuffer can not be NULL.");
        return false;
    }
    char last = '\0';
    for (;;) {
        if (fgets(lineBuffer, size, pf) == nullptr) return false;
        const size_t len = strlen(lineBuffer);
        last = len > 0 ? lineBuffer[len - 1] : '\0';
        if (lineBuffer[0] == '#') {
            if (last != '\n') {
                // The rest of an over-long comment is dropped with it.
                int ch;
                do {
                    ch = fgetc(pf);
                } while (ch != '\n' && ch != EOF);
                __android_log_print(ANDROID_LOG_WARN, kTag, "Found long comment line in detector file: %s",
                                    lineBuffer);
            }
            continue;
        }
        if (lineBuffer[0] == '\n') continue;
        break;
    }
    if (lineBuffer[0] == '\0') {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "The line can not be empty.");
        return false;
    }
    if (last == '\n' || feof(pf)) return true;
    __android_log_print(ANDROID_LOG_ERROR, kTag, "Found long non-comment line in detector file: %s", lineBuffer);
    return false;
}

bool WeakClassifier::loadFromFile(FILE* pf) {
    char line[kLineBufferSize];
    if (!getNextNonEmptyNonCommentLine(pf, line, sizeof(line))) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Incomplete classifier file.");
        return false;
    }
    Feature feature;
    int ignored = 0;
    // The file gives block_size before block_interval and alpha before threshold.
    const int n = sscanf(line, "%d %d %d %d %d %d %f %f", &feature.type, &feature.start_offset, &feature.block_size,
                         &feature.block_interval, &ignored, &sign_, &alpha_, &threshold_);
    updateWeightedVotes();
    if (sign_ != 1 && sign_ != -1) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Bad weak classifier sign %d.", sign_);
        return false;
    }
    if (n != 8) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Bad line format %s.", line);
        return false;
    }
    // A NaN alpha or threshold would pass every later check and never vote.
    if (!isfinite(alpha_) || !isfinite(threshold_)) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Non-finite %s in weak classifier line %s",
                            isfinite(alpha_) ? "threshold" : "alpha", line);
        return false;
    }
    setFeature(feature);
    return true;
}

bool WeakClassifier::writeToFile(FILE* pf) const {
    // %.9g gives back the same float when read with %f.
    return fprintf(pf, "%d %d %d %d 0 %d %.9g %.9g\n", feature_.type, feature_.start_offset, feature_.block_size,
                   feature_.block_interval, sign_, static_cast<double>(alpha_), static_cast<double>(threshold_)) > 0;
}

void WeakClassifier::copy(const WeakClassifier& other) {
    setFeature(other.feature_);
    sign_ = other.sign_;
    threshold_ = other.threshold_;
    alpha_ = other.alpha_;
    updateWeightedVotes();
}

bool WeakClassifier::equals(const WeakClassifier& other) const {
    return feature_.type == other.feature_.type && feature_.start_offset == other.feature_.start_offset &&
           feature_.block_interval == other.feature_.block_interval &&
           feature_.block_size == other.feature_.block_size &&
           fabsf(feature_.inverse_pos_block_size - other.feature_.inverse_pos_block_size) < FLT_EPSILON &&
           sign_ == other.sign_ && fabsf(threshold_ - other.threshold_) < FLT_EPSILON &&
           fabsf(alpha_ - other.alpha_) < FLT_EPSILON;
}

void WeakClassifier::getDebugString(char* buffer, size_t size) const {
    if (buffer == nullptr || size == 0) return;
    char featureText[128];
    snprintf(featureText, sizeof(featureText),
             "type=%d, start_offset=%d, block_size=%d, block_interval=%d, inverse_pos_block_size=%f", feature_.type,
             feature_.start_offset, feature_.block_size, feature_.block_interval,
             static_cast<double>(feature_.inverse_pos_block_size));
    snprintf(buffer, size, "feature=(%s), sign=%d, threshold=%f, alpha=%f", featureText, sign_,
             static_cast<double>(threshold_), static_cast<double>(alpha_));
}

}  // namespace velto
