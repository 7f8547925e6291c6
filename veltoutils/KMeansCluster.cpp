#include "veltoutils/KMeansCluster.h"

#include <math.h>

#include <vector>

namespace velto {

int KMeansCluster::classify(float value) const {
    int best = -1;
    float bestDistance = 0.0f;
    for (size_t i = 0; i < mCenters.size(); ++i) {
        float d = fabsf(value - mCenters[i]);
        if (best < 0 || d < bestDistance) {  // strict: a tie keeps the lower index
            best = static_cast<int>(i);
            bestDistance = d;
        }
    }
    return best;
}

bool KMeansCluster::computeClusters(const android::Vector<float>& values) {
    mIterations = 0;
    if (values.isEmpty() || mCenters.isEmpty()) return false;

    std::vector<int> assignment(values.size(), -1);
    for (mIterations = 1; mIterations <= kMaxIterations; ++mIterations) {
        bool changed = false;
        for (size_t i = 0; i < values.size(); ++i) {
            int c = classify(values[i]);
            if (c != assignment[i]) {
                assignment[i] = c;
                changed = true;
            }
        }
        if (!changed) break;

        // Means in double precision: thousands of samples of four-digit values.
        std::vector<double> sums(mCenters.size(), 0.0);
        std::vector<size_t> counts(mCenters.size(), 0);
        for (size_t i = 0; i < values.size(); ++i) {
            sums[assignment[i]] += values[i];
            ++counts[assignment[i]];
        }
        android::Vector<float> moved;
        std::vector<int> renumber(mCenters.size(), -1);
        for (size_t c = 0; c < mCenters.size(); ++c) {
            if (counts[c] == 0) continue;  // an empty cluster is dropped
            renumber[c] = static_cast<int>(moved.size());
            moved.push(static_cast<float>(sums[c] / static_cast<double>(counts[c])));
        }
        for (int& a : assignment) a = renumber[a];
        mCenters = moved;
    }
    if (mIterations > kMaxIterations) mIterations = kMaxIterations;
    return true;
}

android::String8 KMeansCluster::getCentersAsString() const {
    android::String8 out("[");
    for (size_t i = 0; i < mCenters.size(); ++i) {
        out.appendFormat(i == 0 ? "%.2f" : ", %.2f", mCenters[i]);
    }
    out.append("]");
    return out;
}

}  // namespace velto
