#include "calibration/TwoLevelClustering.h"

#include <log/log.h>

namespace velto {

bool TwoLevelClustering::getMinMaxValue(const char* tag, const android::Vector<float>& values, float* minValue,
                                        float* maxValue) {
    if (values.isEmpty()) {
        __android_log_print(ANDROID_LOG_ERROR, tag, "Value buffer must not be empty.");
        return false;
    }
    if (minValue == nullptr || maxValue == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, tag, "minValue or maxValue must not be NULL.");
        return false;
    }
    float lo = values[0];
    float hi = values[0];
    for (size_t i = 1; i < values.size(); ++i) {
        if (values[i] > hi) {
            hi = values[i];
        } else if (values[i] < lo) {
            lo = values[i];
        }
    }
    *minValue = lo;
    *maxValue = hi;
    __android_log_print(ANDROID_LOG_INFO, tag, "Min don prox value: %f, max don prox value: %f",
                        static_cast<double>(lo), static_cast<double>(hi));
    return true;
}

void TwoLevelClustering::getClusterSizes(const char* tag, const KMeansCluster& clusters,
                                         const android::Vector<float>& values,
                                         android::Vector<unsigned int>* countsPerCluster) {
    if (countsPerCluster == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, tag, "countsPerCluster may not be NULL!");
        return;
    }
    countsPerCluster->clear();
    countsPerCluster->insertAt(0u, 0, static_cast<size_t>(clusters.getNumClusters()));
    for (size_t i = 0; i < values.size(); ++i) {
        const int c = clusters.classify(values[i]);
        if (c >= 0 && static_cast<size_t>(c) < countsPerCluster->size()) ++countsPerCluster->editItemAt(c);
    }
}

bool TwoLevelClustering::calculateTwoClusters(const char* tag, const android::Vector<float>& values,
                                              int minClusterSize, android::Vector<float>* centers) {
    __android_log_print(ANDROID_LOG_INFO, tag, "Calculating clusters on calibration data...");
    if (centers == nullptr) return false;
    if (values.isEmpty()) {
        __android_log_print(ANDROID_LOG_ERROR, tag, "No data found in the calibration buffer!  Cannot cluster the points!");
        return false;
    }
    if (centers->size() != 2) {
        __android_log_print(ANDROID_LOG_ERROR, tag,
                            "Error: calculateClusters needs to have 2 seed clusters as an argument!");
        return false;
    }
    KMeansCluster clusters;
    for (size_t i = 0; i < centers->size(); ++i) clusters.addCenter((*centers)[i]);
    __android_log_print(ANDROID_LOG_INFO, tag, "Initial clusters are: %s", clusters.getCentersAsString().string());
    clusters.computeClusters(values);
    *centers = clusters.getCenters();
    __android_log_print(ANDROID_LOG_INFO, tag, "Pre-culled clusters are: %s", clusters.getCentersAsString().string());
    if (clusters.getNumClusters() != 2) {
        __android_log_print(ANDROID_LOG_ERROR, tag, "Error: Expected two clusters but found %d!  Cannot calibrate!",
                            clusters.getNumClusters());
        return false;
    }
    android::Vector<unsigned int> counts;
    getClusterSizes(tag, clusters, values, &counts);
    __android_log_print(ANDROID_LOG_INFO, tag, "Cluster sizes are: %d and %d.  Minimum expected size is: %d",
                        static_cast<int>(counts[0]), static_cast<int>(counts[1]), minClusterSize);
    if (static_cast<long long>(counts[0]) < minClusterSize || static_cast<long long>(counts[1]) < minClusterSize) {
        __android_log_print(ANDROID_LOG_ERROR, tag, "One of the clusters was too small so failed to calibrate!");
        return false;
    }
    return true;
}

bool TwoLevelClustering::findTwoLevels(const char* tag, const android::Vector<float>& values, int minClusterSize,
                                       float lowLevel, float highLevel, float* lowerCenter, float* upperCenter) {
    android::Vector<float> centers;
    centers.push(lowLevel);
    centers.push(highLevel);
    if (!calculateTwoClusters(tag, values, minClusterSize, &centers)) {
        __android_log_print(ANDROID_LOG_ERROR, tag, "Error computing clusters!  User will need to recalibrate!");
        return false;
    }
    if (centers.size() != 2) {
        __android_log_print(ANDROID_LOG_ERROR, tag,
                            "Didn't find two clusters in the calibration data!  We cannot compute thresholds!");
        return false;
    }
    *lowerCenter = centers[0] < centers[1] ? centers[0] : centers[1];
    *upperCenter = centers[0] < centers[1] ? centers[1] : centers[0];
    return true;
}

bool TwoLevelClustering::areLevelsSeparated(const char* tag, float range, float minSeparation) {
    if (range < minSeparation) {
        __android_log_print(ANDROID_LOG_ERROR, tag,
                            "Error: Range %f was less than the minimal cluster separation for success: %f",
                            static_cast<double>(range), static_cast<double>(minSeparation));
        return false;
    }
    return true;
}

}  // namespace velto
