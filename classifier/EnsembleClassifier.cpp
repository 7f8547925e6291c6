#include "classifier/EnsembleClassifier.h"

#include <float.h>
#include <log/log.h>
#include <math.h>

#include "classifier/SeqSample.h"
#include "classifier/TextBuffer.h"

namespace velto {

namespace {

const char kTag[] = "GazeDetector";

}  // namespace

EnsembleClassifier::EnsembleClassifier() : threshold_(0.0f) {}

EnsembleClassifier::EnsembleClassifier(int numWeaks) : threshold_(0.0f) { allocateWeaks(numWeaks); }

EnsembleClassifier::~EnsembleClassifier() { deleteWeaks(); }

void EnsembleClassifier::deleteWeaks() {
    for (size_t i = 0; i < weaks_.size(); ++i) delete weaks_[i];
    weaks_.clear();
}

void EnsembleClassifier::allocateWeaks(int n) {
    deleteWeaks();
    if (n <= 0) return;
    weaks_.setCapacity(static_cast<size_t>(n));
    for (int i = 0; i < n; ++i) weaks_.push(new WeakClassifier());
}

bool EnsembleClassifier::addWeak(WeakClassifier* weak) {
    if (weak == nullptr) return false;
    weaks_.push(weak);
    return true;
}

int EnsembleClassifier::classify(const SeqSample& sample, bool normalize, float falloff, float falloff_squared,
                                 float* score) const {
    if (!sample.full()) return -1;
    // The magnitude test and the normalisation factor are the same for every
    // weak classifier of the window.
    float factor = 1.0f;
    const bool hasMagnitude = WeakClassifier::getFeatureFactor(sample, normalize, falloff, falloff_squared, &factor);
    float sum = 0.0f;
    WeakClassifier* const* weaks = weaks_.array();
    for (size_t i = 0, n = weaks_.size(); i < n; ++i) {
        const WeakClassifier* w = weaks[i];
        const float value = hasMagnitude ? w->scaledFeature(sample, factor) : 0.0f;
        sum += w->weightedVote(value);
    }
    if (score != nullptr) *score = sum;
    return sum > threshold_ ? 1 : -1;
}

bool EnsembleClassifier::loadFromFile(FILE* pf) {
    char line[kLineBufferSize];
    if (!WeakClassifier::getNextNonEmptyNonCommentLine(pf, line, sizeof(line))) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Incomplete classifier file.");
        return false;
    }
    int count = 0;
    if (sscanf(line, "%d %f", &count, &threshold_) != 2) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Bad line format %s", line);
        return false;
    }
    if (!isfinite(threshold_)) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Non-finite threshold in ensemble line %s", line);
        return false;
    }
    if (count <= 0) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Ensemble must have at least one weak classifier.");
        return false;
    }
    // Filled one line at a time: a count that the file cannot back up fails at
    // its first missing line instead of allocating for it.
    deleteWeaks();
    float alphaSum = 0.0f;
    for (int i = 0; i < count; ++i) {
        WeakClassifier* weak = new WeakClassifier();
        weaks_.push(weak);
        if (!weak->loadFromFile(pf)) {
            deleteWeaks();
            return false;
        }
        alphaSum += weak->alpha();
    }
    if (alphaSum > kMaxNormalizedSum || fabsf(threshold_) > kMaxNormalizedSum) {
        __android_log_print(ANDROID_LOG_ERROR, kTag,
                            "It seems the classifier hasn't been normalized. alpha_sum=%.10f, threshold=%.10f",
                            static_cast<double>(alphaSum), static_cast<double>(threshold_));
        deleteWeaks();
        return false;
    }
    return true;
}

bool EnsembleClassifier::writeToFile(FILE* pf) const {
    if (fprintf(pf, "%d %.9g\n", numWeaks(), static_cast<double>(threshold_)) <= 0) return false;
    for (size_t i = 0; i < weaks_.size(); ++i) {
        if (weaks_[i] == nullptr || !weaks_[i]->writeToFile(pf)) return false;
    }
    return true;
}

void EnsembleClassifier::copy(const EnsembleClassifier& other) {
    threshold_ = other.threshold_;
    allocateWeaks(other.numWeaks());
    for (size_t i = 0; i < other.weaks_.size(); ++i) {
        if (other.weaks_[i] == nullptr) {
            __android_log_print(ANDROID_LOG_ERROR, kTag, "weaks_[%d] must not be NULL.", static_cast<int>(i));
            return;
        }
        weaks_.editItemAt(i)->copy(*other.weaks_[i]);
    }
}

bool EnsembleClassifier::equals(const EnsembleClassifier& other) const {
    if (weaks_.size() != other.weaks_.size() || !(fabsf(threshold_ - other.threshold_) < FLT_EPSILON)) return false;
    for (size_t i = 0; i < weaks_.size(); ++i) {
        if (weaks_[i] == nullptr || other.weaks_[i] == nullptr) {
            __android_log_print(ANDROID_LOG_ERROR, kTag, "weaks_[%d] must not be NULL.", static_cast<int>(i));
            return false;
        }
        if (!weaks_[i]->equals(*other.weaks_[i])) return false;
    }
    return true;
}

void EnsembleClassifier::getDebugString(char* buffer, size_t size) const {
    if (buffer == nullptr || size == 0) return;
    buffer[0] = '\0';
    for (size_t i = 0; i < weaks_.size(); ++i) {
        char weakText[256] = "NULL";
        if (weaks_[i] != nullptr) weaks_[i]->getDebugString(weakText, sizeof(weakText));
        TextBuffer::append(buffer, size, "weak %d: (%s)\n", static_cast<int>(i), weakText);
    }
    TextBuffer::append(buffer, size, "threshold=%f", static_cast<double>(threshold_));
}

}  // namespace velto
