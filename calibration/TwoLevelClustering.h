#ifndef VELTO_TWO_LEVEL_CLUSTERING_H
#define VELTO_TWO_LEVEL_CLUSTERING_H

#include <utils/Vector.h>

#include "veltoutils/KMeansCluster.h"

namespace velto {

// The clustering steps that the don/doff and look-at-screen calibrators share:
// readings collected in a calibration session fall into two levels, which a
// seeded two-centre k-means separates. Each step logs under the tag of the
// calibrator that runs it.
class TwoLevelClustering {
public:
    // The extremes of a non-empty vector.
    static bool getMinMaxValue(const char* tag, const android::Vector<float>& values, float* minValue,
                               float* maxValue);

    // One count per cluster: the values nearest to each centre.
    static void getClusterSizes(const char* tag, const KMeansCluster& clusters, const android::Vector<float>& values,
                                android::Vector<unsigned int>* countsPerCluster);

    // Runs k-means from the two seeds in `centers` and replaces them by the
    // resulting centres. Fails unless two clusters of at least minClusterSize
    // values each come out.
    static bool calculateTwoClusters(const char* tag, const android::Vector<float>& values, int minClusterSize,
                                     android::Vector<float>* centers);

    // The calibration step both calibrators take: clusters `values` from the
    // seeds (lowLevel, highLevel) and gives the two centres in order. False,
    // with the reason logged, unless two big enough clusters come out.
    static bool findTwoLevels(const char* tag, const android::Vector<float>& values, int minClusterSize,
                              float lowLevel, float highLevel, float* lowerCenter, float* upperCenter);

    // False, logged, when the centres lie less than `minSeparation` apart.
    static bool areLevelsSeparated(const char* tag, float range, float minSeparation);

private:
    TwoLevelClustering() = delete;
};

}  // namespace velto

#endif  // VELTO_TWO_LEVEL_CLUSTERING_H
