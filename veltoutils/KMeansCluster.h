#ifndef VELTO_KMEANS_CLUSTER_H
#define VELTO_KMEANS_CLUSTER_H

#include <utils/String8.h>
#include <utils/Vector.h>

namespace velto {

// One-dimensional k-means. Seed the centres with addCenter, then
// computeClusters moves them to the means of their members until no centre
// moves (or kMaxIterations passes). A centre that loses all its members is
// dropped, so fewer centres than seeded may remain.
class KMeansCluster {
public:
    static constexpr int kMaxIterations = 100;

    KMeansCluster() {}

    void addCenter(float center) { mCenters.push(center); }

    // False, with the centres unchanged, when there are no values or no seeds.
    bool computeClusters(const android::Vector<float>& values);

    const android::Vector<float>& getCenters() const { return mCenters; }
    int getNumClusters() const { return static_cast<int>(mCenters.size()); }
    // Iterations used by the last computeClusters.
    int getNumIterations() const { return mIterations; }

    // Index of the nearest centre; the lower index on a tie; -1 without centres.
    int classify(float value) const;

    // "[c0, c1, ...]" with two decimals.
    android::String8 getCentersAsString() const;

private:
    android::Vector<float> mCenters;
    int mIterations = 0;
};

}  // namespace velto

#endif  // VELTO_KMEANS_CLUSTER_H
