#include "classifier/CascadeClassifier.h"

#include <log/log.h>
#include <math.h>

#include "classifier/SeqSample.h"
#include "classifier/TextBuffer.h"
#include "classifier/TextFile.h"
#include "veltoutils/Paths.h"

namespace velto {

namespace {
const char kTag[] = "GazeService:CascadeClassifier";
}

CascadeClassifier::CascadeClassifier()
    : sample_length_(0),
      feature_falloff_threshold_(0.0f),
      feature_falloff_threshold_squared_(0.0f),
      normalize_magnitude_(true),
      pos_sample_magnitude_range_(5.0f, 1000.0f),
      max_min_sample_value_(10000.0f),
      min_max_sample_value_(-10000.0f) {}

CascadeClassifier::CascadeClassifier(int numLayers) : CascadeClassifier() { allocateLayers(numLayers); }

CascadeClassifier::~CascadeClassifier() { deleteLayers(); }

void CascadeClassifier::deleteLayers() {
    for (size_t i = 0; i < layers_.size(); ++i) delete layers_[i];
    layers_.clear();
}

void CascadeClassifier::allocateLayers(int n) {
    deleteLayers();
    if (n <= 0) return;
    layers_.setCapacity(static_cast<size_t>(n));
    for (int i = 0; i < n; ++i) layers_.push(new EnsembleClassifier());
}

bool CascadeClassifier::addLayer(EnsembleClassifier* layer) {
    if (layer == nullptr) return false;
    layers_.push(layer);
    return true;
}

void CascadeClassifier::setFeatureFalloffThreshold(float threshold) {
    feature_falloff_threshold_ = threshold;
    feature_falloff_threshold_squared_ = threshold * threshold;
}

int CascadeClassifier::classify(const SeqSample& sample) const {
    if (!sample.full() || layers_.isEmpty()) return -1;
    const float m = sample.magnitude();
    if (!(pos_sample_magnitude_range_.min <= m && m <= pos_sample_magnitude_range_.max)) return -1;
    if (sample.minValue() > max_min_sample_value_) return -1;
    if (sample.maxValue() < min_max_sample_value_) return -1;
    EnsembleClassifier* const* layers = layers_.array();
    for (size_t i = 0, n = layers_.size(); i < n; ++i) {
        if (layers[i]->classify(sample, normalize_magnitude_, feature_falloff_threshold_,
                                feature_falloff_threshold_squared_, nullptr) < 0) {
            return -1;
        }
    }
    return 1;
}

bool CascadeClassifier::loadFromFile(FILE* pf) {
    char line[kLineBufferSize];
    if (!WeakClassifier::getNextNonEmptyNonCommentLine(pf, line, sizeof(line))) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Incomplete classifier file.");
        return false;
    }
    int numLayers = 0;
    float falloff = 0.0f;
    int normalize = 1;
    const int n = sscanf(line, "%d %d %f %d", &numLayers, &sample_length_, &falloff, &normalize);
    if (n != 3 && n != 4) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Bad line format %s.", line);
        return false;
    }
    if (numLayers <= 0) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Cascade must have at least one layer.");
        return false;
    }
    if (!isfinite(falloff)) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Non-finite feature falloff threshold in line %s", line);
        return false;
    }
    setFeatureFalloffThreshold(falloff);
    normalize_magnitude_ = n == 3 || normalize > 0;
    // Layers are added as they load, so a layer count that the file does not
    // back up costs nothing before it fails.
    deleteLayers();
    for (int i = 0; i < numLayers; ++i) {
        EnsembleClassifier* layer = new EnsembleClassifier();
        if (!layer->loadFromFile(pf)) {
            delete layer;
            __android_log_print(ANDROID_LOG_ERROR, kTag, "Fail to load layer %d from file.", i);
            return false;
        }
        layers_.push(layer);
    }
    return true;
}

bool CascadeClassifier::loadFromFile(const char* path) {
    FILE* pf = TextFile::openForRead(kTag, path);
    if (pf == nullptr) return false;
    bool ok = loadFromFile(pf);
    if (fclose(pf) != 0) ok = false;
    return ok;
}

