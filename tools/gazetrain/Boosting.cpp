#include "tools/gazetrain/Boosting.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <thread>

namespace velto {
namespace gazetools {

namespace {

// Runs fn(begin, end) over [0, n) in `threads` contiguous chunks.
void parallelChunks(size_t n, int threads, const std::function<void(size_t, size_t, int)>& fn) {
    const size_t t = static_cast<size_t>(std::max(1, threads));
    std::vector<std::thread> pool;
    for (size_t k = 1; k < t; ++k) pool.emplace_back(fn, n * k / t, n * (k + 1) / t, static_cast<int>(k));
    fn(0, n / t, 0);
    for (std::thread& th : pool) th.join();
}

// At most kMaxEdges thresholds at equal shares of the values, each halfway
// between two neighbouring values, strictly ascending.
std::vector<float> quantileEdges(const std::vector<float>& values) {
    std::vector<float> sample = values;
    const size_t s = sample.size();
    std::sort(sample.begin(), sample.end());
    std::vector<float> edges;
    const size_t slots = FeatureMatrix::kMaxEdges + 1;
    for (size_t k = 1; k < slots; ++k) {
        size_t i = k * s / slots;
        if (i == 0 || i >= s) continue;
        // Move to the next change of value, so that heavy ties do not hide
        // the thresholds between them.
        while (i < s && sample[i] == sample[i - 1]) ++i;
        if (i >= s) break;
        const float a = sample[i - 1], b = sample[i];
        float mid = a + (b - a) * 0.5f;
        if (!(mid < b)) mid = a;
        if (edges.empty() || mid > edges.back()) edges.push_back(mid);
    }
    return edges;
}

// The library's value of one feature on `count` windows.
void featureValues(const WeakClassifier& weak, const SeqSample* const* windows, const float* factors,
                   const char* hasMagnitude, size_t count, float* values) {
    for (size_t i = 0; i < count; ++i) values[i] = hasMagnitude[i] ? weak.scaledFeature(*windows[i], factors[i]) : 0.0f;
}

// The number of edges below each value, so that "value > edge k" is "bin >
// k": a branch-free binary search over kMaxEdges edges padded with infinity.
void binValues(const float* values, size_t count, const float* edges, uint8_t* bins) {
    for (size_t i = 0; i < count; ++i) {
        const float v = values[i];
        unsigned pos = 0;
        for (unsigned step = 128; step > 0; step >>= 1) pos += (edges[pos + step - 1] < v) ? step : 0;
        bins[i] = static_cast<uint8_t>(pos);
    }
}

struct Stump {
    double error = 2.0;
    size_t feature = 0;
    int edge = 0;
    int sign = 1;
};

bool better(const Stump& a, const Stump& b) {
    if (a.error != b.error) return a.error < b.error;
    if (a.feature != b.feature) return a.feature < b.feature;
    if (a.edge != b.edge) return a.edge < b.edge;
    return a.sign > b.sign;
}

}  // namespace

std::vector<WeakClassifier::Feature> enumerateFeatures(int length, const FeatureGrid& grid) {
    const int k = std::max(1, grid.stride);
    const int fineFrom = k == 1 ? 0 : std::max(0, length - grid.fineSpan);
    std::vector<WeakClassifier::Feature> out;
    for (int type = 0; type < 4; ++type) {
        const int blocks = (type == 1 || type == 3) ? 3 : 2;
        for (int size = 1; blocks * size <= length; ++size) {
            for (int gap = 0; blocks * size + (blocks - 1) * gap <= length; ++gap) {
                const int span = blocks * size + (blocks - 1) * gap;
                const bool coarse = size % k == 0 && gap % k == 0;
                for (int start = 0; start + span <= length; ++start) {
                    const bool fine = start >= fineFrom;
                    if (!fine && !(coarse && (length - start - span) % k == 0)) continue;
                    WeakClassifier::Feature f;
                    f.type = type;
                    f.start_offset = start;
                    f.block_size = size;
                    f.block_interval = gap;
                    f.updateInversePosBlockSize();
                    out.push_back(f);
                }
            }
        }
    }
    return out;
}

FeatureMatrix::FeatureMatrix(const std::vector<WeakClassifier::Feature>& features,
                             const std::vector<const SeqSample*>& windows, const FeatureScaling& scaling, int threads)
    : mFeatures(features), mNumWindows(windows.size()) {
    const size_t n = mNumWindows, numFeatures = features.size();
    mBins.reset(new uint8_t[numFeatures * n]);
    mEdges.assign(numFeatures, {});
    const float falloff = scaling.falloff, falloffSquared = scaling.falloff * scaling.falloff;
    // The window-wide factor, as the ensemble computes it once per window.
    std::vector<float> factors(n);
    std::vector<char> hasMagnitude(n);
    for (size_t i = 0; i < n; ++i) {
        float factor = 1.0f;
        hasMagnitude[i] = WeakClassifier::getFeatureFactor(*windows[i], scaling.normalize, falloff, falloffSquared,
                                                           &factor);
        factors[i] = factor;
    }
    std::vector<WeakClassifier> weaks;
    weaks.reserve(numFeatures);
    for (const WeakClassifier::Feature& f : features) weaks.emplace_back(f, 1, 0.0f, 1.0f);

    // The thresholds of each feature come from an evenly spread sample of the
    // windows; padded with infinity for the search in binValues.
    const size_t sampleSize = std::min<size_t>(n, 1024);
    std::vector<const SeqSample*> sampleWindows(sampleSize);
    std::vector<float> sampleFactors(sampleSize);
    std::vector<char> sampleHasMagnitude(sampleSize);
    for (size_t k = 0; k < sampleSize; ++k) {
        const size_t i = k * n / sampleSize;
        sampleWindows[k] = windows[i];
        sampleFactors[k] = factors[i];
        sampleHasMagnitude[k] = hasMagnitude[i];
    }
    std::vector<float> padded(numFeatures * kMaxEdges);
    parallelChunks(numFeatures, threads, [&](size_t begin, size_t end, int) {
        std::vector<float> values(sampleSize);
        for (size_t f = begin; f < end; ++f) {
            featureValues(weaks[f], sampleWindows.data(), sampleFactors.data(), sampleHasMagnitude.data(), sampleSize,
                          values.data());
            mEdges[f] = quantileEdges(values);
            float* p = &padded[f * kMaxEdges];
            std::copy(mEdges[f].begin(), mEdges[f].end(), p);
            std::fill(p + mEdges[f].size(), p + kMaxEdges, std::numeric_limits<float>::infinity());
        }
    });

    // Bins, a block of windows at a time so that their sums stay in the cache
    // while every feature reads them.
    const size_t block = 256;
    const size_t numBlocks = (n + block - 1) / block;
    parallelChunks(numBlocks, threads, [&](size_t begin, size_t end, int) {
        float values[block];
        for (size_t b = begin; b < end; ++b) {
            const size_t lo = b * block, count = std::min(n, lo + block) - lo;
            for (size_t f = 0; f < numFeatures; ++f) {
                featureValues(weaks[f], &windows[lo], &factors[lo], &hasMagnitude[lo], count, values);
                binValues(values, count, &padded[f * kMaxEdges], &mBins[f * n + lo]);
            }
        }
    });
}

float thresholdForDetection(std::vector<float> positiveScores, double minDetection) {
    if (positiveScores.empty()) return 0.0f;
    std::sort(positiveScores.rbegin(), positiveScores.rend());
    const size_t n = positiveScores.size();
    size_t k = static_cast<size_t>(std::ceil(minDetection * static_cast<double>(n) - 1e-9));
    k = std::clamp<size_t>(k, 1, n);
    const float keep = positiveScores[k - 1];
    // The next lower score, if any.
    float below = -1.00001f;
    for (size_t i = k; i < n; ++i) {
        if (positiveScores[i] < keep) {
            below = positiveScores[i];
            break;
        }
    }
    float thr = below + (keep - below) * 0.5f;
    if (!(thr < keep)) thr = std::nextafter(keep, -2.0f);
    return std::clamp(thr, -EnsembleClassifier::kMaxNormalizedSum, 1.0f);
}

bool normalizeLayer(EnsembleClassifier* layer) {
    double sum = 0.0;
    for (int i = 0; i < layer->numWeaks(); ++i) {
        if (!(layer->weak(i)->alpha() > 0.0f)) return false;
        sum += layer->weak(i)->alpha();
    }
    double scale = 1.0 / sum;
    for (;;) {
        float check = 0.0f;
        for (int i = 0; i < layer->numWeaks(); ++i) check += static_cast<float>(layer->weak(i)->alpha() * scale);
        if (check <= 1.0f) break;
        scale *= 1.0 - 1e-7;
    }
    for (int i = 0; i < layer->numWeaks(); ++i) {
        WeakClassifier* w = layer->editWeak(i);
        w->setAlpha(static_cast<float>(w->alpha() * scale));
    }
    layer->setThreshold(static_cast<float>(layer->threshold() * scale));
    return true;
}

LayerResult trainLayer(const FeatureMatrix& matrix, size_t numPositives, const std::vector<const SeqSample*>& windows,
                       const FeatureScaling& scaling, const LayerParams& params,
                       const std::function<void(int weaks, double falsePositive)>& progress) {
    const size_t n = matrix.numWindows();
    const size_t numNegatives = n - numPositives;
    std::vector<double> weights(n);
    for (size_t i = 0; i < n; ++i) weights[i] = i < numPositives ? 0.5 / numPositives : 0.5 / numNegatives;
    std::vector<double> scores(n, 0.0);
    std::vector<Stump> chosen;
    std::vector<double> alphas;

    const int threads = std::max(1, params.threads);
    std::vector<Stump> bestOfThread(static_cast<size_t>(threads));
    for (int round = 0; round < params.maxWeaks; ++round) {
        double positiveWeight = 0.0, total = 0.0;
        for (size_t i = 0; i < n; ++i) {
            total += weights[i];
            if (i < numPositives) positiveWeight += weights[i];
        }
        const double negativeWeight = total - positiveWeight;
        std::fill(bestOfThread.begin(), bestOfThread.end(), Stump());
        parallelChunks(matrix.numFeatures(), threads, [&](size_t begin, size_t end, int t) {
            double pos[256], neg[256];
            Stump best;
            for (size_t f = begin; f < end; ++f) {
                const uint8_t* bins = matrix.bins(f);
                const int edges = static_cast<int>(matrix.edges(f).size());
                if (edges == 0) continue;
                std::fill(pos, pos + edges + 1, 0.0);
                std::fill(neg, neg + edges + 1, 0.0);
                for (size_t i = 0; i < numPositives; ++i) pos[bins[i]] += weights[i];
                for (size_t i = numPositives; i < n; ++i) neg[bins[i]] += weights[i];
                double posBelow = 0.0, negBelow = 0.0;
                for (int k = 0; k < edges; ++k) {
                    posBelow += pos[k];
                    negBelow += neg[k];
                    // sign +1 calls "value > edge" positive.
                    const double plus = posBelow + (negativeWeight - negBelow);
                    const double minus = (positiveWeight - posBelow) + negBelow;
                    Stump s;
                    s.feature = f;
                    s.edge = k;
                    s.sign = plus <= minus ? 1 : -1;
                    s.error = std::min(plus, minus);
                    if (better(s, best)) best = s;
                }
            }
            bestOfThread[static_cast<size_t>(t)] = best;
        });
        Stump best;
        for (const Stump& s : bestOfThread) {
            if (better(s, best)) best = s;
        }
        const double error = std::max(best.error / total, 1e-10);
        if (best.error > 1.0 || error >= 0.5) break;
        const double alpha = 0.5 * std::log((1.0 - error) / error);
        chosen.push_back(best);
        alphas.push_back(alpha);

        const uint8_t* bins = matrix.bins(best.feature);
        double sum = 0.0;
        for (size_t i = 0; i < n; ++i) {
            const int h = best.sign * (bins[i] > best.edge ? 1 : -1);
            const int y = i < numPositives ? 1 : -1;
            scores[i] += alpha * h;
            weights[i] *= std::exp(-alpha * y * h);
            sum += weights[i];
        }
        for (double& w : weights) w /= sum;

        // Where would the layer stand with its threshold set now?
        std::vector<double> pos(scores.begin(), scores.begin() + static_cast<long>(numPositives));
        std::sort(pos.rbegin(), pos.rend());
        size_t k = static_cast<size_t>(std::ceil(params.minDetection * numPositives - 1e-9));
        k = std::clamp<size_t>(k, 1, numPositives);
        const double keep = pos[k - 1];
        size_t falsePositives = 0;
        for (size_t i = numPositives; i < n; ++i) falsePositives += scores[i] >= keep;
        const double fp = static_cast<double>(falsePositives) / numNegatives;
        if (progress) progress(static_cast<int>(chosen.size()), fp);
        if (static_cast<int>(chosen.size()) >= params.minWeaks && fp <= params.maxFalsePositive) break;
    }

    LayerResult result;
    result.layer.reset(new EnsembleClassifier());
    for (size_t k = 0; k < chosen.size(); ++k) {
        const Stump& s = chosen[k];
        const float threshold = matrix.edges(s.feature)[static_cast<size_t>(s.edge)];
        result.layer->addWeak(new WeakClassifier(matrix.feature(s.feature), s.sign, threshold,
                                                 static_cast<float>(alphas[k])));
    }
    if (chosen.empty()) {
        // Nothing separates the examples: a layer that passes everything.
        WeakClassifier::Feature f;
        f.block_size = 1;
        result.layer->addWeak(new WeakClassifier(f, 1, -1e30f, 1.0f));
    }
    normalizeLayer(result.layer.get());

    // The library's own scores decide the threshold.
    const float falloffSquared = scaling.falloff * scaling.falloff;
    result.scores.resize(n);
    for (size_t i = 0; i < n; ++i) {
        result.layer->classify(*windows[i], scaling.normalize, scaling.falloff, falloffSquared, &result.scores[i]);
    }
    result.layer->setThreshold(thresholdForDetection(
            std::vector<float>(result.scores.begin(), result.scores.begin() + static_cast<long>(numPositives)),
            params.minDetection));
    result.passed.resize(n);
    size_t passedPositives = 0, passedNegatives = 0;
    for (size_t i = 0; i < n; ++i) {
        result.passed[i] = result.scores[i] > result.layer->threshold();
        (i < numPositives ? passedPositives : passedNegatives) += result.passed[i];
    }
    result.detection = numPositives > 0 ? static_cast<double>(passedPositives) / numPositives : 1.0;
    result.falsePositive = numNegatives > 0 ? static_cast<double>(passedNegatives) / numNegatives : 0.0;
    return result;
}

}  // namespace gazetools
}  // namespace velto