bool CascadeClassifier::writeToFile(FILE* pf) const {
    if (fprintf(pf, "%d %d %.9g %d\n", numLayers(), sample_length_, static_cast<double>(feature_falloff_threshold_),
                normalize_magnitude_ ? 1 : 0) <= 0) {
        return false;
    }
    for (size_t i = 0; i < layers_.size(); ++i) {
        if (layers_[i] == nullptr || !layers_[i]->writeToFile(pf)) return false;
    }
    return true;
}

bool CascadeClassifier::saveToFile(const char* path) const {
    FILE* pf = TextFile::openForWrite(kTag, path);
    if (pf == nullptr) return false;
    bool ok = writeToFile(pf);
    if (fclose(pf) != 0) ok = false;
    if (!ok) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Can not write detector to file %s.",
                            Paths::resolve(path).string());
    }
    return ok;
}

void CascadeClassifier::copy(const CascadeClassifier& other) {
    sample_length_ = other.sample_length_;
    pos_sample_magnitude_range_ = other.pos_sample_magnitude_range_;
    normalize_magnitude_ = other.normalize_magnitude_;
    min_max_sample_value_ = other.min_max_sample_value_;
    max_min_sample_value_ = other.max_min_sample_value_;
    setFeatureFalloffThreshold(other.feature_falloff_threshold_);
    allocateLayers(other.numLayers());
    for (size_t i = 0; i < other.layers_.size(); ++i) {
        if (other.layers_[i] == nullptr) {
            __android_log_print(ANDROID_LOG_ERROR, kTag, "layers_[%d] must not be NULL.", static_cast<int>(i));
            return;
        }
        layers_.editItemAt(i)->copy(*other.layers_[i]);
    }
}

bool CascadeClassifier::equals(const CascadeClassifier& other) const {
    if (layers_.size() != other.layers_.size() || feature_falloff_threshold_ != other.feature_falloff_threshold_ ||
        sample_length_ != other.sample_length_ ||
        pos_sample_magnitude_range_.min != other.pos_sample_magnitude_range_.min ||
        pos_sample_magnitude_range_.max != other.pos_sample_magnitude_range_.max ||
        normalize_magnitude_ != other.normalize_magnitude_ || min_max_sample_value_ != other.min_max_sample_value_ ||
        max_min_sample_value_ != other.max_min_sample_value_) {
        return false;
    }
    for (size_t i = 0; i < layers_.size(); ++i) {
        if (layers_[i] == nullptr || other.layers_[i] == nullptr) {
            __android_log_print(ANDROID_LOG_ERROR, kTag, "layers_[%d] must not be NULL.", static_cast<int>(i));
            return false;
        }
        if (!layers_[i]->equals(*other.layers_[i])) return false;
    }
    return true;
}

void CascadeClassifier::removeLastKLayers(int k) {
    if (k <= 0) return;
    const size_t keep = static_cast<size_t>(k) >= layers_.size() ? 0 : layers_.size() - static_cast<size_t>(k);
    for (size_t i = keep; i < layers_.size(); ++i) delete layers_[i];
    layers_.removeItemsAt(keep, layers_.size() - keep);
}

void CascadeClassifier::getDebugString(char* buffer, size_t size) const {
    if (buffer == nullptr || size == 0) return;
    buffer[0] = '\0';
    TextBuffer::append(buffer, size, "num_layers=%d, feature_falloff_threshold=%f, sample_length=%d\n", numLayers(),
                       static_cast<double>(feature_falloff_threshold_), sample_length_);
    for (size_t i = 0; i < layers_.size(); ++i) {
        char layerText[512] = "NULL";
        if (layers_[i] != nullptr) layers_[i]->getDebugString(layerText, sizeof(layerText));
        TextBuffer::append(buffer, size, "layer %d: %s\n", static_cast<int>(i), layerText);
    }
}

}  // namespace velto
